// The payloads converted both ways (AidlToPalConverter, PalToAidlConverter), and the statuses and
// UUIDs of Utils.
#include <unistd.h>

#include <algorithm>
#include <climits>
#include <cstring>
#include <tuple>

#include "AidlToPalConverter.h"
#include "PalToAidlConverter.h"
#include "ServiceTestSupport.h"
#include "Utils.h"

namespace aidl::vendor::orbo::hardware::voxa {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST(UtilsTest, InternalStatusesBecomeServiceErrorsNamedAfterTheirValue) {
    const struct {
        int status;
        int32_t serviceError;
        const char* message;
    } cases[] = {
            {-16, -2, "RESOURCE_CONTENTION"},
            {-38, -3, "OPERATION_NOT_SUPPORTED"},
            {-22, -1, "INVALID"},
            {-1, -4, "FAILURE"},
            {1, -4, "FAILURE"},
            {-32, -4, "FAILURE"},
    };
    // Zero is success for binder but a failure as a service error.
    EXPECT_TRUE(Utils::convertToAidlStatus(0).isOk());
    EXPECT_EQ(-4, Utils::convertToServiceError(0));
    for (const auto& c : cases) {
        SCOPED_TRACE(c.status);
        ndk::ScopedAStatus status = Utils::convertToAidlStatus(c.status);
        EXPECT_FALSE(status.isOk());
        EXPECT_EQ(EX_SERVICE_SPECIFIC, status.getExceptionCode());
        EXPECT_EQ(c.serviceError, status.getServiceSpecificError());
        EXPECT_STREQ(c.message, status.getMessage());
        EXPECT_EQ(c.serviceError, Utils::convertToServiceError(c.status));
    }
}

// Groups are read in text order, hex digits in either case, short groups and text after the
// last group allowed; an incomplete text leaves the record untouched.
TEST(UtilsTest, ParsesUuidGroupsInTextOrder) {
    st_uuid uuid = {};
    EXPECT_EQ(Utils::kUuidFields,
              Utils::convertStringtoUuid("12345678-9abc-DEF0-1234-56789abcdef0 and", &uuid));
    EXPECT_EQ(0x12345678u, uuid.time_low);
    EXPECT_EQ(0x9abc, uuid.time_mid);
    EXPECT_EQ(0xdef0, uuid.time_hi_and_version);
    EXPECT_EQ(0x1234, uuid.clock_seq);
    const uint8_t node[6] = {0x56, 0x78, 0x9a, 0xbc, 0xde, 0xf0};
    EXPECT_EQ(0, std::memcmp(node, uuid.node, sizeof(node)));

    EXPECT_EQ(Utils::kUuidFields, Utils::convertStringtoUuid(" 1-2-3-4-050607080910", &uuid));
    EXPECT_EQ(1u, uuid.time_low);
    EXPECT_EQ(0x10, uuid.node[5]);

    st_uuid before = uuid;
    EXPECT_EQ(9, Utils::convertStringtoUuid("12345678-9abc-def0-1234-56789abcde", &uuid));
    EXPECT_EQ(-1, Utils::convertStringtoUuid("", &uuid));
    EXPECT_EQ(0, Utils::convertStringtoUuid("not a uuid", &uuid));
    EXPECT_EQ(0, std::memcmp(&before, &uuid, sizeof(uuid)));
}

struct ModeBytes {
    uint8_t continuous, partial, buffering, bufferedEvent;
};

// The configuration payload written out by offset, independent of the PAL header's struct.
std::vector<uint8_t> configPayload(int32_t inputId, int32_t outputId, ModeBytes mode,
                                   const VoxaConfig& config) {
    const uint32_t n = config.data.size();
    Bytes bytes(40 + n);
    bytes.u32(0, 36 + n).i32(4, inputId).i32(8, outputId);
    bytes.u8(12, config.enable_language_detection).u8(13, config.enable_translation);
    bytes.u8(14, mode.continuous).u8(15, mode.partial).u8(16, mode.buffering);
    bytes.u8(17, config.enable_text_timestamp).u8(18, config.enable_speaker_diarization);
    bytes.i32(20, config.threshold).i32(24, config.timeout_duration);
    bytes.i32(28, config.silence_detection_duration).u8(32, mode.bufferedEvent);
    bytes.u32(36, n).bytes(40, config.data);
    return bytes.vector();
}

// Every field and the data (of any size) are copied unchanged, the text language codes deciding
// the ids. The mode alone decides the mode bytes: the flags that sound like modes are never read,
// and an unknown mode is logged and sets none.
TEST(ConvertConfigTest, FieldsAreCopiedAndEachModeSetsItsFlagsAndNothingElse) {
    struct {
        TranscriptionMode mode;
        ModeBytes bytes;
        size_t dataSize;
    } const cases[] = {
            {TranscriptionMode::PARTIAL_COMMAND, {0, 1, 0, 0}, 0},
            {TranscriptionMode::PARTIAL_CONTINUOUS, {1, 1, 0, 0}, 5},
            {TranscriptionMode::BUFFERED_EVENT, {1, 0, 0, 1}, 300},
            {TranscriptionMode::BUFFERING, {1, 0, 1, 0}, 1},
            {static_cast<TranscriptionMode>(7), {0, 0, 0, 0}, 0},
    };
    for (const auto& c : cases) {
        for (bool modeFlags : {false, true}) {
            SCOPED_TRACE(toString(c.mode) + (modeFlags ? ", mode flags set" : ""));
            LogCapture log;
            VoxaConfig config;
            config.input_lang_code = "de-DE";
            config.output_lang_code = "yue-CH";
            config.input_language_code = LanguageCode::JA_JP;  // ignored: the text codes decide
            config.enable_language_detection = !modeFlags;
            config.enable_translation = modeFlags;
            config.enable_text_timestamp = !modeFlags;
            config.enable_speaker_diarization = modeFlags;
            config.threshold = INT32_MIN;
            config.timeout_duration = INT32_MAX;
            config.silence_detection_duration = -1;
            config.mode = c.mode;
            config.enable_continuous_mode = modeFlags;
            config.enable_partial_transcription = modeFlags;
            config.outputBufferMode = modeFlags;
            for (size_t i = 0; i < c.dataSize; ++i) config.data.push_back(255 - i);
            std::vector<uint8_t> payload;
            AidlToPalConverter::convertConfig(config, payload);
            ASSERT_EQ(40 + c.dataSize, payload.size());
            EXPECT_EQ(configPayload(2, 99, c.bytes, config), payload);
            EXPECT_EQ(c.mode == static_cast<TranscriptionMode>(7)
                              ? Lines({"E convertConfig: Unsupported mode recieved : 7"})
                              : Lines({}),
                      log.lines());
        }
    }
}

// A malformed code leaves the payload as it was; with both codes bad only the input is logged.
TEST(ConvertConfigTest, MalformedLanguageCodesAreRejected) {
    const char* malformed[] = {"EN-US",  "en-us", "en_US",   " en-US",
                               "en-US ", "",      "english", "english : en-US"};
    for (const char* code : malformed) {
        SCOPED_TRACE(code);
        VoxaConfig badInput = englishConfig();
        badInput.input_lang_code = code;
        VoxaConfig badOutput = englishConfig();
        badOutput.output_lang_code = code;
        VoxaConfig badBoth = badInput;
        badBoth.output_lang_code = "yy-YY";

        LogCapture log;
        std::vector<uint8_t> payload = {1, 2, 3};
        AidlToPalConverter::convertConfig(badInput, payload);
        AidlToPalConverter::convertConfig(badOutput, payload);
        AidlToPalConverter::convertConfig(badBoth, payload);
        EXPECT_EQ((std::vector<uint8_t>{1, 2, 3}), payload);
        const std::string input = "convertConfig: Recieved invalid input lnaguage code ";
        EXPECT_THAT(log.lines(),
                    ElementsAre(Error(input + code),
                                Error("convertConfig: Recieved invalid output lnaguage code " +
                                      std::string(code)),
                                Error(input + code)));
    }
}

TEST(LanguageTablesTest, IrregularCodesKeepTheirIds) {
    const std::pair<const char*, int> codes[] = {
            {"en-US", 0},   {"cmn-Hans-CN", 1}, {"de-DE", 2},   {"iw-IL", 20},
            {"no-NO", 29},  {"tn-Latn-ZA", 35}, {"cy-UK", 38},  {"pa-Guru-IN", 62},
            {"ht-US", 80},  {"nn-NO", 83},      {"haw-US", 93}, {"jw-ID", 97},
            {"yue-CH", 99},
    };
    for (const auto& [code, id] : codes) EXPECT_EQ(id, languageCodeMap.at(code)) << code;
    EXPECT_EQ("latin : tn-Latn-ZA", supportedLanguages[35]);
    EXPECT_EQ("eole : ht-US", supportedLanguages[80]);
}

// An identifier that does not parse and an empty descriptor pass through as zeros and -1; a
// longer vector is cut to the payload.
TEST(ConvertModelTest, ModelPayloadCarriesUuidDescriptorAndSize) {
    VoxaModel model;
    model.vendorUuid = "12345678-9abc-def0-1234-56789abcdef0";
    model.data = ndk::ScopedFileDescriptor(dup(STDIN_FILENO));
    model.dataSize = INT32_MAX;
    std::vector<uint8_t> payload(40, 0);
    AidlToPalConverter::convertModel(model, payload);
    Bytes expected(28);
    expected.u32(0, 24).u32(4, 0x12345678).u16(8, 0x9abc).u16(10, 0xdef0).u16(12, 0x1234);
    expected.bytes(14, {0x56, 0x78, 0x9a, 0xbc, 0xde, 0xf0});
    expected.i32(20, model.data.get()).i32(24, INT32_MAX);
    EXPECT_EQ(expected.vector(), payload);

    model.vendorUuid = "not-a-uuid";
    model.data = ndk::ScopedFileDescriptor();
    model.dataSize = -5;
    payload.assign(40, 0);
    AidlToPalConverter::convertModel(model, payload);
    EXPECT_EQ(Bytes(28).u32(0, 24).i32(20, -1).i32(24, -5).vector(), payload);
}

// Payloads are written by offset, as the engine lays them out.
constexpr size_t kAsrStride = 5140;
constexpr size_t kTsStride = 14768;

constexpr auto asrItem = [](size_t i) { return 8 + kAsrStride * i; };
constexpr auto tsItem = [](size_t i) { return 8 + kTsStride * i; };

// The results, at a fixed stride with a result's trailing data on top of the next, replace the
// list there was; a failure with no results reports its status and leaves the list empty. The
// time-stamped list is left alone.
TEST(ConvertAsrEventTest, ResultsAtFixedStrideReplaceTheListAndAFailureEmptiesIt) {
    Bytes payload(asrItem(2) + 16);
    payload.u32(0, 0).u32(4, 2);
    payload.u8(asrItem(0), 1).i32(asrItem(0) + 4, -7).text(asrItem(0) + 12, "hello");
    payload.u32(asrItem(0) + 5136, 4);
    // Item 1's flag byte and padding are item 0's trailing data.
    payload.u8(asrItem(1), 1).u8(asrItem(1) + 1, 0xaa).u8(asrItem(1) + 2, 0xbb);
    payload.u8(asrItem(1) + 3, 0xcc).i32(asrItem(1) + 4, 0x7fffffff);
    payload.text(asrItem(1) + 12, std::string(1028, 'x'));  // fills its field, no NUL
    payload.text(asrItem(1) + 1040, "second text");
    payload.u32(asrItem(1) + 5136, 3).bytes(asrItem(2), {0, 255, 9});

    VoxaEvent event;
    event.status = 2;
    event.events.emplace(3);
    event.timestamp_events.emplace(1);
    auto* asr = reinterpret_cast<pal_asr_event*>(payload.data());
    PalToAidlConverter::convertAsrEvent(asr, event);
    EXPECT_EQ(0, event.status);
    ASSERT_TRUE(event.events.has_value());
    ASSERT_EQ(2u, event.events->size());

    const VoxaEvent::Event& first = *event.events->at(0);
    EXPECT_TRUE(first.flag);
    EXPECT_EQ(-7, first.value);
    EXPECT_EQ("hello", first.text);
    EXPECT_EQ("", first.aux_text);
    EXPECT_EQ((std::vector<uint8_t>{1, 0xaa, 0xbb, 0xcc}), first.data);

    const VoxaEvent::Event& second = *event.events->at(1);
    EXPECT_EQ(0x7fffffff, second.value);
    EXPECT_EQ(std::string(1028, 'x'), second.text);
    EXPECT_EQ("second text", second.aux_text);
    EXPECT_EQ((std::vector<uint8_t>{0, 255, 9}), second.data);

    payload.u32(0, 5).u32(4, 0);
    PalToAidlConverter::convertAsrEvent(asr, event);
    EXPECT_EQ(2, event.status);
    EXPECT_THAT(*event.events, IsEmpty());
    EXPECT_EQ(1u, event.timestamp_events->size());
}

// Two time-stamped results, the first with 8 bytes of trailing data, which are the start of the
// second (its flag byte 1, three padding bytes 0xff and its value). Each result's word slots j
// hold value j, word "w<j>" and times j*10, j*10+5; its word count is kept, and bounds the words.
TEST(ConvertAsrTimeStampEventTest, WordCountIsKeptAndBoundsTheWordsAndDataRunsIntoTheNext) {
    for (int32_t count : {-3, 0, 2, 200, 201}) {
        SCOPED_TRACE(count);
        Bytes payload(tsItem(2));
        payload.u32(0, 0).u32(4, 2);
        for (size_t item : {tsItem(0), tsItem(1)}) {
            payload.u8(item, 1).i32(item + 4, 42).text(item + 12, "hello world");
            payload.i64(item + 1040, -1).i64(item + 1048, INT64_MAX);
            payload.i32(item + 1056, count).text(item + 10668, "{\"json\":1}");
            for (int j = 0; j < 200; ++j) {
                size_t slot = item + 1064 + 48 * j;
                payload.i32(slot, j).text(slot + 4, "w" + std::to_string(j));
                payload.i64(slot + 32, j * 10).i64(slot + 40, j * 10 + 5);
            }
        }
        payload.u32(tsItem(0) + 14764, 8).u32(tsItem(1), 0xffffff01);
        VoxaEvent event;
        PalToAidlConverter::convertAsrTimeStampEvent(
                reinterpret_cast<pal_asr_ts_event*>(payload.data()), event);
        EXPECT_EQ(0, event.status);
        EXPECT_FALSE(event.events.has_value());
        ASSERT_TRUE(event.timestamp_events.has_value());
        ASSERT_EQ(2u, event.timestamp_events->size());
        for (size_t i = 0; i < 2; ++i) {
            const VoxaEvent::EventTS& result = *event.timestamp_events->at(i);
            EXPECT_EQ(count, result.word_count);
            // A count past the slot array yields the slots there are.
            ASSERT_EQ(static_cast<size_t>(std::clamp(count, 0, 200)), result.words.size());
            for (size_t j = 0; j < result.words.size(); ++j) {
                EXPECT_EQ(static_cast<int32_t>(j), result.words[j].value);
                EXPECT_EQ("w" + std::to_string(j), result.words[j].word);
                EXPECT_EQ(static_cast<int64_t>(j * 10), result.words[j].start_ts);
                EXPECT_EQ(static_cast<int64_t>(j * 10 + 5), result.words[j].end_ts);
            }
            EXPECT_TRUE(result.flag);
            EXPECT_EQ(42, result.value);
            EXPECT_EQ("hello world", result.text);
            EXPECT_EQ("{\"json\":1}", result.aux_text);
            EXPECT_EQ(-1, result.start_ts);
            EXPECT_EQ(INT64_MAX, result.end_ts);
            EXPECT_EQ((i == 0 ? std::vector<uint8_t>{1, 0xff, 0xff, 0xff, 42, 0, 0, 0}
                              : std::vector<uint8_t>{}),
                      result.data);
        }
    }
}

// No result leaves the record as it was. Results follow each other at an 8-byte stride, so that a
// result's header overlays the previous result's first speaker record: result 1's header (count 2,
// flag 0) is the first 8 bytes of result 0's speaker at 16, and result 1's speakers start at 24 and
// 168.
TEST(ConvertSdzEventTest, ResultsAtAnEightByteStrideWithTheirSpeakers) {
    SpeakerDiarizationEvent before;
    before.events.emplace_back().speaker_count = 9;
    Bytes twoSpeakers(16 + 2 * 144);
    twoSpeakers.u32(0, 1).u32(8, 2).u32(12, 7);
    twoSpeakers.i32(16, 11).i64(24, 100).i64(32, 200);
    twoSpeakers.i32(160, 12).i64(168, 300).i64(176, -400);
    SpeakerDiarizationEvent oneResult;
    oneResult.events.push_back({2, true, {{11, 100, 200}, {12, 300, -400}}, {}});
    Bytes overlaid(24 + 2 * 144);
    overlaid.u32(0, 2).u32(8, 1).u32(12, 0);
    overlaid.i32(16, 2).u32(20, 0).i64(24, 5).i64(32, 6);
    overlaid.i32(168, 77).i64(176, 8).i64(184, 9);
    SpeakerDiarizationEvent twoResults;
    twoResults.events.push_back({1, false, {{2, 5, 6}}, {}});
    twoResults.events.push_back({2, false, {{5, 6, 0}, {77, 8, 9}}, {}});
    for (auto [payload, event, expected] : {std::tuple(Bytes(8), before, before),
                                            {twoSpeakers, {}, oneResult},
                                            {overlaid, {}, twoResults}}) {
        PalToAidlConverter::convertSdzEvent(reinterpret_cast<pal_sdz_event*>(payload.data()),
                                            event);
        EXPECT_EQ(expected, event);
    }
}

}  // namespace
}  // namespace aidl::vendor::orbo::hardware::voxa
