// The thread pool: calls run on their callers' threads, so there is no pool to run.

#include <android/binder_process.h>
#include <unistd.h>

#include <atomic>

namespace {

std::atomic<uint32_t> gMaxThreadCount{0};

}  // namespace

void ABinderProcess_startThreadPool() {}

bool ABinderProcess_setThreadPoolMaxThreadCount(uint32_t numThreads) {
    gMaxThreadCount.store(numThreads, std::memory_order_relaxed);
    return true;
}

void ABinderProcess_joinThreadPool() {
    // A pool thread serves until the process ends; pause() returns only after a signal handler.
    for (;;) pause();
}
