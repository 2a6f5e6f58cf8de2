// Frozen interface definition, kept exactly as it was released. Do not edit it: changes go
// into the definitions under interface/vendor and ship as a new version, and the .hash file
// of this version's folder covers every byte of this file.

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
