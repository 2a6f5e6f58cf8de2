// Frozen interface definition, kept exactly as it was released. Do not edit it: changes go
// into the definitions under interface/vendor and ship as a new version, and the .hash file
// of this version's folder covers every byte of this file.

package vendor.orbo.hardware.voxa;

/**
 * A session's results, implemented by the client. handle is the session's handle.
 */
@VintfStability
interface IVoxaCallback {
  /** Plain or time-stamped results; which list of event is present tells them apart. */
  void onAsrEvent(int handle, in vendor.orbo.hardware.voxa.VoxaEvent event);
  void onSdzEvent(int handle, in vendor.orbo.hardware.voxa.SpeakerDiarizationEvent event);
}
