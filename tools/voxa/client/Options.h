// The voxa command line: what the user asked for, parsed into plain values. Parsing checks the
// syntax and the ranges that the interface's values take; whether the service accepts a language
// is the service's to say.
#ifndef VOXA_TOOL_OPTIONS_H
#define VOXA_TOOL_OPTIONS_H

#include <aidl/vendor/orbo/hardware/voxa/TranscriptionMode.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "Host.h"
#include "Status.h"

namespace voxa_tool {

enum class Command { Transcribe, Replay, Languages, Dump, Help, Version };

enum class Format { Text, Json, Srt, Vtt };

struct Options {
    Command command = Command::Help;
    std::vector<std::string> files;  // the inputs to transcribe, in order; kStandardInput too
    std::string language = "en-US";  // spoken language, a code as `voxa languages` lists it
    std::string translateTo;         // output language when translating; empty: no translation
    bool diarize = false;
    bool timestamps = false;
    aidl::vendor::orbo::hardware::voxa::TranscriptionMode mode =
            aidl::vendor::orbo::hardware::voxa::TranscriptionMode::BUFFERING;
    bool modeGiven = false;
    int32_t silenceMs = 0;  // 0: the engine's default
    int32_t threshold = 0;
    int32_t timeoutMs = 0;  // 0: none
    bool realtime = false;
    std::optional<RawFormat> raw;
    Format format = Format::Text;
    std::string outputFile;  // -o: the one input's output; empty or "-": standard output
    std::string outputDir;   // --output-dir: one file per input; empty: none
    // The file each input's output goes to, in the order of `files`; empty: standard output.
    std::vector<std::string> outputs;
    bool waitBusy = false;   // wait once for a busy engine to be free, then try again
    int32_t markBelow = -1;  // --confidence: show confidences, mark words below this; -1: not
    bool verbose = false;
    bool progress = true;
    bool dump = false;    // print the service's dump once the input has been heard
    std::string library;  // libvoxa.so to load
    std::string model;    // model image to hand to the engine
};

// Parses the arguments that follow the program's name into `options`, which starts from the
// defaults above with `library` and `model` set to the build's own. A failure is a usage error
// that says what is wrong.
Status parseOptions(const std::vector<std::string>& args, Options* options);

// The text of `voxa --help`.
std::string usage();

}  // namespace voxa_tool

#endif  // VOXA_TOOL_OPTIONS_H
