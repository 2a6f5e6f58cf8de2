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
// What lock() waits for depends on the calling thread:
// - A thread inside one of the service's PAL callbacks (InPalCallback) waits only until the lock
//   is free. It never calls the PAL (its PAL calls are deferred to the PAL worker), and whoever
//   holds the lock is in a PAL call that does not wait for that callback, so it waits briefly.
// - The PAL worker, running deferred work (InDeferredWork), also waits until no delivery of the
//   session runs, so that its PAL calls never overlap a delivery.
// - Any other thread (a binder thread) also waits until the session has no deferred work left,
//   so that the session's PAL calls keep the order in which they were asked for.
//
// lockToDeliver() waits until the lock is free, no delivery runs and no operation waits, and
// gives up as soon as `giveUp()` holds. Waiters look at their condition again whenever the lock
// is released or wake() is called: a waiting event thread sleeps instead of polling.
class CAPABILITY("mutex") SessionLock {
  public:
    // Marks the calling thread, for its scope, as inside a PAL callback of the service.
    class InPalCallback {
      public:
        InPalCallback() { ++tPalCallbacks; }
        ~InPalCallback() { --tPalCallbacks; }
        InPalCallback(const InPalCallback&) = delete;
        InPalCallback& operator=(const InPalCallback&) = delete;
    };

    // Marks the calling thread, for its scope, as running work that was deferred.
    class InDeferredWork {
      public:
        InDeferredWork() { tDeferredWork = true; }
        ~InDeferredWork() { tDeferredWork = false; }
        InDeferredWork(const InDeferredWork&) = delete;
        InDeferredWork& operator=(const InDeferredWork&) = delete;
    };

    static bool insidePalCallback() { return tPalCallbacks > 0; }

    void lock() ACQUIRE() {
        std::unique_lock<std::mutex> state(mStateMutex);
        ++mWaitingOperations;
        mChanged.wait(state, [this] { return !mHeld && !mustWaitLocked(); });
        --mWaitingOperations;
        takeLocked();
    }

    void unlock() RELEASE() {
        bool deliveryWaits;
        {
            std::lock_guard<std::mutex> state(mStateMutex);
            mHeld = false;
            mHolder = {};
            deliveryWaits = mWaitingDeliveries > 0;
        }
        mChanged.notify_all();
        // The event thread just woken often shares this core; without a yield it would wait for
        // the rest of this thread's work before it delivers.
        if (deliveryWaits) std::this_thread::yield();
    }

    // Returns true with the lock held, or false without it once `giveUp()` holds. Also false at
    // once when the calling thread holds the lock: a PAL that called back from inside one of the
    // session's own PAL calls would otherwise wait for itself.
    template <typename GiveUp>
    bool lockToDeliver(GiveUp giveUp) TRY_ACQUIRE(true) {
        std::unique_lock<std::mutex> state(mStateMutex);
        if (mHeld && mHolder == std::this_thread::get_id()) return false;
        auto free = [this] { return !mHeld && !mDelivering && mWaitingOperations == 0; };
        ++mWaitingDeliveries;
        mChanged.wait(state, [&] { return free() || giveUp(); });
        --mWaitingDeliveries;
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

    // Lets the lock go; the calling thread delivers an event from now until endDelivery().
    void unlockToDeliver() RELEASE() {
        {
            std::lock_guard<std::mutex> state(mStateMutex);
            mHeld = false;
            mHolder = {};
            mDelivering = true;
        }
        mChanged.notify_all();
    }

    // Called on the thread that called unlockToDeliver(), without the lock.
    void endDelivery() {
        {
            std::lock_guard<std::mutex> state(mStateMutex);
            mDelivering = false;
        }
        mChanged.notify_all();
    }

    // Counts work deferred to the PAL worker until endDeferred().
    void beginDeferred() REQUIRES(this) {
        std::lock_guard<std::mutex> state(mStateMutex);
        ++mDeferred;
    }

    void endDeferred() {
        {
            std::lock_guard<std::mutex> state(mStateMutex);
            --mDeferred;
        }
        mChanged.notify_all();
    }

  private:
    bool mustWaitLocked() const {
        if (tPalCallbacks > 0) return false;
        return mDelivering || (!tDeferredWork && mDeferred > 0);
    }

    void takeLocked() {
        mHeld = true;
        mHolder = std::this_thread::get_id();
    }

    static inline thread_local int tPalCallbacks = 0;
    static inline thread_local bool tDeferredWork = false;

    std::mutex mStateMutex;  // guards the members below; never held while waiting or calling out
    std::condition_variable mChanged;
    bool mHeld = false;
    std::thread::id mHolder;
    bool mDelivering = false;
    int mWaitingOperations = 0;
    int mWaitingDeliveries = 0;
    int mDeferred = 0;
};

}  // namespace aidl::vendor::orbo::hardware::voxa
