// Recognition of real recordings through the PAL API: event layouts at their published offsets,
// word times, partial and forced results, and the end of events at stop.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <future>

#include "EngineTestSupport.h"

namespace engine_test {
namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

constexpr size_t kPlainSize = 8 + 5140;
constexpr size_t kTimeStampedSize = 8 + 14768;

class EngineRecognitionTest : public ::testing::Test {
  protected:
    void SetUp() override {
        ASSERT_EQ(0, mRecorder.open(&mStream));
        ASSERT_EQ(0, loadShippedModel(mStream));
    }

    void TearDown() override {
        if (mStream != nullptr) {
            EXPECT_EQ(0, pal_stream_close(mStream));
        }
        pal_engine::clearSource();
    }

    // Configures, starts on `files` and waits until the recording is recognised.
    void recognise(const pal_asr_config& config, const std::vector<std::string>& files) {
        ASSERT_EQ(0, pal_engine::setFileSource(files, pal_engine::Pace::Fast));
        ASSERT_EQ(0, setConfig(mStream, config));
        ASSERT_EQ(0, pal_stream_start(mStream));
        ASSERT_EQ(0, pal_engine::waitUntilDone(std::chrono::seconds(60)));
        EXPECT_EQ(0, pal_stream_stop(mStream));
    }

    Recorder mRecorder;
    pal_stream_handle* mStream = nullptr;
};

TEST_F(EngineRecognitionTest, RecordingsAreRecognisedWithOrderedWordTimesInsideTheAudio) {
    pal_asr_config config = englishConfig();
    config.enable_text_timestamp = 1;
    std::string silence = writeSilence(1);
    ASSERT_FALSE(silence.empty());
    recognise(config, {kShortRecording, silence, kSecondRecording});
    unlink(silence.c_str());

    std::vector<Received> events = mRecorder.events();
    ASSERT_EQ(2u, events.size()) << "one final result per utterance, nothing partial";
    // The files follow each other: 2.99 s of speech, 1 s of silence, 3.29 s of speech.
    const int64_t bounds[][2] = {{0, 2990}, {3990, 3990 + 3290}};
    const char* expected[] = {"he was not", "he might even have been made"};
    const char* reasons[] = {"silence", "end_of_audio"};
    for (size_t e = 0; e < events.size(); ++e) {
        const std::vector<uint8_t>& bytes = events[e].bytes;
        EXPECT_EQ(mStream, events[e].stream);
        EXPECT_NE(std::this_thread::get_id(), events[e].thread);
        ASSERT_EQ(PAL_ASR_EVENT_ID_TIMESTAMP, events[e].id);
        ASSERT_EQ(kTimeStampedSize, bytes.size());
        EXPECT_EQ(0u, readAt<uint32_t>(bytes, 0));  // status
        EXPECT_EQ(1u, readAt<uint32_t>(bytes, 4));  // num_events
        const size_t item = 8;
        EXPECT_EQ(1, bytes[item]);  // flag: final
        int32_t confidence = readAt<int32_t>(bytes, item + 4);
        EXPECT_GE(confidence, 1);
        EXPECT_LE(confidence, 100);
        std::string text = textAt(bytes, item + 12);
        EXPECT_THAT(text, StartsWith(expected[e]));
        int32_t words = readAt<int32_t>(bytes, item + 1056);
        ASSERT_GE(words, 5);
        std::string joined;
        int64_t previousEnd = bounds[e][0];
        for (int32_t w = 0; w < words; ++w) {
            const size_t slot = item + 1064 + 48 * w;
            int32_t value = readAt<int32_t>(bytes, slot);
            int64_t start = readAt<int64_t>(bytes, slot + 32);
            int64_t end = readAt<int64_t>(bytes, slot + 40);
            EXPECT_GE(value, 0);
            EXPECT_LE(value, 100);
            EXPECT_GE(start, previousEnd) << "word " << w;
            EXPECT_LT(start, end);
            previousEnd = end;
            joined += (w == 0 ? "" : " ") + textAt(bytes, slot + 4);
        }
        EXPECT_LE(previousEnd, bounds[e][1]);
        EXPECT_EQ(text, joined);
        EXPECT_EQ(readAt<int64_t>(bytes, item + 1064 + 32), readAt<int64_t>(bytes, item + 1040));
        EXPECT_EQ(previousEnd, readAt<int64_t>(bytes, item + 1048));
        std::string json = textAt(bytes, item + 10668);
        EXPECT_THAT(json, StartsWith("{\"final\":true,\"reason\":\"" + std::string(reasons[e])));
        EXPECT_THAT(json, HasSubstr("\"text\":\"" + text + "\""));
        EXPECT_THAT(json, HasSubstr("\"confidence\":" + std::to_string(confidence) + ","));
        EXPECT_EQ(0u, readAt<uint32_t>(bytes, item + 14764));  // data_size
    }
}

TEST_F(EngineRecognitionTest, PartialModeRaisesHypothesesBeforeThePlainFinal) {
    pal_asr_config config = englishConfig();
    config.partial = 1;
    recognise(config, {kShortRecording});

    std::vector<Received> events = mRecorder.events();
    ASSERT_GE(events.size(), 3u);
    for (size_t e = 0; e < events.size(); ++e) {
        const std::vector<uint8_t>& bytes = events[e].bytes;
        ASSERT_EQ(0u, events[e].id);
        ASSERT_EQ(kPlainSize, bytes.size());
        EXPECT_EQ(0u, readAt<uint32_t>(bytes, 0));
        EXPECT_EQ(1u, readAt<uint32_t>(bytes, 4));
        EXPECT_EQ(e + 1 == events.size() ? 1 : 0, bytes[8]) << "event " << e;
        EXPECT_FALSE(events[e].text().empty());
        EXPECT_EQ(0u, readAt<uint32_t>(bytes, 8 + 5136));
        if (e > 0 && e + 1 < events.size()) {
            EXPECT_NE(events[e - 1].text(), events[e].text()) << "partials only on change";
        }
    }
    const Received& last = events.back();
    EXPECT_THAT(last.text(), StartsWith("he was not"));
    EXPECT_GE(readAt<int32_t>(last.bytes, 8 + 4), 1);
    EXPECT_THAT(last.json(), StartsWith("{\"final\":true,\"reason\":\"end_of_audio\""));
    EXPECT_EQ("{\"final\":false,\"text\":\"" + events[0].text() + "\"}", events[0].json());
}

TEST_F(EngineRecognitionTest, ForceOutputEndsACommandWithTheHypothesisSoFar) {
    pal_asr_config config = englishConfig();
    config.continuous = 0;
    config.partial = 1;
    // The first partial asks for the result at once, from inside the callback.
    mRecorder.onEvent = [this](size_t index) {
        if (index == 0) {
            EXPECT_EQ(0, setParam(mStream, PAL_PARAM_ID_ASR_FORCE_OUTPUT, {0, 0, 0, 0}));
        }
    };
    recognise(config, {kLongRecording});

    std::vector<Received> events = mRecorder.events();
    ASSERT_GE(events.size(), 2u);
    const Received& final = events.back();
    EXPECT_TRUE(final.final());
    EXPECT_THAT(final.json(), StartsWith("{\"final\":true,\"reason\":\"forced\""));
    for (size_t e = 0; e + 1 < events.size(); ++e) {
        EXPECT_FALSE(events[e].final());
    }
    EXPECT_LT(final.text().size(), std::string("and mister john dashwood had then leisure").size());
}

TEST_F(EngineRecognitionTest, NoEventBeginsAfterStopReturnsEvenWhileOneIsBeingDelivered) {
    std::promise<void> entered;
    std::promise<void> release;
    std::shared_future<void> released = release.get_future().share();
    mRecorder.onEvent = [&](size_t index) {
        if (index != 0) {
            return;
        }
        entered.set_value();
        released.wait();
    };
    pal_asr_config config = englishConfig();
    config.partial = 1;
    ASSERT_EQ(0, pal_engine::setFileSource({kLongRecording}, pal_engine::Pace::RealTime));
    ASSERT_EQ(0, setConfig(mStream, config));
    ASSERT_EQ(0, pal_stream_start(mStream));
    ASSERT_EQ(std::future_status::ready, entered.get_future().wait_for(std::chrono::seconds(10)));

    // The callback is held, as the service holds an event while a client call takes its lock.
    EXPECT_EQ(0, pal_stream_stop(mStream));
    EXPECT_EQ(0, pal_engine::waitUntilDone(std::chrono::milliseconds(0)));
    release.set_value();
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    // Close waits for the held callback to return, before the promises go.
    EXPECT_EQ(0, pal_stream_close(mStream));
    mStream = nullptr;
    EXPECT_EQ(1u, mRecorder.events().size());
}

TEST_F(EngineRecognitionTest, StopEndsARealTimeRecordingAndStartBeginsItAgain) {
    pal_asr_config config = englishConfig();
    config.partial = 1;
    ASSERT_EQ(0, pal_engine::setFileSource({kShortRecording}, pal_engine::Pace::RealTime));
    ASSERT_EQ(0, setConfig(mStream, config));
    ASSERT_EQ(0, pal_stream_start(mStream));
    EXPECT_EQ(-22, pal_stream_start(mStream));
    EXPECT_EQ(-22, setConfig(mStream, config)) << "configured while running";
    ASSERT_TRUE(mRecorder.waitForEvents(1));
    EXPECT_EQ(-110, pal_engine::waitUntilDone(std::chrono::milliseconds(10)));
    EXPECT_EQ(0, pal_stream_stop(mStream));
    size_t stopped = mRecorder.events().size();
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    EXPECT_EQ(stopped, mRecorder.events().size());

    ASSERT_EQ(0, pal_engine::setFileSource({kShortRecording}, pal_engine::Pace::Fast));
    ASSERT_EQ(0, pal_stream_start(mStream));
    ASSERT_EQ(0, pal_engine::waitUntilDone(std::chrono::seconds(60)));
    std::vector<Received> events = mRecorder.events();
    ASSERT_GT(events.size(), stopped);
    EXPECT_TRUE(events.back().final());
    EXPECT_THAT(events.back().text(), StartsWith("he was not"));
}

TEST_F(EngineRecognitionTest, RawPcmInTheDevicesFormatIsConverted) {
    // The recording at 48 kHz stereo, as the device record describes the microphone: each
    // sample repeated, which the resampler's filter must undo.
    std::vector<int16_t> recording;
    {
        FILE* file = fopen(kShortRecording.c_str(), "rb");
        ASSERT_NE(nullptr, file);
        std::vector<int16_t> samples(48000);
        fseek(file, 44, SEEK_SET);
        size_t n = fread(samples.data(), 2, samples.size(), file);
        fclose(file);
        for (size_t i = 0; i < n; ++i) {
            recording.insert(recording.end(), 6, samples[i]);
        }
    }
    int pipeFds[2];
    ASSERT_EQ(0, pipe(pipeFds));
    std::thread writer([&] {
        const char* bytes = reinterpret_cast<const char*>(recording.data());
        size_t size = recording.size() * 2;
        // Odd-sized writes split frames across reads.
        for (size_t done = 0; done < size;) {
            ssize_t n = write(pipeFds[1], bytes + done, std::min<size_t>(size - done, 4099));
            if (n <= 0) {
                break;
            }
            done += n;
        }
        close(pipeFds[1]);
    });
    ASSERT_EQ(0, pal_engine::setPcmSource(pipeFds[0], pal_engine::Pace::Fast));
    ASSERT_EQ(0, setConfig(mStream, englishConfig()));
    ASSERT_EQ(0, pal_stream_start(mStream));
    EXPECT_EQ(0, pal_engine::waitUntilDone(std::chrono::seconds(60)));
    writer.join();
    EXPECT_EQ(0, pal_stream_stop(mStream));
    close(pipeFds[0]);

    std::vector<Received> events = mRecorder.events();
    ASSERT_EQ(1u, events.size());
    EXPECT_THAT(events[0].text(), StartsWith("he was not"));
}

TEST_F(EngineRecognitionTest, TimeOutAndThresholdEndSilentOrDoubtfulRecognition) {
    pal_asr_config config = englishConfig();
    config.threshold = 100;  // no recognised utterance is that certain
    config.timeout_duration = 800;
    std::string silence = writeSilence(2);
    ASSERT_FALSE(silence.empty());
    recognise(config, {kShortRecording, silence});
    unlink(silence.c_str());

    std::vector<Received> events = mRecorder.events();
    ASSERT_EQ(1u, events.size());
    EXPECT_TRUE(events[0].final());
    EXPECT_EQ("", events[0].text());
    EXPECT_THAT(events[0].json(), StartsWith("{\"final\":true,\"reason\":\"timeout\""));
    EXPECT_EQ(0, readAt<int32_t>(events[0].bytes, 8 + 4));
}

TEST_F(EngineRecognitionTest, StartNeedsAReadableSource) {
    ASSERT_EQ(0, setConfig(mStream, englishConfig()));
    pal_engine::clearSource();
    EXPECT_EQ(-19, pal_stream_start(mStream));
    ASSERT_EQ(0, pal_engine::setFileSource({kShortRecording, "/nonexistent.wav"},
                                           pal_engine::Pace::Fast));
    EXPECT_EQ(-5, pal_stream_start(mStream));
    EXPECT_EQ(-22, pal_engine::setFileSource({}, pal_engine::Pace::Fast));
    EXPECT_EQ(-22, pal_engine::setPcmSource(-1, pal_engine::Pace::Fast));
    EXPECT_TRUE(mRecorder.events().empty());
}

}  // namespace
}  // namespace engine_test
