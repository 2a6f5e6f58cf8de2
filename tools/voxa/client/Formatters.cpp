#include "Formatters.h"

#include <algorithm>
#include <cctype>
#include <cstdint>
#include <cstdio>
#include <deque>

namespace voxa_tool {

using aidl::vendor::orbo::hardware::voxa::SpeakerDiarizationEvent;
using aidl::vendor::orbo::hardware::voxa::VoxaEvent;

namespace {

constexpr size_t kTextWidth = 100;
constexpr size_t kLiveWidth = 79;
constexpr size_t kCueLineLength = 42;
constexpr int64_t kCueMaxMs = 7000;
constexpr int64_t kCueMinMs = 1000;

// A result of either kind of VoxaEvent, times absent from a plain one.
struct Result {
    bool final = false;
    int32_t confidence = 0;
    std::string text;
    std::string auxText;
    std::vector<uint8_t> data;
    std::optional<int64_t> startMs;
    std::optional<int64_t> endMs;
    std::vector<VoxaEvent::Word> words;
};

std::vector<Result> resultsOf(const VoxaEvent& event) {
    std::vector<Result> results;
    for (const auto& plain :
         event.events.value_or(std::vector<std::optional<VoxaEvent::Event>>{})) {
        if (!plain) continue;
        Result result;
        result.final = plain->flag;
        result.confidence = plain->value;
        result.text = plain->text;
        result.auxText = plain->aux_text;
        result.data.assign(plain->data.begin(), plain->data.end());
        results.push_back(std::move(result));
    }
    for (const auto& timed :
         event.timestamp_events.value_or(std::vector<std::optional<VoxaEvent::EventTS>>{})) {
        if (!timed) continue;
        Result result;
        result.final = timed->flag;
        result.confidence = timed->value;
        result.text = timed->text;
        result.auxText = timed->aux_text;
        result.data.assign(timed->data.begin(), timed->data.end());
        result.startMs = timed->start_ts;
        result.endMs = timed->end_ts;
        result.words = timed->words;
        results.push_back(std::move(result));
    }
    return results;
}

// "01:02.345", with hours in front from the first hour on.
std::string clock(int64_t ms, char separator = '.', bool alwaysHours = false) {
    ms = std::max<int64_t>(ms, 0);
    char text[32];
    const auto hours = static_cast<long long>(ms / 3600000);
    const auto minutes = static_cast<long long>(ms / 60000 % 60);
    const auto seconds = static_cast<long long>(ms / 1000 % 60);
    const auto millis = static_cast<long long>(ms % 1000);
    if (hours > 0 || alwaysHours) {
        snprintf(text, sizeof(text), "%02lld:%02lld:%02lld%c%03lld", hours, minutes, seconds,
                 separator, millis);
    } else {
        snprintf(text, sizeof(text), "%02lld:%02lld%c%03lld", minutes, seconds, separator, millis);
    }
    return text;
}

std::string seconds(int64_t ms) {
    char text[32];
    snprintf(text, sizeof(text), "%.2f", static_cast<double>(ms) / 1000.0);
    return text;
}

std::string speakerName(int32_t speaker) {
    return "Speaker " + std::to_string(speaker);
}

std::string jsonText(const std::string& text) {
    std::string escaped = "\"";
    for (unsigned char c : text) {
        if (c == '"' || c == '\\') {
            escaped += '\\';
            escaped += static_cast<char>(c);
        } else if (c == '\n') {
            escaped += "\\n";
        } else if (c < 0x20) {
            char code[8];
            snprintf(code, sizeof(code), "\\u%04x", c);
            escaped += code;
        } else {
            escaped += static_cast<char>(c);
        }
    }
    return escaped + "\"";
}

template <typename Number>
std::string jsonOptional(const std::optional<Number>& value) {
    return value ? std::to_string(*value) : "null";
}

// Checks JSON text against the grammar of RFC 8259, without building anything.
class JsonChecker {
  public:
    explicit JsonChecker(const std::string& text) : mAt(text.c_str()), mEnd(mAt + text.size()) {}

    bool isObject() {
        space();
        if (mAt == mEnd || *mAt != '{' || !value(0)) return false;
        space();
        return mAt == mEnd;
    }

  private:
    static constexpr int kMaxDepth = 64;

    void space() {
        while (mAt != mEnd && (*mAt == ' ' || *mAt == '\t' || *mAt == '\n' || *mAt == '\r')) ++mAt;
    }
    bool take(char c) {
        space();
        if (mAt == mEnd || *mAt != c) return false;
        ++mAt;
        return true;
    }
    bool digits() {
        const char* start = mAt;
        while (mAt != mEnd && *mAt >= '0' && *mAt <= '9') ++mAt;
        return mAt != start;
    }
    bool word(const char* literal) {
        for (; *literal != '\0'; ++literal, ++mAt) {
            if (mAt == mEnd || *mAt != *literal) return false;
        }
        return true;
    }
    bool string() {
        if (!take('"')) return false;
        while (mAt != mEnd && *mAt != '"') {
            if (static_cast<unsigned char>(*mAt) < 0x20) return false;
            if (*mAt++ != '\\') continue;
            if (mAt == mEnd) return false;
            if (*mAt == 'u') {
                for (int i = 0; i < 4; ++i) {
                    if (++mAt == mEnd || !isxdigit(static_cast<unsigned char>(*mAt))) return false;
                }
            } else if (std::string("\"\\/bfnrt").find(*mAt) == std::string::npos) {
                return false;
            }
            ++mAt;
        }
        return take('"');
    }
    bool number() {
        if (mAt != mEnd && *mAt == '-') ++mAt;
        if (mAt != mEnd && *mAt == '0') {
            ++mAt;
        } else if (!digits()) {
            return false;
        }
        if (mAt != mEnd && *mAt == '.' && (++mAt, !digits())) return false;
        if (mAt != mEnd && (*mAt == 'e' || *mAt == 'E')) {
            ++mAt;
            if (mAt != mEnd && (*mAt == '+' || *mAt == '-')) ++mAt;
            if (!digits()) return false;
        }
        return true;
    }
    // A list of items between `open` and `close`; an object's items are "key": value.
    bool items(char open, char close, bool keyed, int depth) {
        if (!take(open)) return false;
        if (take(close)) return true;
        do {
            if (keyed && (!string() || !take(':'))) return false;
            if (!value(depth + 1)) return false;
        } while (take(','));
        return take(close);
    }
    bool value(int depth) {
        space();
        if (mAt == mEnd || depth > kMaxDepth) return false;
        switch (*mAt) {
            case '{':
                return items('{', '}', true, depth);
            case '[':
                return items('[', ']', false, depth);
            case '"':
                return string();
            case 't':
                return word("true");
            case 'f':
                return word("false");
            case 'n':
                return word("null");
            default:
                return number();
        }
    }

    const char* mAt;
    const char* const mEnd;
};

class TextFormatter : public Formatter {
  public:
    TextFormatter(const FormatSettings& settings, std::ostream& out)
        : mSettings(settings), mOut(out) {}

    void beginFile(const std::string& name, size_t, size_t count) override {
        if (count > 1) mOut << (mFiles++ == 0 ? "" : "\n") << "==> " << name << " <==\n";
        mSpeakers = SpeakerTrack();
    }

    void asrEvent(int32_t, const VoxaEvent& event) override {
        for (const Result& result : resultsOf(event)) {
            if (!result.final) {
                if (mSettings.liveTerminal) showPartial(result.text);
                continue;
            }
            clearPartial();
            if (result.text.empty()) continue;
            std::string speaker;
            if (mSettings.diarize && result.startMs) {
                const std::optional<int32_t> found =
                        mSpeakers.speakerOf(*result.startMs, *result.endMs);
                if (found) speaker = speakerName(*found) + ": ";
            }
            if (mSettings.timestamps && result.startMs) {
                mOut << "[" << clock(*result.startMs) << " --> " << clock(*result.endMs) << "] ";
            }
            mOut << speaker << result.text << "\n";
            if (mSettings.timestamps) writeWords(result.words);
        }
        mOut.flush();
    }

    void sdzEvent(int32_t, const SpeakerDiarizationEvent& event) override { mSpeakers.add(event); }

    void endFile() override {
        clearPartial();
        mOut.flush();
    }

  private:
    void writeWords(const std::vector<VoxaEvent::Word>& words) {
        std::string line;
        for (const VoxaEvent::Word& word : words) {
            const std::string item =
                    word.word + " " + seconds(word.start_ts) + "-" + seconds(word.end_ts);
            if (!line.empty() && line.size() + 2 + item.size() > kTextWidth) {
                mOut << line << "\n";
                line.clear();
            }
            line += (line.empty() ? "    " : "  ") + item;
        }
        if (!line.empty()) mOut << line << "\n";
    }

    // The end of `text` that fits the line, cut at a character's first byte.
    void showPartial(const std::string& text) {
        size_t from = text.size() > kLiveWidth ? text.size() - kLiveWidth : 0;
        while (from < text.size() && (static_cast<unsigned char>(text[from]) & 0xc0) == 0x80) {
            ++from;
        }
        mOut << "\r\033[K" << text.substr(from) << std::flush;
        mPartialShown = true;
    }

    void clearPartial() {
        if (mPartialShown) mOut << "\r\033[K";
        mPartialShown = false;
    }

    const FormatSettings mSettings;
    std::ostream& mOut;
    SpeakerTrack mSpeakers;
    bool mPartialShown = false;
    int mFiles = 0;  // begun so far
};

class JsonFormatter : public Formatter {
  public:
    JsonFormatter(const FormatSettings& settings, std::ostream& out)
        : mSettings(settings), mOut(out) {}

    void beginFile(const std::string& name, size_t, size_t) override {
        mFile = jsonText(name);
        mSpeakers = SpeakerTrack();
    }

    void asrEvent(int32_t handle, const VoxaEvent& event) override {
        mOut << "{\"file\":" << mFile << ",\"handle\":" << handle
             << ",\"callback\":\"onAsrEvent\",\"status\":" << event.status << ",\"results\":[";
        const char* separator = "";
        for (const Result& result : resultsOf(event)) {
            std::optional<int32_t> speaker;
            if (mSettings.diarize && result.final && result.startMs) {
                speaker = mSpeakers.speakerOf(*result.startMs, *result.endMs);
            }
            mOut << separator << "{\"final\":" << (result.final ? "true" : "false")
                 << ",\"confidence\":" << result.confidence << ",\"text\":" << jsonText(result.text)
                 << ",\"start_ms\":" << jsonOptional(result.startMs)
                 << ",\"end_ms\":" << jsonOptional(result.endMs) << ",\"words\":[";
            for (size_t i = 0; i < result.words.size(); ++i) {
                const VoxaEvent::Word& word = result.words[i];
                mOut << (i == 0 ? "" : ",") << "{\"word\":" << jsonText(word.word)
                     << ",\"start_ms\":" << word.start_ts << ",\"end_ms\":" << word.end_ts
                     << ",\"confidence\":" << word.value << "}";
            }
            mOut << "],\"speaker\":" << jsonOptional(speaker) << ",\"aux_text\":"
                 << (JsonChecker(result.auxText).isObject() ? result.auxText
                                                            : jsonText(result.auxText))
                 << ",\"data\":[";
            for (size_t i = 0; i < result.data.size(); ++i) {
                mOut << (i == 0 ? "" : ",") << static_cast<int>(result.data[i]);
            }
            mOut << "]}";
            separator = ",";
        }
        mOut << "]}\n" << std::flush;
    }

    void sdzEvent(int32_t handle, const SpeakerDiarizationEvent& event) override {
        mSpeakers.add(event);
        mOut << "{\"file\":" << mFile << ",\"handle\":" << handle
             << ",\"callback\":\"onSdzEvent\",\"speakers\":[";
        const char* separator = "";
        for (const SpeakerDiarizationEvent::Event& entry : event.events) {
            for (const SpeakerDiarizationEvent::SpeakerInfo& speaker : entry.speakers) {
                mOut << separator << "{\"speaker\":" << speaker.value
                     << ",\"start_ms\":" << speaker.start_ts << ",\"end_ms\":" << speaker.end_ts
                     << ",\"final\":" << (entry.flag ? "true" : "false") << "}";
                separator = ",";
            }
        }
        mOut << "]}\n" << std::flush;
    }

  private:
    const FormatSettings mSettings;
    std::ostream& mOut;
    std::string mFile;  // as JSON text
    SpeakerTrack mSpeakers;
};

// SubRip and WebVTT differ in the header, the cue numbers, the decimal separator and voices.
// A cue is written once the next one is known, so that it may last into the silence after it.
class SubtitleFormatter : public Formatter {
  public:
    SubtitleFormatter(const FormatSettings& settings, std::ostream& out)
        : mSettings(settings), mOut(out), mWebVtt(settings.format == Format::Vtt) {}

    void beginFile(const std::string&, size_t, size_t) override {
        if (mWebVtt) mOut << "WEBVTT\n\n";
        mCues = 0;
        mSpeakers = SpeakerTrack();
    }

    void asrEvent(int32_t, const VoxaEvent& event) override {
        for (const Result& result : resultsOf(event)) {
            if (!result.final || !result.startMs || result.words.empty()) continue;
            std::optional<int32_t> speaker;
            if (mSettings.diarize) speaker = mSpeakers.speakerOf(*result.startMs, *result.endMs);
            std::vector<const VoxaEvent::Word*> words;
            for (const VoxaEvent::Word& word : result.words) {
                words.push_back(&word);
                if (words.size() > 1 &&
                    (lines(words).empty() || word.end_ts - words.front()->start_ts > kCueMaxMs)) {
                    words.pop_back();
                    queue(words, speaker);
                    words = {&word};
                }
            }
            queue(words, speaker);
        }
    }

    void sdzEvent(int32_t, const SpeakerDiarizationEvent& event) override { mSpeakers.add(event); }

    void endFile() override {
        if (mPending) write(INT64_MAX);
        mPending.reset();
        mOut.flush();
    }

  private:
    struct Cue {
        int64_t startMs;
        int64_t endMs;
        std::string text;
    };

    // The words on one line of at most kCueLineLength, else on two split where the longer line
    // is shortest; empty when they do not fit. A word longer than a line has one of its own.
    static std::string lines(const std::vector<const VoxaEvent::Word*>& words) {
        std::string best;
        size_t bestLonger = SIZE_MAX;
        for (size_t split = 1; split <= words.size(); ++split) {
            std::string first, second;
            for (size_t i = 0; i < words.size(); ++i) {
                std::string& line = i < split ? first : second;
                line += (line.empty() ? "" : " ") + words[i]->word;
            }
            if (second.size() <= kCueLineLength && first.size() <= kCueLineLength) {
                if (second.empty()) return first;
                const size_t longer = std::max(first.size(), second.size());
                if (longer < bestLonger) {
                    bestLonger = longer;
                    best = first + "\n" + second;
                }
            }
        }
        return words.size() == 1 ? words[0]->word : best;
    }

    void queue(const std::vector<const VoxaEvent::Word*>& words,
               const std::optional<int32_t>& speaker) {
        if (words.empty()) return;
        std::string text = lines(words);
        if (mWebVtt && speaker) text = "<v " + speakerName(*speaker) + ">" + text;
        const Cue cue{words.front()->start_ts, words.back()->end_ts, text};
        if (mPending) write(std::max(mPending->startMs, cue.startMs));
        mPending = cue;
    }

    // Writes the pending cue, lasting at least kCueMinMs where it may last until `limitMs`.
    void write(int64_t limitMs) {
        const Cue& cue = *mPending;
        const int64_t endMs = std::min(std::max(cue.endMs, cue.startMs + kCueMinMs), limitMs);
        const char separator = mWebVtt ? '.' : ',';
        ++mCues;
        if (!mWebVtt) mOut << mCues << "\n";
        mOut << clock(cue.startMs, separator, true) << " --> " << clock(endMs, separator, true)
             << "\n"
             << cue.text << "\n\n";
    }

    const FormatSettings mSettings;
    std::ostream& mOut;
    const bool mWebVtt;
    int mCues = 0;
    std::optional<Cue> mPending;
    SpeakerTrack mSpeakers;
};

// Holds final results that no diarization event has labelled yet until one comes, or the input
// ends, so that the formatter behind it can name their speakers.
class SpeakerWait : public Formatter {
  public:
    explicit SpeakerWait(std::unique_ptr<Formatter> formatter) : mFormatter(std::move(formatter)) {}

    void beginFile(const std::string& name, size_t index, size_t count) override {
        mSpeakers = SpeakerTrack();
        mFormatter->beginFile(name, index, count);
    }

    void asrEvent(int32_t handle, const VoxaEvent& event) override {
        bool labelled = mHeld.empty();
        for (const Result& result : resultsOf(event)) {
            if (result.final && result.startMs &&
                !mSpeakers.speakerOf(*result.startMs, *result.endMs)) {
                labelled = false;
            }
        }
        if (labelled) {
            mFormatter->asrEvent(handle, event);
        } else {
            mHeld.emplace_back(handle, event);
        }
    }

    void sdzEvent(int32_t handle, const SpeakerDiarizationEvent& event) override {
        mSpeakers.add(event);
        mFormatter->sdzEvent(handle, event);
        release();
    }

    void endFile() override {
        release();
        mFormatter->endFile();
    }

  private:
    void release() {
        for (const auto& [handle, event] : mHeld) mFormatter->asrEvent(handle, event);
        mHeld.clear();
    }

    const std::unique_ptr<Formatter> mFormatter;
    SpeakerTrack mSpeakers;
    std::deque<std::pair<int32_t, VoxaEvent>> mHeld;
};

}  // namespace

void SpeakerTrack::add(const SpeakerDiarizationEvent& event) {
    for (const SpeakerDiarizationEvent::Event& entry : event.events) {
        mSegments.insert(mSegments.end(), entry.speakers.begin(), entry.speakers.end());
    }
}

std::optional<int32_t> SpeakerTrack::speakerOf(int64_t startMs, int64_t endMs) const {
    std::optional<int32_t> best;
    int64_t bestOverlap = -1;
    for (const SpeakerDiarizationEvent::SpeakerInfo& segment : mSegments) {
        const int64_t overlap =
                std::min(endMs, segment.end_ts) - std::max(startMs, segment.start_ts);
        if (overlap >= 0 && overlap > bestOverlap) {
            bestOverlap = overlap;
            best = segment.value;
        }
    }
    return best;
}

std::unique_ptr<Formatter> makeFormatter(const FormatSettings& settings, std::ostream& out) {
    std::unique_ptr<Formatter> formatter;
    switch (settings.format) {
        case Format::Json:
            formatter = std::make_unique<JsonFormatter>(settings, out);
            break;
        case Format::Srt:
        case Format::Vtt:
            formatter = std::make_unique<SubtitleFormatter>(settings, out);
            break;
        case Format::Text:
            formatter = std::make_unique<TextFormatter>(settings, out);
            break;
    }
    if (settings.diarize) return std::make_unique<SpeakerWait>(std::move(formatter));
    return formatter;
}

}  // namespace voxa_tool
