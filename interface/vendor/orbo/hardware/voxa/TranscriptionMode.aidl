package vendor.orbo.hardware.voxa;

/**
 * When results are delivered: the two partial modes first, each pair with its command or event
 * member ahead.
 */
@Backing(type="int") @VintfStability
enum TranscriptionMode {
  PARTIAL_COMMAND = 0,
  PARTIAL_CONTINUOUS = 1,
  BUFFERED_EVENT = 2,
  BUFFERING = 3,
}
