#include "SessionTestSupport.h"

namespace aidl::vendor::orbo::hardware::voxa {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr int32_t kHandle = 7;

class VoxaSessionTest : public FakePalTest {
  protected:
    std::shared_ptr<RecordingCallback> mClient = ndk::SharedRefBase::make<RecordingCallback>();
    std::shared_ptr<VoxaSession> mSession = std::make_shared<VoxaSession>(kHandle, mClient);

    // Opens and starts the session; forgets the calls and lines that took.
    void listen() {
        ASSERT_EQ(0, mSession->loadModel(testModel()));
        ASSERT_EQ(0, mSession->start(englishConfig()));
        mLog.clear();
    }
    int32_t raise(uint32_t eventId, const std::vector<uint8_t>& payload) {
        return pal().raiseEvent(lastStream(), eventId, payload);
    }
};

TEST_F(VoxaSessionTest, CreationLogsTheHandleAndTouchesNoStream) {
    EXPECT_THAT(mLog.lines(), ElementsAre(Info("VoxaSession: Enter, handle 7")));
    EXPECT_THAT(pal().calls(), IsEmpty());
    mSession.reset();
    EXPECT_EQ(Info("~VoxaSession: Enter, handle 7"), mLog.lines().back());
    EXPECT_THAT(pal().calls(), IsEmpty());
}

TEST_F(VoxaSessionTest, LoadModelOpensTheCaptureStreamAndSendsTheModel) {
    mLog.clear();
    VoxaModel model = testModel();
    ASSERT_EQ(0, mSession->loadModel(model));

    std::vector<fake_pal::Call> calls = pal().calls();
    ASSERT_EQ(2u, calls.size());
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

    EXPECT_THAT(mLog.lines(),
                ElementsAre(Info("loadModel: Enter handle 7, model " + model.toString()),
                            Info("loadModel: Exit, handle 7, status = 0")));
}

TEST_F(VoxaSessionTest, LoadModelFailures) {
    pal().queueResults(Function::StreamOpen, {-12});
    mLog.clear();
    EXPECT_EQ(-12, mSession->loadModel(testModel()));
    EXPECT_THAT(pal().functions(), ElementsAre(Function::StreamOpen));
    EXPECT_EQ(Error("openPalStream: failed to open pal stream, status -12"), mLog.lines().back());
    EXPECT_EQ(2u, mLog.lines().size());

    // A refused model closes the stream again, quietly: the service is about to drop the session.
    pal().clearCalls();
    pal().queueResults(Function::StreamSetParam, {-38});
    mLog.clear();
    EXPECT_EQ(-38, mSession->loadModel(testModel()));
    EXPECT_THAT(mLog.lines().back(), Error("loadModel: failed to set asr model, status = -38"));
    EXPECT_EQ(2u, mLog.lines().size());
    std::vector<fake_pal::Call> calls = pal().calls();
    ASSERT_EQ(3u, calls.size());
    EXPECT_EQ(Function::StreamClose, calls[2].function);
    EXPECT_EQ(calls[0].stream, calls[2].stream);
    EXPECT_THAT(pal().openStreams(), IsEmpty());
}

TEST_F(VoxaSessionTest, StartSendsTheConfigurationThenStarts) {
    ASSERT_EQ(0, mSession->loadModel(testModel()));
    pal().clearCalls();
    mLog.clear();
    VoxaConfig config = englishConfig();
    ASSERT_EQ(0, mSession->start(config));
    ASSERT_EQ(0, mSession->start(config));  // not guarded: configures and starts again

    EXPECT_THAT(pal().functions(), ElementsAre(Function::StreamSetParam, Function::StreamStart,
                                               Function::StreamSetParam, Function::StreamStart));
    const fake_pal::Call param = pal().calls()[0];
    EXPECT_EQ(78u, param.paramId);
    EXPECT_EQ(40u, param.payload.size());
    EXPECT_EQ(1, param.payload[14]);  // continuous
    EXPECT_EQ(1, param.payload[15]);  // partial
    const std::string enter = "start: Enter, handle 7, config " + config.toString();
    EXPECT_THAT(mLog.lines(), ElementsAre(Info(enter), Info("start: Exit, handle 7, status = 0"),
                                          Info(enter), Info("start: Exit, handle 7, status = 0")));
}

TEST_F(VoxaSessionTest, StartFailuresLeaveTheStateAsItWas) {
    ASSERT_EQ(0, mSession->loadModel(testModel()));
    VoxaConfig badLanguage = englishConfig();
    badLanguage.input_lang_code = "en_US";
    mLog.clear();
    pal().clearCalls();
    EXPECT_EQ(-22, mSession->start(badLanguage));
    EXPECT_THAT(pal().calls(), IsEmpty());
    EXPECT_THAT(mLog.lines(),
                ElementsAre(Info("start: Enter, handle 7, config " + badLanguage.toString()),
                            Error("convertConfig: Recieved invalid input lnaguage code en_US"),
                            Error("start: Failed to parse config, status = -22")));

    pal().queueResults(Function::StreamSetParam, {-5});
    EXPECT_EQ(-5, mSession->start(englishConfig()));
    EXPECT_EQ(Error("start: failed to set asr config, status = -5"), mLog.lines().back());
    pal().queueResults(Function::StreamStart, {-16});
    EXPECT_EQ(-16, mSession->start(englishConfig()));
    EXPECT_EQ(Error("start: failed to start pal stream, status = -16"), mLog.lines().back());
    EXPECT_THAT(pal().functions(), ElementsAre(Function::StreamSetParam, Function::StreamSetParam,
                                               Function::StreamStart));
    // Still not listening: events are dropped.
    EXPECT_EQ(0, raise(0, asrPayload("dropped")));
    EXPECT_THAT(mClient->deliveries(), IsEmpty());

    // A rejected configuration leaves a listening session listening.
    ASSERT_EQ(0, mSession->start(englishConfig()));
    EXPECT_EQ(-22, mSession->start(badLanguage));
    EXPECT_EQ(0, raise(0, asrPayload("heard")));
    EXPECT_EQ(1u, mClient->deliveries().size());
}

TEST_F(VoxaSessionTest, StopAlwaysStopsTheStreamAndEndsListening) {
    ASSERT_EQ(0, mSession->loadModel(testModel()));
    mLog.clear();
    EXPECT_EQ(0, mSession->stop());  // never started
    EXPECT_THAT(mLog.lines(),
                ElementsAre(Info("stop: Enter, handle 7"), Info("stopL: Enter, handle 7"),
                            Info("stopL: Exit, handle 7, status = 0"),
                            Info("stop: Exit, handle 7, status = 0")));

    ASSERT_EQ(0, mSession->start(englishConfig()));
    pal().queueResults(Function::StreamStop, {-32});
    mLog.clear();
    EXPECT_EQ(-32, mSession->stop());
    EXPECT_THAT(mLog.lines(),
                ElementsAre(Info("stop: Enter, handle 7"), Info("stopL: Enter, handle 7"),
                            Error("stopL: error, failed to stop pal stream, status = -32"),
                            Info("stopL: Exit, handle 7, status = -32"),
                            Info("stop: Exit, handle 7, status = -32")));

    // No longer listening, so close does not stop again.
    pal().clearCalls();
    EXPECT_EQ(0, mSession->close());
    EXPECT_THAT(pal().functions(), ElementsAre(Function::StreamClose));
}

TEST_F(VoxaSessionTest, SetParameterSendsCountedData) {
    ASSERT_EQ(0, mSession->loadModel(testModel()));
    pal().clearCalls();
    mLog.clear();

    VoxaParameter force;
    force.param = ParameterType::FORCE_OUTPUT_EVENT;
    force.data = {1, 2, 3, 255};
    EXPECT_EQ(0, mSession->setParameter(force));
    VoxaParameter extras;
    extras.param = ParameterType::CUSTOM_EXTRAS;
    EXPECT_EQ(0, mSession->setParameter(extras));
    VoxaParameter largest;
    largest.param = ParameterType::CUSTOM_EXTRAS;
    largest.data.assign(20, 0xab);
    pal().queueResults(Function::StreamSetParam, {0, -19});
    EXPECT_EQ(0, mSession->setParameter(largest));
    EXPECT_EQ(-19, mSession->setParameter(force));

    std::vector<fake_pal::Call> calls = pal().calls();
    ASSERT_EQ(4u, calls.size());
    EXPECT_EQ(80u, calls[0].paramId);
    EXPECT_EQ((std::vector<uint8_t>{4, 0, 0, 0, 1, 2, 3, 255}), calls[0].payload);
    EXPECT_EQ(79u, calls[1].paramId);
    EXPECT_EQ((std::vector<uint8_t>{0, 0, 0, 0}), calls[1].payload);
    EXPECT_EQ(Bytes(24).u32(0, 20).bytes(4, largest.data).vector(), calls[2].payload);

    std::vector<voxa_test::LogLine> lines = mLog.lines();
    ASSERT_EQ(9u, lines.size());
    EXPECT_EQ(Info("setParameter: Enter, handle 7, parameters " + force.toString()), lines[0]);
    EXPECT_EQ(Info("setParameter: Exit, handle 7, status = 0"), lines[1]);
    EXPECT_EQ(Error("setParameter: failed to set asr param, status = -19"), lines[7]);
    EXPECT_EQ(Info("setParameter: Exit, handle 7, status = -19"), lines[8]);
}

TEST_F(VoxaSessionTest, SetParameterRefusals) {
    ASSERT_EQ(0, mSession->loadModel(testModel()));
    pal().clearCalls();
    mLog.clear();

    VoxaParameter invalid;
    invalid.param = ParameterType::INVALID;
    EXPECT_EQ(-22, mSession->setParameter(invalid));
    VoxaParameter unknown;
    unknown.param = static_cast<ParameterType>(9);
    EXPECT_EQ(-22, mSession->setParameter(unknown));
    VoxaParameter tooLong;
    tooLong.param = ParameterType::FORCE_OUTPUT_EVENT;
    tooLong.data.assign(21, 1);
    EXPECT_EQ(-22, mSession->setParameter(tooLong));

    EXPECT_THAT(pal().calls(), IsEmpty());
    EXPECT_THAT(mLog.lines(),
                ElementsAre(Info("setParameter: Enter, handle 7, parameters " + invalid.toString()),
                            Error("setParameter: Invalid param -1"),
                            Info("setParameter: Enter, handle 7, parameters " + unknown.toString()),
                            Error("setParameter: Invalid param 9"),
                            // Data that cannot be sent is shown by its size alone.
                            Info("setParameter: Enter, handle 7, parameters VoxaParameter{param: "
                                 "FORCE_OUTPUT_EVENT, data: [21 bytes]}"),
                            Error("setParameter: Invalid param data size 21, at most 20 bytes")));
}

TEST_F(VoxaSessionTest, CloseStopsOnlyAListeningSession) {
    listen();
    pal().clearCalls();
    pal().queueResults(Function::StreamStop, {-32});
    EXPECT_EQ(0, mSession->close());
    EXPECT_THAT(pal().functions(), ElementsAre(Function::StreamStop, Function::StreamClose));
    EXPECT_THAT(mLog.lines(),
                ElementsAre(Info("close: Enter, handle 7"), Info("stopL: Enter, handle 7"),
                            Error("stopL: error, failed to stop pal stream, status = -32"),
                            Info("stopL: Exit, handle 7, status = -32"),
                            Error("close: failed to stop pal stream, status = -32"),
                            Info("close: Exit, handle 7, status = 0")));

    // Closed (a binder thread may still hold the session that another released): every operation
    // is refused without a PAL call.
    pal().clearCalls();
    mLog.clear();
    VoxaParameter force;
    force.param = ParameterType::FORCE_OUTPUT_EVENT;
    EXPECT_EQ(-22, mSession->start(englishConfig()));
    EXPECT_EQ(-22, mSession->setParameter(force));
    EXPECT_EQ(-22, mSession->stop());
    EXPECT_EQ(-22, mSession->close());
    EXPECT_THAT(pal().calls(), IsEmpty());
    EXPECT_THAT(mLog.lines(),
                ElementsAre(Info("start: Enter, handle 7, config " + englishConfig().toString()),
                            Error("start: stream closed, handle 7"),
                            Info("setParameter: Enter, handle 7, parameters " + force.toString()),
                            Error("setParameter: stream closed, handle 7"),
                            Info("setParameter: Exit, handle 7, status = -22"),
                            Info("stop: Enter, handle 7"), Error("stop: stream closed, handle 7"),
                            Info("stop: Exit, handle 7, status = -22"),
                            Info("close: Enter, handle 7"), Error("close: stream closed, handle 7"),
                            Info("close: Exit, handle 7, status = -22")));
}

TEST_F(VoxaSessionTest, EventsAreDecodedByIdAndDeliveredWithTheHandle) {
    listen();
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
}

TEST_F(VoxaSessionTest, EventsOutsideListeningAreDropped) {
    ASSERT_EQ(0, mSession->loadModel(testModel()));
    mLog.clear();
    EXPECT_EQ(0, raise(0, asrPayload("before start")));
    ASSERT_EQ(0, mSession->start(englishConfig()));
    ASSERT_EQ(0, mSession->stop());
    mLog.clear();
    EXPECT_EQ(0, raise(2, sdzPayload(1)));
    EXPECT_THAT(mClient->deliveries(), IsEmpty());
    EXPECT_THAT(mLog.lines(), ElementsAre(Info("onEventCallback: Exit, handle 7")));
}

TEST_F(VoxaSessionTest, MalformedCallbacksAreRefusedBeforeTheSession) {
    listen();
    fake_pal::Delivery nullPayload;
    nullPayload.nullPayload = true;
    nullPayload.size = 12;
    EXPECT_EQ(-22, pal().raiseEvent(lastStream(), 4, asrPayload("x"), nullPayload));
    fake_pal::Delivery nullStream;
    nullStream.nullStream = true;
    EXPECT_EQ(-22, pal().raiseEvent(lastStream(), 1, asrPayload("x"), nullStream));
    std::vector<uint8_t> payload = asrPayload("x");
    unsigned long stream = 0;
    EXPECT_EQ(0,
              VoxaSession::palCallback(&stream, 0, reinterpret_cast<unsigned int*>(payload.data()),
                                       payload.size(), 0));
    EXPECT_THAT(mClient->deliveries(), IsEmpty());
    EXPECT_THAT(mLog.lines(),
                ElementsAre(Error("palCallback: error, invalid handle/eventData id 4, size 12"),
                            Error("palCallback: error, invalid handle/eventData id 1, size 5148")));
}

TEST_F(VoxaSessionTest, FailingClientDoesNotStopDeliveries) {
    listen();
    mClient->failWith(-4);
    EXPECT_EQ(0, raise(0, asrPayload("one")));
    EXPECT_EQ(0, raise(0, asrPayload("two")));
    EXPECT_EQ(2u, mClient->deliveries().size());
}

}  // namespace
}  // namespace aidl::vendor::orbo::hardware::voxa
