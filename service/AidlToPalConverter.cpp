#define LOG_TAG "Voxa"

#include "AidlToPalConverter.h"

#include <log/log.h>
#include <pal/pal_types.h>

#include <array>
#include <cstring>

#include "Utils.h"

namespace aidl::vendor::orbo::hardware::voxa {

namespace {

std::map<std::string, int> buildLanguageCodeMap() {
    std::map<std::string, int> map;
    for (size_t id = 0; id < kLanguages.size(); ++id) {
        map.emplace(kLanguages[id].code, static_cast<int>(id));
    }
    return map;
}

struct ModeFlags {
    bool continuous;
    bool partial;
    bool buffering;
    bool bufferedEvent;
};

}  // namespace

const std::map<std::string, int> languageCodeMap = buildLanguageCodeMap();

void AidlToPalConverter::convertModel(const VoxaModel& model, std::vector<uint8_t>& payload) {
    payload.resize(sizeof(pal_asr_model));
    auto* palModel = reinterpret_cast<pal_asr_model*>(payload.data());
    palModel->payload_size = sizeof(pal_asr_model) - sizeof(palModel->payload_size);
    Utils::convertStringtoUuid(model.vendorUuid, &palModel->vendor_uuid);
    palModel->model_fd = model.data.get();
    palModel->model_size = model.dataSize;
}

void AidlToPalConverter::convertConfig(const VoxaConfig& config, std::vector<uint8_t>& payload) {
    if (languageCodeMap.find(config.input_lang_code) == languageCodeMap.end()) {
        ALOGE("%s: Recieved invalid input lnaguage code %s", __func__,
              config.input_lang_code.c_str());
        return;
    }
    if (languageCodeMap.find(config.output_lang_code) == languageCodeMap.end()) {
        ALOGE("%s: Recieved invalid output lnaguage code %s", __func__,
              config.output_lang_code.c_str());
        return;
    }

    const size_t dataSize = config.data.size();
    payload.resize(sizeof(pal_asr_config) + dataSize);
    auto* palConfig = reinterpret_cast<pal_asr_config*>(payload.data());
    palConfig->payload_size = static_cast<uint32_t>(sizeof(pal_asr_config) -
                                                    sizeof(palConfig->payload_size) + dataSize);
    palConfig->input_language_id = languageCodeMap.at(config.input_lang_code);
    palConfig->output_language_id = languageCodeMap.at(config.output_lang_code);
    palConfig->enable_language_detection = config.enable_language_detection;
    palConfig->enable_translation = config.enable_translation;
    palConfig->threshold = config.threshold;
    palConfig->timeout_duration = config.timeout_duration;
    palConfig->silence_detection_duration = config.silence_detection_duration;
    palConfig->enable_text_timestamp = config.enable_text_timestamp;
    palConfig->enable_speaker_diarization = config.enable_speaker_diarization;

    ModeFlags mode = {};
    switch (config.mode) {
        case TranscriptionMode::PARTIAL_COMMAND:
            mode = {false, true, false, false};
            break;
        case TranscriptionMode::PARTIAL_CONTINUOUS:
            mode = {true, true, false, false};
            break;
        case TranscriptionMode::BUFFERED_EVENT:
            mode = {true, false, false, true};
            break;
        case TranscriptionMode::BUFFERING:
            mode = {true, false, true, false};
            break;
        default:
            // Lenient on purpose: the start goes on with every mode flag clear.
            ALOGE("%s: Unsupported mode recieved : %d", __func__,
                  static_cast<int32_t>(config.mode));
            break;
    }
    palConfig->continuous = mode.continuous;
    palConfig->partial = mode.partial;
    palConfig->buffering = mode.buffering;
    palConfig->buffered_event = mode.bufferedEvent;

    if (dataSize != 0) {
        palConfig->data_size = static_cast<uint32_t>(dataSize);
        std::memcpy(palConfig->data, config.data.data(), dataSize);
    }
}

}  // namespace aidl::vendor::orbo::hardware::voxa
