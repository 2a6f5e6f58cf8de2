// The engine's parts that the PAL API reaches only in part: model images, result payloads and
// the converter of captured audio.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>

#include "EngineTestSupport.h"
#include "EventPayload.h"
#include "ModelImage.h"
#include "Resampler.h"

namespace engine_test {
namespace {

using pal_engine::ModelImage;
using pal_engine::parseModelImage;

TEST(ModelImageTest, NamesTheRecognisersFiles) {
    ModelImage image;
    ASSERT_EQ(0, parseModelImage("# comment\n\nvoxa-model 1\nlanguage en-US\n"
                                 "acoustic-model /m/am\nlanguage-model  /m/lm.bin \n"
                                 "dictionary\t/m/dict\n",
                                 &image));
    EXPECT_EQ("en-US", image.language);
    EXPECT_EQ("/m/am", image.acousticModel);
    EXPECT_EQ("/m/lm.bin", image.languageModel);
    EXPECT_EQ("/m/dict", image.dictionary);
}

TEST(ModelImageTest, RefusesIncompleteOrUnknownContent) {
    const std::string body = "language en-US\nacoustic-model /am\nlanguage-model /lm\n";
    ModelImage image;
    EXPECT_EQ(-22, parseModelImage("voxa-model 1\n" + body, &image)) << "no dictionary";
    EXPECT_EQ(-22, parseModelImage("voxa-model 2\n" + body + "dictionary /d\n", &image));
    EXPECT_EQ(-22, parseModelImage(body + "dictionary /d\nvoxa-model 1\n", &image));
    EXPECT_EQ(-22, parseModelImage("voxa-model 1\n" + body + "dictionary d\n", &image));
    EXPECT_EQ(-22,
              parseModelImage("voxa-model 1\n" + body + "dictionary /d\ndictionary /e\n", &image));
    EXPECT_EQ(-22, parseModelImage("voxa-model 1\n" + body + "dictionary /d\nextra /x\n", &image));
    EXPECT_EQ(-22, parseModelImage("", &image));
    EXPECT_EQ("", image.dictionary) << "a refused image leaves the record alone";
    // The shipped image is complete.
    FILE* file = fopen(VOXA_ENGINE_MODEL, "r");
    ASSERT_NE(nullptr, file);
    char text[1024] = {};
    fread(text, 1, sizeof(text) - 1, file);
    fclose(file);
    EXPECT_EQ(0, parseModelImage(text, &image));
}

pal_engine::Result manyWords(size_t count, const std::string& word) {
    pal_engine::Result result;
    for (size_t i = 0; i < count; ++i) {
        result.words.push_back({word, int64_t(i) * 100, int64_t(i) * 100 + 90, int32_t(i % 101)});
        result.text += (i == 0 ? "" : " ") + word;
    }
    result.startMs = 0;
    result.endMs = int64_t(count) * 100 - 10;
    result.confidence = 42;
    return result;
}

TEST(EventPayloadTest, TimeStampedResultKeepsToItsSlotsAndFields) {
    // 250 words of 40 letters: more words than slots, longer than a slot and than the text.
    pal_engine::Event event = pal_engine::makeFinalEvent(manyWords(250, std::string(40, 'w')),
                                                         pal_engine::Ending::Forced, true);
    ASSERT_EQ(PAL_ASR_EVENT_ID_TIMESTAMP, event.id);
    ASSERT_EQ(8u + 14768u, event.size);
    std::vector<uint8_t> bytes(event.bytes(), event.bytes() + event.size);
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
    std::string json = textAt(bytes, 8 + 10668);
    EXPECT_LE(json.size(), 4095u);
    EXPECT_THAT(json, ::testing::StartsWith("{\"final\":true,\"reason\":\"forced\""));
    EXPECT_THAT(json, ::testing::EndsWith("],\"words_truncated\":true}"));
}

TEST(EventPayloadTest, TextIsCutOnACharacterBoundaryAndEscapedInJson) {
    char field[6];
    pal_engine::copyText(field, sizeof(field), "abc\xC3\xA9z");  // "abcéz": é would straddle
    EXPECT_STREQ("abc\xC3\xA9", field);
    pal_engine::copyText(field, sizeof(field), "abcd\xC3\xA9");
    EXPECT_STREQ("abcd", field);

    pal_engine::Result result = manyWords(1, "say \"hi\"\\");
    EXPECT_EQ(
            "{\"final\":true,\"reason\":\"silence\",\"language\":\"en-US\","
            "\"text\":\"say \\\"hi\\\"\\\\\",\"confidence\":42,\"start_ms\":0,\"end_ms\":90,"
            "\"words\":[{\"word\":\"say \\\"hi\\\"\\\\\",\"start_ms\":0,\"end_ms\":90,"
            "\"confidence\":0}]}",
            pal_engine::finalJson(result, pal_engine::Ending::Silence, 4095));
}

TEST(ResamplerTest, MixesDownAndResamplesToSixteenKilohertz) {
    std::unique_ptr<pal_engine::Resampler> resampler;
    EXPECT_EQ(-22, pal_engine::Resampler::create(4000, 2, &resampler));
    EXPECT_EQ(-22, pal_engine::Resampler::create(48000, 0, &resampler));
    ASSERT_EQ(0, pal_engine::Resampler::create(48000, 2, &resampler));
    // One second of a 1 kHz tone on the left channel, silence on the right.
    std::vector<float> stereo(2 * 48000);
    for (size_t i = 0; i < 48000; ++i) {
        stereo[2 * i] = 0.5f * std::sin(2 * M_PI * 1000 * i / 48000.0);
    }
    std::vector<int16_t> out;
    for (size_t i = 0; i < 48000; i += 1000) {
        resampler->convert(stereo.data() + 2 * i, 1000, &out);
    }
    resampler->flush(&out);
    ASSERT_NEAR(16000.0, out.size(), 2);
    double peak = 0;
    for (size_t i = 1000; i < 15000; ++i) {
        peak = std::max(peak, std::abs(double(out[i])));
    }
    EXPECT_NEAR(0.25 * 32767, peak, 0.01 * 32767);
    // 16 samples per period at 16 kHz: a sample and the one half a period later are opposite.
    for (size_t i = 1000; i < 1100; ++i) {
        EXPECT_NEAR(-out[i], out[i + 8], 0.01 * 32767);
    }
}

}  // namespace
}  // namespace engine_test
