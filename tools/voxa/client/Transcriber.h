// `voxa transcribe`: for each input in turn a recognition session through IVoxa, started, heard
// to the end of the input, stopped and released. Results go to an Output as they arrive; the
// service's callbacks and the host part's news only queue (SessionEvents.h), and this class, on
// the calling thread, makes every IVoxa call.
#ifndef VOXA_TOOL_TRANSCRIBER_H
#define VOXA_TOOL_TRANSCRIBER_H

#include <aidl/vendor/orbo/hardware/voxa/IVoxa.h>
#include <aidl/vendor/orbo/hardware/voxa/VoxaConfig.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <ostream>
#include <string>

#include "GlobalCallback.h"
#include "Host.h"
#include "Options.h"
#include "Output.h"
#include "Progress.h"
#include "SessionEvents.h"
#include "Status.h"

namespace voxa_tool {

// The configuration that `options` ask for. Final results always carry time stamps: the
// formatters show them where asked, and speakers and progress are placed by them.
aidl::vendor::orbo::hardware::voxa::VoxaConfig makeConfig(const Options& options);

// The name of the service error in a failed status ("RESOURCE_CONTENTION"...), or the status's
// description when it carries no service error.
std::string errorName(const ndk::ScopedAStatus& status);

class Transcriber {
  public:
    // Everything passed in must outlive the Transcriber. Notes and the failures of single
    // inputs go to `err` as lines "voxa: ...", with the progress bar hidden.
    Transcriber(std::shared_ptr<aidl::vendor::orbo::hardware::voxa::IVoxa> service, Host* host,
                Progress* progress, std::ostream& err);

    // Registers the global callback and transcribes `options.files` with `options.model`. An
    // input that fails (also through a failure result of the engine, or a scenario that could
    // not be played) is reported and the next one goes on; a failure that every input would meet
    // (the model, a busy engine) ends the run. With `options.waitBusy` a busy engine is waited
    // for until the service says it is free, then asked once more. SIGINT or SIGTERM (Signals.h)
    // ends the input in progress with what the engine has heard of it and then the run. Every
    // session is released before this returns. Returns ok when every input succeeded; else the
    // failure that ended the run, a failure with no message when inputs failed (they were
    // reported), or the signal's status.
    Status run(const Options& options, Output* output);

  private:
    // What the results of the input in progress have shown.
    struct Heard {
        std::string input;          // its name, for notes
        bool speech = false;        // a final result with words
        bool failure = false;       // a result of a failed recognition (noted when it came)
        bool withoutTimes = false;  // a final result without times
        int64_t positionMs = 0;     // how far into the input the results have come
    };

    Status transcribe(const Options& options, size_t index, Output* output, bool* fatal);
    // Opens a session with the model, or with options.waitBusy waits for a busy engine to be
    // free and tries once more.
    Status openSession(const Options& options, int32_t* handle);
    Status initSession(const std::string& modelPath, int32_t* handle);
    // Starts the session, waiting for a busy engine as openSession does.
    Status startSession(int32_t handle, const Options& options);
    // With options.waitBusy, waits for the service's news that the engine is free and returns
    // true; else returns false.
    bool waitUntilFree(const Options& options);
    // Runs the started session until its input ends or a signal comes, then stops it and sets
    // `*stopped` to stopListening's status. Returns how the input ended, or nothing after a
    // signal.
    std::optional<InputEnd> listen(int32_t handle, const Options& options, Formatter& formatter,
                                   ndk::ScopedAStatus* stopped);
    // Explains a refused startListening in terms of what `options` asked for.
    Status startFailure(const ndk::ScopedAStatus& status, const Options& options);
    void deliver(const SessionEvent& event, const Options& options, Formatter& formatter);
    void note(const std::string& text);

    const std::shared_ptr<aidl::vendor::orbo::hardware::voxa::IVoxa> mService;
    Host* const mHost;
    Progress* const mProgress;
    std::ostream& mErr;
    const std::shared_ptr<SessionEvents> mEvents;
    // Registered by run; the service watches it for the client's death, so it lives as long as
    // the Transcriber at least.
    const std::shared_ptr<GlobalCallback> mGlobalCallback;
    std::atomic<bool> mListening{false};  // a session is in listen()
    std::atomic<int> mSignal{0};          // the stop signal taken, or 0
    Heard mHeard;
};

}  // namespace voxa_tool

#endif  // VOXA_TOOL_TRANSCRIBER_H
