package vendor.orbo.hardware.voxa;

/**
 * How a session recognises, sent with IVoxa.startListening. Each language is carried twice, as an
 * enumeration and as a text code; the two are independent fields.
 */
@VintfStability
parcelable VoxaConfig {
  vendor.orbo.hardware.voxa.LanguageCode input_language_code;
  vendor.orbo.hardware.voxa.LanguageCode output_language_code;
  boolean enable_language_detection;
  boolean enable_translation;
  boolean enable_continuous_mode;
  boolean enable_partial_transcription;
  int threshold;
  int timeout_duration;
  /** Length of the silence that ends an utterance. */
  int silence_detection_duration;
  /** Buffered output on or off. */
  boolean outputBufferMode;
  /** Opaque extra configuration for the engine. */
  byte[] data;
  /** Input language as a text code such as "en-US", as listed by IVoxa.getSupportedLanguages. */
  String input_lang_code;
  /** Output language as a text code. */
  String output_lang_code;
  vendor.orbo.hardware.voxa.TranscriptionMode mode;
  /** Deliver time-stamped results (VoxaEvent.timestamp_events). */
  boolean enable_text_timestamp;
  /** Deliver SpeakerDiarizationEvents. */
  boolean enable_speaker_diarization;
}
