#include "Scenario.h"

#include <pal/pal_types.h>

#include <cstring>
#include <limits>
#include <map>
#include <utility>

#include "Fields.h"
#include "Json.h"

namespace pal_scripted {

namespace {

constexpr int64_t kInt32Min = std::numeric_limits<int32_t>::min();
constexpr int64_t kInt32Max = std::numeric_limits<int32_t>::max();
constexpr int64_t kUint32Max = std::numeric_limits<uint32_t>::max();
constexpr int64_t kInt64Min = std::numeric_limits<int64_t>::min();
constexpr int64_t kInt64Max = std::numeric_limits<int64_t>::max();
constexpr int64_t kLongestWaitMs = 60 * 60 * 1000;
constexpr int64_t kDefaultTimeoutMs = 10 * 1000;
constexpr size_t kMaxDataBytes = 4096;
constexpr size_t kMaxSpeakers = 64;

const std::map<std::string, uint32_t>& functionsByName() {
    static const std::map<std::string, uint32_t> functions = [] {
        std::map<std::string, uint32_t> names;
        for (uint32_t i = 0; i < kFunctionCount; ++i) {
            names[toString(static_cast<Function>(i))] = i;
        }
        return names;
    }();
    return functions;
}

const std::map<std::string, uint32_t>& paramsByName() {
    static const std::map<std::string, uint32_t> params = {
            {"resources_available", PAL_PARAM_ID_RESOURCES_AVAILABLE},
            {"model", PAL_PARAM_ID_ASR_MODEL},
            {"config", PAL_PARAM_ID_ASR_CONFIG},
            {"custom", PAL_PARAM_ID_ASR_CUSTOM},
            {"force_output", PAL_PARAM_ID_ASR_FORCE_OUTPUT}};
    return params;
}

// A zeroed payload of `size` bytes that fields are written into at their offsets.
class Payload {
  public:
    explicit Payload(size_t size) : mStorage((size + 7) / 8, 0), mSize(size) {}

    template <typename T>
    void put(size_t offset, T value) {
        std::memcpy(bytes() + offset, &value, sizeof(value));
    }
    void text(size_t offset, const std::string& text) {
        std::memcpy(bytes() + offset, text.data(), text.size());
    }
    void data(size_t offset, const std::vector<uint8_t>& data) {
        if (!data.empty()) std::memcpy(bytes() + offset, data.data(), data.size());
    }

    void moveTo(Step* step) {
        step->payload = std::move(mStorage);
        step->payloadSize = static_cast<uint32_t>(mSize);
    }

  private:
    uint8_t* bytes() { return reinterpret_cast<uint8_t*>(mStorage.data()); }

    std::vector<uint64_t> mStorage;
    size_t mSize;
};

// What every result shares, written at the offsets of its item.
struct Result {
    bool final = true;
    int32_t confidence = 0;
    std::string text;
    std::string auxText;
    uint32_t status = 0;
    std::vector<uint8_t> data;

    bool read(Fields& fields) {
        return fields.boolean("final", &final) && fields.integer("confidence", &confidence) &&
               fields.text("text", PAL_ASR_TEXT_SIZE, &text) &&
               fields.text("aux_text", PAL_ASR_AUX_TEXT_SIZE, &auxText) &&
               fields.integer("status", &status) && fields.bytes("data", kMaxDataBytes, &data);
    }
};

// "stream" and "timeout_ms" of an event.
bool readTarget(Fields& fields, Step* step) {
    int64_t stream = 0, timeout = kDefaultTimeoutMs;
    if (!fields.integer("stream", 1, kInt32Max, &stream) ||
        !fields.integer("timeout_ms", 1, kLongestWaitMs, &timeout)) {
        return false;
    }
    step->stream = static_cast<int>(stream);
    step->duration = std::chrono::milliseconds(timeout);
    return true;
}

bool readResult(Fields& fields, Step* step) {
    Result result;
    int64_t eventId = 0;
    if (!result.read(fields) || !readTarget(fields, step) ||
        !fields.integer("event_id", 0, kUint32Max, &eventId)) {
        return false;
    }
    if (eventId == PAL_ASR_EVENT_ID_TIMESTAMP || eventId == PAL_ASR_EVENT_ID_SPEAKER_DIARIZATION) {
        fields.error = "\"event_id\" of a plain result must not be 1 or 2";
        return false;
    }
    constexpr size_t item = offsetof(pal_asr_event, event);
    Payload payload(item + sizeof(pal_asr_result) + result.data.size());
    payload.put<uint32_t>(offsetof(pal_asr_event, status), result.status);
    payload.put<uint32_t>(offsetof(pal_asr_event, num_events), 1);
    payload.put<uint8_t>(item + offsetof(pal_asr_result, flag), result.final ? 1 : 0);
    payload.put<int32_t>(item + offsetof(pal_asr_result, value), result.confidence);
    payload.text(item + offsetof(pal_asr_result, text), result.text);
    payload.text(item + offsetof(pal_asr_result, aux_text), result.auxText);
    payload.put<uint32_t>(item + offsetof(pal_asr_result, data_size),
                          static_cast<uint32_t>(result.data.size()));
    payload.data(item + offsetof(pal_asr_result, data), result.data);
    payload.moveTo(step);
    step->eventId = static_cast<uint32_t>(eventId);
    return true;
}

bool readTimedResult(Fields& fields, Step* step) {
    Result result;
    int64_t start = 0, end = 0;
    std::vector<pal_asr_word> words;
    auto readWord = [&words](Fields& word) {
        pal_asr_word slot{};
        std::string text;
        if (!word.require("word") || !word.text("word", PAL_ASR_WORD_SIZE, &text) ||
            !word.integer("start_ms", &slot.start_ts) || !word.integer("end_ms", &slot.end_ts) ||
            !word.integer("confidence", &slot.value) || !word.ordered(slot.start_ts, slot.end_ts)) {
            return false;
        }
        std::memcpy(slot.word, text.data(), text.size());
        words.push_back(slot);
        return true;
    };
    if (!result.read(fields) || !readTarget(fields, step) ||
        !fields.integer("start_ms", kInt64Min, kInt64Max, &start) ||
        !fields.integer("end_ms", kInt64Min, kInt64Max, &end) || !fields.ordered(start, end) ||
        !fields.objects("words", PAL_ASR_MAX_WORDS, readWord)) {
        return false;
    }
    // The service reads as many slots as the count says: more than the slots there are would
    // read past the payload.
    int64_t wordCount = static_cast<int64_t>(words.size());
    if (!fields.integer("word_count", kInt32Min, PAL_ASR_MAX_WORDS, &wordCount)) return false;

    constexpr size_t item = offsetof(pal_asr_ts_event, event);
    Payload payload(item + sizeof(pal_asr_ts_result) + result.data.size());
    payload.put<uint32_t>(offsetof(pal_asr_ts_event, status), result.status);
    payload.put<uint32_t>(offsetof(pal_asr_ts_event, num_events), 1);
    payload.put<uint8_t>(item + offsetof(pal_asr_ts_result, flag), result.final ? 1 : 0);
    payload.put<int32_t>(item + offsetof(pal_asr_ts_result, value), result.confidence);
    payload.text(item + offsetof(pal_asr_ts_result, text), result.text);
    payload.put<int64_t>(item + offsetof(pal_asr_ts_result, start_ts), start);
    payload.put<int64_t>(item + offsetof(pal_asr_ts_result, end_ts), end);
    payload.put<int32_t>(item + offsetof(pal_asr_ts_result, word_count),
                         static_cast<int32_t>(wordCount));
    for (size_t i = 0; i < words.size(); ++i) {
        payload.put(item + offsetof(pal_asr_ts_result, words) + i * sizeof(pal_asr_word), words[i]);
    }
    payload.text(item + offsetof(pal_asr_ts_result, aux_text), result.auxText);
    payload.put<uint32_t>(item + offsetof(pal_asr_ts_result, data_size),
                          static_cast<uint32_t>(result.data.size()));
    payload.data(item + offsetof(pal_asr_ts_result, data), result.data);
    payload.moveTo(step);
    step->eventId = PAL_ASR_EVENT_ID_TIMESTAMP;
    return true;
}

bool readSpeakers(Fields& fields, Step* step) {
    uint32_t flag = 0;
    std::vector<pal_sdz_speaker> speakers;
    auto readSpeaker = [&speakers](Fields& speaker) {
        pal_sdz_speaker record{};
        if (!speaker.require("speaker") || !speaker.integer("speaker", &record.value) ||
            !speaker.integer("start_ms", &record.start_ts) ||
            !speaker.integer("end_ms", &record.end_ts) ||
            !speaker.ordered(record.start_ts, record.end_ts)) {
            return false;
        }
        speakers.push_back(record);
        return true;
    };
    if (!fields.require("speakers") || !fields.objects("speakers", kMaxSpeakers, readSpeaker) ||
        !fields.integer("flag", &flag) || !readTarget(fields, step)) {
        return false;
    }
    // The service reads as many records as the count says, so it may only be smaller.
    int64_t count = static_cast<int64_t>(speakers.size());
    if (!fields.integer("speaker_count", 0, count, &count)) return false;

    constexpr size_t entry = offsetof(pal_sdz_event, event);
    Payload payload(entry + sizeof(pal_sdz_result) + speakers.size() * sizeof(pal_sdz_speaker));
    payload.put<uint32_t>(offsetof(pal_sdz_event, num_events), 1);
    payload.put<uint32_t>(entry + offsetof(pal_sdz_result, speaker_count),
                          static_cast<uint32_t>(count));
    payload.put<uint32_t>(entry + offsetof(pal_sdz_result, flag), flag);
    for (size_t i = 0; i < speakers.size(); ++i) {
        payload.put(entry + offsetof(pal_sdz_result, speakers) + i * sizeof(pal_sdz_speaker),
                    speakers[i]);
    }
    payload.moveTo(step);
    step->eventId = PAL_ASR_EVENT_ID_SPEAKER_DIARIZATION;
    return true;
}

// "call" and "param" of a reply or an await.
bool readCall(Fields& fields, Step* step) {
    uint32_t function = 0;
    if (!fields.require("call") || !fields.name("call", functionsByName(), false, &function)) {
        return false;
    }
    step->call = static_cast<Function>(function);
    if (fields.has("param") && step->call != Function::StreamSetParam &&
        step->call != Function::SetParam) {
        fields.error = std::string("\"param\" does not apply to ") + toString(step->call);
        return false;
    }
    return fields.name("param", paramsByName(), true, &step->param);
}

bool readStep(Fields& fields, const std::string& kind, Step* step) {
    int64_t value = 0;
    if (kind == "reply") {
        step->kind = Step::Kind::Reply;
        value = 1;
        if (!readCall(fields, step) || !fields.require("status") ||
            !fields.integer("status", &step->status) ||
            !fields.integer("times", 1, kInt32Max, &value)) {
            return false;
        }
        step->times = static_cast<int>(value);
        return true;
    }
    if (kind == "await") {
        step->kind = Step::Kind::Await;
        value = kDefaultTimeoutMs;
        if (!readCall(fields, step) || !fields.integer("timeout_ms", 1, kLongestWaitMs, &value)) {
            return false;
        }
        step->duration = std::chrono::milliseconds(value);
        return true;
    }
    if (kind == "delay") {
        step->kind = Step::Kind::Delay;
        if (!fields.require("ms") || !fields.integer("ms", 0, kLongestWaitMs, &value)) {
            return false;
        }
        step->duration = std::chrono::milliseconds(value);
        return true;
    }
    if (kind == "resources_available") {
        step->kind = Step::Kind::ResourcesAvailable;
        return true;
    }
    step->kind = Step::Kind::Event;
    if (kind == "result") return readResult(fields, step);
    if (kind == "timed_result") return readTimedResult(fields, step);
    if (kind == "speakers") return readSpeakers(fields, step);
    fields.error = "unknown step \"" + kind +
                   "\" (reply, await, delay, result, timed_result, speakers, resources_available)";
    return false;
}

std::string readLine(const std::string& line, Step* step) {
    JsonValue object;
    std::string error = parseJson(line, &object);
    if (!error.empty()) return error;
    if (object.type != JsonValue::Type::Object) return "a step is a JSON object";
    Fields fields(object, "");
    std::string kind, note;
    if (!fields.require("step") || !fields.string("step", &kind) || !fields.string("note", &note) ||
        !readStep(fields, kind, step) || !fields.finish()) {
        return fields.error;
    }
    return "";
}

}  // namespace

std::string readScenario(const std::string& text, const std::string& name, Scenario* scenario) {
    Scenario read;
    read.name = name;
    // Awaits count matching calls since the load: the n-th await of a kind waits for n calls.
    std::map<std::pair<Function, uint32_t>, int> awaits;
    size_t begin = 0;
    for (int line = 1; begin <= text.size(); ++line) {
        size_t end = text.find('\n', begin);
        if (end == std::string::npos) end = text.size();
        std::string content = text.substr(begin, end - begin);
        begin = end + 1;
        if (content.find_first_not_of(" \t\r") == std::string::npos) continue;
        Step step;
        step.line = line;
        std::string error = readLine(content, &step);
        if (!error.empty()) return name + ":" + std::to_string(line) + ": " + error;
        if (step.kind == Step::Kind::Await) step.ordinal = ++awaits[{step.call, step.param}];
        read.steps.push_back(std::move(step));
    }
    if (read.steps.empty()) return name + ":1: the scenario has no step";
    *scenario = std::move(read);
    return "";
}

}  // namespace pal_scripted
