#include <atomic>
#include <functional>
#include <thread>

#include "ServiceTestSupport.h"

namespace aidl::vendor::orbo::hardware::voxa {
namespace {

class VoxaConcurrencyTest : public ServiceTest {};

// A client calls each operation from inside its callbacks (an event of its session, and the
// resources-available notification), on its own session and on another: each returns what it
// would return outside a callback, and once a stop or release of a session has returned, no event
// reaches that session's client.
TEST_F(VoxaConcurrencyTest, EveryOperationWorksFromInsideACallback) {
    struct Case {
        const char* name;
        std::function<ndk::ScopedAStatus(Voxa& voxa, int32_t session)> call;
        bool endsListening;
    };
    auto global = ndk::SharedRefBase::make<CountingGlobalCallback>();
    auto client = ndk::SharedRefBase::make<RecordingCallback>();
    VoxaParameter force;
    force.param = ParameterType::FORCE_OUTPUT_EVENT;
    const std::vector<Case> cases = {
            {"stopListening", [](Voxa& v, int32_t s) { return v.stopListening(s); }, true},
            {"releaseSession", [](Voxa& v, int32_t s) { return v.releaseSession(s); }, true},
            {"setParameter", [&](Voxa& v, int32_t s) { return v.setParameter(s, force); }, false},
            {"startListening",
             [](Voxa& v, int32_t s) { return v.startListening(s, englishConfig()); }, false},
            {"initSession",
             [&](Voxa& v, int32_t) {
                 int32_t handle;
                 return v.initSession(testModel(), client, &handle);
             },
             false},
            {"registerGlobalCallback",
             [&](Voxa& v, int32_t) { return v.registerGlobalCallback(global); }, false},
            {"getSupportedLanguages",
             [](Voxa& v, int32_t s) {
                 std::vector<std::string> languages;
                 return v.getSupportedLanguages(s, &languages);
             },
             false},
    };
    ASSERT_TRUE(mVoxa->registerGlobalCallback(global).isOk());

    for (const Case& operation : cases) {
        for (bool ownSession : {true, false}) {
            for (bool fromResources : {false, true}) {
                SCOPED_TRACE(std::string(operation.name) + (ownSession ? " own" : " other") +
                             (fromResources ? " from onResourcesAvailable" : " from onAsrEvent"));
                auto caller = ndk::SharedRefBase::make<RecordingCallback>();
                int32_t callerHandle = openSession(caller);
                pal_stream_handle* callerStream = lastStream();
                int32_t otherHandle = openSession(client);
                pal_stream_handle* otherStream = lastStream();
                ASSERT_TRUE(mVoxa->startListening(callerHandle, englishConfig()).isOk());
                ASSERT_TRUE(mVoxa->startListening(otherHandle, englishConfig()).isOk());
                const int32_t target = ownSession ? callerHandle : otherHandle;

                std::optional<int32_t> nested;
                auto callIn = [&] {
                    if (!nested) nested = serviceError(operation.call(service(), target));
                };
                if (fromResources) {
                    global->onCall(callIn);
                    ASSERT_TRUE(pal().notifyResourcesAvailable());
                    global->onCall(nullptr);
                } else {
                    caller->onCall(callIn);
                    ASSERT_EQ(0, pal().raiseEvent(callerStream, 0, asrPayload("first")));
                }
                EXPECT_EQ(std::optional<int32_t>(0), nested);

                pal_stream_handle* targetStream = ownSession ? callerStream : otherStream;
                auto& targetClient = ownSession ? caller : client;
                size_t before = targetClient->deliveries().size();
                pal().raiseEvent(targetStream, 0, asrPayload("second"));
                EXPECT_EQ(before + (operation.endsListening ? 0 : 1),
                          targetClient->deliveries().size());

                mVoxa->releaseSession(callerHandle);
                mVoxa->releaseSession(otherHandle);
            }
        }
    }
    // Sessions opened from inside callbacks are released with the client's death.
    binder_host::killProcessOf(global->asBinder().get());
    EXPECT_THAT(pal().openStreams(), ::testing::IsEmpty());
}

// While a callback of one session stops another, the client dies: neither waits for the other.
TEST_F(VoxaConcurrencyTest, CallbackStoppingAnotherSessionDuringClientDeath) {
    auto client = ndk::SharedRefBase::make<RecordingCallback>();
    std::vector<uint8_t> payload = asrPayload("event");
    for (int round = 0; round < 200; ++round) {
        auto global = ndk::SharedRefBase::make<CountingGlobalCallback>();
        ASSERT_TRUE(mVoxa->registerGlobalCallback(global).isOk());
        int32_t a = openSession(client);
        pal_stream_handle* streamA = lastStream();
        int32_t b = openSession(client);
        ASSERT_TRUE(mVoxa->startListening(a, englishConfig()).isOk());
        ASSERT_TRUE(mVoxa->startListening(b, englishConfig()).isOk());
        client->onCall([&] { mVoxa->stopListening(b); });
        std::future<int32_t> event = pal().raiseEventAsync(streamA, 0, payload);
        binder_host::killProcessOf(global->asBinder().get());
        event.get();
        client->onCall(nullptr);
        mLog.clear();
    }
    EXPECT_THAT(pal().openStreams(), ::testing::IsEmpty());
}

// Whether the calling thread's last pal_stream_open began before the client's death did.
thread_local bool tOpenedBeforeDeath;

// initSession calls that overlap the client's death leave no session of that client open: those
// whose stream opened before the death began are gone from the table with their streams closed.
TEST_F(VoxaConcurrencyTest, InitSessionRacingClientDeath) {
    auto client = ndk::SharedRefBase::make<RecordingCallback>();
    constexpr int kThreads = 3;
    std::atomic<bool> killing{false};
    pal().setHook(Function::StreamOpen,
                  [&](const fake_pal::Call&) { tOpenedBeforeDeath = !killing; });
    for (int round = 0; round < 100; ++round) {
        auto global = ndk::SharedRefBase::make<CountingGlobalCallback>();
        ASSERT_TRUE(mVoxa->registerGlobalCallback(global).isOk());
        killing = false;
        std::mutex lock;
        std::vector<int32_t> beforeDeath;
        std::vector<int32_t> afterDeath;
        std::vector<std::thread> threads;
        for (int t = 0; t < kThreads; ++t) {
            threads.emplace_back([&] {
                for (int i = 0; i < 4; ++i) {
                    int32_t handle;
                    if (!mVoxa->initSession(testModel(), client, &handle).isOk()) continue;
                    std::lock_guard<std::mutex> guard(lock);
                    (tOpenedBeforeDeath ? beforeDeath : afterDeath).push_back(handle);
                }
            });
        }
        std::this_thread::sleep_for(std::chrono::microseconds(50 * (round % 8)));
        killing = true;
        binder_host::killProcessOf(global->asBinder().get());
        for (std::thread& thread : threads) thread.join();

        for (int32_t handle : beforeDeath) {
            EXPECT_EQ(-1, serviceError(mVoxa->releaseSession(handle))) << "handle " << handle;
        }
        for (int32_t handle : afterDeath) mVoxa->releaseSession(handle);
        ASSERT_THAT(pal().openStreams(), ::testing::IsEmpty());
        mLog.clear();
    }
    pal().setHook(Function::StreamOpen, nullptr);
}

}  // namespace
}  // namespace aidl::vendor::orbo::hardware::voxa
