#include <algorithm>
#include <atomic>
#include <functional>
#include <map>
#include <thread>

#include "ServiceTestSupport.h"

namespace aidl::vendor::orbo::hardware::voxa {
namespace {

using namespace std::chrono_literals;
using ::testing::IsEmpty;

// Against a PAL that waits, in its stop, close and set_param, for every callback it runs.
class VoxaConcurrencyTest : public ServiceTest {
  protected:
    void expectNoPalCallOnAnEventThread() {
        for (const fake_pal::Call& call : pal().calls()) {
            for (size_t thread = 0; thread < fake_pal::kEventThreads; ++thread) {
                ASSERT_NE(pal().eventThread(thread), call.thread) << toString(call.function);
            }
        }
    }

    StrictPal mStrictPal;
};

// What a call made from inside a callback (of the session's own event, or of a resources
// notification) returns and logs on the callback's thread, and what the worker logs when the PAL's
// own result arrives; no PAL call is made on the callback's thread. The session ({h}) listens; {n}
// is the handle an initSession draws.
TEST_F(VoxaConcurrencyTest, DeferredCallsReturnAtOnceAndLogThePalResultLater) {
    struct Case {
        const char* name;
        std::pair<Function, int32_t> palResult;
        std::function<ndk::ScopedAStatus(IVoxa&, int32_t handle)> call;
        int32_t error;
        std::vector<std::string> onCallback;
        std::vector<std::string> onWorker;
    };
    auto global = ndk::SharedRefBase::make<CountingGlobalCallback>();
    VoxaParameter force;
    force.param = ParameterType::FORCE_OUTPUT_EVENT;
    force.data = {1, 2};
    VoxaConfig unknownLanguage = englishConfig();
    unknownLanguage.input_lang_code = "xx-XX";
    const std::vector<Case> cases = {
            {"stop",
             {Function::StreamStop, -EIO},
             [](IVoxa& v, int32_t h) { return v.stopListening(h); },
             0,
             {"I stopListening: Enter handle {h}", "I stop: Enter, handle {h}",
              "I stop: PAL calls deferred to the worker, handle {h}",
              "I stop: Exit, handle {h}, status = 0", "I stopListening: Exit handle {h}, status 0"},
             {"I stopL: Enter, handle {h}",
              "E stopL: error, failed to stop pal stream, status = -5",
              "I stopL: Exit, handle {h}, status = -5",
              "I stop: deferred PAL calls done, handle {h}, status = -5"}},
            {"release",
             {Function::StreamClose, -EIO},
             [](IVoxa& v, int32_t h) { return v.releaseSession(h); },
             0,
             {"I releaseSession: Enter handle {h}", "I close: Enter, handle {h}",
              "I close: PAL calls deferred to the worker, handle {h}",
              "I close: Exit, handle {h}, status = 0",
              "I releaseSession: Exit handle {h}, status 0"},
             {"I stopL: Enter, handle {h}", "I stopL: Exit, handle {h}, status = 0",
              "E close: failed to close pal stream, status = -5",
              "I close: deferred PAL calls done, handle {h}, status = -5"}},
            {"setParameter",
             {Function::StreamSetParam, -EIO},
             [&](IVoxa& v, int32_t h) { return v.setParameter(h, force); },
             0,
             {"I setParameter: Enter handle {h}",
              "I setParameter: Enter, handle {h}, parameters VoxaParameter{param: "
              "FORCE_OUTPUT_EVENT, data: [1, 2]}",
              "I setParameter: PAL calls deferred to the worker, handle {h}",
              "I setParameter: Exit, handle {h}, status = 0",
              "I setParameter: Exit handle {h}, status 0"},
             {"E setParameter: failed to set asr param, status = -5",
              "I setParameter: deferred PAL calls done, handle {h}, status = -5"}},
            {"start",
             {Function::StreamStart, -EBUSY},
             [](IVoxa& v, int32_t h) { return v.startListening(h, englishConfig()); },
             0,
             {"I startListening: Enter handle {h}", "I start: Enter, handle {h}, config {config}",
              "I start: PAL calls deferred to the worker, handle {h}",
              "I start: Exit, handle {h}, status = 0",
              "I startListening: Exit handle {h}, status 0"},
             {"E start: failed to start pal stream, status = -16",
              "I start: deferred PAL calls done, handle {h}, status = -16"}},
            {"start refused at once",
             {Function::StreamStart, 0},
             [&](IVoxa& v, int32_t h) { return v.startListening(h, unknownLanguage); },
             -1,
             {"I startListening: Enter handle {h}",
              "I start: Enter, handle {h}, config " + unknownLanguage.toString(),
              "E convertConfig: Recieved invalid input lnaguage code xx-XX",
              "E start: Failed to parse config, status = -22",
              "E startListening: Failed to start with handle {h}, status -22"},
             {}},
            {"initSession",
             {Function::StreamOpen, -ENODEV},
             [](IVoxa& v, int32_t) {
                 int32_t handle;
                 return v.initSession(testModel(), ndk::SharedRefBase::make<RecordingCallback>(),
                                      &handle);
             },
             0,
             {"I initSession: Enter", "I VoxaSession: Enter, handle {n}",
              "I loadModel: Enter handle {n}, model {model}",
              "I loadModel: PAL calls deferred to the worker, handle {n}",
              "I loadModel: Exit, handle {n}, status = 0",
              "I initSession: Exit handle {n}, status 0"},
             {"E openPalStream: failed to open pal stream, status -19",
              "E initSession: Failed to load model with handle {n}, status -19",
              "I loadModel: deferred PAL calls done, handle {n}, status = -19"}},
            {"registerGlobalCallback",
             {Function::SetParam, -EIO},
             [&](IVoxa& v, int32_t) { return v.registerGlobalCallback(global); },
             0,
             {"I registerGlobalCallback: PAL calls deferred to the worker",
              "I registerGlobalCallback: Exit, status 0"},
             {"E registerGlobalCallback: failed to set resources available callback, status -5",
              "I registerGlobalCallback: deferred PAL calls done, status -5"}},
    };
    auto client = ndk::SharedRefBase::make<RecordingCallback>();
    // The lines with {h}, {n}, {model} and {config} written out.
    auto expand = [](std::vector<std::string> lines, int32_t handle) {
        for (std::string& line : lines) {
            for (const auto& [name, value] :
                 {std::pair<std::string, std::string>("{h}", std::to_string(handle)),
                  {"{n}", std::to_string(handle + 1)},
                  {"{model}", testModel().toString()},
                  {"{config}", englishConfig().toString()}}) {
                for (size_t at; (at = line.find(name)) != std::string::npos;) {
                    line.replace(at, name.size(), value);
                }
            }
        }
        return Lines(lines);
    };
    // The session is freed by whichever thread drops it last.
    auto withoutDestruction = [](std::vector<voxa_test::LogLine> lines) {
        auto destruction = [](auto& line) { return line.message.rfind("~VoxaSession", 0) == 0; };
        lines.erase(std::remove_if(lines.begin(), lines.end(), destruction), lines.end());
        return lines;
    };
    ASSERT_TRUE(mVoxa->registerGlobalCallback(global).isOk());
    for (bool fromResources : {false, true}) {
        for (const Case& operation : cases) {
            SCOPED_TRACE(std::string(operation.name) +
                         (fromResources ? " from onResourcesAvailable" : " from onAsrEvent"));
            const int32_t handle = openSession(client);
            ASSERT_TRUE(mVoxa->startListening(handle, englishConfig()).isOk());
            pal().queueResults(operation.palResult.first, {operation.palResult.second});
            std::optional<int32_t> nested;
            auto callIn = [&] {
                if (!nested) nested = serviceError(operation.call(*mVoxa, handle));
            };
            mLog.clear();
            std::vector<voxa_test::LogLine> onCallback = expand(operation.onCallback, handle);
            if (fromResources) {
                global->onCall(callIn);
                ASSERT_TRUE(pal().notifyResourcesAvailable());
                global->onCall(nullptr);
                onCallback.push_back(Info("onResourcesAvailable: Exit"));
            } else {
                client->onCall(callIn);
                ASSERT_EQ(0, pal().raiseEvent(lastStream(), 0, asrPayload("first")));
                client->onCall(nullptr);
                const std::string h = std::to_string(handle);
                onCallback.insert(onCallback.begin(),
                                  Info("onEventCallback:[" + h + "] send asr event"));
                onCallback.push_back(Info("onEventCallback: Exit, handle " + h));
            }
            service().waitForDeferredCalls();
            EXPECT_EQ(std::optional<int32_t>(operation.error), nested);
            EXPECT_EQ(onCallback, withoutDestruction(mLog.lines(pal().eventThread())));
            EXPECT_EQ(expand(operation.onWorker, handle),
                      withoutDestruction(mLog.lines(pal().eventThread(), false)));
            // The session that failed to open on the worker is gone.
            if (operation.palResult.first == Function::StreamOpen) {
                EXPECT_EQ(-1, serviceError(mVoxa->releaseSession(handle + 1)));
            }
            mVoxa->releaseSession(handle);
        }
    }
    expectNoPalCallOnAnEventThread();
}

// Two PAL threads deliver two sessions' events at once, and each client calls from its callback
// into its own session (as most clients end theirs with a final result) or into the other's, on a
// PAL that waits for the callbacks it runs inside its stop, close and set_param. Neither waits for
// the other, no PAL call is made on an event thread, and an event raised after a stop or release
// has returned reaches nobody.
TEST_F(VoxaConcurrencyTest, TwoPalThreadsCallingIntoTheirOwnAndEachOthersSessions) {
    constexpr int kRounds = 10000;
    VoxaParameter force;
    force.param = ParameterType::FORCE_OUTPUT_EVENT;
    const std::function<ndk::ScopedAStatus(int32_t)> operations[] = {
            [&](int32_t h) { return mVoxa->stopListening(h); },
            [&](int32_t h) { return mVoxa->releaseSession(h); },
            [&](int32_t h) { return mVoxa->setParameter(h, force); },
            [&](int32_t h) { return mVoxa->startListening(h, englishConfig()); },
    };
    struct Side {
        std::shared_ptr<RecordingCallback> client = ndk::SharedRefBase::make<RecordingCallback>();
        int32_t handle = -1;
        pal_stream_handle* stream = nullptr;
    } sides[2];
    const std::vector<uint8_t> payload = asrPayload("event");

    for (int round = 0; round < kRounds; ++round) {
        const int operation = round % 4;
        const bool ends = operation < 2;
        const bool own = round / 4 % 2 == 1;
        for (Side& side : sides) {
            if (side.handle < 0) {
                side.handle = openSession(side.client);
                side.stream = lastStream();
            }
            ASSERT_TRUE(mVoxa->startListening(side.handle, englishConfig()).isOk());
        }
        // Both callbacks are under way before either calls into a session.
        std::atomic<int> entered{0}, failures{0};
        for (int s = 0; s < 2; ++s) {
            const int32_t target = sides[own ? s : 1 - s].handle;
            sides[s].client->onCall([&, target] {
                entered++;
                const auto giveUp = std::chrono::steady_clock::now() + 10s;
                while (entered < 2 && std::chrono::steady_clock::now() < giveUp) {
                    std::this_thread::yield();
                }
                if (entered < 2 || !operations[operation](target).isOk()) failures++;
            });
        }
        std::future<int32_t> events[2];
        for (size_t s = 0; s < 2; ++s) {
            fake_pal::Delivery onItsOwnThread;
            onItsOwnThread.thread = s;
            events[s] = pal().raiseEventAsync(sides[s].stream, 0, payload, onItsOwnThread);
        }
        for (std::future<int32_t>& event : events) {
            if (event.wait_for(10s) != std::future_status::ready) {
                fprintf(stderr, "two sessions' callbacks wait for each other (round %d)\n", round);
                std::abort();
            }
        }
        ASSERT_EQ(0, failures.load()) << "round " << round;

        for (Side& side : sides) {
            side.client->onCall(nullptr);
            const size_t before = side.client->count();
            pal().raiseEvent(side.stream, 0, payload);
            ASSERT_EQ(before + (ends ? 0 : 1), side.client->count()) << "round " << round;
            if (operation == 1) side.handle = -1;
        }
        expectNoPalCallOnAnEventThread();
        mLog.clear();
        pal().clearCalls();
    }
    for (Side& side : sides) {
        if (side.handle >= 0) mVoxa->releaseSession(side.handle);
    }
    service().waitForDeferredCalls();
    EXPECT_THAT(pal().openStreams(), IsEmpty());
}

// Three listening sessions; the callback of the first's event stops it, whose deferred stop holds
// the worker, then releases the second and sends the third a parameter (and, before the service
// goes, registers the global callback again), so that those calls wait in the worker's queue. The
// client dies, or the service goes, meanwhile: each session's queued calls run first, every stream
// closes once, and the service withdraws its registration, so that nothing of the PAL's can reach
// the freed object.
TEST_F(VoxaConcurrencyTest, ClientDeathAndDestructionRunTheQueuedCallsFirst) {
    using F = Function;
    VoxaParameter force;
    force.param = ParameterType::FORCE_OUTPUT_EVENT;
    for (bool destroy : {false, true}) {
        SCOPED_TRACE(destroy ? "service destroyed" : "client died");
        auto client = ndk::SharedRefBase::make<RecordingCallback>();
        int32_t handles[3];
        pal_stream_handle* streams[3];
        for (int i = 0; i < 3; ++i) {
            handles[i] = openSession(client);
            streams[i] = lastStream();
            ASSERT_TRUE(mVoxa->startListening(handles[i], englishConfig()).isOk());
        }
        pal().clearCalls();
        auto global = ndk::SharedRefBase::make<CountingGlobalCallback>();
        ASSERT_TRUE(mVoxa->registerGlobalCallback(global).isOk());
        PalCallGate held(F::StreamStop);
        client->onCall([&] {
            client->onCall(nullptr);
            mVoxa->stopListening(handles[0]);
            mVoxa->releaseSession(handles[1]);
            mVoxa->setParameter(handles[2], force);
            if (destroy) mVoxa->registerGlobalCallback(global);
        });
        EXPECT_EQ(0, pal().raiseEvent(streams[0], 0, asrPayload("final")));
        held.waitUntilEntered();
        std::thread ending([&] {
            if (destroy) {
                mVoxa.reset();
                binder_host::clearServices();
            } else {
                binder_host::killProcessOf(global->asBinder().get());
            }
        });
        std::this_thread::sleep_for(20ms);
        held.release();
        ending.join();
        if (!destroy) service().waitForDeferredCalls();

        std::map<pal_stream_handle*, std::vector<Function>> calls;
        for (const fake_pal::Call& call : pal().calls()) {
            if (call.stream != nullptr) calls[call.stream].push_back(call.function);
        }
        // The death stops each session once more; the destruction closes it.
        EXPECT_EQ((destroy ? std::vector<F>{F::StreamStop, F::StreamClose}
                           : std::vector<F>{F::StreamStop, F::StreamStop, F::StreamClose}),
                  calls[streams[0]]);
        EXPECT_THAT(calls[streams[1]], ::testing::ElementsAre(F::StreamStop, F::StreamClose));
        EXPECT_THAT(calls[streams[2]],
                    ::testing::ElementsAre(F::StreamSetParam, F::StreamStop, F::StreamClose));
        EXPECT_THAT(pal().openStreams(), IsEmpty());
        EXPECT_EQ(fake_pal::kNotDelivered, pal().raiseEvent(streams[2], 0, asrPayload("late")));
    }
    EXPECT_EQ(Bytes(16).vector(), pal().calls(Function::SetParam).back().payload);
    EXPECT_FALSE(pal().notifyResourcesAvailable());
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
        std::vector<int32_t> beforeDeath, afterDeath;
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
        ASSERT_THAT(pal().openStreams(), IsEmpty());
        mLog.clear();
    }
    pal().setHook(Function::StreamOpen, nullptr);
}

}  // namespace
}  // namespace aidl::vendor::orbo::hardware::voxa
