// AidlToPalConverter: the model and configuration payloads the PAL takes, and the language tables.
#ifndef VOXA_SERVICE_AIDL_TO_PAL_CONVERTER_H
#define VOXA_SERVICE_AIDL_TO_PAL_CONVERTER_H

#include <aidl/vendor/orbo/hardware/voxa/VoxaConfig.h>
#include <aidl/vendor/orbo/hardware/voxa/VoxaModel.h>
#include <pal/pal_types.h>

#include <array>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace aidl::vendor::orbo::hardware::voxa {

// A language the engine knows. Its position in kLanguages is the language id the engine is given.
struct Language {
    const char* name;  // "english"
    const char* code;  // "en-US"
};

// Every language, in the order of its id: the one table behind the supported-language rows and
// the code-to-id lookup.
inline constexpr std::array<Language, PAL_ASR_LANGUAGE_COUNT> kLanguages = {{
        {"english", "en-US"},     {"chinese", "cmn-Hans-CN"}, {"german", "de-DE"},
        {"spanish", "es-ES"},     {"russian", "ru-RU"},       {"korean", "ko-KR"},
        {"french", "fr-FR"},      {"japanese", "ja-JP"},      {"portuguese", "pt-PT"},
        {"turkish", "tr-TR"},     {"polish", "pl-PL"},        {"catalan", "ca-ES"},
        {"dutch", "nl-NL"},       {"arabic", "ar-SA"},        {"swedish", "sv-SE"},
        {"italian", "it-IT"},     {"indonesian", "id-ID"},    {"hindi", "hi-IN"},
        {"finnish", "fi-FI"},     {"vietnamese", "vi-VN"},    {"hebrew", "iw-IL"},
        {"ukrainian", "uk-UA"},   {"greek", "el-GR"},         {"malay", "ms-MY"},
        {"czech", "cs-CZ"},       {"romanian", "ro-RO"},      {"danish", "da-DK"},
        {"hungarian", "hu-HU"},   {"tamil", "ta-IN"},         {"norwegian", "no-NO"},
        {"thai", "th-TH"},        {"urdu", "ur-IN"},          {"croatian", "hr-HR"},
        {"bulgarian", "bg-BG"},   {"lithuanian", "lt-LT"},    {"latin", "tn-Latn-ZA"},
        {"maori", "mi-NZ"},       {"malayalam", "ml-IN"},     {"welsh", "cy-UK"},
        {"slovak", "sk-SK"},      {"telugu", "te-IN"},        {"persian", "fa-IR"},
        {"latvian", "lv-LV"},     {"bengali", "bn-IN"},       {"serbian", "sr-RS"},
        {"azerbaijani", "az-AZ"}, {"slovenian", "sl-SI"},     {"kannada", "kn-IN"},
        {"estonian", "et-EE"},    {"macedonian", "mk-MK"},    {"breton", "br-FR"},
        {"basque", "eu-ES"},      {"icelandic", "is-IS"},     {"armenian", "hy-AM"},
        {"nepali", "ne-NP"},      {"mongolian", "mn-MN"},     {"bosnian", "bs-BA"},
        {"kazakh", "kk-KZ"},      {"albanian", "sq-AL"},      {"swahili", "sw-KE"},
        {"galician", "gl-ES"},    {"marathi", "mr-IN"},       {"punjabi", "pa-Guru-IN"},
        {"sinhala", "si-LK"},     {"khmer", "km-KH"},         {"shona", "sn-ZB"},
        {"yoruba", "yo-BZ"},      {"somali", "so-SO"},        {"afrikaans", "af-ZA"},
        {"occitan", "oc-FR"},     {"georgian", "ka-GE"},      {"belarusian", "be-BL"},
        {"tajik", "tg-TK"},       {"sindhi", "sd-IN"},        {"gujarati", "gu-IN"},
        {"amharic", "am-ET"},     {"yiddish", "yi-IL"},       {"lao", "lo-LA"},
        {"uzbek", "uz-UZ"},       {"faroese", "fo-FR"},       {"eole", "ht-US"},
        {"pashto", "ps-PK"},      {"turkmen", "tk-TK"},       {"nynorsk", "nn-NO"},
        {"maltese", "mt-MT"},     {"sanskrit", "sa-IN"},      {"luxembourgish", "lb-LB"},
        {"myanmar", "my-MM"},     {"tibetan", "bo-TB"},       {"tagalog", "tl-PP"},
        {"malagasy", "mg-MG"},    {"assamese", "as-IN"},      {"tatar", "tt-RU"},
        {"hawaiian", "haw-US"},   {"lingala", "ln-DC"},       {"hausa", "ha-NG"},
        {"bashkir", "ba-RU"},     {"javanese", "jw-ID"},      {"sundanese", "su-ID"},
        {"cantonese", "yue-CH"},
}};

// Language code ("en-US", ...) to its id in kLanguages. Built during static initialisation;
// read-only afterwards.
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

#endif  // VOXA_SERVICE_AIDL_TO_PAL_CONVERTER_H
