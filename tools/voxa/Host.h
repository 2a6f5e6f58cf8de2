// The seam between the two parts of the voxa program.
//
// The host part is the service's host process: it loads libvoxa.so and registers the service,
// owns the PAL underneath it and the audio that the PAL captures, and knows when that audio has
// ended. The client part (client/) uses the service through IVoxa alone, found in the service
// manager as a client on a device finds it, and asks the host part, through this interface, for
// what a device's platform would tell it: the engine's UUID and languages, the audio for the
// next session, and when that audio is over. Each PAL has its own host part (host/EngineHost.h
// for the recogniser-backed engine); the client code stays the same.
#ifndef VOXA_TOOL_HOST_H
#define VOXA_TOOL_HOST_H

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "Status.h"

namespace voxa_tool {

// The path that stands for standard input.
constexpr char kStandardInput[] = "-";

// Raw PCM: signed 16-bit little-endian, `channels` interleaved at `rate` Hz.
struct RawFormat {
    int rate = 0;
    int channels = 0;
};

// What the next session is to hear.
struct InputRequest {
    std::string path;              // a sound file, or kStandardInput
    std::optional<RawFormat> raw;  // raw PCM in this format, not a sound file with a header
    bool realtime = false;         // the engine hears it at its own pace, as from a microphone
};

// What the host part learnt on opening an input.
struct InputInfo {
    std::string name;         // for messages: the path, or "standard input"
    int64_t durationMs = -1;  // the audio there is to hear; -1 when not known in advance
    bool empty = false;       // there is no audio at all
    std::string note;         // what the user should know before the results; empty: nothing
};

// How the input of a session ended.
struct InputEnd {
    int64_t endMs = -1;       // where the audio ended; -1 when the input was not read to its end
    int64_t declaredMs = -1;  // where its header said it ends; -1 when it said nothing
    std::string error;        // why the input could not be played to its end; empty: it could
};

// The languages the engine behind the service handles, as codes of getSupportedLanguages, and
// whether it tells speakers apart. Empty lists claim nothing: the engine may handle any language.
struct EngineLanguages {
    std::vector<std::string> recognised;
    std::vector<std::string> translatedTo;
    bool diarizes = false;
};

// Used by the client's main thread, except waitUntilInputEnds, which may run on another thread
// while the main thread makes IVoxa calls.
class Host {
  public:
    virtual ~Host() = default;

    // Loads the service library `library` into this process and registers the service under
    // its instance name. Once the service is registered, later calls do nothing.
    virtual Status startService(const std::string& library) = 0;

    // The vendor UUID that a VoxaModel names for the engine.
    virtual std::string engineUuid() = 0;

    virtual EngineLanguages languages() = 0;

    // Makes the next startListening capture `request`; fails, saying why, for input the engine
    // cannot use. Precondition: no input is open.
    virtual Status openInput(const InputRequest& request, InputInfo* info) = 0;

    // Waits until the session started on the open input has heard all of it and its last
    // result has been delivered to the client's callback, or its recognition ended by itself (a
    // command's result, a time-out), or it was stopped. Returns at once when no session is
    // listening.
    virtual InputEnd waitUntilInputEnds() = 0;

    // Lets go of the open input, if any. Precondition: its session was stopped, or not started.
    virtual void closeInput() = 0;
};

}  // namespace voxa_tool

#endif  // VOXA_TOOL_HOST_H
