// The service's mutex and scoped lock, with the attributes of clang's thread-safety analysis.
#ifndef VOXA_SERVICE_MUTEX_H
#define VOXA_SERVICE_MUTEX_H

#include <mutex>

// Clang's thread-safety analysis (-Wthread-safety) proves at compile time that every member marked
// GUARDED_BY is used only with its lock held and that every function marked REQUIRES is called with
// it. Other compilers ignore the attributes.
#if defined(__clang__)
#define VOXA_THREAD_ANNOTATION(x) __attribute__((x))
#else
#define VOXA_THREAD_ANNOTATION(x)
#endif

#define CAPABILITY(x) VOXA_THREAD_ANNOTATION(capability(x))
#define SCOPED_CAPABILITY VOXA_THREAD_ANNOTATION(scoped_lockable)
#define GUARDED_BY(x) VOXA_THREAD_ANNOTATION(guarded_by(x))
#define REQUIRES(...) VOXA_THREAD_ANNOTATION(requires_capability(__VA_ARGS__))
#define EXCLUDES(...) VOXA_THREAD_ANNOTATION(locks_excluded(__VA_ARGS__))
#define ACQUIRE(...) VOXA_THREAD_ANNOTATION(acquire_capability(__VA_ARGS__))
#define RELEASE(...) VOXA_THREAD_ANNOTATION(release_capability(__VA_ARGS__))
#define TRY_ACQUIRE(...) VOXA_THREAD_ANNOTATION(try_acquire_capability(__VA_ARGS__))

namespace aidl::vendor::orbo::hardware::voxa {

// std::mutex with the attributes the analysis needs.
class CAPABILITY("mutex") Mutex {
  public:
    void lock() ACQUIRE() { mMutex.lock(); }
    void unlock() RELEASE() { mMutex.unlock(); }

  private:
    std::mutex mMutex;
};

// Holds `lockable` (a Mutex or a SessionLock) for the scope.
template <typename Lockable>
class SCOPED_CAPABILITY ScopedLock {
  public:
    explicit ScopedLock(Lockable& lockable) ACQUIRE(lockable) : mLockable(lockable) {
        mLockable.lock();
    }
    ~ScopedLock() RELEASE() { mLockable.unlock(); }

    ScopedLock(const ScopedLock&) = delete;
    ScopedLock& operator=(const ScopedLock&) = delete;

  private:
    Lockable& mLockable;
};

}  // namespace aidl::vendor::orbo::hardware::voxa

#endif  // VOXA_SERVICE_MUTEX_H
