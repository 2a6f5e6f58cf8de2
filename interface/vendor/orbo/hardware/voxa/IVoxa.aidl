package vendor.orbo.hardware.voxa;

/**
 * On-device speech recognition. A session is named by the handle that initSession returns; a
 * failing operation returns a service-specific error with a ServiceError code.
 */
@VintfStability
interface IVoxa {
  /** Sets the one callback told when engine resources are free again; watches its holder. */
  void registerGlobalCallback(in vendor.orbo.hardware.voxa.IVoxaGlobalCallback callback);
  /** Opens a session, loads the model into it and returns its handle; results go to callback. */
  int initSession(in vendor.orbo.hardware.voxa.VoxaModel model, in vendor.orbo.hardware.voxa.IVoxaCallback callback);
  void startListening(int handle, in vendor.orbo.hardware.voxa.VoxaConfig config);
  void setParameter(int handle, in vendor.orbo.hardware.voxa.VoxaParameter parameter);
  /** Stops recognition; the session and its model stay. */
  void stopListening(int handle);
  /** Stops and closes the session and forgets the handle. */
  void releaseSession(int handle);
  /** Appends one "name : code" row per supported language, the same rows for every handle. */
  void getSupportedLanguages(int handle, out List<String> languages);
}
