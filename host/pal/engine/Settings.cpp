#include "Settings.h"

#include <cerrno>
#include <cstring>

#include "Translator.h"

namespace pal_engine {

namespace {

constexpr uint32_t kConfigFixedSize = sizeof(pal_asr_config) - sizeof(uint32_t);
// en-US, id 0 of the language table, is what the engine hears.
constexpr int32_t kEnglishUs = 0;
constexpr int32_t kMaxSilenceMs = 60 * 1000;

}  // namespace

int32_t parseSettings(const pal_param_payload* payload, Settings* settings) {
    if (payload == nullptr || payload->size < kConfigFixedSize) {
        return PAL_STATUS_INVALID;
    }
    pal_asr_config config;
    std::memcpy(&config, payload, sizeof(config));
    if (config.data_size != payload->size - kConfigFixedSize) {
        return PAL_STATUS_INVALID;
    }
    for (int32_t id : {config.input_language_id, config.output_language_id}) {
        if (id < 0 || id >= PAL_ASR_LANGUAGE_COUNT) {
            return PAL_STATUS_INVALID;
        }
    }
    if (config.threshold < 0 || config.threshold > 100 || config.timeout_duration < 0 ||
        config.silence_detection_duration < 0 ||
        config.silence_detection_duration > kMaxSilenceMs) {
        return PAL_STATUS_INVALID;
    }
    const bool translate =
            config.enable_translation != 0 && config.output_language_id != kEnglishUs;
    if (config.input_language_id != kEnglishUs ||
        (config.output_language_id != kEnglishUs &&
         (!translate || Translator::target(config.output_language_id) == nullptr))) {
        return PAL_STATUS_NOT_SUPPORTED;
    }
    settings->continuous = config.continuous != 0;
    settings->partial = config.partial != 0;
    settings->timestamps = config.enable_text_timestamp != 0;
    settings->diarize = config.enable_speaker_diarization != 0;
    settings->translateTo = translate ? config.output_language_id : -1;
    settings->threshold = config.threshold;
    settings->timeoutMs = config.timeout_duration;
    settings->silenceMs = config.silence_detection_duration == 0
                                  ? kDefaultSilenceMs
                                  : config.silence_detection_duration;
    return 0;
}

}  // namespace pal_engine
