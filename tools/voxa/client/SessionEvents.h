// What a session's main thread waits for, in one queue: the service's callbacks, the host part's
// news that the input has ended, a signal asking the program to stop, and the news that the
// engine is free again (GlobalCallback.h). The service calls the
// callbacks on the engine's thread while it holds the session's lock, so they only queue what
// they are given and never call back into IVoxa (that would deadlock on a device too).
#ifndef VOXA_TOOL_SESSION_EVENTS_H
#define VOXA_TOOL_SESSION_EVENTS_H

#include <aidl/vendor/orbo/hardware/voxa/BnVoxaCallback.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>

#include "Host.h"

namespace voxa_tool {

// Exactly one of the members below `handle` is set.
struct SessionEvent {
    int32_t handle = -1;
    std::optional<aidl::vendor::orbo::hardware::voxa::VoxaEvent> asr;
    std::optional<aidl::vendor::orbo::hardware::voxa::SpeakerDiarizationEvent> sdz;
    std::optional<InputEnd> inputEnded;
    std::optional<int> signal;  // SIGINT or SIGTERM
    bool resourcesAvailable = false;
};

// A session's IVoxaCallback and the queue of everything its main thread waits for.
// Thread-safe; mLock guards the queue.
class SessionEvents : public aidl::vendor::orbo::hardware::voxa::BnVoxaCallback {
  public:
    ndk::ScopedAStatus onAsrEvent(
            int32_t handle, const aidl::vendor::orbo::hardware::voxa::VoxaEvent& event) override;
    ndk::ScopedAStatus onSdzEvent(
            int32_t handle,
            const aidl::vendor::orbo::hardware::voxa::SpeakerDiarizationEvent& event) override;

    void push(SessionEvent event);
    // Takes the oldest event, waiting at most `timeout` for one (a negative timeout: without
    // limit). Returns false when none came.
    bool next(std::chrono::milliseconds timeout, SessionEvent* event);

  private:
    std::mutex mLock;
    std::condition_variable mArrived;
    std::deque<SessionEvent> mQueue;  // guarded by mLock
};

}  // namespace voxa_tool

#endif  // VOXA_TOOL_SESSION_EVENTS_H
