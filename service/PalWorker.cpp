#include "PalWorker.h"

#include <utility>

namespace aidl::vendor::orbo::hardware::voxa {

PalWorker::~PalWorker() {
    stop();
}

void PalWorker::post(std::function<void()> job) {
    {
        std::lock_guard<std::mutex> lock(mLock);
        mJobs.push_back(std::move(job));
        ++mPosted;
        if (!mStopping && !mThread.joinable()) mThread = std::thread(&PalWorker::run, this);
    }
    mChanged.notify_all();
}

void PalWorker::waitForPosted() {
    std::unique_lock<std::mutex> lock(mLock);
    const uint64_t posted = mPosted;
    mChanged.wait(lock, [&] { return mDone >= posted; });
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
    std::unique_lock<std::mutex> lock(mLock);
    runJobs(lock);
    mStopping = false;
}

void PalWorker::run() {
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
        lock.unlock();
        job();
        job = nullptr;
        lock.lock();
        ++mDone;
        mChanged.notify_all();
    }
}

}  // namespace aidl::vendor::orbo::hardware::voxa
