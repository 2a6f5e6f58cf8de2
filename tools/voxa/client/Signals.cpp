#include "Signals.h"

#include <pthread.h>
#include <signal.h>
#include <unistd.h>

#include <mutex>
#include <thread>

namespace voxa_tool {

namespace {

std::mutex gLock;
std::function<bool(int)> gHandler;  // guarded by gLock
std::string gFileToRemove;          // guarded by gLock

sigset_t stopSignals() {
    sigset_t set;
    sigemptyset(&set);
    sigaddset(&set, SIGINT);
    sigaddset(&set, SIGTERM);
    return set;
}

}  // namespace

void watchSignals() {
    const sigset_t set = stopSignals();
    pthread_sigmask(SIG_BLOCK, &set, nullptr);
    std::thread([set] {
        bool first = true;
        for (;;) {
            int signal = 0;
            if (sigwait(&set, &signal) != 0) continue;
            std::function<bool(int)> handler;
            {
                std::lock_guard<std::mutex> lock(gLock);
                handler = gHandler;
            }
            if (first && handler != nullptr && handler(signal)) {
                first = false;
                continue;
            }
            std::lock_guard<std::mutex> lock(gLock);
            if (!gFileToRemove.empty()) unlink(gFileToRemove.c_str());
            _exit(128 + signal);
        }
    }).detach();
}

void setSignalHandler(std::function<bool(int)> handler) {
    std::lock_guard<std::mutex> lock(gLock);
    gHandler = std::move(handler);
}

void removeOnSignal(const std::string& path) {
    std::lock_guard<std::mutex> lock(gLock);
    gFileToRemove = path;
}

}  // namespace voxa_tool
