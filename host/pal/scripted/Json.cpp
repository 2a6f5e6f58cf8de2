#include "Json.h"

#include <cstring>
#include <limits>

namespace pal_scripted {

namespace {

class Reader {
  public:
    explicit Reader(const std::string& text) : mText(text) {}

    std::string document(JsonValue* value) {
        skipSpace();
        if (!parseValue(value, 0)) return mError;
        skipSpace();
        if (mPos != mText.size()) fail("unexpected text after the value");
        return mError;
    }

  private:
    bool fail(const std::string& message) {
        if (mError.empty()) mError = "column " + std::to_string(mPos + 1) + ": " + message;
        return false;
    }

    bool atEnd() const { return mPos >= mText.size(); }
    char peek() const { return atEnd() ? '\0' : mText[mPos]; }

    void skipSpace() {
        while (!atEnd() && std::strchr(" \t\r\n", mText[mPos]) != nullptr) ++mPos;
    }

    bool expect(char c) {
        skipSpace();
        if (peek() != c) return fail(std::string("expected '") + c + "'");
        ++mPos;
        return true;
    }

    bool literal(const char* word) {
        size_t length = std::strlen(word);
        if (mText.compare(mPos, length, word) != 0) return fail("unexpected character");
        mPos += length;
        return true;
    }

    bool parseValue(JsonValue* value, int depth) {
        skipSpace();
        if (atEnd()) return fail("a value is missing");
        char c = peek();
        if (c == '{' || c == '[') {
            if (depth >= kMaxJsonDepth) return fail("nested too deeply");
            return c == '{' ? parseObject(value, depth + 1) : parseArray(value, depth + 1);
        }
        if (c == '"') {
            value->type = JsonValue::Type::String;
            return parseString(&value->string);
        }
        if (c == '-' || (c >= '0' && c <= '9')) return parseInteger(value);
        if (c == 't' || c == 'f') {
            value->type = JsonValue::Type::Bool;
            value->boolean = c == 't';
            return literal(c == 't' ? "true" : "false");
        }
        if (c == 'n') {
            value->type = JsonValue::Type::Null;
            return literal("null");
        }
        return fail("unexpected character");
    }

    bool parseObject(JsonValue* value, int depth) {
        value->type = JsonValue::Type::Object;
        ++mPos;
        skipSpace();
        if (peek() == '}') {
            ++mPos;
            return true;
        }
        while (true) {
            skipSpace();
            if (peek() != '"') return fail("expected a key in double quotes");
            size_t keyAt = mPos;
            std::string key;
            if (!parseString(&key)) return false;
            for (const auto& member : value->members) {
                if (member.first == key) {
                    mPos = keyAt;
                    return fail("key \"" + key + "\" given twice");
                }
            }
            JsonValue member;
            if (!expect(':') || !parseValue(&member, depth)) return false;
            value->members.emplace_back(std::move(key), std::move(member));
            skipSpace();
            if (peek() == '}') {
                ++mPos;
                return true;
            }
            if (!expect(',')) return false;
        }
    }

    bool parseArray(JsonValue* value, int depth) {
        value->type = JsonValue::Type::Array;
        ++mPos;
        skipSpace();
        if (peek() == ']') {
            ++mPos;
            return true;
        }
        while (true) {
            JsonValue item;
            if (!parseValue(&item, depth)) return false;
            value->items.push_back(std::move(item));
            skipSpace();
            if (peek() == ']') {
                ++mPos;
                return true;
            }
            if (!expect(',')) return false;
        }
    }

    bool parseInteger(JsonValue* value) {
        value->type = JsonValue::Type::Integer;
        bool negative = peek() == '-';
        if (negative) ++mPos;
        if (!(peek() >= '0' && peek() <= '9')) return fail("expected a digit");
        if (peek() == '0' && mPos + 1 < mText.size() && mText[mPos + 1] >= '0' &&
            mText[mPos + 1] <= '9') {
            return fail("numbers do not start with 0");
        }
        // Accumulated as a negative number, which has room for the most negative int64_t.
        int64_t result = 0;
        constexpr int64_t kMin = std::numeric_limits<int64_t>::min();
        while (peek() >= '0' && peek() <= '9') {
            int digit = peek() - '0';
            if (result < (kMin + digit) / 10) return fail("number out of range");
            result = result * 10 - digit;
            ++mPos;
        }
        if (peek() == '.' || peek() == 'e' || peek() == 'E') return fail("numbers are integers");
        if (!negative && result == kMin) return fail("number out of range");
        value->integer = negative ? result : -result;
        return true;
    }

    bool parseHex4(uint32_t* code) {
        *code = 0;
        for (int i = 0; i < 4; ++i, ++mPos) {
            char c = peek();
            int digit = c >= '0' && c <= '9'   ? c - '0'
                        : c >= 'a' && c <= 'f' ? c - 'a' + 10
                        : c >= 'A' && c <= 'F' ? c - 'A' + 10
                                               : -1;
            if (digit < 0) return fail("expected four hex digits after \\u");
            *code = *code * 16 + static_cast<uint32_t>(digit);
        }
        return true;
    }

    bool parseEscape(std::string* out) {
        char c = peek();
        ++mPos;
        const char* from = "\"\\/bfnrt";
        const char* to = "\"\\/\b\f\n\r\t";
        if (const char* found = std::strchr(from, c); found != nullptr && c != '\0') {
            *out += to[found - from];
            return true;
        }
        if (c != 'u') {
            --mPos;
            return fail("unknown escape");
        }
        uint32_t code;
        if (!parseHex4(&code)) return false;
        if (code >= 0xDC00 && code <= 0xDFFF) return fail("lone low surrogate");
        if (code >= 0xD800 && code <= 0xDBFF) {
            uint32_t low;
            if (mText.compare(mPos, 2, "\\u") != 0) return fail("lone high surrogate");
            mPos += 2;
            if (!parseHex4(&low)) return false;
            if (low < 0xDC00 || low > 0xDFFF) return fail("lone high surrogate");
            code = 0x10000 + ((code - 0xD800) << 10) + (low - 0xDC00);
        }
        appendUtf8(code, out);
        return true;
    }

    static void appendUtf8(uint32_t code, std::string* out) {
        if (code < 0x80) {
            *out += static_cast<char>(code);
        } else if (code < 0x800) {
            *out += static_cast<char>(0xC0 | (code >> 6));
            *out += static_cast<char>(0x80 | (code & 0x3F));
        } else if (code < 0x10000) {
            *out += static_cast<char>(0xE0 | (code >> 12));
            *out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
            *out += static_cast<char>(0x80 | (code & 0x3F));
        } else {
            *out += static_cast<char>(0xF0 | (code >> 18));
            *out += static_cast<char>(0x80 | ((code >> 12) & 0x3F));
            *out += static_cast<char>(0x80 | ((code >> 6) & 0x3F));
            *out += static_cast<char>(0x80 | (code & 0x3F));
        }
    }

    // The length of the UTF-8 sequence at mPos, or 0 when it is malformed.
    size_t utf8Length() const {
        auto byte = [this](size_t i) { return static_cast<unsigned char>(mText[mPos + i]); };
        unsigned char lead = byte(0);
        size_t length = lead < 0x80                    ? 1
                        : lead >= 0xC2 && lead <= 0xDF ? 2
                        : lead >= 0xE0 && lead <= 0xEF ? 3
                        : lead >= 0xF0 && lead <= 0xF4 ? 4
                                                       : 0;
        if (length == 0 || mPos + length > mText.size()) return 0;
        if (length == 1) return 1;
        for (size_t i = 1; i < length; ++i) {
            if ((byte(i) & 0xC0) != 0x80) return 0;
        }
        uint32_t second = byte(1);
        if ((lead == 0xE0 && second < 0xA0) || (lead == 0xED && second > 0x9F) ||
            (lead == 0xF0 && second < 0x90) || (lead == 0xF4 && second > 0x8F)) {
            return 0;  // overlong, surrogate or beyond U+10FFFF
        }
        return length;
    }

    bool parseString(std::string* out) {
        ++mPos;  // the opening quote
        while (true) {
            if (atEnd()) return fail("the string is not closed");
            unsigned char c = static_cast<unsigned char>(peek());
            if (c == '"') {
                ++mPos;
                return true;
            }
            if (c < 0x20) return fail("control character in a string");
            if (c == '\\') {
                ++mPos;
                if (!parseEscape(out)) return false;
                continue;
            }
            size_t length = utf8Length();
            if (length == 0) return fail("invalid UTF-8");
            out->append(mText, mPos, length);
            mPos += length;
        }
    }

    const std::string& mText;
    size_t mPos = 0;
    std::string mError;  // the first failure
};

}  // namespace

const char* describe(JsonValue::Type type) {
    switch (type) {
        case JsonValue::Type::Null:
            return "null";
        case JsonValue::Type::Bool:
            return "a boolean";
        case JsonValue::Type::Integer:
            return "an integer";
        case JsonValue::Type::String:
            return "a string";
        case JsonValue::Type::Array:
            return "an array";
        case JsonValue::Type::Object:
            return "an object";
    }
    return "a value";
}

std::string parseJson(const std::string& text, JsonValue* value) {
    *value = JsonValue();
    return Reader(text).document(value);
}

}  // namespace pal_scripted
