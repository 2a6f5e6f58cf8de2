// Brings the voxa service up inside this process, as a device's host process does: loads the
// service library and calls its registerService, which publishes the service object in the
// service manager. The library's PAL symbols resolve against the PAL loaded before it
// (PalLoader.h).
#ifndef VOXA_TOOL_SERVICE_LOADER_H
#define VOXA_TOOL_SERVICE_LOADER_H

#include <string>

#include "Status.h"

namespace voxa_tool {

// When the service is registered already (an earlier call in this process), the library is not
// asked to register again: a second service object would leave the first one's
// resources-available registration with the PAL behind. The library stays loaded until the
// process exits, since the service manager keeps objects that live in it.
Status loadService(const std::string& library);

}  // namespace voxa_tool

#endif  // VOXA_TOOL_SERVICE_LOADER_H
