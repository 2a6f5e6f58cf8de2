#include "ClientCallbacks.h"

#include <utility>

namespace voxa_tool {

using aidl::vendor::orbo::hardware::voxa::SpeakerDiarizationEvent;
using aidl::vendor::orbo::hardware::voxa::VoxaEvent;

ndk::ScopedAStatus SessionCallback::onAsrEvent(int32_t handle, const VoxaEvent& event) {
    push({handle, event, std::nullopt});
    return ndk::ScopedAStatus::ok();
}

ndk::ScopedAStatus SessionCallback::onSdzEvent(int32_t handle,
                                               const SpeakerDiarizationEvent& event) {
    push({handle, std::nullopt, event});
    return ndk::ScopedAStatus::ok();
}

void SessionCallback::push(Delivery delivery) {
    std::lock_guard<std::mutex> lock(mLock);
    mQueue.push_back(std::move(delivery));
    mArrived.notify_all();
}

bool SessionCallback::next(std::chrono::milliseconds timeout, Delivery* delivery) {
    std::unique_lock<std::mutex> lock(mLock);
    if (!mArrived.wait_for(lock, timeout, [this] { return !mQueue.empty(); })) return false;
    *delivery = std::move(mQueue.front());
    mQueue.pop_front();
    return true;
}

ndk::ScopedAStatus GlobalCallback::onResourcesAvailable() {
    return ndk::ScopedAStatus::ok();
}

}  // namespace voxa_tool
