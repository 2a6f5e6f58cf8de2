// Model and configuration records with any field values (strings of any length and content,
// enumerations outside their range) through AidlToPalConverter. A payload, when there is one,
// must have the size its own count gives.
#include <android/log.h>
#include <fuzzer/FuzzedDataProvider.h>

#include <cstring>

#include "AidlToPalConverter.h"

using namespace aidl::vendor::orbo::hardware::voxa;

namespace {

template <typename Enum>
Enum anyValue(FuzzedDataProvider& input) {
    return static_cast<Enum>(input.ConsumeIntegral<int32_t>());
}

void checkCount(const std::vector<uint8_t>& payload) {
    if (payload.empty()) return;
    uint32_t count;
    std::memcpy(&count, payload.data(), sizeof(count));
    if (count + sizeof(count) != payload.size()) __builtin_trap();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > 64 * 1024) return 0;
    __android_log_set_logger([](const __android_logger_data*, const char*) {});
    FuzzedDataProvider input(data, size);

    VoxaModel model;
    model.vendorUuid = input.ConsumeRandomLengthString(64);
    model.data.set(input.ConsumeIntegral<int32_t>());
    model.dataSize = input.ConsumeIntegral<int32_t>();
    std::vector<uint8_t> modelPayload;
    AidlToPalConverter::convertModel(model, modelPayload);
    model.data.release();  // a number, not a descriptor this process owns
    checkCount(modelPayload);

    VoxaConfig config;
    config.input_language_code = anyValue<LanguageCode>(input);
    config.output_language_code = anyValue<LanguageCode>(input);
    config.enable_language_detection = input.ConsumeBool();
    config.enable_translation = input.ConsumeBool();
    config.enable_continuous_mode = input.ConsumeBool();
    config.enable_partial_transcription = input.ConsumeBool();
    config.threshold = input.ConsumeIntegral<int32_t>();
    config.timeout_duration = input.ConsumeIntegral<int32_t>();
    config.silence_detection_duration = input.ConsumeIntegral<int32_t>();
    config.outputBufferMode = input.ConsumeBool();
    config.mode = anyValue<TranscriptionMode>(input);
    config.enable_text_timestamp = input.ConsumeBool();
    config.enable_speaker_diarization = input.ConsumeBool();
    config.input_lang_code = input.ConsumeRandomLengthString(32);
    config.output_lang_code = input.ConsumeRandomLengthString(32);
    config.data = input.ConsumeRemainingBytes<uint8_t>();
    std::vector<uint8_t> configPayload;
    AidlToPalConverter::convertConfig(config, configPayload);
    checkCount(configPayload);
    return 0;
}
