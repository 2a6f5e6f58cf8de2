// How an operation of the voxa program ended: the one way its parts report failure. A failure
// carries what to tell the user (nothing when it was told already) and the exit status it leads
// to; results go through out parameters.
#ifndef VOXA_TOOL_STATUS_H
#define VOXA_TOOL_STATUS_H

#include <string>
#include <utility>

namespace voxa_tool {

constexpr int kExitOk = 0;
constexpr int kExitFailure = 1;  // the work could not be done
constexpr int kExitUsage = 2;    // the command line is wrong
constexpr int kExitBusy = 3;     // the recognition engine is held by another session

class [[nodiscard]] Status {
  public:
    static Status ok() { return Status(kExitOk, ""); }
    static Status failure(std::string message) { return Status(kExitFailure, std::move(message)); }
    static Status usage(std::string message) { return Status(kExitUsage, std::move(message)); }
    static Status busy(std::string message) { return Status(kExitBusy, std::move(message)); }
    // Stopped by `signal` (SIGINT, SIGTERM): exit status 128 + its number, as a shell reports.
    static Status interrupted(int signal) { return Status(128 + signal, ""); }

    bool isOk() const { return mExitCode == kExitOk; }
    int exitCode() const { return mExitCode; }
    // What went wrong, for a line "voxa: <message>"; empty on success.
    const std::string& message() const { return mMessage; }

  private:
    Status(int exitCode, std::string message) : mExitCode(exitCode), mMessage(std::move(message)) {}

    int mExitCode;
    std::string mMessage;
};

}  // namespace voxa_tool

#endif  // VOXA_TOOL_STATUS_H
