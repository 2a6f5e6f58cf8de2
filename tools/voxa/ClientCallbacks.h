// The client side of the service's callbacks. The service calls them on the engine's thread
// while it holds the session's lock, so they only hand the results over to the main thread and
// never call back into IVoxa (that would deadlock on a device too).
#ifndef VOXA_TOOL_CLIENT_CALLBACKS_H
#define VOXA_TOOL_CLIENT_CALLBACKS_H

#include <aidl/vendor/orbo/hardware/voxa/BnVoxaCallback.h>
#include <aidl/vendor/orbo/hardware/voxa/BnVoxaGlobalCallback.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>

namespace voxa_tool {

// One result as the service delivered it: exactly one of `asr` and `sdz` is set.
struct Delivery {
    int32_t handle = -1;
    std::optional<aidl::vendor::orbo::hardware::voxa::VoxaEvent> asr;
    std::optional<aidl::vendor::orbo::hardware::voxa::SpeakerDiarizationEvent> sdz;
};

// A session's IVoxaCallback: queues every delivery, in order, for the main thread.
// Thread-safe; mLock guards the queue.
class SessionCallback : public aidl::vendor::orbo::hardware::voxa::BnVoxaCallback {
  public:
    ndk::ScopedAStatus onAsrEvent(
            int32_t handle, const aidl::vendor::orbo::hardware::voxa::VoxaEvent& event) override;
    ndk::ScopedAStatus onSdzEvent(
            int32_t handle,
            const aidl::vendor::orbo::hardware::voxa::SpeakerDiarizationEvent& event) override;

    // Takes the oldest delivery, waiting at most `timeout` for one. Returns false when none came.
    bool next(std::chrono::milliseconds timeout, Delivery* delivery);

  private:
    void push(Delivery delivery);

    std::mutex mLock;
    std::condition_variable mArrived;
    std::deque<Delivery> mQueue;  // guarded by mLock
};

// The client's IVoxaGlobalCallback. Registering it makes the service watch this client for death,
// as on a device. The program opens one session at a time and releases it before the next, so
// the news that the engine is free again needs no action.
class GlobalCallback : public aidl::vendor::orbo::hardware::voxa::BnVoxaGlobalCallback {
  public:
    ndk::ScopedAStatus onResourcesAvailable() override;
};

}  // namespace voxa_tool

#endif  // VOXA_TOOL_CLIENT_CALLBACKS_H
