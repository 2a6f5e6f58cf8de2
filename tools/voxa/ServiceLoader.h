// Brings the voxa service up inside this process, as a device's host process does: loads the
// service library, calls its registerService, and fetches IVoxa from the service manager by its
// instance name. The library's PAL symbols resolve against the PAL that this executable exports.
#ifndef VOXA_TOOL_SERVICE_LOADER_H
#define VOXA_TOOL_SERVICE_LOADER_H

#include <aidl/vendor/orbo/hardware/voxa/IVoxa.h>

#include <memory>
#include <string>

namespace voxa_tool {

// The instance name under which the service registers itself.
std::string serviceInstance();

// Returns "" and sets `*service`, or returns a message saying what failed. When the service is
// registered already (an earlier call in this process), that one is returned and the library is
// not asked to register again: a second service object would leave the first one's
// resources-available registration with the PAL behind. The library stays loaded until the
// process exits, since the service manager keeps objects that live in it.
std::string loadService(const std::string& library,
                        std::shared_ptr<aidl::vendor::orbo::hardware::voxa::IVoxa>* service);

}  // namespace voxa_tool

#endif  // VOXA_TOOL_SERVICE_LOADER_H
