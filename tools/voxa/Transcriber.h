// `voxa transcribe`: a recognition session through IVoxa for each file in turn, started, heard
// to its end, stopped and released. Results are written by a Formatter as they arrive; the
// engine's callbacks only queue them (ClientCallbacks.h), and this class, on the calling thread,
// makes every IVoxa call.
#ifndef VOXA_TOOL_TRANSCRIBER_H
#define VOXA_TOOL_TRANSCRIBER_H

#include <aidl/vendor/orbo/hardware/voxa/IVoxa.h>
#include <aidl/vendor/orbo/hardware/voxa/VoxaConfig.h>

#include <cstdint>
#include <memory>
#include <string>

#include "ClientCallbacks.h"
#include "Formatters.h"
#include "Options.h"
#include "Outcome.h"
#include "Progress.h"

namespace voxa_tool {

// The configuration that `options` ask for.
aidl::vendor::orbo::hardware::voxa::VoxaConfig makeConfig(const Options& options);

// The name of the service error in a failed status ("RESOURCE_CONTENTION"...), or the status's
// description when it carries no service error.
std::string errorName(const ndk::ScopedAStatus& status);

// Checks that `path` is a readable sound file that libsndfile decodes. Returns "" and sets
// `*durationMs`, or returns what is wrong.
std::string probeSoundFile(const std::string& path, int64_t* durationMs);

class Transcriber {
  public:
    // Everything passed in must outlive the Transcriber.
    Transcriber(std::shared_ptr<aidl::vendor::orbo::hardware::voxa::IVoxa> service,
                Formatter* formatter, Progress* progress);

    // Registers the global callback and transcribes `options.files` with `options.model`. The
    // files are all checked before the first session opens; every session is released before
    // this returns.
    Outcome run(const Options& options);

  private:
    Outcome openSession(const std::string& modelPath, int32_t* handle);
    Outcome transcribeFile(int32_t handle, const Options& options, size_t index,
                           int64_t durationMs);
    // Explains a refused startListening in terms of what `options` asked for.
    std::string startFailure(const ndk::ScopedAStatus& status, const Options& options);
    void deliver(const Delivery& delivery, int64_t* positionMs);

    const std::shared_ptr<aidl::vendor::orbo::hardware::voxa::IVoxa> mService;
    Formatter* const mFormatter;
    Progress* const mProgress;
    const std::shared_ptr<SessionCallback> mCallback;
    // Registered by run; the service watches it for the client's death, so it lives as long as
    // the Transcriber at least.
    const std::shared_ptr<GlobalCallback> mGlobalCallback;
};

}  // namespace voxa_tool

#endif  // VOXA_TOOL_TRANSCRIBER_H
