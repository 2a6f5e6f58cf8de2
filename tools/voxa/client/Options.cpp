#include "Options.h"

#include <cerrno>
#include <cstdlib>
#include <limits>
#include <map>
#include <set>

namespace voxa_tool {

using aidl::vendor::orbo::hardware::voxa::TranscriptionMode;

namespace {

template <typename Value>
struct Named {
    const char* name;
    Value value;
};

constexpr Named<TranscriptionMode> kModes[] = {
        {"partial-command", TranscriptionMode::PARTIAL_COMMAND},
        {"partial-continuous", TranscriptionMode::PARTIAL_CONTINUOUS},
        {"buffered-event", TranscriptionMode::BUFFERED_EVENT},
        {"buffering", TranscriptionMode::BUFFERING},
};

constexpr Named<Format> kFormats[] = {
        {"text", Format::Text},
        {"json", Format::Json},
        {"srt", Format::Srt},
        {"vtt", Format::Vtt},
};

constexpr const char* kExtensions[] = {".txt", ".json", ".srt", ".vtt"};

template <typename Value, size_t N>
bool findNamed(const Named<Value> (&table)[N], const std::string& name, Value* value) {
    for (const Named<Value>& entry : table) {
        if (name == entry.name) {
            *value = entry.value;
            return true;
        }
    }
    return false;
}

bool parseInt(const std::string& text, int32_t* value) {
    if (text.empty()) return false;
    errno = 0;
    char* end = nullptr;
    const long long parsed = std::strtoll(text.c_str(), &end, 10);
    if (errno != 0 || *end != '\0' || parsed < std::numeric_limits<int32_t>::min() ||
        parsed > std::numeric_limits<int32_t>::max()) {
        return false;
    }
    *value = static_cast<int32_t>(parsed);
    return true;
}

// "RATE:CHANNELS", both positive.
bool parseRaw(const std::string& text, RawFormat* raw) {
    const size_t colon = text.find(':');
    int32_t rate = 0;
    int32_t channels = 0;
    if (colon == std::string::npos || !parseInt(text.substr(0, colon), &rate) ||
        !parseInt(text.substr(colon + 1), &channels) || rate <= 0 || channels <= 0) {
        return false;
    }
    *raw = {rate, channels};
    return true;
}

// A number option and the range the interface gives its field.
struct Bounded {
    const char* name;
    int32_t Options::*field;
    int32_t min;
    int32_t max;
};

constexpr Bounded kNumbers[] = {
        {"--silence-ms", &Options::silenceMs, 0, 60000},
        {"--threshold", &Options::threshold, 0, 100},
        {"--timeout-ms", &Options::timeoutMs, 0, std::numeric_limits<int32_t>::max()},
        {"--confidence", &Options::markBelow, 0, 100},
};

std::string range(const Bounded& bounded) {
    return bounded.max == std::numeric_limits<int32_t>::max()
                   ? std::to_string(bounded.min) + " or more"
                   : std::to_string(bounded.min) + " to " + std::to_string(bounded.max);
}

std::string fileName(const std::string& input) {
    return input == kStandardInput ? "stdin" : input.substr(input.rfind('/') + 1);
}

std::string stem(const std::string& input) {
    std::string name = fileName(input);
    const size_t dot = name.rfind('.');
    if (dot != std::string::npos && dot > 0) name.erase(dot);
    return name;
}

// Each input's file under DIR: NAME.txt (or .json, .srt, .vtt), NAME being its file name without
// its extension, or with it when another input has the same stem (a.flac.txt, a.ogg.txt).
Status outputsUnder(const std::string& directory, Options* options) {
    std::map<std::string, int> stems;
    for (const std::string& file : options->files) ++stems[stem(file)];
    std::set<std::string> paths;
    for (const std::string& file : options->files) {
        const std::string name = stems[stem(file)] > 1 ? fileName(file) : stem(file);
        const std::string path =
                directory + "/" + name + kExtensions[static_cast<int>(options->format)];
        if (!paths.insert(path).second) return Status::usage("two inputs would write " + path);
        options->outputs.push_back(path);
    }
    return Status::ok();
}

// Checks the combination of options once all are read, and names the outputs.
Status checkOutputs(const std::vector<std::string>& operands, Options* options) {
    options->files = operands.empty() ? std::vector<std::string>{VOXA_DEFAULT_RECORDING} : operands;
    const bool several = options->files.size() > 1;
    if (!options->outputFile.empty() && !options->outputDir.empty()) {
        return Status::usage("-o and --output-dir exclude each other");
    }
    // "-o -" is standard output, as for any other program.
    const bool toFile = !options->outputFile.empty() && options->outputFile != "-";
    if (toFile && several) {
        return Status::usage("-o FILE takes one input; --output-dir DIR writes one file per input");
    }
    if ((options->format == Format::Srt || options->format == Format::Vtt) && several &&
        options->outputDir.empty()) {
        return Status::usage("subtitles of several inputs need --output-dir DIR");
    }
    if (!options->outputDir.empty()) return outputsUnder(options->outputDir, options);
    options->outputs.assign(options->files.size(), toFile ? options->outputFile : "");
    return Status::ok();
}

}  // namespace

Status parseOptions(const std::vector<std::string>& args, Options* options) {
    *options = Options();
    options->library = VOXA_DEFAULT_LIBRARY;
    options->model = VOXA_DEFAULT_MODEL;

    bool haveCommand = false;
    bool optionsEnded = false;
    std::vector<std::string> operands;
    for (size_t next = 0; next < args.size();) {
        const std::string& arg = args[next++];
        if (optionsEnded || arg.size() < 2 || arg[0] != '-') {
            if (haveCommand) {
                operands.push_back(arg);
            } else if (arg == "transcribe" || arg == "replay" || arg == "languages" ||
                       arg == "dump") {
                options->command = arg == "transcribe" ? Command::Transcribe
                                   : arg == "replay"   ? Command::Replay
                                   : arg == "dump"     ? Command::Dump
                                                       : Command::Languages;
                haveCommand = true;
            } else {
                return Status::usage("unknown command '" + arg + "' (see voxa --help)");
            }
            continue;
        }
        if (arg == "--") {
            optionsEnded = true;
            continue;
        }
        const size_t equals = arg.find('=');
        const bool hasInline = equals != std::string::npos;
        const std::string name = arg.substr(0, equals);
        std::string value;
        auto takeValue = [&]() {
            if (hasInline) {
                value = arg.substr(equals + 1);
            } else if (next < args.size()) {
                value = args[next++];
            } else {
                return Status::usage("option " + name + " needs a value");
            }
            return Status::ok();
        };
        auto setFlag = [&](bool* target, bool set) {
            if (hasInline) return Status::usage("option " + name + " takes no value");
            *target = set;
            return Status::ok();
        };
        auto takeText = [&](std::string* target) {
            Status status = takeValue();
            if (status.isOk()) *target = value;
            return status;
        };

        Status status = Status::ok();
        if (name == "-h" || name == "--help" || name == "--version") {
            bool unused = false;
            status = setFlag(&unused, true);
            options->command = name == "--version" ? Command::Version : Command::Help;
            return status;
        } else if (name == "-v" || name == "--verbose") {
            status = setFlag(&options->verbose, true);
        } else if (name == "--dump") {
            status = setFlag(&options->dump, true);
        } else if (name == "--timestamps") {
            status = setFlag(&options->timestamps, true);
        } else if (name == "--realtime") {
            status = setFlag(&options->realtime, true);
        } else if (name == "--diarize") {
            status = setFlag(&options->diarize, true);
        } else if (name == "--wait-busy") {
            status = setFlag(&options->waitBusy, true);
        } else if (name == "--no-progress") {
            status = setFlag(&options->progress, false);
        } else if (name == "--lang") {
            status = takeText(&options->language);
        } else if (name == "--translate") {
            status = takeText(&options->translateTo);
        } else if (name == "--library") {
            status = takeText(&options->library);
        } else if (name == "--model") {
            status = takeText(&options->model);
        } else if (name == "-o") {
            status = takeText(&options->outputFile);
        } else if (name == "--output-dir") {
            status = takeText(&options->outputDir);
        } else if (name == "--raw") {
            status = takeValue();
            RawFormat raw;
            if (status.isOk() && !parseRaw(value, &raw)) {
                return Status::usage("option --raw takes RATE:CHANNELS, such as 16000:1, not '" +
                                     value + "'");
            }
            options->raw = raw;
        } else if (name == "--mode") {
            status = takeValue();
            if (status.isOk() && !findNamed(kModes, value, &options->mode)) {
                return Status::usage("unknown mode '" + value +
                                     "' (partial-command, partial-continuous, buffered-event or "
                                     "buffering)");
            }
            options->modeGiven = true;
        } else if (name == "--format") {
            status = takeValue();
            if (status.isOk() && !findNamed(kFormats, value, &options->format)) {
                return Status::usage("unknown format '" + value + "' (text, json, srt or vtt)");
            }
        } else {
            const Bounded* number = nullptr;
            for (const Bounded& candidate : kNumbers) {
                if (name == candidate.name) number = &candidate;
            }
            if (number == nullptr) {
                return Status::usage("unknown option '" + name + "' (see voxa --help)");
            }
            status = takeValue();
            int32_t parsed = 0;
            if (status.isOk() &&
                (!parseInt(value, &parsed) || parsed < number->min || parsed > number->max)) {
                return Status::usage("option " + name + " takes " + range(*number) + ", not '" +
                                     value + "'");
            }
            options->*(number->field) = parsed;
        }
        if (!status.isOk()) return status;
    }

    if (!haveCommand) return Status::usage("no command given (see voxa --help)");
    if (options->command == Command::Languages || options->command == Command::Dump) {
        return operands.empty() ? Status::ok() : Status::usage("this command takes no FILE");
    }
    if (options->command == Command::Replay && operands.size() != 1) {
        return Status::usage("replay takes one SCENARIO");
    }
    return checkOutputs(operands, options);
}

std::string usage() {
    return "usage: voxa [OPTIONS] COMMAND [FILE...]\n"
           "\n"
           "Loads the voxa speech-recognition service (libvoxa.so) into this process and uses it\n"
           "through its binder interface, vendor.orbo.hardware.voxa.IVoxa, as a client on a\n"
           "device does.\n"
           "\n"
           "Commands:\n"
           "  transcribe [FILE...]  transcribe sound files (WAV, FLAC, Ogg...), each in turn;\n"
           "                        '-' reads standard input. Without FILE: a LibriVox\n"
           "                        recording from pocketsphinx-testdata\n"
           "  replay SCENARIO       play a scenario of the scripted engine (JSON Lines, see\n"
           "                        docs/DEVICE.md) and show what the client receives\n"
           "  languages             list the languages the service knows, marking those the\n"
           "                        engine recognises and translates into\n"
           "  dump                  print the state of the service in this process\n"
           "\n"
           "Options of transcribe and replay:\n"
           "  --lang CODE           spoken language, as `voxa languages` lists it (en-US)\n"
           "  --translate CODE      translate into another language\n"
           "  --diarize             tell the speakers apart and label the results\n"
           "  --timestamps          text: show each result's time and its words' times\n"
           "  --mode MODE           partial-command, partial-continuous, buffered-event or\n"
           "                        buffering (the default)\n"
           "  --silence-ms N        silence that ends an utterance, 0 to 60000 ms (0: the\n"
           "                        engine's)\n"
           "  --threshold N         lowest confidence of a result, 0 to 100\n"
           "  --timeout-ms N        give up after N ms without speech (0: never)\n"
           "  --confidence N        text and subtitles: show each result's confidence, 0 to\n"
           "                        100, and put the words below N in brackets\n"
           "  --realtime            play the audio at its own pace, as a microphone would; text\n"
           "                        on a terminal then shows the current partial result\n"
           "  --raw RATE:CHANNELS   the input is raw signed 16-bit little-endian PCM; without\n"
           "                        it, standard input without a header is read as 48000:2\n"
           "  --format FORMAT       text, json (one line per event), srt or vtt (subtitles)\n"
           "  -o FILE               write the output of the one input to FILE ('-': standard\n"
           "                        output); an input is never written over\n"
           "  --output-dir DIR      write the output of each input to DIR/NAME.txt|json|srt|vtt,\n"
           "                        creating DIR; NAME keeps its extension when two inputs\n"
           "                        share a name without it\n"
           "  --wait-busy           when the engine is busy, wait until it is free and try\n"
           "                        again, once\n"
           "  --no-progress         no progress bar on a terminal\n"
           "  --dump                print the service's state once each input has been heard\n"
           "\n"
           "General options:\n"
           "  -v, --verbose         show the service's own log lines\n"
           "  --library PATH        the service library to load (default: the build's)\n"
           "  --model PATH          the engine's model image (default: the build's)\n"
           "  -h, --help            show this text\n"
           "  --version             show the version\n"
           "\n"
           "Exit status: 0 on success (also when no speech was found), 1 when an input failed\n"
           "(the engine or the scenario reported a failure too), 2 for a usage error, 3 when\n"
           "the recognition engine is busy, 130 or 143 when stopped by SIGINT or SIGTERM.\n";
}

}  // namespace voxa_tool
