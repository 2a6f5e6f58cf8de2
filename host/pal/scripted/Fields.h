// Reading a scenario step's keys: the members of one JSON object, taken by name and checked.
#ifndef PAL_SCRIPTED_FIELDS_H
#define PAL_SCRIPTED_FIELDS_H

#include <cstddef>
#include <cstdint>
#include <limits>
#include <map>
#include <string>
#include <vector>

#include "Json.h"

namespace pal_scripted {

// Each getter leaves its output alone when the key is absent and returns false, with `error`
// set, when the value is of the wrong type or range. finish() then refuses the keys that no
// getter asked for, which catches misspelt keys. Reads the object it was made with, which must
// outlive it.
class Fields {
  public:
    // `where` starts each message: "" for a step, "words[2]: " for an object inside it.
    Fields(const JsonValue& object, std::string where)
        : mObject(object), mWhere(std::move(where)) {}

    std::string error;

    bool has(const char* key) const { return find(key) != nullptr; }
    bool require(const char* key);
    // Refuses the keys no getter took.
    bool finish();

    // An engine never ends a span before it starts: such times are a mistake in the scenario.
    bool ordered(int64_t startMs, int64_t endMs);

    bool integer(const char* key, int64_t min, int64_t max, int64_t* out);
    // An integer in the range of T.
    template <typename T>
    bool integer(const char* key, T* out) {
        int64_t value = *out;
        const bool ok =
                integer(key, std::numeric_limits<T>::min(), std::numeric_limits<T>::max(), &value);
        *out = static_cast<T>(value);
        return ok;
    }
    bool boolean(const char* key, bool* out);
    bool string(const char* key, std::string* out);
    // A text for a NUL-terminated field of `fieldSize` bytes.
    bool text(const char* key, size_t fieldSize, std::string* out);
    // An array of at most `max` bytes, each an integer from 0 to 255.
    bool bytes(const char* key, size_t max, std::vector<uint8_t>* out);
    // One of `names`, or with `numbers` also the number itself.
    bool name(const char* key, const std::map<std::string, uint32_t>& names, bool numbers,
              uint32_t* out);

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

  private:
    const JsonValue* find(const char* key) const;
    const JsonValue* take(const char* key);
    bool fail(const char* key, const std::string& expected);

    const JsonValue& mObject;
    const std::string mWhere;
    std::map<std::string, bool> mTaken;
};

}  // namespace pal_scripted

#endif  // PAL_SCRIPTED_FIELDS_H
