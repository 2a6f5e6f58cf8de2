// Loads the PAL that the service runs on, as a device's service process loads its PAL: a shared
// library that exports the PAL functions (pal/pal_api.h) and the entry point of its host
// controls.
#ifndef VOXA_TOOL_PAL_LOADER_H
#define VOXA_TOOL_PAL_LOADER_H

#include <string>

#include "Status.h"

namespace voxa_tool {

// Loads the library at `path` for the rest of the process, its symbols visible to the libraries
// loaded after it: the service library's PAL calls bind to its functions. Call before
// loadService, once. Sets `*controls` to what its entry point `entryPoint` (a C function without
// parameters) returns.
Status loadPal(const std::string& path, const char* entryPoint, const void** controls);

}  // namespace voxa_tool

#endif  // VOXA_TOOL_PAL_LOADER_H
