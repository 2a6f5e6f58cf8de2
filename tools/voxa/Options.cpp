#include "Options.h"

#include <cerrno>
#include <cstdlib>
#include <limits>

namespace voxa_tool {

using aidl::vendor::orbo::hardware::voxa::TranscriptionMode;

namespace {

struct ModeEntry {
    const char* name;
    TranscriptionMode mode;
};

constexpr ModeEntry kModes[] = {
        {"partial-command", TranscriptionMode::PARTIAL_COMMAND},
        {"partial-continuous", TranscriptionMode::PARTIAL_CONTINUOUS},
        {"buffered-event", TranscriptionMode::BUFFERED_EVENT},
        {"buffering", TranscriptionMode::BUFFERING},
};

struct FormatEntry {
    const char* name;
    Format format;
};

constexpr FormatEntry kFormats[] = {
        {"text", Format::Text},
        {"json", Format::Json},
        {"srt", Format::Srt},
        {"vtt", Format::Vtt},
};

template <typename Entry, size_t N>
const Entry* findEntry(const Entry (&table)[N], const std::string& name) {
    for (const Entry& entry : table) {
        if (name == entry.name) return &entry;
    }
    return nullptr;
}

bool parseInt(const std::string& text, int32_t* value) {
    if (text.empty()) return false;
    errno = 0;
    char* end = nullptr;
    long long parsed = std::strtoll(text.c_str(), &end, 10);
    if (errno != 0 || *end != '\0' || parsed < std::numeric_limits<int32_t>::min() ||
        parsed > std::numeric_limits<int32_t>::max()) {
        return false;
    }
    *value = static_cast<int32_t>(parsed);
    return true;
}

// Walks the arguments in order.
class ArgumentReader {
  public:
    explicit ArgumentReader(const std::vector<std::string>& args) : mArgs(args) {}

    bool done() const { return mNext >= mArgs.size(); }
    const std::string& next() { return mArgs[mNext++]; }

    // The value of the option `name` just read: the part after '=' or the next argument.
    bool value(const std::string& name, const std::string& inlineValue, bool hasInline,
               std::string* value, std::string* error) {
        if (hasInline) {
            *value = inlineValue;
            return true;
        }
        if (done()) {
            *error = "option " + name + " needs a value";
            return false;
        }
        *value = next();
        return true;
    }

  private:
    const std::vector<std::string>& mArgs;
    size_t mNext = 0;
};

}  // namespace

std::string parseOptions(const std::vector<std::string>& args, Options* options) {
    *options = Options();
    options->library = VOXA_DEFAULT_LIBRARY;
    options->model = VOXA_DEFAULT_MODEL;

    ArgumentReader reader(args);
    bool haveCommand = false;
    bool optionsEnded = false;
    std::vector<std::string> operands;
    while (!reader.done()) {
        const std::string& arg = reader.next();
        if (optionsEnded || arg.size() < 2 || arg[0] != '-') {
            if (!haveCommand) {
                if (arg == "transcribe") {
                    options->command = Command::Transcribe;
                } else if (arg == "languages") {
                    options->command = Command::Languages;
                } else {
                    return "unknown command '" + arg + "' (see voxa --help)";
                }
                haveCommand = true;
            } else {
                operands.push_back(arg);
            }
            continue;
        }
        if (arg == "--") {
            optionsEnded = true;
            continue;
        }
        const size_t equals = arg.find('=');
        const bool hasInline = equals != std::string::npos;
        const std::string name = hasInline ? arg.substr(0, equals) : arg;
        const std::string inlineValue = hasInline ? arg.substr(equals + 1) : "";
        std::string value;
        std::string error;
        auto takeValue = [&]() {
            return reader.value(name, inlineValue, hasInline, &value, &error);
        };
        auto takeText = [&](std::string* target) {
            if (!takeValue()) return false;
            *target = value;
            return true;
        };
        auto takeInt = [&](int32_t* target) {
            if (!takeValue()) return false;
            if (!parseInt(value, target)) {
                error = "option " + name + " takes a whole number, not '" + value + "'";
                return false;
            }
            return true;
        };
        auto setFlag = [&](bool* target, bool set) {
            if (hasInline) {
                error = "option " + name + " takes no value";
                return false;
            }
            *target = set;
            return true;
        };

        bool ok = true;
        if (name == "-h" || name == "--help" || name == "--version") {
            bool unused = false;
            if (!setFlag(&unused, true)) return error;
            options->command = name == "--version" ? Command::Version : Command::Help;
            return "";
        } else if (name == "-v" || name == "--verbose") {
            ok = setFlag(&options->verbose, true);
        } else if (name == "--timestamps") {
            ok = setFlag(&options->timestamps, true);
        } else if (name == "--realtime") {
            ok = setFlag(&options->realtime, true);
        } else if (name == "--diarize") {
            ok = setFlag(&options->diarize, true);
        } else if (name == "--no-progress") {
            ok = setFlag(&options->progress, false);
        } else if (name == "--lang") {
            ok = takeText(&options->language);
        } else if (name == "--translate") {
            ok = takeText(&options->translateTo);
        } else if (name == "--library") {
            ok = takeText(&options->library);
        } else if (name == "--model") {
            ok = takeText(&options->model);
        } else if (name == "--silence-ms") {
            ok = takeInt(&options->silenceMs);
        } else if (name == "--threshold") {
            ok = takeInt(&options->threshold);
        } else if (name == "--timeout-ms") {
            ok = takeInt(&options->timeoutMs);
        } else if (name == "--mode") {
            if (!takeValue()) return error;
            const ModeEntry* entry = findEntry(kModes, value);
            if (entry == nullptr) {
                return "unknown mode '" + value +
                       "' (partial-command, partial-continuous, buffered-event or buffering)";
            }
            options->mode = entry->mode;
        } else if (name == "--format") {
            if (!takeValue()) return error;
            const FormatEntry* entry = findEntry(kFormats, value);
            if (entry == nullptr) return "unknown format '" + value + "' (text, json, srt or vtt)";
            options->format = entry->format;
        } else {
            return "unknown option '" + name + "' (see voxa --help)";
        }
        if (!ok) return error;
    }

    if (!haveCommand) return "no command given (see voxa --help)";
    if (options->command == Command::Languages && !operands.empty()) {
        return "languages takes no FILE";
    }
    if (options->command == Command::Transcribe) {
        options->files =
                operands.empty() ? std::vector<std::string>{VOXA_DEFAULT_RECORDING} : operands;
        if ((options->format == Format::Srt || options->format == Format::Vtt) &&
            options->files.size() > 1) {
            return "subtitles (--format srt or vtt) are made from one FILE at a time";
        }
    }
    return "";
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
           "                        '-' reads raw PCM in the device format (signed 16-bit\n"
           "                        little-endian, 48 kHz, 2 channels) from standard input.\n"
           "                        Without FILE: a LibriVox recording from pocketsphinx-testdata\n"
           "  languages             list the languages the service knows\n"
           "\n"
           "Options of transcribe:\n"
           "  --lang CODE           spoken language, as `voxa languages` lists it (en-US)\n"
           "  --translate CODE      translate into another language\n"
           "  --diarize             tell the speakers apart\n"
           "  --timestamps          deliver word times (text: shown under each result)\n"
           "  --mode MODE           partial-command, partial-continuous, buffered-event or\n"
           "                        buffering (the default)\n"
           "  --silence-ms N        silence that ends an utterance, in ms (0: the engine's)\n"
           "  --threshold N         lowest confidence of a result, 0 to 100\n"
           "  --timeout-ms N        give up after N ms without speech (0: never)\n"
           "  --realtime            play the audio at its own pace, as a microphone would\n"
           "  --format FORMAT       text, json (one line per event), srt or vtt (subtitles)\n"
           "  --no-progress         no progress bar on a terminal\n"
           "\n"
           "General options:\n"
           "  -v, --verbose         show the service's own log lines\n"
           "  --library PATH        the service library to load (default: the build's)\n"
           "  --model PATH          the engine's model image (default: the build's)\n"
           "  -h, --help            show this text\n"
           "  --version             show the version\n"
           "\n"
           "Exit status: 0 on success, 1 when the work failed, 2 for a usage error, 3 when the\n"
           "recognition engine is busy.\n";
}

}  // namespace voxa_tool
