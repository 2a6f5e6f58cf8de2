#include "Scenario.h"

#include <pal/pal_types.h>

#include <cstring>
#include <limits>
#include <map>
#include <utility>

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

// The members of one JSON object, taken by name. Each getter leaves its output alone when the key
// is absent and returns false, with `error` set, when the value is of the wrong type or range.
// finish() then refuses the keys that no getter asked for, which catches misspelt keys.
class Fields {
  public:
    Fields(const JsonValue& object, std::string where)
        : mObject(object), mWhere(std::move(where)) {}

    std::string error;

    bool has(const char* key) const { return find(key) != nullptr; }

    // An engine never ends a span before it starts: such times are a mistake in the scenario.
    bool ordered(int64_t startMs, int64_t endMs) {
        if (endMs >= startMs) return true;
        error = mWhere + "\"end_ms\" " + std::to_string(endMs) + " is before \"start_ms\" " +
                std::to_string(startMs);
        return false;
    }

    bool integer(const char* key, int64_t min, int64_t max, int64_t* out) {
        const JsonValue* value = take(key);
        if (value == nullptr) return true;
        if (value->type != JsonValue::Type::Integer || value->integer < min ||
            value->integer > max) {
            return fail(key,
                        "an integer from " + std::to_string(min) + " to " + std::to_string(max));
        }
        *out = value->integer;
        return true;
    }

    template <typename T>
    bool integer(const char* key, T* out) {
        int64_t value = *out;
        bool ok =
                integer(key, std::numeric_limits<T>::min(), std::numeric_limits<T>::max(), &value);
        *out = static_cast<T>(value);
        return ok;
    }

    bool boolean(const char* key, bool* out) {
        const JsonValue* value = take(key);
        if (value == nullptr) return true;
        if (value->type != JsonValue::Type::Bool) return fail(key, "true or false");
        *out = value->boolean;
        return true;
    }

    bool string(const char* key, std::string* out) {
        const JsonValue* value = take(key);
        if (value == nullptr) return true;
        if (value->type != JsonValue::Type::String) return fail(key, "a string");
        *out = value->string;
        return true;
    }

    // A text for a NUL-terminated field of `fieldSize` bytes.
    bool text(const char* key, size_t fieldSize, std::string* out) {
        const JsonValue* value = take(key);
        if (value == nullptr) return true;
        if (value->type != JsonValue::Type::String || value->string.size() >= fieldSize ||
            value->string.find('\0') != std::string::npos) {
            return fail(key, "a string of at most " + std::to_string(fieldSize - 1) +
                                     " bytes without NUL");
        }
        *out = value->string;
        return true;
    }

    bool bytes(const char* key, std::vector<uint8_t>* out) {
        const JsonValue* value = take(key);
        if (value == nullptr) return true;
        bool ok = value->type == JsonValue::Type::Array && value->items.size() <= kMaxDataBytes;
        for (size_t i = 0; ok && i < value->items.size(); ++i) {
            const JsonValue& item = value->items[i];
            ok = item.type == JsonValue::Type::Integer && item.integer >= 0 && item.integer <= 255;
            if (ok) out->push_back(static_cast<uint8_t>(item.integer));
        }
        if (!ok) {
            return fail(key, "an array of at most " + std::to_string(kMaxDataBytes) +
                                     " integers from 0 to 255");
        }
        return true;
    }

    // The objects of an array, each read by `read(fields)`; "key[i]" names them in messages.
    template <typename Read>
    bool objects(const char* key, size_t max, Read read) {
        const JsonValue* value = take(key);
        if (value == nullptr) return true;
        if (value->type != JsonValue::Type::Array || value->items.size() > max) {
            return fail(key, "an array of at most " + std::to_string(max) + " objects");
        }
        for (size_t i = 0; i < value->items.size(); ++i) {
            std::string where = mWhere + key + "[" + std::to_string(i) + "]: ";
            if (value->items[i].type != JsonValue::Type::Object) {
                error = where + "expected an object";
                return false;
            }
            Fields fields(value->items[i], where);
            if (!read(fields) || !fields.finish()) {
                error = fields.error;
                return false;
            }
        }
        return true;
    }

    // One of `names`, or with `numbers` also the number itself.
    bool name(const char* key, const std::map<std::string, uint32_t>& names, bool numbers,
              uint32_t* out) {
        const JsonValue* value = take(key);
        if (value == nullptr) return true;
        if (value->type == JsonValue::Type::String && names.count(value->string) != 0) {
            *out = names.at(value->string);
            return true;
        }
        if (numbers && value->type == JsonValue::Type::Integer && value->integer >= 0 &&
            value->integer < kUint32Max) {
            *out = static_cast<uint32_t>(value->integer);
            return true;
        }
        std::string known;
        for (const auto& entry : names) known += (known.empty() ? "" : ", ") + entry.first;
        return fail(key, "one of " + known + (numbers ? ", or a number" : ""));
    }

    bool require(const char* key) {
        if (has(key)) return true;
        error = mWhere + "\"" + key + "\" is missing";
        return false;
    }

    bool finish() {
        for (const auto& member : mObject.members) {
            if (mTaken.count(member.first) == 0) {
                error = mWhere + "unknown key \"" + member.first + "\"";
                return false;
            }
        }
        return true;
    }

  private:
    const JsonValue* find(const char* key) const {
        for (const auto& member : mObject.members) {
            if (member.first == key) return &member.second;
        }
        return nullptr;
    }

    const JsonValue* take(const char* key) {
        mTaken[key] = true;
        return find(key);
    }

    bool fail(const char* key, const std::string& expected) {
        error = mWhere + "\"" + key + "\" must be " + expected;
        return false;
    }

    const JsonValue& mObject;
    const std::string mWhere;
    std::map<std::string, bool> mTaken;
};

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
               fields.integer("status", &status) && fields.bytes("data", &data);
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
