package vendor.orbo.hardware.voxa;

/**
 * The service-specific error code of a failing IVoxa operation; the status message is the
 * member's name. Success is the plain OK status, not a member.
 */
@Backing(type="int") @VintfStability
enum ServiceError {
  INVALID = -1,
  RESOURCE_CONTENTION = -2,
  OPERATION_NOT_SUPPORTED = -3,
  FAILURE = -4,
}
