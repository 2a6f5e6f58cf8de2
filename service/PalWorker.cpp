#include "PalWorker.h"

#include <utility>

#include "SessionLock.h"

namespace aidl::vendor::orbo::hardware::voxa {

PalWorker::~PalWorker() {
    stop();
}

void PalWorker::post(std::function<void()> job) {
    {
        std::lock_guard<std::mutex> lock(mLock);
        mJobs.push_back(std::move(job));
        if (!mStopping && !mThread.joinable()) mThread = std::thread(&PalWorker::run, this);
    }
    mChanged.notify_all();
}

void PalWorker::waitUntilIdle() {
    std::unique_lock<std::mutex> lock(mLock);
    mChanged.wait(lock, [this] { return mJobs.empty() && !mRunning; });
}

void PalWorker::stop() {
    std::thread thread;
    {
        std::lock_guard<std::mutex> lock(mLock);
        mStopping = true;
        thread = std::move(mThread);
    }
    mChanged.notify_all();
    if (thread.joinable()) thread.join();

    // A job posted after the thread ended runs here.
    SessionLock::InDeferredWork deferred;
    std::unique_lock<std::mutex> lock(mLock);
    runJobs(lock);
    mStopping = false;
}

void PalWorker::run() {
    SessionLock::InDeferredWork deferred;
    std::unique_lock<std::mutex> lock(mLock);
    for (;;) {
        mChanged.wait(lock, [this] { return mStopping || !mJobs.empty(); });
        if (mJobs.empty()) return;
        runJobs(lock);
    }
}

void PalWorker::runJobs(std::unique_lock<std::mutex>& lock) {
    while (!mJobs.empty()) {
        std::function<void()> job = std::move(mJobs.front());
        mJobs.pop_front();
        mRunning = true;
        lock.unlock();
        job();
        lock.lock();
        mRunning = false;
        mChanged.notify_all();
    }
}

}  // namespace aidl::vendor::orbo::hardware::voxa
