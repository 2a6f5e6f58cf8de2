// voxa: the host process of the voxa speech-recognition service and a client of it in one
// program. See docs/VOXA.md.
#include <unistd.h>

#include <iostream>
#include <string>
#include <vector>

#include "Cli.h"

int main(int argc, char** argv) {
    std::vector<std::string> args(argv + 1, argv + argc);
    return voxa_tool::runVoxa(args, std::cout, std::cerr, isatty(STDERR_FILENO) == 1);
}
