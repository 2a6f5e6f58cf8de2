// voxa: the host process of the voxa speech-recognition service on the recogniser-backed PAL
// engine (host/), and a client of the service (client/), in one program. See docs/VOXA.md.
#include <unistd.h>

#include <iostream>
#include <string>
#include <vector>

#include "Cli.h"
#include "EngineHost.h"
#include "Signals.h"

int main(int argc, char** argv) {
    // Before any thread starts, so that every thread leaves the signals to the watcher.
    voxa_tool::watchSignals();
    voxa_tool::EngineHost host;
    const voxa_tool::Console console{std::cout, std::cerr, isatty(STDOUT_FILENO) == 1,
                                     isatty(STDERR_FILENO) == 1};
    return voxa_tool::runVoxa(std::vector<std::string>(argv + 1, argv + argc), host, console);
}
