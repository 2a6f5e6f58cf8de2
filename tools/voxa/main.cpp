// voxa: the host process of the voxa speech-recognition service on the recogniser-backed PAL
// engine (host/), and a client of the service (client/), in one program. See docs/VOXA.md.
#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <iostream>
#include <string>
#include <vector>

#include "Cli.h"
#include "EngineHost.h"
#include "Options.h"
#include "Signals.h"

namespace {

// `voxa replay` runs on the scripted engine, which is another PAL than this executable's: it is
// served by voxa-replay, installed beside voxa.
void replayOnTheScriptedEngine(char** argv) {
    std::vector<char> self(4096);
    ssize_t length = readlink("/proc/self/exe", self.data(), self.size() - 1);
    if (length <= 0) return;
    std::string replay(self.data(), static_cast<size_t>(length));
    replay = replay.substr(0, replay.rfind('/') + 1) + "voxa-replay";
    argv[0] = replay.data();
    execv(replay.c_str(), argv);
    std::cerr << "voxa: cannot run " << replay << ": " << strerror(errno) << "\n";
    exit(voxa_tool::kExitFailure);
}

}  // namespace

int main(int argc, char** argv) {
    const std::vector<std::string> args(argv + 1, argv + argc);
    voxa_tool::Options options;
    if (voxa_tool::parseOptions(args, &options).isOk() &&
        options.command == voxa_tool::Command::Replay) {
        replayOnTheScriptedEngine(argv);
    }
    // Before any thread starts, so that every thread leaves the signals to the watcher.
    voxa_tool::watchSignals();
    voxa_tool::EngineHost host;
    const voxa_tool::Console console{std::cout, std::cerr, isatty(STDOUT_FILENO) == 1,
                                     isatty(STDERR_FILENO) == 1};
    return voxa_tool::runVoxa(args, host, console);
}
