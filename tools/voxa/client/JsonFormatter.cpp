#include "JsonFormatter.h"

#include <cstdio>

#include "JsonChecker.h"

namespace voxa_tool {

namespace {

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

}  // namespace

void JsonFormatter::beginFile(const std::string& name, size_t, size_t) {
    mFile = jsonText(name);
    forgetSpeakers();
}

void JsonFormatter::asrEvent(int32_t handle, const VoxaEvent& event) {
    mOut << "{\"file\":" << mFile << ",\"handle\":" << handle
         << ",\"callback\":\"onAsrEvent\",\"status\":" << event.status << ",\"results\":[";
    const char* separator = "";
    for (const Result& result : resultsOf(event)) {
        std::optional<int32_t> speaker;
        if (mSettings.diarize && result.final && result.startMs) {
            speaker = speakerOf(*result.startMs, *result.endMs);
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
             << (JsonChecker(result.auxText).isObject() ? result.auxText : jsonText(result.auxText))
             << ",\"data\":[";
        for (size_t i = 0; i < result.data.size(); ++i) {
            mOut << (i == 0 ? "" : ",") << static_cast<int>(result.data[i]);
        }
        mOut << "]}";
        separator = ",";
    }
    mOut << "]}\n" << std::flush;
}

void JsonFormatter::sdzEvent(int32_t handle, const SpeakerDiarizationEvent& event) {
    Formatter::sdzEvent(handle, event);
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

}  // namespace voxa_tool
