package vendor.orbo.hardware.voxa;

/**
 * One parameter for a running session, sent with IVoxa.setParameter.
 */
@VintfStability
parcelable VoxaParameter {
  vendor.orbo.hardware.voxa.ParameterType param;
  /** The parameter's value, passed to the engine unchanged. */
  byte[] data;
}
