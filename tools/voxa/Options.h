// The voxa command line: what the user asked for, parsed into plain values. Parsing checks the
// syntax only (known flags, numbers that are numbers); whether the service accepts a value is
// the service's to say.
#ifndef VOXA_TOOL_OPTIONS_H
#define VOXA_TOOL_OPTIONS_H

#include <aidl/vendor/orbo/hardware/voxa/TranscriptionMode.h>

#include <cstdint>
#include <string>
#include <vector>

namespace voxa_tool {

enum class Command { Transcribe, Languages, Help, Version };

enum class Format { Text, Json, Srt, Vtt };

// The file name that stands for raw PCM in the device format on standard input.
constexpr char kStandardInput[] = "-";

struct Options {
    Command command = Command::Help;
    std::vector<std::string> files;  // the sound files to transcribe, in order
    std::string language = "en-US";  // spoken language, a code as `voxa languages` lists it
    std::string translateTo;         // output language when translating; empty: no translation
    bool diarize = false;
    bool timestamps = false;
    aidl::vendor::orbo::hardware::voxa::TranscriptionMode mode =
            aidl::vendor::orbo::hardware::voxa::TranscriptionMode::BUFFERING;
    int32_t silenceMs = 0;  // 0: the engine's default
    int32_t threshold = 0;
    int32_t timeoutMs = 0;  // 0: none
    bool realtime = false;
    Format format = Format::Text;
    bool verbose = false;
    bool progress = true;
    std::string library;  // libvoxa.so to load
    std::string model;    // model image to hand to the engine
};

// Parses the arguments that follow the program's name into `options`, which starts from the
// defaults above with `library` and `model` set to the build's own. Returns "" on success, else a
// message that says what is wrong.
std::string parseOptions(const std::vector<std::string>& args, Options* options);

// The text of `voxa --help`.
std::string usage();

}  // namespace voxa_tool

#endif  // VOXA_TOOL_OPTIONS_H
