#include <atomic>
#include <set>
#include <thread>

#include "ServiceTestSupport.h"

namespace aidl::vendor::orbo::hardware::voxa {
namespace {

class VoxaConcurrencyTest : public ServiceTest {};

// Binder threads run whole session lifecycles of their own while the PAL raises events on every
// open stream and the client registers its global callback anew and dies, again and again. Every
// stream the service opened must end closed once.
TEST_F(VoxaConcurrencyTest, SessionsSurviveEventsAndClientDeath) {
    auto global = ndk::SharedRefBase::make<CountingGlobalCallback>();
    ASSERT_TRUE(mVoxa->registerGlobalCallback(global).isOk());
    auto client = ndk::SharedRefBase::make<RecordingCallback>();

    constexpr int kBinderThreads = 4;
    constexpr int kSessionsPerThread = 25;
    std::atomic<int> unexpected{0};
    std::atomic<bool> done{false};
    std::atomic<int> workersDone{0};
    auto expectOkOrGone = [&](const ndk::ScopedAStatus& status) {
        // A session may vanish underneath its thread when the client dies.
        if (!status.isOk() && serviceError(status) != -1) unexpected++;
    };

    std::vector<std::thread> binderThreads;
    for (int t = 0; t < kBinderThreads; ++t) {
        binderThreads.emplace_back([&] {
            VoxaParameter force;
            force.param = ParameterType::FORCE_OUTPUT_EVENT;
            for (int i = 0; i < kSessionsPerThread; ++i) {
                int32_t handle = -1;
                expectOkOrGone(mVoxa->initSession(testModel(), client, &handle));
                expectOkOrGone(mVoxa->startListening(handle, englishConfig()));
                expectOkOrGone(mVoxa->setParameter(handle, force));
                expectOkOrGone(mVoxa->stopListening(handle));
                expectOkOrGone(mVoxa->releaseSession(handle));
            }
            workersDone++;
        });
    }
    std::thread palEvents([&] {
        std::vector<uint8_t> payload = asrPayload("event");
        while (!done) {
            for (pal_stream_handle* stream : pal().openStreams()) {
                pal().raiseEvent(stream, 0, payload);
            }
            std::this_thread::yield();
        }
    });
    std::thread clientProcess([&] {
        // The client registers again and again and now and then dies, while its sessions run.
        for (int i = 0; workersDone < kBinderThreads; ++i) {
            if (i % 8 == 7) binder_host::killProcessOf(global->asBinder().get());
            expectOkOrGone(mVoxa->registerGlobalCallback(global));
            std::this_thread::yield();
        }
    });

    for (std::thread& thread : binderThreads) thread.join();
    clientProcess.join();
    done = true;
    palEvents.join();

    EXPECT_EQ(0, unexpected.load());
    std::multiset<pal_stream_handle*> opened;
    std::multiset<pal_stream_handle*> closed;
    for (const fake_pal::Call& call : pal().calls()) {
        if (call.function == Function::StreamOpen) opened.insert(call.stream);
        if (call.function == Function::StreamClose && call.stream != nullptr) {
            closed.insert(call.stream);
        }
    }
    EXPECT_EQ(static_cast<size_t>(kBinderThreads * kSessionsPerThread), opened.size());
    EXPECT_EQ(opened, closed);
    EXPECT_TRUE(pal().openStreams().empty());

    int32_t next = -1;
    EXPECT_TRUE(mVoxa->initSession(testModel(), client, &next).isOk());
    EXPECT_EQ(kBinderThreads * kSessionsPerThread, next);
}

}  // namespace
}  // namespace aidl::vendor::orbo::hardware::voxa
