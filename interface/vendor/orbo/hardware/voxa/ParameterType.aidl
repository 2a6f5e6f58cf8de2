package vendor.orbo.hardware.voxa;

@Backing(type="int") @VintfStability
enum ParameterType {
  INVALID = -1,
  FORCE_OUTPUT_EVENT = 0,
  CUSTOM_EXTRAS = 1,
}
