// PalWorker: the thread that makes the PAL calls of operations called from PAL callbacks.
#ifndef VOXA_SERVICE_PAL_WORKER_H
#define VOXA_SERVICE_PAL_WORKER_H

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

namespace aidl::vendor::orbo::hardware::voxa {

// The one thread of the service: it makes the PAL calls of operations that a client made from
// inside one of the service's PAL callbacks. A PAL may wait, inside pal_stream_stop,
// pal_stream_close or pal_set_param, for every callback it is running, so such a call made on the
// callback's own thread would wait for itself.
//
// Jobs run one at a time in the order they were posted. The thread starts with the first job and
// ends in stop().
//
// Threads: post() may be called from any thread, also from inside a job. waitForPosted(), stop()
// and the destructor must not be called from a job.
class PalWorker {
  public:
    PalWorker() = default;
    // Runs the jobs still queued, then ends the thread.
    ~PalWorker();

    PalWorker(const PalWorker&) = delete;
    PalWorker& operator=(const PalWorker&) = delete;

    void post(std::function<void()> job);

    // Returns once every job posted before the call has run.
    void waitForPosted();

    // Returns once every job posted before or while it runs has run; the thread has ended. A job
    // posted afterwards starts it again.
    void stop();

  private:
    void run();
    // Runs the queued jobs until none is left; `lock` holds mLock.
    void runJobs(std::unique_lock<std::mutex>& lock);

    std::mutex mLock;
    std::condition_variable mChanged;
    std::deque<std::function<void()>> mJobs;  // guarded by mLock
    bool mStopping = false;                   // guarded by mLock
    uint64_t mPosted = 0;                     // guarded by mLock; jobs posted so far
    uint64_t mDone = 0;                       // guarded by mLock; jobs that have run
    std::thread mThread;  // guarded by mLock; started by post(), joined by stop()
};

}  // namespace aidl::vendor::orbo::hardware::voxa

#endif  // VOXA_SERVICE_PAL_WORKER_H
