// voxa-replay: the voxa program on the scripted engine (host/ScriptedHost.h), which `voxa replay`
// runs. The client part is the same as voxa's.
#include <unistd.h>

#include <iostream>
#include <string>
#include <vector>

#include "Cli.h"
#include "ScriptedHost.h"
#include "Signals.h"

int main(int argc, char** argv) {
    voxa_tool::watchSignals();
    voxa_tool::ScriptedHost host;
    const voxa_tool::Console console{std::cout, std::cerr, isatty(STDOUT_FILENO) == 1,
                                     isatty(STDERR_FILENO) == 1};
    return voxa_tool::runVoxa(std::vector<std::string>(argv + 1, argv + argc), host, console);
}
