#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <thread>

#include "ServiceTestSupport.h"

namespace aidl::vendor::orbo::hardware::voxa {
namespace {

using namespace std::chrono_literals;
using ::testing::IsEmpty;

class VoxaSessionConcurrencyTest : public FakePalTest {
  protected:
    void SetUp() override {
        ASSERT_EQ(0, mSession->loadModel(testModel()));
        ASSERT_EQ(0, mSession->start(englishConfig()));
        mStream = lastStream();
    }

    std::shared_ptr<RecordingCallback> mClient = ndk::SharedRefBase::make<RecordingCallback>();
    std::shared_ptr<VoxaSession> mSession = std::make_shared<VoxaSession>(3, mClient, mWorker);
    pal_stream_handle* mStream = nullptr;
    StrictPal mStrictPal;
};

// While a binder thread holds the session's lock inside a PAL call, an event of the listening
// session waits for the lock. A stop or close ends the session's listening before it calls the
// PAL, so an event raised meanwhile is dropped at once: the strict PAL's stop and close, which
// wait for their callbacks, never wait on it.
TEST_F(VoxaSessionConcurrencyTest, EventWaitsForTheLockUnlessTheSessionIsStopping) {
    VoxaParameter force;
    force.param = ParameterType::FORCE_OUTPUT_EVENT;
    const struct {
        const char* name;
        Function held;
        std::function<int()> call;
    } cases[] = {
            {"setParameter", Function::StreamSetParam,
             [&] { return mSession->setParameter(force); }},
            {"stop", Function::StreamStop, [&] { return mSession->stop(); }},
            {"close", Function::StreamStop, [&] { return mSession->close(); }},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        ASSERT_EQ(0, mSession->start(englishConfig()));
        const bool stopping = c.held == Function::StreamStop;
        PalCallGate gate(c.held);
        std::future<int> binderCall = std::async(std::launch::async, c.call);
        gate.waitUntilEntered();
        std::future<int32_t> event = pal().raiseEventAsync(mStream, 0, asrPayload(c.name));
        EXPECT_EQ(stopping ? std::future_status::ready : std::future_status::timeout,
                  event.wait_for(stopping ? 10s : 100ms));
        EXPECT_THAT(mClient->deliveries(), ::testing::SizeIs(stopping ? 1 : 0));
        gate.release();
        EXPECT_EQ(0, binderCall.get());
        EXPECT_EQ(0, event.get());
        ASSERT_EQ(1u, mClient->deliveries().size());
        EXPECT_EQ("setParameter", mClient->deliveries()[0].asr->events->at(0)->text);
    }
}

// The engine may report a result while its stream starts; it reaches the client once the start
// has succeeded, and is dropped when the start fails.
TEST_F(VoxaSessionConcurrencyTest, EventRaisedWhileStartingWaitsForTheOutcome) {
    for (int32_t startResult : {0, -5}) {
        SCOPED_TRACE(startResult);
        ASSERT_EQ(0, mSession->stop());
        pal().queueResults(Function::StreamStart, {startResult});
        std::future<int32_t> event;
        pal().setHook(Function::StreamStart, [&](const fake_pal::Call&) {
            event = pal().raiseEventAsync(mStream, 0, asrPayload("early"));
            std::this_thread::sleep_for(20ms);
        });
        EXPECT_EQ(startResult, mSession->start(englishConfig()));
        pal().setHook(Function::StreamStart, nullptr);
        EXPECT_EQ(0, event.get());
    }
    ASSERT_EQ(1u, mClient->deliveries().size());
    EXPECT_EQ("early", mClient->deliveries()[0].asr->events->at(0)->text);
}

TEST_F(VoxaSessionConcurrencyTest, DeliveriesOfOneSessionNeverOverlapAndKeepTheirOrder) {
    std::atomic<int> inFlight{0};
    std::atomic<int> overlaps{0};
    mClient->onCall([&] {
        if (inFlight.fetch_add(1) != 0) overlaps++;
        std::this_thread::sleep_for(100us);
        inFlight.fetch_sub(1);
    });

    // The fake's event thread reports in order while a second PAL thread reports concurrently.
    constexpr int kEvents = 40;
    std::vector<std::future<int32_t>> ordered;
    for (int i = 0; i < kEvents; ++i) {
        ordered.push_back(pal().raiseEventAsync(mStream, 0, asrPayload(std::to_string(i))));
    }
    std::thread secondPalThread([&] {
        std::vector<uint8_t> payload = asrPayload("other");
        for (int i = 0; i < kEvents; ++i) {
            VoxaSession::palCallback(mStream, 0, reinterpret_cast<unsigned int*>(payload.data()),
                                     payload.size(),
                                     reinterpret_cast<unsigned long>(mSession.get()));
        }
    });
    for (auto& event : ordered) EXPECT_EQ(0, event.get());
    secondPalThread.join();

    EXPECT_EQ(0, overlaps.load());
    int next = 0;
    for (const auto& delivery : mClient->deliveries()) {
        const std::string& text = delivery.asr->events->at(0)->text;
        if (text != "other") {
            EXPECT_EQ(std::to_string(next++), text);
        }
    }
    EXPECT_EQ(kEvents, next);
    EXPECT_EQ(2u * kEvents, mClient->deliveries().size());
}

}  // namespace
}  // namespace aidl::vendor::orbo::hardware::voxa
