// voxa: the host process of the voxa speech-recognition service (host/) and a client of it
// (client/), in one program. The PAL underneath is loaded when the program starts, as a device's
// service process loads its PAL: the recogniser-backed engine, or for `voxa replay` the scripted
// one. See docs/VOXA.md.
#include <unistd.h>

#include <iostream>
#include <memory>
#include <string>
#include <vector>

#include "Cli.h"
#include "EngineHost.h"
#include "ScriptedHost.h"
#include "Signals.h"

namespace {

voxa_tool::Status makeHost(voxa_tool::Command command, std::unique_ptr<voxa_tool::Host>* host) {
    if (command == voxa_tool::Command::Replay) {
        return voxa_tool::ScriptedHost::load(VOXA_SCRIPTED_PAL, host);
    }
    return voxa_tool::EngineHost::load(VOXA_ENGINE_PAL, host);
}

}  // namespace

int main(int argc, char** argv) {
    // Before any thread starts, so that every thread leaves the signals to the watcher.
    voxa_tool::watchSignals();
    const voxa_tool::Console console{std::cout, std::cerr, isatty(STDOUT_FILENO) == 1,
                                     isatty(STDERR_FILENO) == 1};
    return voxa_tool::runVoxa(std::vector<std::string>(argv + 1, argv + argc), makeHost, console);
}
