// What the suite needs of the platform beyond the IVoxa interface: on a device the instances run
// in their own processes; on the host HostEnvironment.cpp registers them over the fake PAL, whose
// engine raises results on every started stream and refuses to start a second stream while one
// runs. Called once, before the instances are listed.
#ifndef VOXA_VTS_ENVIRONMENT_H
#define VOXA_VTS_ENVIRONMENT_H

namespace voxa_vts {

#ifdef __ANDROID__
inline void startInstances() {}
#else
void startInstances();
#endif

}  // namespace voxa_vts

#endif  // VOXA_VTS_ENVIRONMENT_H
