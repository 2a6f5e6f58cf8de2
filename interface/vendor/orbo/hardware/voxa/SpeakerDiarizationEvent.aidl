package vendor.orbo.hardware.voxa;

/**
 * A speaker-diarization result, delivered with IVoxaCallback.onSdzEvent.
 */
@VintfStability
parcelable SpeakerDiarizationEvent {
  vendor.orbo.hardware.voxa.SpeakerDiarizationEvent.Event[] events;
  @VintfStability
  parcelable Event {
    /** Number of speaker entries that the engine reported. */
    int speaker_count;
    boolean flag;
    vendor.orbo.hardware.voxa.SpeakerDiarizationEvent.SpeakerInfo[] speakers;
    byte[] data;
  }
  /** One speaker's segment; value identifies the speaker. */
  @VintfStability
  parcelable SpeakerInfo {
    int value;
    long start_ts;
    long end_ts;
  }
}
