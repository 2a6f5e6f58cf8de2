#pragma once

// What the suite needs of the platform beyond the IVoxa interface. On a device the instances run
// in their own processes; on the host HostEnvironment.cpp provides both functions.

#include <android/binder_ibinder.h>

namespace voxa_vts {

#ifdef __ANDROID__

inline void startInstances() {}

// Killing a client needs the client in a second process, which this suite does not start.
inline bool killClientProcess(AIBinder*) {
    return false;
}

#else

// Registers the instances of IVoxa, each over a PAL whose engine raises results on every started
// stream and refuses to start a second stream while one runs. Called before the instances are
// listed; later calls do nothing.
void startInstances();

// Declares the process that holds `client` dead, as if it had crashed, and returns once the
// service has been told; true when done.
bool killClientProcess(AIBinder* client);

#endif

}  // namespace voxa_vts
