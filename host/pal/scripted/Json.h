// A small JSON reader for scenario lines: the whole grammar except fractions and exponents, since
// every number in a scenario is an integer. It never throws and never recurses deeper than
// kMaxJsonDepth, so a hostile line gets an error, not a crash.
#ifndef PAL_SCRIPTED_JSON_H
#define PAL_SCRIPTED_JSON_H

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace pal_scripted {

constexpr int kMaxJsonDepth = 16;

struct JsonValue {
    enum class Type { Null, Bool, Integer, String, Array, Object };

    Type type = Type::Null;
    bool boolean = false;
    int64_t integer = 0;
    std::string string;  // UTF-8, escapes resolved
    std::vector<JsonValue> items;
    std::vector<std::pair<std::string, JsonValue>> members;  // in the order written; keys unique
};

// "an integer", "a string", ...: the type's name for messages.
const char* describe(JsonValue::Type type);

// Reads `text`, which must hold exactly one value. Returns "" and fills `*value`, or returns what
// is wrong, starting with the 1-based column where it was found ("column 7: expected ':'").
std::string parseJson(const std::string& text, JsonValue* value);

}  // namespace pal_scripted

#endif  // PAL_SCRIPTED_JSON_H
