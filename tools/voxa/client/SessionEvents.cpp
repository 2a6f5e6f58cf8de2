#include "SessionEvents.h"

#include <utility>

namespace voxa_tool {

using aidl::vendor::orbo::hardware::voxa::SpeakerDiarizationEvent;
using aidl::vendor::orbo::hardware::voxa::VoxaEvent;

ndk::ScopedAStatus SessionEvents::onAsrEvent(int32_t handle, const VoxaEvent& event) {
    SessionEvent queued;
    queued.handle = handle;
    queued.asr = event;
    push(std::move(queued));
    return ndk::ScopedAStatus::ok();
}

ndk::ScopedAStatus SessionEvents::onSdzEvent(int32_t handle, const SpeakerDiarizationEvent& event) {
    SessionEvent queued;
    queued.handle = handle;
    queued.sdz = event;
    push(std::move(queued));
    return ndk::ScopedAStatus::ok();
}

void SessionEvents::push(SessionEvent event) {
    std::lock_guard<std::mutex> lock(mLock);
    mQueue.push_back(std::move(event));
    mArrived.notify_all();
}

bool SessionEvents::next(std::chrono::milliseconds timeout, SessionEvent* event) {
    std::unique_lock<std::mutex> lock(mLock);
    auto ready = [this] { return !mQueue.empty(); };
    if (timeout.count() < 0) {
        mArrived.wait(lock, ready);
    } else if (!mArrived.wait_for(lock, timeout, ready)) {
        return false;
    }
    *event = std::move(mQueue.front());
    mQueue.pop_front();
    return true;
}

}  // namespace voxa_tool
