// The library's one entry point, called once by the host process: builds the service object and
// publishes it with the service manager as "vendor.orbo.hardware.voxa.IVoxa/default".
// Returns 0, the service manager's status when it refuses the registration, or
// PAL_STATUS_NOT_SUPPORTED (-38) when the service object could not be built.
#ifndef VOXA_SERVICE_SERVICE_H
#define VOXA_SERVICE_SERVICE_H

extern "C" __attribute__((visibility("default"))) int registerService();

#endif  // VOXA_SERVICE_SERVICE_H
