// The generated records and enumerations: the text form that the service logs, and descriptor
// ownership.

#include <aidl/vendor/orbo/hardware/voxa/ServiceError.h>
#include <aidl/vendor/orbo/hardware/voxa/VoxaConfig.h>
#include <aidl/vendor/orbo/hardware/voxa/VoxaModel.h>
#include <aidl/vendor/orbo/hardware/voxa/VoxaParameter.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <string>

namespace aidl::vendor::orbo::hardware::voxa {
namespace {

ndk::ScopedFileDescriptor openDevNull() {
    int fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
    EXPECT_GE(fd, 0);
    return ndk::ScopedFileDescriptor(fd);
}

bool sameFile(int a, int b) {
    struct stat sa {};
    struct stat sb {};
    return fstat(a, &sa) == 0 && fstat(b, &sb) == 0 && sa.st_dev == sb.st_dev &&
           sa.st_ino == sb.st_ino;
}

bool isOpen(int fd) {
    return fcntl(fd, F_GETFD) != -1;
}

TEST(RecordTextTest, InputRecordsWithEveryFieldSet) {
    VoxaModel model;
    model.vendorUuid = "0a1b2c3d-4e5f-6071-8293-a4b5c6d7e8f9";
    model.data = openDevNull();
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

// Values that are no member print as numbers; strings print as they are.
TEST(RecordTextTest, ValuesThatAreNoMember) {
    VoxaParameter parameter;
    parameter.param = static_cast<ParameterType>(9);
    EXPECT_EQ("VoxaParameter{param: 9, data: []}", parameter.toString());
    EXPECT_EQ("-2147483648", toString(static_cast<ServiceError>(INT_MIN)));
    EXPECT_EQ("RESOURCE_CONTENTION", toString(ServiceError::RESOURCE_CONTENTION));
}

// A copied model owns a duplicate of the descriptor, so each copy closes only its own.
TEST(RecordValueTest, CopyingAModelDuplicatesItsDescriptor) {
    VoxaModel original;
    original.data = openDevNull();
    original.dataSize = 42;
    VoxaModel assigned;
    assigned.data = openDevNull();
    const int replaced = assigned.data.get();
    int copied = -1;
    {
        const VoxaModel copy(original);
        copied = copy.data.get();
        EXPECT_EQ(42, copy.dataSize);
        EXPECT_NE(original.data.get(), copied);
        EXPECT_TRUE(sameFile(original.data.get(), copied));
        assigned = copy;
        EXPECT_NE(copied, assigned.data.get());
        EXPECT_FALSE(isOpen(replaced));
    }
    EXPECT_FALSE(isOpen(copied));
    EXPECT_TRUE(isOpen(original.data.get()));
}

}  // namespace
}  // namespace aidl::vendor::orbo::hardware::voxa
