// Frozen interface definition, kept exactly as it was released. Do not edit it: changes go
// into the definitions under interface/vendor and ship as a new version, and the .hash file
// of this version's folder covers every byte of this file.

package vendor.orbo.hardware.voxa;

/**
 * Service-wide notifications, implemented by one client.
 */
@VintfStability
interface IVoxaGlobalCallback {
  /** Engine resources are available again. */
  void onResourcesAvailable();
}
