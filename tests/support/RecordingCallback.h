// Client callbacks that record what the service delivers, for tests.
#ifndef VOXA_TEST_RECORDING_CALLBACK_H
#define VOXA_TEST_RECORDING_CALLBACK_H

#include <aidl/vendor/orbo/hardware/voxa/BnVoxaCallback.h>
#include <aidl/vendor/orbo/hardware/voxa/BnVoxaGlobalCallback.h>

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

namespace voxa_test {

using aidl::vendor::orbo::hardware::voxa::BnVoxaCallback;
using aidl::vendor::orbo::hardware::voxa::BnVoxaGlobalCallback;
using aidl::vendor::orbo::hardware::voxa::SpeakerDiarizationEvent;
using aidl::vendor::orbo::hardware::voxa::VoxaEvent;

// A client's session callback that records what the service delivers, and on which thread.
class RecordingCallback : public BnVoxaCallback {
  public:
    struct Delivery {
        int32_t handle;
        std::optional<VoxaEvent> asr;                // set by onAsrEvent
        std::optional<SpeakerDiarizationEvent> sdz;  // set by onSdzEvent
        std::thread::id thread;
    };

    ndk::ScopedAStatus onAsrEvent(int32_t handle, const VoxaEvent& event) override {
        return record({handle, event, std::nullopt, std::this_thread::get_id()});
    }
    ndk::ScopedAStatus onSdzEvent(int32_t handle, const SpeakerDiarizationEvent& event) override {
        return record({handle, std::nullopt, event, std::this_thread::get_id()});
    }

    std::vector<Delivery> deliveries() const {
        std::lock_guard<std::mutex> lock(mLock);
        return mDeliveries;
    }

    size_t count() const {
        std::lock_guard<std::mutex> lock(mLock);
        return mDeliveries.size();
    }

    // Every later call returns this service-specific error instead of OK.
    void failWith(int32_t serviceError) {
        std::lock_guard<std::mutex> lock(mLock);
        mError = serviceError;
    }

    // Runs inside every later call, before it is recorded (for example to block the caller).
    void onCall(std::function<void()> hook) {
        std::lock_guard<std::mutex> lock(mLock);
        mHook = std::move(hook);
    }

    bool waitForDeliveries(size_t count,
                           std::chrono::milliseconds timeout = std::chrono::seconds(10)) const {
        std::unique_lock<std::mutex> lock(mLock);
        return mChanged.wait_for(lock, timeout, [&] { return mDeliveries.size() >= count; });
    }

  private:
    ndk::ScopedAStatus record(Delivery delivery) {
        std::function<void()> hook;
        {
            std::lock_guard<std::mutex> lock(mLock);
            hook = mHook;
        }
        if (hook) hook();
        std::lock_guard<std::mutex> lock(mLock);
        mDeliveries.push_back(std::move(delivery));
        mChanged.notify_all();
        if (mError) return ndk::ScopedAStatus::fromServiceSpecificError(*mError);
        return ndk::ScopedAStatus::ok();
    }

    mutable std::mutex mLock;
    mutable std::condition_variable mChanged;
    std::vector<Delivery> mDeliveries;  // guarded by mLock
    std::optional<int32_t> mError;      // guarded by mLock
    std::function<void()> mHook;        // guarded by mLock
};

// A client's global callback that counts resources-available notifications.
class CountingGlobalCallback : public BnVoxaGlobalCallback {
  public:
    ndk::ScopedAStatus onResourcesAvailable() override {
        std::function<void()> hook;
        {
            std::lock_guard<std::mutex> lock(mLock);
            ++mCount;
            mLastThread = std::this_thread::get_id();
            hook = mHook;
        }
        if (hook) hook();
        return ndk::ScopedAStatus::ok();
    }
    // Runs inside every later notification.
    void onCall(std::function<void()> hook) {
        std::lock_guard<std::mutex> lock(mLock);
        mHook = std::move(hook);
    }
    int count() const {
        std::lock_guard<std::mutex> lock(mLock);
        return mCount;
    }
    std::thread::id lastThread() const {
        std::lock_guard<std::mutex> lock(mLock);
        return mLastThread;
    }

  private:
    mutable std::mutex mLock;
    int mCount = 0;               // guarded by mLock
    std::thread::id mLastThread;  // guarded by mLock
    std::function<void()> mHook;  // guarded by mLock
};

}  // namespace voxa_test

#endif  // VOXA_TEST_RECORDING_CALLBACK_H
