// The PAL engine's contract through the PAL API, as the service drives it: what it accepts and
// refuses, its capacity of one stream, the model image read through its descriptor, and the end
// of events at stop, from any thread and from the stream's own callback.
#include <gmock/gmock.h>

#include <array>
#include <future>
#include <sstream>

#include "EngineFixture.h"

namespace engine_test {
namespace {

using ::testing::StartsWith;

using EngineApiTest = EngineTest;

TEST_F(EngineApiTest, OpenRefusesAnythingButOneAsrCaptureStream) {
    const std::function<void(OpenCall&)> changes[] = {
            [](OpenCall& c) { c.attributes.type = PAL_STREAM_ASR + 1; },
            [](OpenCall& c) { c.attributes.direction = PAL_AUDIO_OUTPUT; },
            [](OpenCall& c) { c.attributes.in_media_config.sample_rate = 48000; },
            [](OpenCall& c) { c.attributes.in_media_config.channels.count = 2; },
            [](OpenCall& c) { c.devices[0].id = PAL_DEVICE_IN_HANDSET_VA_MIC + 1; },
            [](OpenCall& c) { c.devices[0].config.bit_width = 24; },
            [](OpenCall& c) { c.deviceCount = 0; },
            [](OpenCall& c) { c.deviceCount = 2; },
            [](OpenCall& c) { c.modifierCount = 1; },
            [](OpenCall& c) { c.callback = nullptr; },
    };
    for (size_t i = 0; i < std::size(changes); ++i) {
        EXPECT_EQ(-22, open(&mStream, changes[i])) << "change " << i;
        EXPECT_EQ(nullptr, mStream);
    }
}

TEST_F(EngineApiTest, HoldsOneStreamAndReportsOnAnEngineThreadWhenItsCloseFreesTheEngine) {
    // The one call of the resources-available function: its cookie and calling thread.
    static std::promise<std::pair<unsigned long, std::thread::id>> called;
    pal_resources_available_param registration = {
            [](unsigned long cookie) {
                called.set_value({cookie, std::this_thread::get_id()});
            },
            0xC0FFEE};
    std::future<std::pair<unsigned long, std::thread::id>> call = called.get_future();
    ASSERT_EQ(0,
              pal_set_param(PAL_PARAM_ID_RESOURCES_AVAILABLE, &registration, sizeof(registration)));
    ASSERT_EQ(0, open(&mStream));
    ASSERT_NE(nullptr, mStream);
    pal_stream_handle* second = nullptr;
    EXPECT_EQ(-16, open(&second));
    EXPECT_EQ(nullptr, second);

    // A stream that is not running takes custom extras, not force output; stop is harmless.
    EXPECT_EQ(0,
              setParam(mStream, PAL_PARAM_ID_ASR_CUSTOM, std::array<uint8_t, 6>{2, 0, 0, 0, 1, 2}));
    EXPECT_EQ(-22, pal_stream_set_param(mStream, PAL_PARAM_ID_ASR_CUSTOM, nullptr));
    EXPECT_EQ(-22, setParam(mStream, PAL_PARAM_ID_ASR_FORCE_OUTPUT, uint32_t{0}));
    EXPECT_EQ(-22, setParam(mStream, 81, uint32_t{0}));
    EXPECT_EQ(0, pal_stream_stop(mStream));
    uint32_t dummy = 0;
    EXPECT_EQ(-22, pal_set_param(PAL_PARAM_ID_ASR_MODEL, &dummy, sizeof(dummy)));
    EXPECT_EQ(-22, pal_set_param(PAL_PARAM_ID_RESOURCES_AVAILABLE, &dummy, sizeof(dummy)));

    EXPECT_EQ(std::future_status::timeout, call.wait_for(std::chrono::milliseconds(50)));
    pal_stream_handle* first = mStream;
    ASSERT_EQ(0, pal_stream_close(first));
    mStream = nullptr;
    ASSERT_EQ(std::future_status::ready, call.wait_for(std::chrono::seconds(5)));
    const auto [cookie, thread] = call.get();
    EXPECT_EQ(0xC0FFEEu, cookie);
    EXPECT_NE(std::this_thread::get_id(), thread);
    // The next close notifies no one: the function sets its promise once.
    pal_resources_available_param none = {};
    ASSERT_EQ(0, pal_set_param(PAL_PARAM_ID_RESOURCES_AVAILABLE, &none, sizeof(none)));

    // The handle is dead; the engine is free for the next stream.
    EXPECT_EQ(-22, setParam(first, PAL_PARAM_ID_ASR_CUSTOM, uint32_t{0}));
    EXPECT_EQ(-22, pal_stream_start(first));
    EXPECT_EQ(-22, pal_stream_stop(first));
    EXPECT_EQ(-22, pal_stream_close(first));
    EXPECT_EQ(-22, pal_stream_close(nullptr));
    EXPECT_EQ(0, open(&mStream));
}

TEST_F(EngineApiTest, ModelImageIsReadThroughItsDescriptorAndMustNameTheEnginesModel) {
    ASSERT_EQ(0, open(&mStream));
    EXPECT_EQ(-22, pal_stream_start(mStream)) << "no model loaded";
    // The shipped image's four key lines, after its "voxa-model 1".
    const std::string shipped = readFile(VOXA_ENGINE_MODEL);
    const std::string body = shipped.substr(shipped.find("voxa-model 1\n") + 13);
    const std::string refused[] = {
            "voxa-model 2\n" + body,
            body + "voxa-model 1\n",
            "voxa-model 1\n" + body.substr(0, body.rfind("dictionary")),
            "voxa-model 1\n" + body + "dictionary /d\n",
            "voxa-model 1\n" + body + "extra /x\n",
            "voxa-model 1\nlanguage en-US\nacoustic-model am\n" +
                    body.substr(body.find("language-")),
            "voxa-model 1\nlanguage fr-FR\n" + body.substr(body.find("acoustic")),
            "voxa-model 1\nlanguage en-US\nacoustic-model /nonexistent/am\n"
            "language-model /nonexistent/lm\ndictionary /nonexistent/dict\n",
    };
    for (const std::string& image : refused) {
        EXPECT_EQ(-22, loadImage(image)) << image;
    }
    st_uuid other = pal_engine::kEngineUuidRecord;
    other.node[5] ^= 1;
    EXPECT_EQ(-22, loadImage(shipped, -1, other));
    EXPECT_EQ(-22, loadImage(shipped, shipped.size() + 1)) << "short read";
    EXPECT_EQ(-22, loadImage(shipped, 0));
    const st_uuid uuid = pal_engine::kEngineUuidRecord;
    EXPECT_EQ(-22, setParam(mStream, PAL_PARAM_ID_ASR_MODEL, pal_asr_model{24, uuid, -1, 10}));
    EXPECT_EQ(-22, setParam(mStream, PAL_PARAM_ID_ASR_MODEL, pal_asr_model{20, uuid, 0, 10}));
    EXPECT_EQ(-22, pal_stream_set_param(mStream, PAL_PARAM_ID_ASR_MODEL, nullptr));

    // Comments, blank lines and blanks around values are ignored; keys come in any order.
    std::istringstream lines(body);
    std::string keys;
    for (std::string key, value; lines >> key >> value;) {
        keys = key + " \t " + value + " \t\n" + keys;
    }
    const std::string accepted = "# comment\n\n  voxa-model 1\n" + keys;
    EXPECT_EQ(0, loadImage(accepted)) << accepted;
}

TEST_F(EngineApiTest, ConfigurationRefusesLanguagesAndTranslationsTheEngineLacks) {
    ASSERT_EQ(0, open(&mStream));
    auto translateTo = [](int32_t id) {
        return [id](pal_asr_config& c) {
            c.enable_translation = 1;
            c.output_language_id = id;
        };
    };
    const std::pair<int32_t, std::function<void(pal_asr_config&)>> cases[] = {
            {0, [](auto&) {}},
            {-38, [](auto& c) { c.input_language_id = 2; }},
            {-38, [](auto& c) { c.output_language_id = 99; }},
            {-38, [](auto& c) { c.output_language_id = 3; }},  // Spanish, untranslated
            {-38, translateTo(2)},                             // German
            {0, translateTo(3)},                               // es-ES
            {0, translateTo(11)},                              // ca-ES
            {0, translateTo(60)},                              // gl-ES
            {0, translateTo(0)},
            {0, [](auto& c) { c.enable_speaker_diarization = 1; }},
            {-22, [](auto& c) { c.input_language_id = 100; }},
            {-22, [](auto& c) { c.threshold = 101; }},
            {-22, [](auto& c) { c.timeout_duration = -1; }},
            {-22, [](auto& c) { c.silence_detection_duration = -1; }},
            {-22, [](auto& c) { c.silence_detection_duration = 60001; }},
            {-22, [](auto& c) { c.data_size = 1; }},
            {-22, [](auto& c) { c.payload_size = 35; }},
            {0, [](auto& c) { c.enable_language_detection = 1; }},
            {0, [](auto& c) { c.threshold = 100; }},
            {0, [](auto& c) { c.silence_detection_duration = 60000; }},
    };
    for (size_t i = 0; i < std::size(cases); ++i) {
        pal_asr_config config = englishConfig();
        cases[i].second(config);
        EXPECT_EQ(cases[i].first, setParam(mStream, PAL_PARAM_ID_ASR_CONFIG, config)) << i;
    }
    // Trailing data travels with its count.
    struct {
        pal_asr_config config;
        uint8_t data[3];
    } withData = {englishConfig(), {7, 7, 7}};
    withData.config.payload_size = 39;
    withData.config.data_size = 3;
    EXPECT_EQ(0, setParam(mStream, PAL_PARAM_ID_ASR_CONFIG, withData));
}

class EngineStopTest : public EngineTest {
  protected:
    void SetUp() override { openWithModel(); }

    // Partial hypotheses of `file`, at `pace`.
    void startPartial(const std::string& file, pal_engine::Pace pace = pal_engine::Pace::Fast) {
        ASSERT_EQ(0, pal_engine::setFileSource({file}, pace));
        ASSERT_EQ(0, setParam(mStream, PAL_PARAM_ID_ASR_CONFIG, englishConfig(true)));
        ASSERT_EQ(0, pal_stream_start(mStream));
    }
};

TEST_F(EngineStopTest, NoEventBeginsAfterStopEvenWhileOneIsBeingDelivered) {
    std::promise<void> entered;
    std::promise<void> release;
    std::shared_future<void> released = release.get_future().share();
    mOnEvent = [&](size_t index) {
        if (index == 0) {
            entered.set_value();
            released.wait();
        }
    };
    startPartial(kLongRecording, pal_engine::Pace::RealTime);
    EXPECT_EQ(-22, pal_stream_start(mStream));
    EXPECT_EQ(-22, setParam(mStream, PAL_PARAM_ID_ASR_CONFIG, englishConfig())) << "running";
    EXPECT_EQ(-22, loadImage(readFile(VOXA_ENGINE_MODEL))) << "running";
    ASSERT_EQ(std::future_status::ready, entered.get_future().wait_for(std::chrono::seconds(10)));
    EXPECT_EQ(-110, pal_engine::waitUntilDone(std::chrono::milliseconds(10)));

    // The callback is held, as the service holds an event while a client call takes its lock.
    EXPECT_EQ(0, pal_stream_stop(mStream));
    EXPECT_EQ(0, pal_engine::waitUntilDone(std::chrono::milliseconds(0)));
    release.set_value();
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    EXPECT_EQ(1u, events().size());

    // Close joins the capture thread before the promises go.
    EXPECT_EQ(0, pal_stream_close(mStream));
    mStream = nullptr;
}

TEST_F(EngineStopTest, ForceOutputStopAndCloseFromTheStreamsOwnCallback) {
    // Force output from the first partial's callback raises the result at once; a stop from
    // that result's callback ends the events.
    mOnEvent = [this](size_t index) {
        int32_t status = index == 0 ? setParam(mStream, PAL_PARAM_ID_ASR_FORCE_OUTPUT, uint32_t{0})
                                    : pal_stream_stop(mStream);
        EXPECT_EQ(0, status) << index;
    };
    startPartial(kLongRecording);
    ASSERT_EQ(0, pal_engine::waitUntilDone(std::chrono::seconds(30)));
    std::this_thread::sleep_for(std::chrono::milliseconds(200));
    std::vector<Received> received = events();
    ASSERT_EQ(2u, received.size());
    EXPECT_FALSE(received[0].final());
    EXPECT_TRUE(received[1].final());
    EXPECT_THAT(received[1].json(), StartsWith("{\"final\":true,\"reason\":\"forced\""));
    EXPECT_LT(received[1].text().size(), std::string("and mister john dashwood had then").size());

    // A start after a stop from the callback takes over its capture thread. A close from the
    // callback returns at once; once the callback has returned, the engine is free and says so,
    // from its own thread.
    static std::promise<std::thread::id> freed;
    pal_resources_available_param registration = {
            [](unsigned long) { freed.set_value(std::this_thread::get_id()); }, 0};
    ASSERT_EQ(0,
              pal_set_param(PAL_PARAM_ID_RESOURCES_AVAILABLE, &registration, sizeof(registration)));
    std::promise<int32_t> closed;
    pal_stream_handle* handle = mStream;
    mOnEvent = [&](size_t index) {
        if (index != 2) return;
        closed.set_value(pal_stream_close(handle));
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
        pal_stream_handle* other = nullptr;
        EXPECT_EQ(-16, open(&other)) << "the closing stream still holds the engine";
    };
    startPartial(kShortRecording);
    std::future<int32_t> status = closed.get_future();
    ASSERT_EQ(std::future_status::ready, status.wait_for(std::chrono::seconds(30)));
    EXPECT_EQ(0, status.get());
    mStream = nullptr;
    EXPECT_EQ(-22, pal_stream_stop(handle));
    std::future<std::thread::id> notified = freed.get_future();
    ASSERT_EQ(std::future_status::ready, notified.wait_for(std::chrono::seconds(10)));
    EXPECT_NE(std::this_thread::get_id(), notified.get());
    pal_resources_available_param none = {};
    pal_set_param(PAL_PARAM_ID_RESOURCES_AVAILABLE, &none, sizeof(none));
    EXPECT_EQ(3u, events().size());
    // The next stream takes the model that the closed one gave back on the engine's thread.
    openWithModel();
    recognise(englishConfig(true), {kShortRecording});
    EXPECT_THAT(events().back().text(), StartsWith("he was not"));
}

TEST_F(EngineStopTest, StartNeedsAReadableSource) {
    EXPECT_EQ(-19, pal_stream_start(mStream));
    ASSERT_EQ(0, pal_engine::setFileSource({kShortRecording, "/nonexistent.wav"},
                                           pal_engine::Pace::Fast));
    EXPECT_EQ(-5, pal_stream_start(mStream));
    EXPECT_EQ(-22, pal_engine::setFileSource({}, pal_engine::Pace::Fast));
    EXPECT_EQ(-22, pal_engine::setPcmSource(-1, pal_engine::Pace::Fast));
    EXPECT_TRUE(events().empty());
}

}  // namespace
}  // namespace engine_test
