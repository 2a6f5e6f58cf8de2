// The engine's PAL functions: what they accept and refuse, its capacity of one stream, and the
// resources-available notification.
#include <gtest/gtest.h>
#include <sys/mman.h>

#include <functional>
#include <future>
#include <iterator>

#include "EngineTestSupport.h"

namespace engine_test {
namespace {

class EngineApiTest : public ::testing::Test {
  protected:
    void TearDown() override {
        if (mStream != nullptr) {
            EXPECT_EQ(0, pal_stream_close(mStream));
        }
        pal_resources_available_param none = {};
        pal_set_param(PAL_PARAM_ID_RESOURCES_AVAILABLE, &none, sizeof(none));
        pal_engine::clearSource();
    }

    // A descriptor of an in-memory model image holding `text`.
    static int imageFd(const std::string& text) {
        int fd = memfd_create("image", MFD_CLOEXEC);
        EXPECT_EQ(static_cast<ssize_t>(text.size()), write(fd, text.data(), text.size()));
        return fd;
    }

    int32_t loadImage(const std::string& text, int32_t size,
                      st_uuid uuid = pal_engine::kEngineUuidRecord) {
        int fd = imageFd(text);
        int32_t status = setParam(mStream, PAL_PARAM_ID_ASR_MODEL, modelPayload(fd, size, uuid));
        close(fd);
        return status;
    }

    Recorder mRecorder;
    pal_stream_handle* mStream = nullptr;
};

TEST_F(EngineApiTest, OpenRefusesAnythingButOneAsrCaptureStream) {
    const std::function<void(pal_stream_attrs&, pal_device&)> changes[] = {
            [](auto& a, auto&) { a.type = PAL_STREAM_ASR + 1; },
            [](auto& a, auto&) { a.direction = PAL_AUDIO_OUTPUT; },
            [](auto& a, auto&) { a.in_media_config.sample_rate = 48000; },
            [](auto& a, auto&) { a.in_media_config.channels.count = 2; },
            [](auto&, auto& d) { d.id = PAL_DEVICE_IN_HANDSET_VA_MIC + 1; },
            [](auto&, auto& d) { d.config.bit_width = 24; },
    };
    for (size_t i = 0; i < std::size(changes); ++i) {
        pal_stream_attrs attributes = serviceAttributes();
        pal_device device = serviceDevice();
        changes[i](attributes, device);
        pal_stream_handle* stream = nullptr;
        EXPECT_EQ(-22, pal_stream_open(&attributes, 1, &device, 0, nullptr, &Recorder::callback, 0,
                                       &stream))
                << "change " << i;
        EXPECT_EQ(nullptr, stream);
    }

    pal_stream_attrs attributes = serviceAttributes();
    pal_device device = serviceDevice();
    pal_device two[2] = {device, device};
    pal_stream_handle* stream = nullptr;
    EXPECT_EQ(-22, pal_stream_open(&attributes, 0, &device, 0, nullptr, &Recorder::callback, 0,
                                   &stream));
    EXPECT_EQ(-22,
              pal_stream_open(&attributes, 2, two, 0, nullptr, &Recorder::callback, 0, &stream));
    pal_stream_modifier modifier = {1, 2};
    EXPECT_EQ(-22, pal_stream_open(&attributes, 1, &device, 1, &modifier, &Recorder::callback, 0,
                                   &stream));
    EXPECT_EQ(-22, pal_stream_open(&attributes, 1, &device, 0, nullptr, nullptr, 0, &stream));
    EXPECT_EQ(-22, pal_stream_open(&attributes, 1, &device, 0, nullptr, &Recorder::callback, 0,
                                   nullptr));
    EXPECT_EQ(-22,
              pal_stream_open(nullptr, 1, &device, 0, nullptr, &Recorder::callback, 0, &stream));
}

TEST_F(EngineApiTest, HoldsOneStreamAtATime) {
    ASSERT_EQ(0, mRecorder.open(&mStream));
    ASSERT_NE(nullptr, mStream);
    Recorder other;
    pal_stream_handle* second = nullptr;
    EXPECT_EQ(-16, other.open(&second));
    EXPECT_EQ(nullptr, second);

    pal_stream_handle* first = mStream;
    EXPECT_EQ(0, pal_stream_close(first));
    mStream = nullptr;
    for (uint32_t id : {PAL_PARAM_ID_ASR_CUSTOM, PAL_PARAM_ID_ASR_FORCE_OUTPUT}) {
        EXPECT_EQ(-22, setParam(first, id, {0, 0, 0, 0}));
    }
    EXPECT_EQ(-22, pal_stream_start(first));
    EXPECT_EQ(-22, pal_stream_stop(first));
    EXPECT_EQ(-22, pal_stream_close(first));
    EXPECT_EQ(-22, pal_stream_close(nullptr));
    EXPECT_EQ(0, other.open(&mStream));
}

TEST_F(EngineApiTest, ModelIsReadThroughTheDescriptorAndMustBeTheEngines) {
    ASSERT_EQ(0, mRecorder.open(&mStream));
    const std::string image =
            "voxa-model 1\nlanguage en-US\nacoustic-model /nonexistent/am\n"
            "language-model /nonexistent/lm\ndictionary /nonexistent/dict\n";
    st_uuid other = pal_engine::kEngineUuidRecord;
    other.node[5] ^= 1;
    EXPECT_EQ(-22, loadImage(image, image.size(), other));
    EXPECT_EQ(-22, loadImage(image, image.size() + 1));  // short read
    EXPECT_EQ(-22, loadImage(image, 0));
    EXPECT_EQ(-22, loadImage(image, image.size()));  // well formed, but no such model
    EXPECT_EQ(-22, setParam(mStream, PAL_PARAM_ID_ASR_MODEL, modelPayload(-1, 10)));
    std::vector<uint8_t> truncated = modelPayload(0, 10);
    truncated[0] = 20;
    EXPECT_EQ(-22, setParam(mStream, PAL_PARAM_ID_ASR_MODEL, truncated));
    EXPECT_EQ(-22, pal_stream_set_param(mStream, PAL_PARAM_ID_ASR_MODEL, nullptr));
    EXPECT_EQ(-22, pal_stream_start(mStream)) << "no model loaded";
}

TEST_F(EngineApiTest, ConfigurationOfOtherLanguagesTranslationOrDiarizationIsNotSupported) {
    ASSERT_EQ(0, mRecorder.open(&mStream));
    EXPECT_EQ(0, setConfig(mStream, englishConfig()));
    auto with = [](auto change) {
        pal_asr_config config = englishConfig();
        change(config);
        return config;
    };
    EXPECT_EQ(-38, setConfig(mStream, with([](auto& c) { c.input_language_id = 2; })));
    EXPECT_EQ(-38, setConfig(mStream, with([](auto& c) { c.output_language_id = 99; })));
    EXPECT_EQ(-38, setConfig(mStream, with([](auto& c) { c.enable_translation = 1; })));
    EXPECT_EQ(-38, setConfig(mStream, with([](auto& c) { c.enable_speaker_diarization = 1; })));
    EXPECT_EQ(-22, setConfig(mStream, with([](auto& c) { c.input_language_id = 100; })));
    EXPECT_EQ(-22, setConfig(mStream, with([](auto& c) { c.threshold = 101; })));
    EXPECT_EQ(-22, setConfig(mStream, with([](auto& c) { c.timeout_duration = -1; })));
    EXPECT_EQ(-22, setConfig(mStream, with([](auto& c) { c.silence_detection_duration = -1; })));
    EXPECT_EQ(-22, setConfig(mStream, with([](auto& c) { c.data_size = 1; })));
    EXPECT_EQ(0, setConfig(mStream, with([](auto& c) {
                               c.enable_language_detection = 1;
                               c.partial = 1;
                               c.threshold = 100;
                               c.timeout_duration = 5000;
                           })));
    // Trailing data travels with its count.
    pal_asr_config config = englishConfig();
    std::vector<uint8_t> bytes = payload(&config, sizeof(config));
    bytes.insert(bytes.end(), {7, 7, 7});
    bytes[0] = 39;
    bytes[36] = 3;
    EXPECT_EQ(0, setParam(mStream, PAL_PARAM_ID_ASR_CONFIG, bytes));
}

TEST_F(EngineApiTest, ParametersOfAStreamThatIsNotRunning) {
    ASSERT_EQ(0, mRecorder.open(&mStream));
    EXPECT_EQ(0, setParam(mStream, PAL_PARAM_ID_ASR_CUSTOM, {2, 0, 0, 0, 1, 2}));
    EXPECT_EQ(-22, setParam(mStream, PAL_PARAM_ID_ASR_FORCE_OUTPUT, {0, 0, 0, 0}));
    EXPECT_EQ(-22, setParam(mStream, 81, {0, 0, 0, 0}));
    EXPECT_EQ(0, pal_stream_stop(mStream));
    uint32_t dummy = 0;
    EXPECT_EQ(-22, pal_set_param(PAL_PARAM_ID_ASR_MODEL, &dummy, sizeof(dummy)));
    EXPECT_EQ(-22, pal_set_param(PAL_PARAM_ID_RESOURCES_AVAILABLE, &dummy, sizeof(dummy)));
}

TEST_F(EngineApiTest, ResourcesAvailableIsReportedOnAnEngineThreadAfterClose) {
    static std::promise<std::pair<unsigned long, std::thread::id>>* reported;
    std::promise<std::pair<unsigned long, std::thread::id>> promise;
    reported = &promise;
    pal_resources_available_param registration = {
            [](unsigned long cookie) {
                reported->set_value({cookie, std::this_thread::get_id()});
            },
            0xC0FFEE};
    ASSERT_EQ(0,
              pal_set_param(PAL_PARAM_ID_RESOURCES_AVAILABLE, &registration, sizeof(registration)));
    ASSERT_EQ(0, mRecorder.open(&mStream));
    auto future = promise.get_future();
    EXPECT_EQ(std::future_status::timeout, future.wait_for(std::chrono::milliseconds(50)));
    ASSERT_EQ(0, pal_stream_close(mStream));
    mStream = nullptr;
    ASSERT_EQ(std::future_status::ready, future.wait_for(std::chrono::seconds(5)));
    auto [cookie, thread] = future.get();
    EXPECT_EQ(0xC0FFEEu, cookie);
    EXPECT_NE(std::this_thread::get_id(), thread);
}

}  // namespace
}  // namespace engine_test
