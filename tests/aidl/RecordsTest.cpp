// The generated records and enumerations: text form, defaults, ordering and descriptor ownership.

#include <aidl/vendor/orbo/hardware/voxa/LanguageCode.h>
#include <aidl/vendor/orbo/hardware/voxa/ParameterType.h>
#include <aidl/vendor/orbo/hardware/voxa/ServiceError.h>
#include <aidl/vendor/orbo/hardware/voxa/SpeakerDiarizationEvent.h>
#include <aidl/vendor/orbo/hardware/voxa/TranscriptionMode.h>
#include <aidl/vendor/orbo/hardware/voxa/VoxaConfig.h>
#include <aidl/vendor/orbo/hardware/voxa/VoxaEvent.h>
#include <aidl/vendor/orbo/hardware/voxa/VoxaModel.h>
#include <aidl/vendor/orbo/hardware/voxa/VoxaParameter.h>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <optional>
#include <string>
#include <vector>

namespace aidl::vendor::orbo::hardware::voxa {
namespace {

using ::testing::ElementsAre;

template <typename E>
std::vector<E> valuesOf() {
    std::vector<E> values;
    for (E value : ndk::enum_range<E>()) values.push_back(value);
    return values;
}

int openDevNull() {
    int fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
    EXPECT_GE(fd, 0);
    return fd;
}

bool sameFile(int a, int b) {
    struct stat sa {};
    struct stat sb {};
    return fstat(a, &sa) == 0 && fstat(b, &sb) == 0 && sa.st_dev == sb.st_dev &&
           sa.st_ino == sb.st_ino;
}

TEST(RecordTextTest, InputRecordsWithEveryFieldSet) {
    VoxaModel model;
    model.vendorUuid = "0a1b2c3d-4e5f-6071-8293-a4b5c6d7e8f9";
    model.data = ndk::ScopedFileDescriptor(openDevNull());
    model.dataSize = 123456;
    EXPECT_EQ("VoxaModel{vendorUuid: 0a1b2c3d-4e5f-6071-8293-a4b5c6d7e8f9, data: fd:" +
                      std::to_string(model.data.get()) + ", dataSize: 123456}",
              model.toString());

    VoxaConfig config;
    config.input_language_code = LanguageCode::JA_JP;
    config.output_language_code = LanguageCode::ZH_CN;
    config.enable_language_detection = true;
    config.enable_translation = true;
    config.enable_continuous_mode = true;
    config.enable_partial_transcription = true;
    config.threshold = -7;
    config.timeout_duration = 5000;
    config.silence_detection_duration = 800;
    config.outputBufferMode = true;
    config.data = {0, 127, 128, 255};
    config.input_lang_code = "ja-JP";
    config.output_lang_code = "zh-CN";
    config.mode = TranscriptionMode::PARTIAL_CONTINUOUS;
    config.enable_text_timestamp = true;
    config.enable_speaker_diarization = true;
    EXPECT_EQ(
            "VoxaConfig{input_language_code: JA_JP, output_language_code: ZH_CN, "
            "enable_language_detection: true, enable_translation: true, "
            "enable_continuous_mode: true, enable_partial_transcription: true, threshold: -7, "
            "timeout_duration: 5000, silence_detection_duration: 800, outputBufferMode: true, "
            "data: [0, 127, 128, 255], input_lang_code: ja-JP, output_lang_code: zh-CN, "
            "mode: PARTIAL_CONTINUOUS, enable_text_timestamp: true, "
            "enable_speaker_diarization: true}",
            config.toString());

    VoxaParameter parameter;
    parameter.param = ParameterType::FORCE_OUTPUT_EVENT;
    parameter.data = {1, 255};
    EXPECT_EQ("VoxaParameter{param: FORCE_OUTPUT_EVENT, data: [1, 255]}", parameter.toString());
}

TEST(RecordTextTest, EmptyFieldsAndValuesThatAreNoMember) {
    EXPECT_EQ("VoxaModel{vendorUuid: , data: fd:-1, dataSize: 0}", VoxaModel().toString());

    VoxaParameter parameter;
    parameter.param = ParameterType::INVALID;
    EXPECT_EQ("VoxaParameter{param: INVALID, data: []}", parameter.toString());
    parameter.param = static_cast<ParameterType>(9);
    EXPECT_EQ("VoxaParameter{param: 9, data: []}", parameter.toString());

    VoxaConfig config;
    config.input_language_code = static_cast<LanguageCode>(6);
    config.output_language_code = static_cast<LanguageCode>(-1);
    config.mode = static_cast<TranscriptionMode>(7);
    config.data = {0, 255};
    EXPECT_EQ(
            "VoxaConfig{input_language_code: 6, output_language_code: -1, "
            "enable_language_detection: false, enable_translation: false, "
            "enable_continuous_mode: false, enable_partial_transcription: false, threshold: 0, "
            "timeout_duration: 0, silence_detection_duration: 0, outputBufferMode: false, "
            "data: [0, 255], input_lang_code: , output_lang_code: , mode: 7, "
            "enable_text_timestamp: false, enable_speaker_diarization: false}",
            config.toString());

    EXPECT_EQ("-2147483648", toString(static_cast<ServiceError>(INT_MIN)));
    EXPECT_EQ("0", toString(static_cast<ServiceError>(0)));
    EXPECT_EQ("RESOURCE_CONTENTION", toString(ServiceError::RESOURCE_CONTENTION));
}

TEST(RecordTextTest, StringsAreWrittenUnchanged) {
    VoxaModel model;
    model.vendorUuid = "a, b}{c: d, data: fd:3";
    EXPECT_EQ("VoxaModel{vendorUuid: a, b}{c: d, data: fd:3, data: fd:-1, dataSize: 0}",
              model.toString());
}

TEST(RecordTextTest, ResultRecordsRenderNestedRecordsByTheirOwnName) {
    EXPECT_EQ("VoxaEvent{status: -1, events: null, timestamp_events: null}",
              VoxaEvent().toString());

    VoxaEvent event;
    event.status = 0;
    event.events.emplace();
    VoxaEvent::EventTS result;
    result.flag = true;
    result.value = 3;
    result.text = "hi there";
    result.start_ts = -1;
    result.end_ts = INT64_MAX;
    result.word_count = 1;
    result.words.push_back({7, 10, 20, "hi"});
    result.data = {255};
    event.timestamp_events = std::vector<std::optional<VoxaEvent::EventTS>>{result, std::nullopt};
    EXPECT_EQ(
            "VoxaEvent{status: 0, events: [], timestamp_events: [EventTS{flag: true, value: 3, "
            "text: hi there, aux_text: , start_ts: -1, end_ts: 9223372036854775807, "
            "word_count: 1, words: [Word{value: 7, start_ts: 10, end_ts: 20, word: hi}], "
            "data: [255]}, null]}",
            event.toString());

    SpeakerDiarizationEvent diarization;
    diarization.events.push_back({2, true, {{1, 0, 5}, {2, 5, 9}}, {}});
    EXPECT_EQ(
            "SpeakerDiarizationEvent{events: [Event{speaker_count: 2, flag: true, speakers: "
            "[SpeakerInfo{value: 1, start_ts: 0, end_ts: 5}, SpeakerInfo{value: 2, start_ts: 5, "
            "end_ts: 9}], data: []}]}",
            diarization.toString());
}

TEST(EnumTest, RangesListTheMembersInDeclarationOrder) {
    EXPECT_THAT(valuesOf<LanguageCode>(),
                ElementsAre(LanguageCode::EN_US, LanguageCode::ZH_CN, LanguageCode::HI_IN,
                            LanguageCode::ES_US, LanguageCode::KO_KR, LanguageCode::JA_JP));
    EXPECT_THAT(
            valuesOf<TranscriptionMode>(),
            ElementsAre(TranscriptionMode::PARTIAL_COMMAND, TranscriptionMode::PARTIAL_CONTINUOUS,
                        TranscriptionMode::BUFFERED_EVENT, TranscriptionMode::BUFFERING));
    EXPECT_THAT(valuesOf<ParameterType>(),
                ElementsAre(ParameterType::INVALID, ParameterType::FORCE_OUTPUT_EVENT,
                            ParameterType::CUSTOM_EXTRAS));
    EXPECT_THAT(valuesOf<ServiceError>(),
                ElementsAre(ServiceError::INVALID, ServiceError::RESOURCE_CONTENTION,
                            ServiceError::OPERATION_NOT_SUPPORTED, ServiceError::FAILURE));
    EXPECT_EQ(-4, static_cast<int32_t>(ServiceError::FAILURE));
    EXPECT_EQ(-1, static_cast<int32_t>(ParameterType::INVALID));
}

TEST(RecordValueTest, ComparisonsFollowTheFieldsInOrder) {
    VoxaParameter low;
    low.param = ParameterType::FORCE_OUTPUT_EVENT;
    low.data = {9};
    VoxaParameter high;
    high.param = ParameterType::CUSTOM_EXTRAS;
    high.data = {1};
    EXPECT_LT(low, high);  // param decides before data
    EXPECT_GT(high, low);
    high.param = low.param;
    EXPECT_GT(low, high);
    high.data = low.data;
    EXPECT_EQ(low, high);

    VoxaEvent absent;
    VoxaEvent empty;
    empty.events.emplace();
    EXPECT_NE(absent, empty);
    EXPECT_LT(absent, empty);

    VoxaModel a;
    VoxaModel b;
    a.data = ndk::ScopedFileDescriptor(openDevNull());
    b.data = ndk::ScopedFileDescriptor(openDevNull());
    EXPECT_NE(a, b);  // the same file, but descriptors compare by number
    EXPECT_EQ(a.data.get() < b.data.get(), a < b);
}

TEST(RecordValueTest, CopyingAModelDuplicatesItsDescriptor) {
    VoxaModel original;
    original.vendorUuid = "uuid";
    original.data = ndk::ScopedFileDescriptor(openDevNull());
    original.dataSize = 42;

    VoxaModel assigned;
    assigned.data = ndk::ScopedFileDescriptor(openDevNull());
    const int replaced = assigned.data.get();
    {
        const VoxaModel copy(original);
        EXPECT_EQ("uuid", copy.vendorUuid);
        EXPECT_EQ(42, copy.dataSize);
        EXPECT_NE(original.data.get(), copy.data.get());
        EXPECT_TRUE(sameFile(original.data.get(), copy.data.get()));

        assigned = copy;
        EXPECT_EQ(42, assigned.dataSize);
        EXPECT_NE(copy.data.get(), assigned.data.get());
        EXPECT_TRUE(sameFile(original.data.get(), assigned.data.get()));
        EXPECT_EQ(-1, fcntl(replaced, F_GETFD));  // the assignment closed the previous one
    }
    // Closing the copy left the original's descriptor open.
    EXPECT_NE(-1, fcntl(original.data.get(), F_GETFD));

    VoxaModel empty;
    EXPECT_EQ(-1, VoxaModel(empty).data.get());
}

TEST(RecordValueTest, FreshEventHasStatusMinusOneAndNoLists) {
    const VoxaEvent event;
    EXPECT_EQ(-1, event.status);
    EXPECT_FALSE(event.events.has_value());
    EXPECT_FALSE(event.timestamp_events.has_value());
}

}  // namespace
}  // namespace aidl::vendor::orbo::hardware::voxa
