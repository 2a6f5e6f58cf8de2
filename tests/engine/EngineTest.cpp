// The PAL engine driven through the PAL API, as the service drives it: what it accepts and
// refuses, its capacity of one stream, the model image read through its descriptor, recognition
// of real recordings with event layouts read at their published offsets, and the end of events
// at stop.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pal/pal_api.h>
#include <pal/pal_engine.h>
#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <condition_variable>
#include <cstring>
#include <fstream>
#include <functional>
#include <future>
#include <iterator>
#include <mutex>
#include <sstream>
#include <thread>

#include "EventPayload.h"

namespace engine_test {
namespace {

using ::testing::AllOf;
using ::testing::Ge;
using ::testing::HasSubstr;
using ::testing::Le;
using ::testing::StartsWith;

const std::string kLibriVox =
        "/usr/share/pocketsphinx/test/data/librivox/sense_and_sensibility_01_austen_64kb-";
// "he was not an ill disposed young man", 2.99 s.
const std::string kShortRecording = kLibriVox + "0880.wav";
// "he might even have been made amiable himself", 3.29 s.
const std::string kSecondRecording = kLibriVox + "0930.wav";
// "and mister john dashwood had then leisure to consider how much ...", 7.1 s.
const std::string kLongRecording = kLibriVox + "0870.wav";
constexpr size_t kPlainSize = 8 + 5140;
constexpr size_t kTimeStampedSize = 8 + 14768;

template <typename T>
T readAt(const std::vector<uint8_t>& bytes, size_t offset) {
    T value;
    std::memcpy(&value, bytes.data() + offset, sizeof(T));
    return value;
}

std::string textAt(const std::vector<uint8_t>& bytes, size_t offset) {
    return reinterpret_cast<const char*>(bytes.data() + offset);
}

std::string readFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
}

// Writes `seconds` of digital silence as a WAV file in the recordings' format (16 kHz mono, 16
// bits, a 44-byte header); returns its path.
std::string writeSilence(uint32_t seconds) {
    const uint32_t sizes[] = {36 + seconds * 32000, seconds * 32000};
    std::string wav = readFile(kShortRecording).substr(0, 44) + std::string(sizes[1], '\0');
    wav.replace(4, 4, reinterpret_cast<const char*>(&sizes[0]), 4);
    wav.replace(40, 4, reinterpret_cast<const char*>(&sizes[1]), 4);
    const std::string path = ::testing::TempDir() + "engine-silence-" + std::to_string(getpid());
    return std::ofstream(path, std::ios::binary) << wav ? path : "";
}

// Stream attributes and device record exactly as the service builds them.
pal_stream_attrs serviceAttributes() {
    pal_stream_attrs attributes = {};
    attributes.type = PAL_STREAM_ASR;
    attributes.direction = PAL_AUDIO_INPUT;
    attributes.in_media_config = {16000, 16, PCM_S16_LE, {1, {1}}};
    return attributes;
}

pal_device serviceDevice() {
    pal_device device = {};
    device.id = PAL_DEVICE_IN_HANDSET_VA_MIC;
    device.config = {48000, 16, PCM_S16_LE, {2, {1, 2}}};
    return device;
}

pal_asr_config englishConfig() {
    pal_asr_config config = {};
    config.payload_size = 36;
    config.continuous = 1;
    return config;
}

// Sets a parameter whose payload is `record`, its 32-bit count first.
template <typename T>
int32_t setParam(pal_stream_handle* stream, uint32_t id, T record) {
    return pal_stream_set_param(stream, id, reinterpret_cast<pal_param_payload*>(&record));
}

using Bytes = std::vector<uint8_t>;

struct Received {
    pal_stream_handle* stream;
    unsigned int id;
    Bytes bytes;
    std::thread::id thread;

    bool final() const { return bytes[8] == 1; }
    std::string text() const { return textAt(bytes, 8 + 12); }
    std::string json() const {
        return textAt(bytes, 8 + (id == PAL_ASR_EVENT_ID_TIMESTAMP ? 10668 : 1040));
    }
};

// Opens the stream as the service does and records its events. Leaves the engine as it found it:
// no stream, no source, no resources-available registration.
class EngineTest : public ::testing::Test {
  protected:
    void TearDown() override {
        if (mStream != nullptr) {
            EXPECT_EQ(0, pal_stream_close(mStream));
        }
        pal_resources_available_param none = {};
        pal_set_param(PAL_PARAM_ID_RESOURCES_AVAILABLE, &none, sizeof(none));
        pal_engine::clearSource();
    }

    static int32_t callback(pal_stream_handle* stream, unsigned int id, unsigned int* data,
                            unsigned int size, unsigned long cookie) {
        auto* self = reinterpret_cast<EngineTest*>(cookie);
        const auto* bytes = reinterpret_cast<const uint8_t*>(data);
        size_t index;
        {
            std::lock_guard<std::mutex> lock(self->mLock);
            index = self->mEvents.size();
            self->mEvents.push_back(
                    {stream, id, Bytes(bytes, bytes + size), std::this_thread::get_id()});
        }
        if (self->mOnEvent) self->mOnEvent(index);
        return 0;
    }

    int32_t open(pal_stream_handle** stream) {
        pal_stream_attrs attributes = serviceAttributes();
        pal_device device = serviceDevice();
        return pal_stream_open(&attributes, 1, &device, 0, nullptr, &EngineTest::callback,
                               reinterpret_cast<unsigned long>(this), stream);
    }

    // Hands the stream a model image holding `text` through a descriptor, claiming `size` bytes;
    // the engine leaves the descriptor's offset alone.
    int32_t loadImage(const std::string& text, int32_t size,
                      st_uuid uuid = pal_engine::kEngineUuidRecord) {
        int fd = memfd_create("image", MFD_CLOEXEC);
        EXPECT_EQ(static_cast<ssize_t>(text.size()), write(fd, text.data(), text.size()));
        int32_t status =
                setParam(mStream, PAL_PARAM_ID_ASR_MODEL, pal_asr_model{24, uuid, fd, size});
        EXPECT_EQ(static_cast<off_t>(text.size()), lseek(fd, 0, SEEK_CUR));
        close(fd);
        return status;
    }

    std::vector<Received> events() {
        std::lock_guard<std::mutex> lock(mLock);
        return mEvents;
    }

    // Runs inside the stream callback after each event is recorded, with the event's index.
    std::function<void(size_t)> mOnEvent;
    pal_stream_handle* mStream = nullptr;

  private:
    std::mutex mLock;
    std::vector<Received> mEvents;
};

using EngineApiTest = EngineTest;

TEST_F(EngineApiTest, OpenRefusesAnythingButOneAsrCaptureStream) {
    struct Call {
        pal_stream_attrs attributes = serviceAttributes();
        pal_device devices[2] = {serviceDevice(), serviceDevice()};
        uint32_t deviceCount = 1;
        pal_stream_modifier modifier = {1, 2};
        uint32_t modifierCount = 0;
        pal_stream_event_cb callback = &EngineTest::callback;
    };
    const std::function<void(Call&)> changes[] = {
            [](Call& c) { c.attributes.type = PAL_STREAM_ASR + 1; },
            [](Call& c) { c.attributes.direction = PAL_AUDIO_OUTPUT; },
            [](Call& c) { c.attributes.in_media_config.sample_rate = 48000; },
            [](Call& c) { c.attributes.in_media_config.channels.count = 2; },
            [](Call& c) { c.devices[0].id = PAL_DEVICE_IN_HANDSET_VA_MIC + 1; },
            [](Call& c) { c.devices[0].config.bit_width = 24; },
            [](Call& c) { c.deviceCount = 0; },
            [](Call& c) { c.deviceCount = 2; },
            [](Call& c) { c.modifierCount = 1; },
            [](Call& c) { c.callback = nullptr; },
    };
    for (size_t i = 0; i < std::size(changes); ++i) {
        Call c;
        changes[i](c);
        EXPECT_EQ(-22, pal_stream_open(&c.attributes, c.deviceCount, c.devices, c.modifierCount,
                                       &c.modifier, c.callback, 0, &mStream))
                << "change " << i;
        EXPECT_EQ(nullptr, mStream);
    }
}

TEST_F(EngineApiTest, HoldsOneStreamAndReportsOnAnEngineThreadWhenItsCloseFreesTheEngine) {
    // The calls of the resources-available function: cookie and calling thread.
    static std::mutex lock;
    static std::condition_variable arrived;
    static std::vector<std::pair<unsigned long, std::thread::id>> calls;
    pal_resources_available_param registration = {
            [](unsigned long cookie) {
                std::lock_guard<std::mutex> hold(lock);
                calls.push_back({cookie, std::this_thread::get_id()});
                arrived.notify_all();
            },
            0xC0FFEE};
    auto reported = [](std::chrono::milliseconds timeout) {
        std::unique_lock<std::mutex> hold(lock);
        arrived.wait_for(hold, timeout, [] { return !calls.empty(); });
        return calls;
    };
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

    EXPECT_TRUE(reported(std::chrono::milliseconds(50)).empty());
    pal_stream_handle* first = mStream;
    ASSERT_EQ(0, pal_stream_close(first));
    mStream = nullptr;
    const auto after = reported(std::chrono::seconds(5));
    ASSERT_EQ(1u, after.size());
    EXPECT_EQ(0xC0FFEEu, after[0].first);
    EXPECT_NE(std::this_thread::get_id(), after[0].second);

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
        EXPECT_EQ(-22, loadImage(image, image.size())) << image;
    }
    st_uuid other = pal_engine::kEngineUuidRecord;
    other.node[5] ^= 1;
    EXPECT_EQ(-22, loadImage(shipped, shipped.size(), other));
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
    EXPECT_EQ(0, loadImage(accepted, accepted.size())) << accepted;
}

TEST_F(EngineApiTest, ConfigurationOfOtherLanguagesTranslationOrDiarizationIsNotSupported) {
    ASSERT_EQ(0, open(&mStream));
    const std::pair<int32_t, std::function<void(pal_asr_config&)>> cases[] = {
            {0, [](auto&) {}},
            {-38, [](auto& c) { c.input_language_id = 2; }},
            {-38, [](auto& c) { c.output_language_id = 99; }},
            {-38, [](auto& c) { c.enable_translation = 1; }},
            {-38, [](auto& c) { c.enable_speaker_diarization = 1; }},
            {-22, [](auto& c) { c.input_language_id = 100; }},
            {-22, [](auto& c) { c.threshold = 101; }},
            {-22, [](auto& c) { c.timeout_duration = -1; }},
            {-22, [](auto& c) { c.silence_detection_duration = -1; }},
            {-22, [](auto& c) { c.silence_detection_duration = 60001; }},
            {-22, [](auto& c) { c.data_size = 1; }},
            {-22, [](auto& c) { c.payload_size = 35; }},
            {0,
             [](auto& c) {
                 c.enable_language_detection = 1;
                 c.partial = 1;
                 c.threshold = 100;
                 c.timeout_duration = 5000;
                 c.silence_detection_duration = 60000;
             }},
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

class EngineRecognitionTest : public EngineTest {
  protected:
    void SetUp() override {
        ASSERT_EQ(0, open(&mStream));
        const std::string image = readFile(VOXA_ENGINE_MODEL);
        ASSERT_EQ(0, loadImage(image, image.size()));
    }

    // Configures, starts on `files` and waits until the recording is recognised.
    void recognise(const pal_asr_config& config, const std::vector<std::string>& files) {
        ASSERT_EQ(0, pal_engine::setFileSource(files, pal_engine::Pace::Fast));
        ASSERT_EQ(0, setParam(mStream, PAL_PARAM_ID_ASR_CONFIG, config));
        ASSERT_EQ(0, pal_stream_start(mStream));
        ASSERT_EQ(0, pal_engine::waitUntilDone(std::chrono::seconds(60)));
        EXPECT_EQ(0, pal_stream_stop(mStream));
    }
};

TEST_F(EngineRecognitionTest, RecordingsAreRecognisedWithOrderedWordTimesInsideTheAudio) {
    pal_asr_config config = englishConfig();
    config.enable_text_timestamp = 1;
    const std::string silence = writeSilence(1);
    ASSERT_FALSE(silence.empty());
    recognise(config, {kShortRecording, silence, kSecondRecording});
    unlink(silence.c_str());

    std::vector<Received> received = events();
    ASSERT_EQ(2u, received.size()) << "one final result per utterance, nothing partial";
    // The files follow each other: 2.99 s of speech, 1 s of silence, 3.29 s of speech.
    const int64_t bounds[][2] = {{0, 2990}, {3990, 3990 + 3290}};
    const char* expected[] = {"he was not", "he might even have been made"};
    const char* reasons[] = {"silence", "end_of_audio"};
    for (size_t e = 0; e < received.size(); ++e) {
        const Bytes& bytes = received[e].bytes;
        EXPECT_EQ(mStream, received[e].stream);
        EXPECT_NE(std::this_thread::get_id(), received[e].thread);
        ASSERT_EQ(PAL_ASR_EVENT_ID_TIMESTAMP, received[e].id);
        ASSERT_EQ(kTimeStampedSize, bytes.size());
        EXPECT_EQ(0u, readAt<uint32_t>(bytes, 0));  // status
        EXPECT_EQ(1u, readAt<uint32_t>(bytes, 4));  // num_events
        EXPECT_EQ(1, bytes[8]);                     // flag: final
        const int32_t confidence = readAt<int32_t>(bytes, 8 + 4);
        EXPECT_THAT(confidence, AllOf(Ge(1), Le(100)));
        const std::string text = received[e].text();
        EXPECT_THAT(text, StartsWith(expected[e]));
        const int32_t words = readAt<int32_t>(bytes, 8 + 1056);
        ASSERT_GE(words, 5);
        std::string joined;
        int64_t previousEnd = bounds[e][0];
        for (int32_t w = 0; w < words; ++w) {
            const size_t slot = 8 + 1064 + 48 * w;
            const int64_t start = readAt<int64_t>(bytes, slot + 32);
            EXPECT_THAT(readAt<int32_t>(bytes, slot), AllOf(Ge(0), Le(100))) << "word " << w;
            EXPECT_GE(start, previousEnd) << "word " << w;
            previousEnd = readAt<int64_t>(bytes, slot + 40);
            EXPECT_LT(start, previousEnd);
            joined += (w == 0 ? "" : " ") + textAt(bytes, slot + 4);
        }
        EXPECT_LE(previousEnd, bounds[e][1]);
        EXPECT_EQ(text, joined);
        EXPECT_EQ(readAt<int64_t>(bytes, 8 + 1064 + 32), readAt<int64_t>(bytes, 8 + 1040));
        EXPECT_EQ(previousEnd, readAt<int64_t>(bytes, 8 + 1048));
        const std::string json = received[e].json();
        EXPECT_THAT(json, StartsWith("{\"final\":true,\"reason\":\"" + std::string(reasons[e])));
        EXPECT_THAT(json, HasSubstr("\"text\":\"" + text + "\""));
        EXPECT_THAT(json, HasSubstr("\"confidence\":" + std::to_string(confidence) + ","));
        EXPECT_EQ(0u, readAt<uint32_t>(bytes, 8 + 14764));  // data_size
    }
}

TEST_F(EngineRecognitionTest, PartialHypothesesPrecedeTheFinalThatForceOutputRaisesAtOnce) {
    pal_asr_config config = englishConfig();
    config.continuous = 0;
    config.partial = 1;
    // The third partial asks for the result from inside the callback; the command then ends.
    mOnEvent = [this](size_t index) {
        if (index == 2) {
            EXPECT_EQ(0, setParam(mStream, PAL_PARAM_ID_ASR_FORCE_OUTPUT, uint32_t{0}));
        }
    };
    recognise(config, {kLongRecording});

    std::vector<Received> received = events();
    ASSERT_EQ(4u, received.size());
    for (size_t e = 0; e < received.size(); ++e) {
        const Bytes& bytes = received[e].bytes;
        ASSERT_EQ(0u, received[e].id);
        ASSERT_EQ(kPlainSize, bytes.size());
        EXPECT_EQ(0u, readAt<uint32_t>(bytes, 0));
        EXPECT_EQ(1u, readAt<uint32_t>(bytes, 4));
        EXPECT_EQ(e + 1 == received.size() ? 1 : 0, bytes[8]) << "event " << e;
        EXPECT_FALSE(received[e].text().empty());
        EXPECT_EQ(0u, readAt<uint32_t>(bytes, 8 + 5136));
        if (e > 0 && e + 1 < received.size()) {
            EXPECT_NE(received[e - 1].text(), received[e].text()) << "partials only on change";
        }
    }
    EXPECT_EQ(0, readAt<int32_t>(received[0].bytes, 8 + 4));
    EXPECT_EQ("{\"final\":false,\"text\":\"" + received[0].text() + "\"}", received[0].json());
    const Received& final = received.back();
    EXPECT_GE(readAt<int32_t>(final.bytes, 8 + 4), 1);
    EXPECT_THAT(final.json(), StartsWith("{\"final\":true,\"reason\":\"forced\""));
    EXPECT_LT(final.text().size(), std::string("and mister john dashwood had then leisure").size());
}

TEST_F(EngineRecognitionTest, NoEventBeginsAfterStopEvenWhileOneIsBeingDeliveredAndStartResumes) {
    std::promise<void> entered;
    std::promise<void> release;
    std::shared_future<void> released = release.get_future().share();
    mOnEvent = [&](size_t index) {
        if (index == 0) {
            entered.set_value();
            released.wait();
        }
    };
    pal_asr_config config = englishConfig();
    config.partial = 1;
    ASSERT_EQ(0, pal_engine::setFileSource({kLongRecording}, pal_engine::Pace::RealTime));
    ASSERT_EQ(0, setParam(mStream, PAL_PARAM_ID_ASR_CONFIG, config));
    ASSERT_EQ(0, pal_stream_start(mStream));
    EXPECT_EQ(-22, pal_stream_start(mStream));
    EXPECT_EQ(-22, setParam(mStream, PAL_PARAM_ID_ASR_CONFIG, config)) << "while running";
    ASSERT_EQ(std::future_status::ready, entered.get_future().wait_for(std::chrono::seconds(10)));
    EXPECT_EQ(-110, pal_engine::waitUntilDone(std::chrono::milliseconds(10)));

    // The callback is held, as the service holds an event while a client call takes its lock.
    EXPECT_EQ(0, pal_stream_stop(mStream));
    EXPECT_EQ(0, pal_engine::waitUntilDone(std::chrono::milliseconds(0)));
    release.set_value();
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    EXPECT_EQ(1u, events().size());

    // The next start takes over from the stopped capture thread and hears the source anew.
    ASSERT_EQ(0, pal_engine::setFileSource({kShortRecording}, pal_engine::Pace::Fast));
    ASSERT_EQ(0, pal_stream_start(mStream));
    ASSERT_EQ(0, pal_engine::waitUntilDone(std::chrono::seconds(60)));
    std::vector<Received> received = events();
    ASSERT_GT(received.size(), 1u);
    EXPECT_TRUE(received.back().final());
    EXPECT_THAT(received.back().text(), StartsWith("he was not"));
    // Close joins the capture thread, before the promises go.
    EXPECT_EQ(0, pal_stream_close(mStream));
    mStream = nullptr;
}

TEST_F(EngineRecognitionTest, TimeOutAndThresholdEndSilentOrDoubtfulRecognition) {
    pal_asr_config config = englishConfig();
    config.threshold = 100;  // no recognised utterance is that certain
    config.timeout_duration = 800;
    const std::string silence = writeSilence(2);
    ASSERT_FALSE(silence.empty());
    recognise(config, {kShortRecording, silence});
    unlink(silence.c_str());

    std::vector<Received> received = events();
    ASSERT_EQ(1u, received.size());
    EXPECT_TRUE(received[0].final());
    EXPECT_EQ("", received[0].text());
    EXPECT_THAT(received[0].json(), StartsWith("{\"final\":true,\"reason\":\"timeout\""));
    EXPECT_EQ(0, readAt<int32_t>(received[0].bytes, 8 + 4));
}

TEST_F(EngineRecognitionTest, StartNeedsAReadableSource) {
    EXPECT_EQ(-19, pal_stream_start(mStream));
    ASSERT_EQ(0, pal_engine::setFileSource({kShortRecording, "/nonexistent.wav"},
                                           pal_engine::Pace::Fast));
    EXPECT_EQ(-5, pal_stream_start(mStream));
    EXPECT_EQ(-22, pal_engine::setFileSource({}, pal_engine::Pace::Fast));
    EXPECT_EQ(-22, pal_engine::setPcmSource(-1, pal_engine::Pace::Fast));
    EXPECT_TRUE(events().empty());
}

pal_engine::Result manyWords(size_t count, const std::string& word) {
    pal_engine::Result result = {};
    for (size_t i = 0; i < count; ++i) {
        result.words.push_back({word, int64_t(i) * 100, int64_t(i) * 100 + 90, int32_t(i % 101)});
        result.text += (i == 0 ? "" : " ") + word;
    }
    result.endMs = int64_t(count) * 100 - 10;
    result.confidence = 42;
    return result;
}

TEST(EventPayloadTest, ResultsKeepToTheirSlotsAndFields) {
    // 250 words of 40 letters: more words than slots, longer than a slot and than the text.
    pal_engine::Event event = pal_engine::makeFinalEvent(manyWords(250, std::string(40, 'w')),
                                                         pal_engine::Ending::Forced, true);
    ASSERT_EQ(PAL_ASR_EVENT_ID_TIMESTAMP, event.id);
    ASSERT_EQ(kTimeStampedSize, event.size);
    Bytes bytes(event.bytes(), event.bytes() + event.size);
    EXPECT_EQ(42, readAt<int32_t>(bytes, 8 + 4));
    EXPECT_EQ(1027u, textAt(bytes, 8 + 12).size());
    EXPECT_EQ(0, readAt<int64_t>(bytes, 8 + 1040));
    EXPECT_EQ(24990, readAt<int64_t>(bytes, 8 + 1048));
    EXPECT_EQ(200, readAt<int32_t>(bytes, 8 + 1056));
    const size_t last = 8 + 1064 + 48 * 199;
    EXPECT_EQ(199 % 101, readAt<int32_t>(bytes, last));
    EXPECT_EQ(std::string(27, 'w'), textAt(bytes, last + 4));
    EXPECT_EQ(19900, readAt<int64_t>(bytes, last + 32));
    EXPECT_EQ(19990, readAt<int64_t>(bytes, last + 40));
    const std::string json = textAt(bytes, 8 + 10668);
    EXPECT_LE(json.size(), 4095u);
    EXPECT_THAT(json, StartsWith("{\"final\":true,\"reason\":\"forced\""));
    EXPECT_THAT(json, ::testing::EndsWith("],\"words_truncated\":true}"));

    // Text is cut on a character boundary, and escaped in JSON.
    char field[6];
    pal_engine::copyText(field, sizeof(field), "abc\xC3\xA9z");  // "abcéz": é would straddle
    EXPECT_STREQ("abc\xC3\xA9", field);
    pal_engine::copyText(field, sizeof(field), "abcd\xC3\xA9");
    EXPECT_STREQ("abcd", field);
    EXPECT_EQ(
            "{\"final\":true,\"reason\":\"silence\",\"language\":\"en-US\","
            "\"text\":\"say \\\"hi\\\"\\\\\",\"confidence\":42,\"start_ms\":0,\"end_ms\":90,"
            "\"words\":[{\"word\":\"say \\\"hi\\\"\\\\\",\"start_ms\":0,\"end_ms\":90,"
            "\"confidence\":0}]}",
            pal_engine::finalJson(manyWords(1, "say \"hi\"\\"), pal_engine::Ending::Silence, 4095));
}

}  // namespace
}  // namespace engine_test
