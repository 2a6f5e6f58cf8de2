// Frozen interface definition, kept exactly as it was released. Do not edit it: changes go
// into the definitions under interface/vendor and ship as a new version, and the .hash file
// of this version's folder covers every byte of this file.

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
