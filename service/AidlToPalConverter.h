#pragma once

#include <aidl/vendor/orbo/hardware/voxa/VoxaConfig.h>
#include <aidl/vendor/orbo/hardware/voxa/VoxaModel.h>

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace aidl::vendor::orbo::hardware::voxa {

// Language code ("en-US", ...) to the language id the engine knows: the row's position in
// supportedLanguages. Built during static initialisation; read-only afterwards.
extern const std::map<std::string, int> languageCodeMap;

// Builds the byte payloads that carry a client's model and configuration to the engine as PAL
// stream parameters (struct pal_asr_model and struct pal_asr_config). Stateless; callers pass a
// vector of their own and judge the outcome by it alone.
class AidlToPalConverter {
  public:
    // Fills `payload` with the 28-byte model payload. Never fails: a vendorUuid that does not
    // parse leaves the UUID bytes as they were. The descriptor number is passed as it is; it
    // stays owned by `model`.
    static void convertModel(const VoxaModel& model, std::vector<uint8_t>& payload);

    // Fills `payload` with the 40 + data-size byte configuration payload, the languages taken
    // from the text codes. When a code is not in languageCodeMap, logs the error and leaves
    // `payload` untouched. An unknown mode is logged and yields all mode flags clear.
    static void convertConfig(const VoxaConfig& config, std::vector<uint8_t>& payload);
};

}  // namespace aidl::vendor::orbo::hardware::voxa
