// The PAL engine's recognition through the PAL API: a source of several files, timed-out and
// doubtful results, translated results, the speakers of a conversation with a final result for
// each one's words, the same words from a model kept loaded as from one newly loaded, and the
// layout of a result that overflows its fields.
#include <gmock/gmock.h>

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <sstream>

#include "EngineFixture.h"
#include "EventPayload.h"

namespace engine_test {
namespace {

using ::testing::_;
using ::testing::AllOf;
using ::testing::Contains;
using ::testing::Each;
using ::testing::Ge;
using ::testing::HasSubstr;
using ::testing::Le;
using ::testing::MatchesRegex;
using ::testing::Pair;
using ::testing::StartsWith;

constexpr size_t kTimeStampedSize = 8 + 14768;

class EngineRecognitionTest : public EngineTest {
  protected:
    void SetUp() override { openWithModel(); }
};

// The words of five recordings, and the words' times within one, are checked byte for byte
// through the program (tools' program test); here, a source of several files, the reasons and
// the result's JSON.
TEST_F(EngineRecognitionTest, FilesOfASourceFollowEachOtherInTime) {
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
        ASSERT_EQ(PAL_ASR_EVENT_ID_TIMESTAMP, received[e].id);
        ASSERT_EQ(kTimeStampedSize, bytes.size());
        EXPECT_EQ(0u, readAt<uint32_t>(bytes, 0));  // status
        EXPECT_EQ(1u, readAt<uint32_t>(bytes, 4));  // num_events
        EXPECT_EQ(1, bytes[8]);                     // flag: final
        EXPECT_THAT(readAt<int64_t>(bytes, 8 + 1040), AllOf(Ge(bounds[e][0]), Le(bounds[e][1])));
        EXPECT_THAT(readAt<int64_t>(bytes, 8 + 1048), AllOf(Ge(bounds[e][0]), Le(bounds[e][1])));
        const int32_t confidence = readAt<int32_t>(bytes, 8 + 4);
        EXPECT_THAT(confidence, AllOf(Ge(1), Le(100)));
        const std::string text = received[e].text();
        EXPECT_THAT(text, StartsWith(expected[e]));
        EXPECT_THAT(received[e].json(),
                    AllOf(StartsWith("{\"final\":true,\"reason\":\"" + std::string(reasons[e])),
                          HasSubstr("\"text\":\"" + text +
                                    "\",\"confidence\":" + std::to_string(confidence) + ",")));
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
    pal_asr_config config = englishConfig(true);
    config.enable_translation = 1;
    config.output_language_id = 3;  // es-ES
    recognise(config, {kShortRecording});
    std::vector<Received> received = events();
    ASSERT_GT(received.size(), 1u);
    std::vector<std::string> partials;
    for (size_t e = 0; e + 1 < received.size(); ++e) {
        partials.push_back(received[e].text());
        EXPECT_EQ("{\"final\":false,\"text\":\"" + partials.back() + "\"}", received[e].json());
    }
    EXPECT_THAT(partials, Contains("he was not"));
    const Received& last = received.back();
    EXPECT_TRUE(last.final());
    EXPECT_THAT(last.text(), HasSubstr("hombre joven"));
    EXPECT_THAT(last.json(), AllOf(StartsWith("{\"final\":true,\"reason\":\""),
                                   HasSubstr("\",\"language\":\"es-ES\",\"text\":\"" + last.text() +
                                             "\",\"original\":{\"language\":\"en-US\","
                                             "\"text\":\"he was not")));
}

// Speaks `text` with espeak-ng's `voice` options into the WAV file `name`, cut where the speech
// ends so that the next file follows without a pause; returns its path and sets its duration.
std::string speak(const std::string& name, const std::string& voice, const std::string& text,
                  int64_t* ms) {
    const std::string path = ::testing::TempDir() + name;
    if (std::system(("espeak-ng " + voice + " -w " + path + " '" + text + "'").c_str()) != 0) {
        return "";
    }
    std::string wav = readFile(path);  // a 44-byte header, then 16-bit mono samples at 22050 Hz
    size_t end = wav.size() & ~size_t{1};
    for (int16_t sample = 0; end > 44; end -= 2) {
        std::memcpy(&sample, wav.data() + end - 2, 2);
        if (std::abs(sample) > 327) break;  // -40 dBFS
    }
    const uint32_t sizes[] = {static_cast<uint32_t>(end - 8), static_cast<uint32_t>(end - 44)};
    wav.resize(end);
    wav.replace(4, 4, reinterpret_cast<const char*>(&sizes[0]), 4);
    wav.replace(40, 4, reinterpret_cast<const char*>(&sizes[1]), 4);
    *ms = (end - 44) / 2 * 1000 / 22050;
    return std::ofstream(path, std::ios::binary) << wav ? path : "";
}

TEST_F(EngineRecognitionTest, EachSpeakerWithinAnUtteranceHasFinalResultsOfTheirOwn) {
    // Turns without a pause between them, which the voice-activity detector hears as one
    // utterance: an espeak-ng voice, a LibriVox reader, another voice, the reader again.
    int64_t ms[] = {0, 2990, 0, 3290};
    const std::string files[] = {
            speak("engine-first.wav", "-v en-us+m1 -p 40",
                  "good morning, I would like to book a table for dinner tonight", &ms[0]),
            kShortRecording,
            speak("engine-second.wav", "-v en-gb+f2 -p 75 -s 150",
                  "of course, how many people will be joining you this evening", &ms[2]),
            kSecondRecording};
    ASSERT_FALSE(files[0].empty() || files[2].empty());
    pal_asr_config config = englishConfig(true);  // the first pass alone: quicker, same speakers
    config.enable_speaker_diarization = 1;
    recognise(config, {std::begin(files), std::end(files)});
    unlink(files[0].c_str());
    unlink(files[2].c_str());

    // Who speaks each turn, numbered in the order heard, and when.
    const int32_t voices[] = {1, 2, 3, 2};
    int64_t bounds[5] = {0};
    for (size_t t = 0; t < 4; ++t) bounds[t + 1] = bounds[t] + ms[t];
    std::vector<int64_t> heard[4];  // ms of each turn given to speakers 1 to 4
    for (auto& speakers : heard) speakers.assign(5, 0);
    int64_t agreeing = 0;
    int64_t total = 0;
    int64_t previousEnd = 0;
    std::vector<int32_t> said;        // the speakers of the last diarization event
    std::vector<std::string> finals;  // their JSON
    for (const Received& event : events()) {
        if (event.id != PAL_ASR_EVENT_ID_SPEAKER_DIARIZATION) {
            if (!event.final()) continue;
            EXPECT_EQ(1u, said.size()) << "a final result of one speaker, raised after them";
            said.clear();
            finals.push_back(event.json());
            continue;
        }
        const Bytes& bytes = event.bytes;
        const uint32_t count = readAt<uint32_t>(bytes, 8);
        ASSERT_EQ(16 + 144 * count, bytes.size());
        said.clear();
        EXPECT_EQ(1u, readAt<uint32_t>(bytes, 0));   // num_events
        EXPECT_EQ(1u, readAt<uint32_t>(bytes, 12));  // flag
        for (uint32_t s = 0; s < count; ++s) {
            const int32_t speaker = readAt<int32_t>(bytes, 16 + 144 * s);
            const int64_t start = readAt<int64_t>(bytes, 16 + 144 * s + 8);
            const int64_t end = readAt<int64_t>(bytes, 16 + 144 * s + 16);
            ASSERT_THAT(speaker, AllOf(Ge(1), Le(4)));
            EXPECT_LE(previousEnd, start);
            EXPECT_LT(start, end);
            previousEnd = end;
            if (std::find(said.begin(), said.end(), speaker) == said.end()) said.push_back(speaker);
            for (size_t t = 0; t < 4; ++t) {
                const int64_t overlap = std::max<int64_t>(
                        0, std::min(end, bounds[t + 1]) - std::max(start, bounds[t]));
                heard[t][static_cast<size_t>(speaker)] += overlap;
                agreeing += speaker == voices[t] ? overlap : 0;
            }
            total += end - start;
        }
    }
    for (size_t t = 0; t < 4; ++t) {
        EXPECT_EQ(voices[t], std::max_element(heard[t].begin(), heard[t].end()) - heard[t].begin())
                << "turn " << t;
    }
    EXPECT_GE(agreeing, total * 9 / 10);
    ASSERT_GE(finals.size(), 4u) << "a final result for each turn at least";
    finals.pop_back();
    EXPECT_THAT(finals, Each(HasSubstr("\"reason\":\"speaker_change\"")));
}

TEST_F(EngineRecognitionTest, AKeptModelRecognisesAsANewlyLoadedOneAndAnotherModelIsLoaded) {
    // Another model: the shipped one with a dictionary of the words of the short recording,
    // rewritten in place later on.
    const std::string shipped = readFile(VOXA_ENGINE_MODEL);
    const std::string dictionary = shipped.substr(shipped.find("\ndictionary ") + 12);
    const std::string words = ::testing::TempDir() + "engine-dictionary";
    auto writeDictionary = [&](const std::vector<std::string>& kept) {
        std::ofstream out(words);
        std::istringstream all(readFile(dictionary.substr(0, dictionary.find('\n'))));
        for (std::string line; std::getline(all, line);) {
            if (std::find(kept.begin(), kept.end(), line.substr(0, line.find(' '))) != kept.end())
                out << line << "\n";
        }
    };
    writeDictionary({"he", "was", "not", "an", "ill", "disposed", "young", "man"});
    const std::string other =
            shipped.substr(0, shipped.find("\ndictionary ")) + "\ndictionary " + words + "\n";
    // A session per model on the long recording: its events' texts and bytes.
    auto session = [&](const std::string& image, bool partial = true) {
        const size_t before = events().size();
        openWithModel(image);
        recognise(englishConfig(partial), {kLongRecording});
        EXPECT_EQ(0, pal_stream_close(mStream));
        mStream = nullptr;
        const std::vector<Received> all = events();
        std::vector<std::pair<std::string, Bytes>> results;
        for (size_t e = before; e < all.size(); ++e)
            results.push_back({all[e].text(), all[e].bytes});
        return results;
    };
    EXPECT_EQ(0, pal_stream_close(mStream));
    mStream = nullptr;
    EXPECT_THAT(session(other),
                Each(Pair(MatchesRegex("(he|was|not|an|ill|disposed|young|man| )*"), _)));
    writeDictionary({"he", "was"});
    EXPECT_THAT(session(other), Each(Pair(MatchesRegex("(he|was| )*"), _)));
    const auto loaded = session(shipped);
    EXPECT_THAT(loaded, Contains(Pair(HasSubstr("consider"), _)));
    EXPECT_THAT(session(shipped, false), Contains(Pair(HasSubstr("consider"), _)));
    EXPECT_TRUE(loaded == session(shipped)) << "kept, a buffered session between: the same events";
    unlink(words.c_str());
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
