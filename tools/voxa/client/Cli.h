// The voxa program as a function, so that it runs the same from main and from a test.
#ifndef VOXA_TOOL_CLI_H
#define VOXA_TOOL_CLI_H

#include <aidl/vendor/orbo/hardware/voxa/IVoxa.h>

#include <functional>
#include <memory>
#include <ostream>
#include <string>
#include <vector>

#include "Host.h"
#include "Options.h"
#include "Status.h"

namespace voxa_tool {

// Where the program writes: results to `out`, notes and errors to `err`, each either a terminal
// or not.
struct Console {
    std::ostream& out;
    std::ostream& err;
    bool outIsTerminal = false;
    bool errIsTerminal = false;
};

// Has `host` bring the service up from `library` and finds it as any client does: by its
// instance name in the service manager.
Status connectToService(Host& host, const std::string& library,
                        std::shared_ptr<aidl::vendor::orbo::hardware::voxa::IVoxa>* service);

// Writes the service's state report (its binder's dump, as dumpsys shows it) to `fd`.
Status dumpService(aidl::vendor::orbo::hardware::voxa::IVoxa& service, int fd);

// Makes the host part that `command` runs on, which brings up the service on its PAL.
using HostMaker = std::function<Status(Command command, std::unique_ptr<Host>* host)>;

// Runs the program with `args`, the arguments after its name, on the service that the host from
// `makeHost` brings up (none is made for --help and --version). Sets liblog's minimum priority
// for the whole process (the service's log lines show only with --verbose). Returns the exit
// status (Status.h).
int runVoxa(const std::vector<std::string>& args, const HostMaker& makeHost,
            const Console& console);

}  // namespace voxa_tool

#endif  // VOXA_TOOL_CLI_H
