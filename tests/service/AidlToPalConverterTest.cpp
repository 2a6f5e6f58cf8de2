#include <unistd.h>

#include <climits>

#include "AidlToPalConverter.h"
#include "ServiceTestSupport.h"

namespace aidl::vendor::orbo::hardware::voxa {
namespace {

using ::testing::ElementsAre;

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

}  // namespace
}  // namespace aidl::vendor::orbo::hardware::voxa
