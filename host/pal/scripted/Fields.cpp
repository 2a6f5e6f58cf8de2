#include "Fields.h"

namespace pal_scripted {

bool Fields::require(const char* key) {
    if (has(key)) return true;
    error = mWhere + "\"" + key + "\" is missing";
    return false;
}

bool Fields::finish() {
    for (const auto& member : mObject.members) {
        if (mTaken.count(member.first) == 0) {
            error = mWhere + "unknown key \"" + member.first + "\"";
            return false;
        }
    }
    return true;
}

bool Fields::ordered(int64_t startMs, int64_t endMs) {
    if (endMs >= startMs) return true;
    error = mWhere + "\"end_ms\" " + std::to_string(endMs) + " is before \"start_ms\" " +
            std::to_string(startMs);
    return false;
}

bool Fields::integer(const char* key, int64_t min, int64_t max, int64_t* out) {
    const JsonValue* value = take(key);
    if (value == nullptr) return true;
    if (value->type != JsonValue::Type::Integer || value->integer < min || value->integer > max) {
        return fail(key, "an integer from " + std::to_string(min) + " to " + std::to_string(max));
    }
    *out = value->integer;
    return true;
}

bool Fields::boolean(const char* key, bool* out) {
    const JsonValue* value = take(key);
    if (value == nullptr) return true;
    if (value->type != JsonValue::Type::Bool) return fail(key, "true or false");
    *out = value->boolean;
    return true;
}

bool Fields::string(const char* key, std::string* out) {
    const JsonValue* value = take(key);
    if (value == nullptr) return true;
    if (value->type != JsonValue::Type::String) return fail(key, "a string");
    *out = value->string;
    return true;
}

bool Fields::text(const char* key, size_t fieldSize, std::string* out) {
    const JsonValue* value = take(key);
    if (value == nullptr) return true;
    if (value->type != JsonValue::Type::String || value->string.size() >= fieldSize ||
        value->string.find('\0') != std::string::npos) {
        return fail(key,
                    "a string of at most " + std::to_string(fieldSize - 1) + " bytes without NUL");
    }
    *out = value->string;
    return true;
}

bool Fields::bytes(const char* key, size_t max, std::vector<uint8_t>* out) {
    const JsonValue* value = take(key);
    if (value == nullptr) return true;
    bool ok = value->type == JsonValue::Type::Array && value->items.size() <= max;
    for (size_t i = 0; ok && i < value->items.size(); ++i) {
        const JsonValue& item = value->items[i];
        ok = item.type == JsonValue::Type::Integer && item.integer >= 0 && item.integer <= 255;
        if (ok) out->push_back(static_cast<uint8_t>(item.integer));
    }
    if (!ok) {
        return fail(key, "an array of at most " + std::to_string(max) + " integers from 0 to 255");
    }
    return true;
}

bool Fields::name(const char* key, const std::map<std::string, uint32_t>& names, bool numbers,
                  uint32_t* out) {
    const JsonValue* value = take(key);
    if (value == nullptr) return true;
    if (value->type == JsonValue::Type::String && names.count(value->string) != 0) {
        *out = names.at(value->string);
        return true;
    }
    if (numbers && value->type == JsonValue::Type::Integer && value->integer >= 0 &&
        value->integer < std::numeric_limits<uint32_t>::max()) {
        *out = static_cast<uint32_t>(value->integer);
        return true;
    }
    std::string known;
    for (const auto& entry : names) known += (known.empty() ? "" : ", ") + entry.first;
    return fail(key, "one of " + known + (numbers ? ", or a number" : ""));
}

const JsonValue* Fields::find(const char* key) const {
    for (const auto& member : mObject.members) {
        if (member.first == key) return &member.second;
    }
    return nullptr;
}

const JsonValue* Fields::take(const char* key) {
    mTaken[key] = true;
    return find(key);
}

bool Fields::fail(const char* key, const std::string& expected) {
    error = mWhere + "\"" + key + "\" must be " + expected;
    return false;
}

}  // namespace pal_scripted
