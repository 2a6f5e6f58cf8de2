// Frozen interface definition, kept exactly as it was released. Do not edit it: changes go
// into the definitions under interface/vendor and ship as a new version, and the .hash file
// of this version's folder covers every byte of this file.

package vendor.orbo.hardware.voxa;

@Backing(type="int") @VintfStability
enum ParameterType {
  INVALID = -1,
  FORCE_OUTPUT_EVENT = 0,
  CUSTOM_EXTRAS = 1,
}
