#pragma once

#include <condition_variable>
#include <mutex>
#include <thread>

#include "Mutex.h"

namespace aidl::vendor::orbo::hardware::voxa {

// The lock of one recognition session. It is held across the session's PAL calls, so that they
// never overlap; the delivery of an event to the client runs outside it, because a client may call
// back into the service from inside its callback, on the delivering thread itself (binder hands a
// nested call to the thread that made the outgoing one).
//
// - lock() waits until the lock is free and no delivery of this session runs on another thread, so
//   that an operation never overlaps a delivery. A thread that is itself delivering an event (of
//   this session or another) does not wait for a delivery: the callback it is making would then
//   wait on a callback that may be waiting for it.
// - lockToDeliver() waits until the lock is free, no delivery runs and no operation waits, and
//   gives up as soon as `giveUp()` holds. Waiters look at their condition again whenever the lock
//   is released or wake() is called: a waiting event thread sleeps instead of polling.
class CAPABILITY("mutex") SessionLock {
  public:
    void lock() ACQUIRE() {
        std::unique_lock<std::mutex> state(mStateMutex);
        ++mWaitingOperations;
        mChanged.wait(state, [this] { return !mHeld && !deliveryElsewhereLocked(); });
        --mWaitingOperations;
        takeLocked();
    }

    void unlock() RELEASE() {
        {
            std::lock_guard<std::mutex> state(mStateMutex);
            mHeld = false;
            mHolder = {};
        }
        mChanged.notify_all();
    }

    // Returns true with the lock held, or false without it once `giveUp()` holds. Also false at
    // once when the calling thread holds the lock: a PAL that called back from inside one of the
    // session's own PAL calls would otherwise wait for itself.
    template <typename GiveUp>
    bool lockToDeliver(GiveUp giveUp) TRY_ACQUIRE(true) {
        std::unique_lock<std::mutex> state(mStateMutex);
        if (mHeld && mHolder == std::this_thread::get_id()) return false;
        auto free = [this] { return !mHeld && !mDelivering && mWaitingOperations == 0; };
        mChanged.wait(state, [&] { return free() || giveUp(); });
        if (!free()) return false;
        takeLocked();
        return true;
    }

    // Takes the lock if it comes free within `patience`; for reports that must not wait on a
    // session busy in a long PAL call.
    template <typename Duration>
    bool tryLockFor(Duration patience) TRY_ACQUIRE(true) {
        std::unique_lock<std::mutex> state(mStateMutex);
        if (!mChanged.wait_for(state, patience, [this] { return !mHeld; })) return false;
        takeLocked();
        return true;
    }

    // Makes waiters look at their condition again (after a change that may make them give up).
    void wake() {
        { std::lock_guard<std::mutex> state(mStateMutex); }
        mChanged.notify_all();
    }

    // The calling thread delivers an event from now until endDelivery(), after unlock().
    void beginDelivery() REQUIRES(this) {
        std::lock_guard<std::mutex> state(mStateMutex);
        mDelivering = true;
        mDeliverer = std::this_thread::get_id();
        ++tDeliveriesOnThisThread;
    }

    // Called on the thread that called beginDelivery(), without the lock.
    void endDelivery() {
        {
            std::lock_guard<std::mutex> state(mStateMutex);
            mDelivering = false;
            mDeliverer = {};
            --tDeliveriesOnThisThread;
        }
        mChanged.notify_all();
    }

  private:
    bool deliveryElsewhereLocked() const {
        return mDelivering && mDeliverer != std::this_thread::get_id() &&
               tDeliveriesOnThisThread == 0;
    }

    void takeLocked() {
        mHeld = true;
        mHolder = std::this_thread::get_id();
    }

    // Deliveries the calling thread is making, of any session.
    static inline thread_local int tDeliveriesOnThisThread = 0;

    std::mutex mStateMutex;  // guards the members below; never held while waiting or calling out
    std::condition_variable mChanged;
    bool mHeld = false;
    std::thread::id mHolder;
    bool mDelivering = false;
    std::thread::id mDeliverer;
    int mWaitingOperations = 0;
};

}  // namespace aidl::vendor::orbo::hardware::voxa
