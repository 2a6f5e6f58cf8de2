// Eight client threads run random operations on sessions of their own and on each other's, while
// the strict fake PAL raises all three event kinds from two threads and reports resources,
// callbacks call back into the service, and a ninth thread makes the client die now and then.
// Afterwards: no event reached a session that was not listening (after its stop or release
// returned), every handle was unique, and every stream is closed. VOXA_STRESS_OPERATIONS sets the
// number of operations (make stress runs 800,000); a watchdog turns a hang into a failure.
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <future>
#include <map>
#include <random>
#include <set>
#include <thread>

#include "ServiceTestSupport.h"

namespace aidl::vendor::orbo::hardware::voxa {
namespace {

constexpr int kClientThreads = 8;
constexpr auto kWatchdogLimit = std::chrono::minutes(20);

// What the client knows of one session while it holds it (a released session has no record).
// The client serialises its own start, stop and release of a session (clientLock) so that it
// knows when the session may hear events.
struct SessionRecord {
    std::mutex clientLock;
    // Set before a start, cleared once a stop or release returned.
    std::atomic<bool> mayHear{false};
};

class StressTest : public ServiceTest {
  protected:
    class Client : public BnVoxaCallback {
      public:
        explicit Client(StressTest& test) : mTest(test) {}
        ndk::ScopedAStatus onAsrEvent(int32_t handle, const VoxaEvent&) override {
            return mTest.heard(handle);
        }
        ndk::ScopedAStatus onSdzEvent(int32_t handle, const SpeakerDiarizationEvent&) override {
            return mTest.heard(handle);
        }

      private:
        StressTest& mTest;
    };

    ndk::ScopedAStatus heard(int32_t handle) {
        mDelivered++;
        std::unique_lock<std::mutex> sessionsLock(mSessionsLock);
        auto entry = mSessions.find(handle);
        std::shared_ptr<SessionRecord> session = entry == mSessions.end() ? nullptr : entry->second;
        sessionsLock.unlock();
        if (session == nullptr || !session->mayHear) {
            mViolations++;
            fprintf(stderr, "event for handle %d, which was not listening\n", handle);
        }
        // Now and then the callback ends its own session, if no client thread is at it.
        thread_local std::mt19937 random(7);
        if (session != nullptr && random() % 8 == 0 && session->clientLock.try_lock()) {
            std::lock_guard<std::mutex> lock(session->clientLock, std::adopt_lock);
            random() % 2 == 0 ? stop(handle, *session) : release(handle, *session);
        }
        return ndk::ScopedAStatus::ok();
    }

    void initSession() {
        int32_t handle;
        if (!mVoxa->initSession(testModel(), mClient, &handle).isOk()) return;
        std::lock_guard<std::mutex> lock(mSessionsLock);
        if (!mHandles.insert(handle).second) mViolations++;
        mSessions[handle] = std::make_shared<SessionRecord>();
    }

    void start(int32_t handle, SessionRecord& session) {
        bool before = session.mayHear;
        session.mayHear = true;
        if (!mVoxa->startListening(handle, englishConfig()).isOk()) session.mayHear = before;
    }

    void stop(int32_t handle, SessionRecord& session) {
        mVoxa->stopListening(handle);
        session.mayHear = false;
    }

    void release(int32_t handle, SessionRecord& session) {
        mVoxa->releaseSession(handle);
        session.mayHear = false;
        std::lock_guard<std::mutex> lock(mSessionsLock);
        mSessions.erase(handle);
    }

    void clientThread(int index, long operations) {
        std::mt19937 random(index);
        VoxaParameter force;
        force.param = ParameterType::FORCE_OUTPUT_EVENT;
        for (long i = 0; i < operations; ++i, mOperations++) {
            // Gives the PAL's thread room to raise events while sessions listen.
            std::this_thread::yield();
            int operation = random() % 8;
            if (operation == 0) {
                initSession();
                continue;
            }
            if (operation == 7) {
                std::vector<std::string> languages;
                mVoxa->getSupportedLanguages(0, &languages);
                continue;
            }
            std::unique_lock<std::mutex> sessionsLock(mSessionsLock);
            if (mSessions.empty()) continue;
            auto [handle, session] = *std::next(mSessions.begin(), random() % mSessions.size());
            sessionsLock.unlock();
            if (operation == 6) {
                mVoxa->setParameter(handle, force);
                continue;
            }
            std::lock_guard<std::mutex> lock(session->clientLock);
            if (operation <= 2) {
                start(handle, *session);
            } else if (operation <= 4) {
                stop(handle, *session);
            } else {
                release(handle, *session);
            }
        }
    }

    // The client's process dies: every session it had is closed once the death returns.
    void die(const std::shared_ptr<CountingGlobalCallback>& global) {
        std::unique_lock<std::mutex> lock(mSessionsLock);
        std::map<int32_t, std::shared_ptr<SessionRecord>> before = mSessions;
        lock.unlock();
        binder_host::killProcessOf(global->asBinder().get());
        mDeaths++;
        lock.lock();
        for (auto& entry : before) mSessions.erase(entry.first);
    }

    std::shared_ptr<Client> mClient = ndk::SharedRefBase::make<Client>(*this);
    std::mutex mSessionsLock;
    std::map<int32_t, std::shared_ptr<SessionRecord>> mSessions;  // guarded by mSessionsLock
    std::set<int32_t> mHandles;                                   // guarded by mSessionsLock
    std::atomic<long> mOperations{0}, mDeaths{0}, mDelivered{0}, mRaised{0}, mViolations{0};
    StrictPal mStrictPal;
};

TEST_F(StressTest, RandomOperationsWithEventsAndDeaths) {
    const char* configured = std::getenv("VOXA_STRESS_OPERATIONS");
    const long operations = configured != nullptr ? std::atol(configured) : 16000;
    std::promise<void> done;
    std::thread watchdog([&, finished = done.get_future()] {
        if (finished.wait_for(kWatchdogLimit) == std::future_status::ready) return;
        fprintf(stderr, "stress: no progress after %ld operations\n", mOperations.load());
        std::abort();
    });

    auto global = ndk::SharedRefBase::make<CountingGlobalCallback>();
    ASSERT_TRUE(mVoxa->registerGlobalCallback(global).isOk());
    std::atomic<int> clientsDone{0};
    std::vector<std::thread> clients;
    for (int t = 0; t < kClientThreads; ++t) {
        clients.emplace_back([&, t] {
            clientThread(t, operations / kClientThreads);
            clientsDone++;
        });
    }
    // Each of the fake's event threads reports on every open stream, so that two sessions'
    // callbacks may run at once.
    auto palThread = [&](size_t thread) {
        const std::vector<uint8_t> payloads[] = {asrPayload("plain"), timestampPayload("word"),
                                                 sdzPayload(3)};
        fake_pal::Delivery delivery;
        delivery.thread = thread;
        for (long n = 0; clientsDone < kClientThreads; ++n) {
            for (pal_stream_handle* stream : FakePal::instance().openStreams()) {
                uint32_t eventId = (n + thread) % 3;
                if (FakePal::instance().raiseEvent(stream, eventId, payloads[eventId], delivery) ==
                    0) {
                    mRaised++;
                }
            }
            if (thread == 0 && n % 16 == 0) FakePal::instance().notifyResourcesAvailable();
        }
    };
    std::vector<std::thread> pal;
    for (size_t thread = 0; thread < fake_pal::kEventThreads; ++thread) {
        pal.emplace_back(palThread, thread);
    }
    std::thread killer([&] {
        std::mt19937 random(99);
        std::shared_ptr<CountingGlobalCallback> current = global;
        while (clientsDone < kClientThreads) {
            std::this_thread::sleep_for(std::chrono::milliseconds(20 + random() % 80));
            die(current);
            current = ndk::SharedRefBase::make<CountingGlobalCallback>();
            mVoxa->registerGlobalCallback(current);
        }
        die(current);
    });

    for (std::thread& client : clients) client.join();
    for (std::thread& thread : pal) thread.join();
    killer.join();
    service().waitForDeferredCalls();
    done.set_value();
    watchdog.join();

    printf("stress: %ld operations, %ld client deaths, %ld events delivered, %ld dropped\n",
           mOperations.load(), mDeaths.load(), mDelivered.load(),
           mRaised.load() - mDelivered.load());
    EXPECT_EQ(0, mViolations.load());
    EXPECT_THAT(FakePal::instance().openStreams(), ::testing::IsEmpty());
}

}  // namespace
}  // namespace aidl::vendor::orbo::hardware::voxa
