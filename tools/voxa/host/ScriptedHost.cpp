#include "ScriptedHost.h"

#include <unistd.h>

#include "InputFile.h"
#include "PalLoader.h"
#include "ServiceLoader.h"

namespace voxa_tool {

Status ScriptedHost::load(const std::string& library, std::unique_ptr<Host>* host) {
    const void* controls = nullptr;
    Status status = loadPal(library, "pal_scripted_controls", &controls);
    if (status.isOk()) {
        *host = std::make_unique<ScriptedHost>(
                *static_cast<const pal_scripted::Controls*>(controls));
    }
    return status;
}

Status ScriptedHost::startService(const std::string& library) {
    return loadService(library);
}

std::string ScriptedHost::engineUuid() {
    // The scripted engine takes any model; this one names it in the service's logs and dump.
    return "5c41b5a0-0e6f-4c57-9d1e-2f3a8b7c6d5e";
}

Status ScriptedHost::openInput(const InputRequest& request, InputInfo* info) {
    if (request.path == kStandardInput) {
        return Status::usage("replay reads its scenario from a file");
    }
    int fd = -1;
    Status status = openInputFile(request.path, &fd);
    if (!status.isOk()) return status;
    std::string text;
    char buffer[65536];
    ssize_t count;
    while ((count = read(fd, buffer, sizeof(buffer))) > 0) text.append(buffer, count);
    close(fd);
    if (count < 0) return Status::failure("cannot read " + request.path);
    const std::string error = mEngine.loadScenario(text, request.path);
    if (!error.empty()) return Status::failure(error);
    info->name = request.path;
    return Status::ok();
}

InputEnd ScriptedHost::waitUntilInputEnds() {
    InputEnd end;
    mEngine.waitUntilPlayedOrStopped(&end.error);
    return end;
}

}  // namespace voxa_tool
