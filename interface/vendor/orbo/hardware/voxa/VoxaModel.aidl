package vendor.orbo.hardware.voxa;

/**
 * The speech model that a session loads, sent with IVoxa.initSession.
 */
@VintfStability
parcelable VoxaModel {
  /** The engine module's UUID as text, "xxxxxxxx-xxxx-xxxx-xxxx-xxxxxxxxxxxx" in hexadecimal. */
  String vendorUuid;
  /** The model image; its descriptor number is handed to the engine. */
  ParcelFileDescriptor data;
  /** Size of the model image in bytes. */
  int dataSize;
}
