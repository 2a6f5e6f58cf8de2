package vendor.orbo.hardware.voxa;

/**
 * Service-wide notifications, implemented by one client.
 */
@VintfStability
interface IVoxaGlobalCallback {
  /** Engine resources are available again. */
  void onResourcesAvailable();
}
