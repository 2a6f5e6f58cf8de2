// Frozen interface definition, kept exactly as it was released. Do not edit it: changes go
// into the definitions under interface/vendor and ship as a new version, and the .hash file
// of this version's folder covers every byte of this file.

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
