#include "Formatter.h"

#include <algorithm>
#include <cstdio>

#include "JsonFormatter.h"
#include "SpeakerWait.h"
#include "SubtitleFormatter.h"
#include "TextFormatter.h"

namespace voxa_tool {

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

void Formatter::sdzEvent(int32_t, const SpeakerDiarizationEvent& event) {
    mSpeakers.add(event);
}

namespace {

// What the two kinds of result share.
template <typename Event>
Result resultOf(const Event& event) {
    Result result;
    result.final = event.flag;
    result.confidence = event.value;
    result.text = event.text;
    result.auxText = event.aux_text;
    result.data.assign(event.data.begin(), event.data.end());
    return result;
}

}  // namespace

std::vector<Result> resultsOf(const VoxaEvent& event) {
    std::vector<Result> results;
    for (const auto& plain :
         event.events.value_or(std::vector<std::optional<VoxaEvent::Event>>{})) {
        if (plain) results.push_back(resultOf(*plain));
    }
    for (const auto& timed :
         event.timestamp_events.value_or(std::vector<std::optional<VoxaEvent::EventTS>>{})) {
        if (!timed) continue;
        Result result = resultOf(*timed);
        result.startMs = timed->start_ts;
        result.endMs = timed->end_ts;
        result.words = timed->words;
        results.push_back(std::move(result));
    }
    return results;
}

std::string clockTime(int64_t ms, char separator, bool alwaysHours) {
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

std::string secondsText(int64_t ms) {
    char text[32];
    snprintf(text, sizeof(text), "%.2f", static_cast<double>(ms) / 1000.0);
    return text;
}

std::string speakerName(int32_t speaker) {
    return "Speaker " + std::to_string(speaker);
}

std::string markedWord(const VoxaEvent::Word& word, const FormatSettings& settings) {
    return word.value < settings.markBelow ? "[" + word.word + "]" : word.word;
}

}  // namespace voxa_tool
