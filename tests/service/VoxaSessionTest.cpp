#include "ServiceTestSupport.h"

namespace aidl::vendor::orbo::hardware::voxa {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr int32_t kHandle = 7;

class VoxaSessionTest : public FakePalTest {
  protected:
    std::shared_ptr<RecordingCallback> mClient = ndk::SharedRefBase::make<RecordingCallback>();
    std::shared_ptr<VoxaSession> mSession =
            std::make_shared<VoxaSession>(kHandle, mClient, mWorker);

    int32_t raise(uint32_t eventId, const std::vector<uint8_t>& payload,
                  const fake_pal::Delivery& delivery = {}) {
        return pal().raiseEvent(lastStream(), eventId, payload, delivery);
    }
};

// The model goes to a capture stream opened for it; a parameter's payload is a 4-byte count
// followed by the data, in room for 20 bytes.
TEST_F(VoxaSessionTest, LoadModelOpensTheCaptureStreamAndParametersSendCountedData) {
    ASSERT_EQ(0, mSession->loadModel(testModel()));
    VoxaParameter parameter;
    parameter.param = ParameterType::FORCE_OUTPUT_EVENT;
    parameter.data = {1, 2, 3, 255};
    EXPECT_EQ(0, mSession->setParameter(parameter));
    parameter.param = ParameterType::CUSTOM_EXTRAS;
    parameter.data.assign(20, 0xab);
    EXPECT_EQ(0, mSession->setParameter(parameter));

    std::vector<fake_pal::Call> calls = pal().calls();
    ASSERT_EQ(4u, calls.size());
    const fake_pal::Call& open = calls[0];
    EXPECT_EQ(Function::StreamOpen, open.function);
    Bytes attributes(232);
    attributes.u32(0, 30).u32(60, 2).u32(64, 16000).u32(68, 16).u32(72, 1).u16(76, 1).u8(78, 1);
    EXPECT_EQ(attributes.vector(), open.attributes);
    Bytes device(476);
    device.u32(0, 44).u32(4, 48000).u32(8, 16).u32(12, 1).u16(16, 2).u8(18, 1).u8(19, 2);
    EXPECT_EQ(device.vector(), open.devices);
    EXPECT_EQ(1u, open.numDevices);
    EXPECT_EQ(0u, open.numModifiers);
    EXPECT_TRUE(open.modifiersNull);
    EXPECT_EQ(&VoxaSession::palCallback, open.callback);
    EXPECT_EQ(reinterpret_cast<unsigned long>(mSession.get()), open.cookie);

    const fake_pal::Call& param = calls[1];
    EXPECT_EQ(Function::StreamSetParam, param.function);
    EXPECT_EQ(open.stream, param.stream);
    EXPECT_EQ(77u, param.paramId);
    EXPECT_EQ(28u, param.payload.size());
    EXPECT_EQ(24u, voxa_test::readAt<uint32_t>(param.payload, 0));
    EXPECT_EQ(Bytes(8).u32(0, 4).bytes(4, {1, 2, 3, 255}).vector(), calls[2].payload);
    EXPECT_EQ(Bytes(24).u32(0, 20).bytes(4, parameter.data).vector(), calls[3].payload);
}

// A binder thread may still hold a session that another has released: once closed, every
// operation is refused without a PAL call.
TEST_F(VoxaSessionTest, AClosedSessionRefusesEveryOperation) {
    ASSERT_EQ(0, mSession->loadModel(testModel()));
    ASSERT_EQ(0, mSession->start(englishConfig()));
    ASSERT_EQ(0, mSession->close());
    pal().clearCalls();
    mLog.clear();
    VoxaParameter force;
    force.param = ParameterType::FORCE_OUTPUT_EVENT;
    EXPECT_EQ(-22, mSession->start(englishConfig()));
    EXPECT_EQ(-22, mSession->setParameter(force));
    EXPECT_EQ(-22, mSession->stop());
    EXPECT_EQ(-22, mSession->close());
    EXPECT_THAT(pal().calls(), IsEmpty());
    EXPECT_EQ(Lines({"I start: Enter, handle 7, config " + englishConfig().toString(),
                     "E start: stream closed, handle 7",
                     "I setParameter: Enter, handle 7, parameters " + force.toString(),
                     "E setParameter: stream closed, handle 7",
                     "I setParameter: Exit, handle 7, status = -22", "I stop: Enter, handle 7",
                     "E stop: stream closed, handle 7", "I stop: Exit, handle 7, status = -22",
                     "I close: Enter, handle 7", "E close: stream closed, handle 7",
                     "I close: Exit, handle 7, status = -22"}),
              mLog.lines());
}

// Events reach the client only while the session listens: not before its start, not after a
// refused start or a stop; a rejected configuration leaves a listening session listening. They are
// decoded by id and delivered with the session's handle, and a client that fails its callbacks
// still gets every later event. Malformed callbacks (no payload, no stream, no cookie) are refused
// before they reach the session.
TEST_F(VoxaSessionTest, EventsAreDecodedByIdAndReachTheClientOnlyWhileListening) {
    ASSERT_EQ(0, mSession->loadModel(testModel()));
    EXPECT_EQ(0, raise(0, asrPayload("before start")));
    pal().queueResults(Function::StreamStart, {-16});
    EXPECT_EQ(-16, mSession->start(englishConfig()));
    EXPECT_EQ(0, raise(0, asrPayload("dropped")));
    EXPECT_THAT(mClient->deliveries(), IsEmpty());

    ASSERT_EQ(0, mSession->start(englishConfig()));
    VoxaConfig badLanguage = englishConfig();
    badLanguage.input_lang_code = "en_US";
    EXPECT_EQ(-22, mSession->start(badLanguage));
    mLog.clear();
    mClient->failWith(-4);
    for (uint32_t id : {0u, 3u, 99u}) EXPECT_EQ(0, raise(id, asrPayload("plain")));
    EXPECT_EQ(0, raise(1, timestampPayload("stamped")));
    EXPECT_EQ(0, raise(2, sdzPayload(5)));

    std::vector<RecordingCallback::Delivery> deliveries = mClient->deliveries();
    ASSERT_EQ(5u, deliveries.size());
    for (const auto& delivery : deliveries) {
        EXPECT_EQ(kHandle, delivery.handle);
        EXPECT_EQ(FakePal::instance().eventThread(), delivery.thread);
    }
    for (int i = 0; i < 3; ++i) {
        ASSERT_TRUE(deliveries[i].asr.has_value());
        EXPECT_EQ("plain", deliveries[i].asr->events.value().at(0)->text);
        EXPECT_FALSE(deliveries[i].asr->timestamp_events.has_value());
    }
    ASSERT_TRUE(deliveries[3].asr.has_value());
    EXPECT_FALSE(deliveries[3].asr->events.has_value());
    EXPECT_EQ("stamped", deliveries[3].asr->timestamp_events.value().at(0)->words.at(0).word);
    ASSERT_TRUE(deliveries[4].sdz.has_value());
    EXPECT_FALSE(deliveries[4].asr.has_value());
    EXPECT_EQ(5, deliveries[4].sdz->events.at(0).speakers.at(0).value);

    std::vector<voxa_test::LogLine> lines = mLog.lines();
    ASSERT_EQ(10u, lines.size());
    EXPECT_EQ(Info("onEventCallback:[7] send asr event"), lines[0]);
    EXPECT_EQ(Info("onEventCallback: Exit, handle 7"), lines[1]);
    EXPECT_EQ(Info("onEventCallback:[7] send asr timestamp event"), lines[6]);
    EXPECT_EQ(Info("onEventCallback:[7] send sdz event"), lines[8]);

    mLog.clear();
    fake_pal::Delivery nullPayload;
    nullPayload.nullPayload = true;
    nullPayload.size = 12;
    EXPECT_EQ(-22, raise(4, asrPayload("x"), nullPayload));
    fake_pal::Delivery nullStream;
    nullStream.nullStream = true;
    EXPECT_EQ(-22, raise(1, asrPayload("x"), nullStream));
    std::vector<uint8_t> payload = asrPayload("x");
    unsigned long stream = 0;
    EXPECT_EQ(0,
              VoxaSession::palCallback(&stream, 0, reinterpret_cast<unsigned int*>(payload.data()),
                                       payload.size(), 0));
    EXPECT_EQ(5u, mClient->count());
    EXPECT_THAT(mLog.lines(),
                ElementsAre(Error("palCallback: error, invalid handle/eventData id 4, size 12"),
                            Error("palCallback: error, invalid handle/eventData id 1, size 5148")));

    ASSERT_EQ(0, mSession->stop());
    mLog.clear();
    EXPECT_EQ(0, raise(2, sdzPayload(1)));
    EXPECT_EQ(5u, mClient->count());
    EXPECT_THAT(mLog.lines(), ElementsAre(Info("onEventCallback: Exit, handle 7")));
}

}  // namespace
}  // namespace aidl::vendor::orbo::hardware::voxa
