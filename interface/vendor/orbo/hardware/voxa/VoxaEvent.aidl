package vendor.orbo.hardware.voxa;

/**
 * A speech-recognition result, delivered with IVoxaCallback.onAsrEvent. Exactly one of the two
 * lists is present: events for plain results, timestamp_events for time-stamped ones.
 */
@VintfStability
parcelable VoxaEvent {
  /** 0 when the engine reported success, 2 when it reported anything else, -1 until filled. */
  int status = -1;
  @nullable vendor.orbo.hardware.voxa.VoxaEvent.Event[] events;
  @nullable vendor.orbo.hardware.voxa.VoxaEvent.EventTS[] timestamp_events;
  /** A plain result. */
  @VintfStability
  parcelable Event {
    boolean flag;
    int value;
    String text;
    String aux_text;
    byte[] data;
  }
  /** A result with the time span of the utterance and of each word. */
  @VintfStability
  parcelable EventTS {
    boolean flag;
    int value;
    String text;
    String aux_text;
    long start_ts;
    long end_ts;
    /** The engine's word count, kept as reported even when it is zero or negative. */
    int word_count;
    vendor.orbo.hardware.voxa.VoxaEvent.Word[] words;
    byte[] data;
  }
  /** One word of a time-stamped result. */
  @VintfStability
  parcelable Word {
    int value;
    long start_ts;
    long end_ts;
    String word;
  }
}
