// SessionLock: the lock of one recognition session, and what its operations and deliveries wait
// for.
#ifndef VOXA_SERVICE_SESSION_LOCK_H
#define VOXA_SERVICE_SESSION_LOCK_H

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
// lock() waits until the lock is free and, unless the calling thread is inside one of the
// service's PAL callbacks (InPalCallback), until no delivery of the session runs, so that an
// operation's PAL calls never overlap a delivery. A thread inside a callback never calls the PAL
// (its PAL calls are deferred to the PAL worker) and whoever holds the lock is in a PAL call that
// does not wait for that callback, so it waits briefly; waiting for a delivery could make two
// callbacks wait on each other.
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

  private:
    bool mustWaitLocked() const { return tPalCallbacks == 0 && mDelivering; }

    void takeLocked() {
        mHeld = true;
        mHolder = std::this_thread::get_id();
    }

    static inline thread_local int tPalCallbacks = 0;

    std::mutex mStateMutex;  // guards the members below; never held while waiting or calling out
    std::condition_variable mChanged;
    bool mHeld = false;
    std::thread::id mHolder;
    bool mDelivering = false;
    int mWaitingOperations = 0;
    int mWaitingDeliveries = 0;
};

}  // namespace aidl::vendor::orbo::hardware::voxa

#endif  // VOXA_SERVICE_SESSION_LOCK_H
