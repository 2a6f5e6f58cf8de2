#include "Formatters.h"

#include <cstdio>
#include <optional>
#include <vector>

namespace voxa_tool {

using aidl::vendor::orbo::hardware::voxa::SpeakerDiarizationEvent;
using aidl::vendor::orbo::hardware::voxa::VoxaEvent;

namespace {

constexpr size_t kTextWidth = 100;
constexpr size_t kCueLineLength = 42;
constexpr int64_t kCueMaxMs = 7000;

// "01:02.345", with hours in front from the first hour on.
std::string clock(int64_t ms, char separator = '.', bool alwaysHours = false) {
    if (ms < 0) ms = 0;
    const int64_t hours = ms / 3600000;
    const int64_t minutes = ms / 60000 % 60;
    const int64_t seconds = ms / 1000 % 60;
    const int64_t millis = ms % 1000;
    char text[32];
    if (hours > 0 || alwaysHours) {
        snprintf(text, sizeof(text), "%02lld:%02lld:%02lld%c%03lld", static_cast<long long>(hours),
                 static_cast<long long>(minutes), static_cast<long long>(seconds), separator,
                 static_cast<long long>(millis));
    } else {
        snprintf(text, sizeof(text), "%02lld:%02lld%c%03lld", static_cast<long long>(minutes),
                 static_cast<long long>(seconds), separator, static_cast<long long>(millis));
    }
    return text;
}

std::string seconds(int64_t ms) {
    char text[32];
    snprintf(text, sizeof(text), "%.2f", static_cast<double>(ms) / 1000.0);
    return text;
}

// `text` escaped for a JSON string, without the quotes.
std::string jsonEscape(const std::string& text) {
    std::string escaped;
    for (unsigned char c : text) {
        switch (c) {
            case '"':
                escaped += "\\\"";
                break;
            case '\\':
                escaped += "\\\\";
                break;
            case '\n':
                escaped += "\\n";
                break;
            case '\r':
                escaped += "\\r";
                break;
            case '\t':
                escaped += "\\t";
                break;
            default:
                if (c < 0x20) {
                    char code[8];
                    snprintf(code, sizeof(code), "\\u%04x", c);
                    escaped += code;
                } else {
                    escaped += static_cast<char>(c);
                }
        }
    }
    return escaped;
}

template <typename T>
std::string jsonBytes(const std::vector<T>& bytes) {
    std::string text = "[";
    for (size_t i = 0; i < bytes.size(); ++i) {
        text += (i == 0 ? "" : ",") + std::to_string(static_cast<int>(bytes[i]));
    }
    return text + "]";
}

std::string jsonText(const std::string& text) {
    return "\"" + jsonEscape(text) + "\"";
}

std::string jsonBool(bool value) {
    return value ? "true" : "false";
}

class TextFormatter : public Formatter {
  public:
    explicit TextFormatter(std::ostream& out) : mOut(out) {}

    void beginFile(const std::string& file, size_t index, size_t count) override {
        if (count < 2) return;
        mOut << (index == 0 ? "" : "\n") << "==> " << file << " <==\n";
    }

    void asrEvent(int32_t, const VoxaEvent& event) override {
        for (const auto& result :
             event.events.value_or(std::vector<std::optional<VoxaEvent::Event>>{})) {
            if (result && result->flag && !result->text.empty()) mOut << result->text << "\n";
        }
        for (const auto& result :
             event.timestamp_events.value_or(std::vector<std::optional<VoxaEvent::EventTS>>{})) {
            if (result && result->flag && !result->text.empty()) writeTimed(*result);
        }
        mOut.flush();
    }

    void sdzEvent(int32_t, const SpeakerDiarizationEvent& event) override {
        for (const SpeakerDiarizationEvent::Event& result : event.events) {
            for (const SpeakerDiarizationEvent::SpeakerInfo& speaker : result.speakers) {
                mOut << "[" << clock(speaker.start_ts) << " --> " << clock(speaker.end_ts)
                     << "] speaker " << speaker.value << "\n";
            }
        }
        mOut.flush();
    }

  private:
    void writeTimed(const VoxaEvent::EventTS& result) {
        mOut << "[" << clock(result.start_ts) << " --> " << clock(result.end_ts) << "] "
             << result.text << "\n";
        std::string line;
        for (const VoxaEvent::Word& word : result.words) {
            std::string item =
                    word.word + " " + seconds(word.start_ts) + "-" + seconds(word.end_ts);
            if (!line.empty() && line.size() + 2 + item.size() > kTextWidth) {
                mOut << line << "\n";
                line.clear();
            }
            line += (line.empty() ? "    " : "  ") + item;
        }
        if (!line.empty()) mOut << line << "\n";
    }

    std::ostream& mOut;
};

class JsonFormatter : public Formatter {
  public:
    explicit JsonFormatter(std::ostream& out) : mOut(out) {}

    void beginFile(const std::string& file, size_t, size_t) override { mFile = file; }

    void asrEvent(int32_t handle, const VoxaEvent& event) override {
        mOut << "{\"file\":" << jsonText(mFile) << ",\"handle\":" << handle
             << ",\"callback\":\"onAsrEvent\",\"status\":" << event.status << ",\"events\":";
        writeList(event.events, [this](const VoxaEvent::Event& result) {
            mOut << "{\"flag\":" << jsonBool(result.flag) << ",\"value\":" << result.value
                 << ",\"text\":" << jsonText(result.text)
                 << ",\"aux_text\":" << jsonText(result.aux_text)
                 << ",\"data\":" << jsonBytes(result.data) << "}";
        });
        mOut << ",\"timestamp_events\":";
        writeList(event.timestamp_events, [this](const VoxaEvent::EventTS& result) {
            mOut << "{\"flag\":" << jsonBool(result.flag) << ",\"value\":" << result.value
                 << ",\"text\":" << jsonText(result.text)
                 << ",\"aux_text\":" << jsonText(result.aux_text)
                 << ",\"start_ts\":" << result.start_ts << ",\"end_ts\":" << result.end_ts
                 << ",\"word_count\":" << result.word_count << ",\"words\":[";
            for (size_t i = 0; i < result.words.size(); ++i) {
                const VoxaEvent::Word& word = result.words[i];
                mOut << (i == 0 ? "" : ",") << "{\"value\":" << word.value
                     << ",\"start_ts\":" << word.start_ts << ",\"end_ts\":" << word.end_ts
                     << ",\"word\":" << jsonText(word.word) << "}";
            }
            mOut << "],\"data\":" << jsonBytes(result.data) << "}";
        });
        mOut << "}\n";
        mOut.flush();
    }

    void sdzEvent(int32_t handle, const SpeakerDiarizationEvent& event) override {
        mOut << "{\"file\":" << jsonText(mFile) << ",\"handle\":" << handle
             << ",\"callback\":\"onSdzEvent\",\"events\":[";
        for (size_t i = 0; i < event.events.size(); ++i) {
            const SpeakerDiarizationEvent::Event& result = event.events[i];
            mOut << (i == 0 ? "" : ",") << "{\"speaker_count\":" << result.speaker_count
                 << ",\"flag\":" << jsonBool(result.flag) << ",\"speakers\":[";
            for (size_t s = 0; s < result.speakers.size(); ++s) {
                const SpeakerDiarizationEvent::SpeakerInfo& speaker = result.speakers[s];
                mOut << (s == 0 ? "" : ",") << "{\"value\":" << speaker.value
                     << ",\"start_ts\":" << speaker.start_ts << ",\"end_ts\":" << speaker.end_ts
                     << "}";
            }
            mOut << "],\"data\":" << jsonBytes(result.data) << "}";
        }
        mOut << "]}\n";
        mOut.flush();
    }

  private:
    // A nullable list of nullable records: null, or [element or null, ...].
    template <typename T, typename Write>
    void writeList(const std::optional<std::vector<std::optional<T>>>& list, Write write) {
        if (!list) {
            mOut << "null";
            return;
        }
        mOut << "[";
        for (size_t i = 0; i < list->size(); ++i) {
            if (i != 0) mOut << ",";
            if ((*list)[i]) {
                write(*(*list)[i]);
            } else {
                mOut << "null";
            }
        }
        mOut << "]";
    }

    std::ostream& mOut;
    std::string mFile;
};

// SubRip and WebVTT differ only in the header, the cue numbers and the decimal separator.
class SubtitleFormatter : public Formatter {
  public:
    SubtitleFormatter(std::ostream& out, bool webVtt) : mOut(out), mWebVtt(webVtt) {}

    void beginFile(const std::string&, size_t index, size_t) override {
        if (mWebVtt && index == 0) mOut << "WEBVTT\n\n";
    }

    void asrEvent(int32_t, const VoxaEvent& event) override {
        if (!event.timestamp_events) return;
        for (const auto& result : *event.timestamp_events) {
            if (!result || !result->flag) continue;
            std::vector<const VoxaEvent::Word*> cue;
            size_t length = 0;
            for (const VoxaEvent::Word& word : result->words) {
                const bool full =
                        !cue.empty() && (length + 1 + word.word.size() > 2 * kCueLineLength ||
                                         word.end_ts - cue.front()->start_ts > kCueMaxMs);
                if (full) {
                    writeCue(cue);
                    cue.clear();
                    length = 0;
                }
                length += (cue.empty() ? 0 : 1) + word.word.size();
                cue.push_back(&word);
            }
            if (!cue.empty()) writeCue(cue);
        }
        mOut.flush();
    }

    void sdzEvent(int32_t, const SpeakerDiarizationEvent&) override {}

  private:
    void writeCue(const std::vector<const VoxaEvent::Word*>& words) {
        std::string text;
        for (const VoxaEvent::Word* word : words) {
            text += (text.empty() ? "" : " ") + word->word;
        }
        if (text.size() > kCueLineLength) {
            // Break at the blank nearest the middle, for two lines of similar length.
            size_t middle = text.size() / 2;
            size_t before = text.rfind(' ', middle);
            size_t after = text.find(' ', middle);
            size_t split = before == std::string::npos ? after
                           : after == std::string::npos
                                   ? before
                                   : (middle - before <= after - middle ? before : after);
            if (split != std::string::npos) text[split] = '\n';
        }
        const char separator = mWebVtt ? '.' : ',';
        ++mCues;
        if (!mWebVtt) mOut << mCues << "\n";
        mOut << clock(words.front()->start_ts, separator, true) << " --> "
             << clock(words.back()->end_ts, separator, true) << "\n"
             << text << "\n\n";
    }

    std::ostream& mOut;
    const bool mWebVtt;
    int mCues = 0;
};

}  // namespace

std::unique_ptr<Formatter> makeFormatter(Format format, std::ostream& out) {
    switch (format) {
        case Format::Json:
            return std::make_unique<JsonFormatter>(out);
        case Format::Srt:
            return std::make_unique<SubtitleFormatter>(out, false);
        case Format::Vtt:
            return std::make_unique<SubtitleFormatter>(out, true);
        case Format::Text:
            break;
    }
    return std::make_unique<TextFormatter>(out);
}

}  // namespace voxa_tool
