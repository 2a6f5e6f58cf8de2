// The PAL engine's recognition through the PAL API: real recordings with event layouts read at
// their published offsets, timed-out and doubtful results, translated results, and the speakers
// of a conversation.
#include <gmock/gmock.h>

#include "EngineFixture.h"
#include "EventPayload.h"
#include "SyntheticSpeech.h"

namespace engine_test {
namespace {

using ::testing::AllOf;
using ::testing::Contains;
using ::testing::Ge;
using ::testing::HasSubstr;
using ::testing::Le;
using ::testing::StartsWith;

class EngineRecognitionTest : public EngineTest {
  protected:
    void SetUp() override { openWithModel(); }
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

TEST_F(EngineRecognitionTest, FinalResultsAreTranslatedPartialResultsAreNot) {
    // A sentence spoken by espeak-ng, decoded whole and translated into Spanish.
    Turn sentence;
    sentence.voice = "en-us";
    sentence.speed = 130;
    sentence.text = "the children play in the garden every day";
    Recording spoken;
    ASSERT_TRUE(makeRecording({sentence}, ::testing::TempDir(), &spoken));
    pal_asr_config config = englishConfig();
    config.enable_translation = 1;
    config.output_language_id = 3;  // es-ES
    recognise(config, spoken.files);
    std::vector<Received> received = events();
    ASSERT_EQ(1u, received.size());
    EXPECT_THAT(received[0].text(), AllOf(HasSubstr("jardín"), HasSubstr("días")));
    EXPECT_THAT(received[0].json(),
                AllOf(StartsWith("{\"final\":true,\"reason\":\"silence\",\"language\":\"es-ES\","
                                 "\"text\":\"" +
                                 received[0].text() + "\",\"original\":{\"language\":\"en-US\""),
                      HasSubstr("garden every day\"}")));

    // A recording heard with partial results, on the same stream: partials stay in English.
    config.partial = 1;
    config.buffering = 0;
    recognise(config, {kShortRecording});
    received = events();
    ASSERT_GT(received.size(), 2u);
    std::vector<std::string> partials;
    for (size_t e = 1; e + 1 < received.size(); ++e) {
        partials.push_back(received[e].text());
        EXPECT_EQ("{\"final\":false,\"text\":\"" + partials.back() + "\"}", received[e].json());
    }
    EXPECT_THAT(partials, Contains("he was not"));
    EXPECT_TRUE(received.back().final());
    EXPECT_THAT(received.back().text(), HasSubstr("hombre joven"));
}

TEST_F(EngineRecognitionTest, SpeakersTakingTurnsAreToldApart) {
    Recording conversation3;
    ASSERT_TRUE(makeRecording(conversation(3, 12), ::testing::TempDir(), &conversation3));
    pal_asr_config config = englishConfig();
    config.partial = 1;  // the first pass alone: quicker, and the speakers are the same
    config.buffering = 0;
    config.enable_speaker_diarization = 1;
    recognise(config, conversation3.files);

    std::vector<Segment> said;
    std::vector<Received> received = events();
    for (size_t e = 0; e < received.size(); ++e) {
        if (received[e].id != PAL_ASR_EVENT_ID_SPEAKER_DIARIZATION) continue;
        const Bytes& bytes = received[e].bytes;
        const uint32_t count = readAt<uint32_t>(bytes, 8);
        ASSERT_EQ(16 + 144 * count, bytes.size());
        EXPECT_EQ(1u, readAt<uint32_t>(bytes, 0));   // num_events
        EXPECT_EQ(1u, readAt<uint32_t>(bytes, 12));  // flag
        // The final result of the same utterance, if it has one, comes next.
        const bool described = e + 1 < received.size() && received[e + 1].final();
        const std::string json = described ? received[e + 1].json() : "";
        const int64_t resultEnd =
                described ? std::stoll(json.substr(json.find("\"end_ms\":") + 9)) : 0;
        for (uint32_t s = 0; s < count; ++s) {
            const size_t at = 16 + 144 * s;
            Segment turn{readAt<int32_t>(bytes, at), readAt<int64_t>(bytes, at + 8),
                         readAt<int64_t>(bytes, at + 16)};
            EXPECT_THAT(turn.speaker, AllOf(Ge(1), Le(3)));
            EXPECT_LT(turn.startMs, turn.endMs);
            EXPECT_GE(turn.startMs, said.empty() ? 0 : said.back().endMs);
            EXPECT_TRUE(!described || turn.startMs < resultEnd) << turn.startMs;
            said.push_back(turn);
        }
    }
    const ErrorRate rate = diarizationErrorRate(conversation3.speech, said);
    RecordProperty("diarization_error_rate_percent", std::to_string(rate.total() * 100));
    EXPECT_LT(rate.total(), 0.15) << "missed " << rate.missed << ", false alarm " << rate.falseAlarm
                                  << ", confusion " << rate.confusion;
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
