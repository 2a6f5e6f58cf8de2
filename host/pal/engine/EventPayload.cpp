#include "EventPayload.h"

#include <pal/pal_types.h>

#include <algorithm>
#include <cstdio>
#include <cstring>

namespace pal_engine {

namespace {

// The language the recogniser hears.
constexpr char kRecognisedLanguage[] = "en-US";

// Payload of `bytes` bytes, zeroed.
Event makeEvent(uint32_t id, size_t bytes) {
    Event event;
    event.id = id;
    event.size = static_cast<uint32_t>(bytes);
    event.storage.assign((bytes + sizeof(uint64_t) - 1) / sizeof(uint64_t), 0);
    return event;
}

void appendQuoted(std::string* json, const std::string& text) {
    *json += '"';
    for (unsigned char c : text) {
        if (c == '"' || c == '\\') {
            *json += '\\';
            *json += static_cast<char>(c);
        } else if (c < 0x20) {
            char escaped[8];
            std::snprintf(escaped, sizeof(escaped), "\\u%04x", c);
            *json += escaped;
        } else {
            *json += static_cast<char>(c);
        }
    }
    *json += '"';
}

// The text as the text field holds it, so that the JSON never says more than the field.
std::string fieldText(const std::string& text) {
    char field[PAL_ASR_TEXT_SIZE];
    copyText(field, sizeof(field), text);
    return field;
}

}  // namespace

const char* toString(Ending ending) {
    switch (ending) {
        case Ending::Silence:
            return "silence";
        case Ending::Forced:
            return "forced";
        case Ending::TimeOut:
            return "timeout";
        case Ending::EndOfAudio:
            return "end_of_audio";
        case Ending::MaxDuration:
            return "max_duration";
        case Ending::SpeakerChange:
            return "speaker_change";
    }
    return "unknown";
}

void copyText(char* field, size_t size, const std::string& text) {
    size_t length = std::min(text.size(), size - 1);
    // Step back over continuation bytes so that no character is cut in two.
    if (length < text.size()) {
        while (length > 0 && (static_cast<unsigned char>(text[length]) & 0xC0) == 0x80) {
            --length;
        }
    }
    std::memcpy(field, text.data(), length);
    field[length] = '\0';
}

std::string finalJson(const Result& result, Ending ending, size_t limit,
                      const Translation* translation) {
    const bool translated = translation != nullptr && translation->error == nullptr;
    std::string json = "{\"final\":true,\"reason\":";
    appendQuoted(&json, toString(ending));
    json += ",\"language\":";
    appendQuoted(&json, translated ? translation->language : kRecognisedLanguage);
    json += ",\"text\":";
    appendQuoted(&json, fieldText(translated ? translation->text : result.text));
    if (translated) {
        json += ",\"original\":{\"language\":";
        appendQuoted(&json, kRecognisedLanguage);
        json += ",\"text\":";
        appendQuoted(&json, fieldText(result.text));
        json += "}";
    } else if (translation != nullptr) {
        json += ",\"translation_error\":";
        appendQuoted(&json, translation->error);
    }
    json += ",\"confidence\":" + std::to_string(result.confidence);
    json += ",\"start_ms\":" + std::to_string(result.startMs);
    json += ",\"end_ms\":" + std::to_string(result.endMs);
    json += ",\"words\":[";
    const std::string truncated = "],\"words_truncated\":true}";
    bool complete = true;
    for (size_t i = 0; i < result.words.size(); ++i) {
        const Word& word = result.words[i];
        std::string item = i == 0 ? "{\"word\":" : ",{\"word\":";
        appendQuoted(&item, word.text);
        item += ",\"start_ms\":" + std::to_string(word.startMs);
        item += ",\"end_ms\":" + std::to_string(word.endMs);
        item += ",\"confidence\":" + std::to_string(word.confidence) + "}";
        if (json.size() + item.size() + truncated.size() > limit) {
            complete = false;
            break;
        }
        json += item;
    }
    json += complete ? "]}" : truncated;
    return json;
}

Event makePartialEvent(const std::string& hypothesis) {
    Event event = makeEvent(kPlainEventId, sizeof(pal_asr_event) + sizeof(pal_asr_result));
    auto* payload = reinterpret_cast<pal_asr_event*>(event.storage.data());
    payload->num_events = 1;
    pal_asr_result& item = payload->event[0];
    copyText(item.text, sizeof(item.text), hypothesis);
    std::string json = "{\"final\":false,\"text\":";
    appendQuoted(&json, fieldText(hypothesis));
    json += "}";
    copyText(item.aux_text, sizeof(item.aux_text), json);
    return event;
}

Event makeFinalEvent(const Result& result, Ending ending, bool timestamps,
                     const Translation* translation) {
    const std::string& text = translation != nullptr && translation->error == nullptr
                                      ? translation->text
                                      : result.text;
    if (!timestamps) {
        Event event = makeEvent(kPlainEventId, sizeof(pal_asr_event) + sizeof(pal_asr_result));
        auto* payload = reinterpret_cast<pal_asr_event*>(event.storage.data());
        payload->num_events = 1;
        pal_asr_result& item = payload->event[0];
        item.flag = 1;
        item.value = result.confidence;
        copyText(item.text, sizeof(item.text), text);
        copyText(item.aux_text, sizeof(item.aux_text),
                 finalJson(result, ending, sizeof(item.aux_text) - 1, translation));
        return event;
    }
    Event event = makeEvent(PAL_ASR_EVENT_ID_TIMESTAMP,
                            sizeof(pal_asr_ts_event) + sizeof(pal_asr_ts_result));
    auto* payload = reinterpret_cast<pal_asr_ts_event*>(event.storage.data());
    payload->num_events = 1;
    pal_asr_ts_result& item = payload->event[0];
    item.flag = 1;
    item.value = result.confidence;
    copyText(item.text, sizeof(item.text), text);
    item.start_ts = result.startMs;
    item.end_ts = result.endMs;
    size_t count = std::min<size_t>(result.words.size(), PAL_ASR_MAX_WORDS);
    item.word_count = static_cast<int32_t>(count);
    for (size_t i = 0; i < count; ++i) {
        pal_asr_word& slot = item.words[i];
        slot.value = result.words[i].confidence;
        copyText(slot.word, sizeof(slot.word), result.words[i].text);
        slot.start_ts = result.words[i].startMs;
        slot.end_ts = result.words[i].endMs;
    }
    copyText(item.aux_text, sizeof(item.aux_text),
             finalJson(result, ending, sizeof(item.aux_text) - 1, translation));
    return event;
}

Event makeDiarizationEvent(const std::vector<SpeakerTurn>& turns) {
    Event event = makeEvent(PAL_ASR_EVENT_ID_SPEAKER_DIARIZATION,
                            sizeof(pal_sdz_event) + sizeof(pal_sdz_result) +
                                    turns.size() * sizeof(pal_sdz_speaker));
    auto* payload = reinterpret_cast<pal_sdz_event*>(event.storage.data());
    payload->num_events = 1;
    pal_sdz_result& result = payload->event[0];
    result.speaker_count = static_cast<uint32_t>(turns.size());
    result.flag = 1;
    for (size_t i = 0; i < turns.size(); ++i) {
        pal_sdz_speaker& speaker = result.speakers[i];
        speaker.value = turns[i].speaker;
        speaker.start_ts = turns[i].span.startMs;
        speaker.end_ts = turns[i].span.endMs;
    }
    return event;
}

}  // namespace pal_engine
