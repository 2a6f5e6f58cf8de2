// How a command of the program ended: its exit status and, on failure, what to tell the user.
#ifndef VOXA_TOOL_OUTCOME_H
#define VOXA_TOOL_OUTCOME_H

#include <string>

namespace voxa_tool {

constexpr int kExitOk = 0;
constexpr int kExitFailure = 1;  // the work could not be done
constexpr int kExitUsage = 2;    // the command line is wrong
constexpr int kExitBusy = 3;     // the recognition engine is held by another session

struct Outcome {
    int exitCode = kExitOk;
    std::string message;  // empty on success

    bool ok() const { return exitCode == kExitOk; }
    static Outcome success() { return {}; }
    static Outcome failure(std::string message, int exitCode = kExitFailure) {
        return {exitCode, std::move(message)};
    }
};

}  // namespace voxa_tool

#endif  // VOXA_TOOL_OUTCOME_H
