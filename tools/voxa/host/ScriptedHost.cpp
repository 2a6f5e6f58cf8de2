#include "ScriptedHost.h"

#include <pal/pal_scripted.h>

#include <chrono>

#include "ServiceLoader.h"

namespace voxa_tool {

Status ScriptedHost::startService(const std::string& library) {
    return loadService(library);
}

std::string ScriptedHost::engineUuid() {
    // The scripted engine takes any model; this one names it in the service's logs and dump.
    return "5c41b5a0-0e6f-4c57-9d1e-2f3a8b7c6d5e";
}

Status ScriptedHost::openInput(const InputRequest& request, InputInfo* info) {
    if (request.path == kStandardInput)
        return Status::usage("replay reads its scenario from a file");
    const std::string error = pal_scripted::loadScenarioFile(request.path);
    if (!error.empty()) return Status::failure(error);
    info->name = request.path;
    return Status::ok();
}

InputEnd ScriptedHost::waitUntilInputEnds() {
    std::string error;
    if (pal_scripted::waitUntilPlayed(std::chrono::milliseconds(-1), &error) != 0 &&
        !error.empty()) {
        mErr << "voxa: " << error << "\n";
    }
    return InputEnd();
}

}  // namespace voxa_tool
