// The host's stand-in for a device: the service registered as its host process registers it, over
// the fake PAL and an engine that runs on the fake's streams.
#ifndef __ANDROID__

#include <binder_host/test_controls.h>
#include <gtest/gtest.h>
#include <pal/fake_pal.h>

#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <memory>
#include <mutex>
#include <set>
#include <thread>
#include <vector>

#include "Service.h"
#include "VtsEnvironment.h"

namespace voxa_vts {
namespace {

using fake_pal::Call;
using fake_pal::FakePal;
using fake_pal::Function;

constexpr Function kWatchedCalls[] = {Function::StreamStart, Function::StreamStop,
                                      Function::StreamClose};

// One recogniser behind every stream. While a stream is started it raises a result on it every
// 2 ms from its own thread; a stopped stream gets one last result, which reaches the service after
// its stop and must go no further. A start while another stream runs is refused (EBUSY).
class Engine {
  public:
    Engine() {
        for (Function function : kWatchedCalls) {
            FakePal::instance().setHook(function, [this](const Call& call) { onCall(call); });
        }
        mThread = std::thread(&Engine::run, this);
    }
    ~Engine() {
        {
            std::lock_guard<std::mutex> lock(mLock);
            mStopping = true;
        }
        mWake.notify_all();
        mThread.join();
        for (Function function : kWatchedCalls) FakePal::instance().setHook(function, nullptr);
    }

  private:
    // Runs inside the PAL call, before the fake chooses its result.
    void onCall(const Call& call) {
        std::lock_guard<std::mutex> lock(mLock);
        if (call.function == Function::StreamStart && !mStarted.empty()) {
            FakePal::instance().queueResults(Function::StreamStart, {-EBUSY});
        } else if (call.function == Function::StreamStart) {
            mStarted.insert(call.stream);
        } else if (mStarted.erase(call.stream) && call.function == Function::StreamStop) {
            mFlushing.push_back(call.stream);
        }
    }

    // Raises without mLock held: a client may start a stream from inside the result's callback.
    void run() {
        std::vector<uint8_t> payload(sizeof(pal_asr_event) + sizeof(pal_asr_result));
        auto* event = reinterpret_cast<pal_asr_event*>(payload.data());
        event->num_events = 1;
        std::strcpy(event->event[0].text, "hello");
        std::unique_lock<std::mutex> lock(mLock);
        while (!mStopping) {
            std::vector<pal_stream_handle*> streams;
            streams.swap(mFlushing);
            streams.insert(streams.end(), mStarted.begin(), mStarted.end());
            lock.unlock();
            for (pal_stream_handle* stream : streams)
                FakePal::instance().raiseEvent(stream, 0, payload);
            lock.lock();
            mWake.wait_for(lock, std::chrono::milliseconds(2), [&] { return mStopping; });
        }
    }

    std::mutex mLock;
    std::condition_variable mWake;
    std::set<pal_stream_handle*> mStarted;      // guarded by mLock
    std::vector<pal_stream_handle*> mFlushing;  // guarded by mLock; stopped, last result due
    bool mStopping = false;                     // guarded by mLock
    std::thread mThread;
};

// Registers the service when built, so that its instance is listed before the tests run (a failed
// registration lists none, which fails the run); the engine runs from SetUp to TearDown.
class HostEnvironment : public testing::Environment {
  public:
    HostEnvironment() { registerService(); }
    // The fake is strict: a PAL call made on its callback thread fails the run.
    void SetUp() override {
        FakePal::instance().setStrict(true);
        mEngine = std::make_unique<Engine>();
    }
    void TearDown() override {
        mEngine.reset();
        binder_host::clearServices();
    }

  private:
    std::unique_ptr<Engine> mEngine;
};

}  // namespace

void startInstances() {
    testing::AddGlobalTestEnvironment(new HostEnvironment);
}

}  // namespace voxa_vts

#endif  // __ANDROID__
