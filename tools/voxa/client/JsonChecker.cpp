#include "JsonChecker.h"

#include <cctype>

namespace voxa_tool {

bool JsonChecker::isObject() {
    space();
    if (mAt == mEnd || *mAt != '{' || !value(0)) return false;
    space();
    return mAt == mEnd;
}

void JsonChecker::space() {
    while (mAt != mEnd && (*mAt == ' ' || *mAt == '\t' || *mAt == '\n' || *mAt == '\r')) ++mAt;
}

bool JsonChecker::take(char c) {
    space();
    if (mAt == mEnd || *mAt != c) return false;
    ++mAt;
    return true;
}

bool JsonChecker::digits() {
    const char* start = mAt;
    while (mAt != mEnd && *mAt >= '0' && *mAt <= '9') ++mAt;
    return mAt != start;
}

bool JsonChecker::word(const char* literal) {
    for (; *literal != '\0'; ++literal, ++mAt) {
        if (mAt == mEnd || *mAt != *literal) return false;
    }
    return true;
}

bool JsonChecker::string() {
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

bool JsonChecker::number() {
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

bool JsonChecker::items(char open, char close, bool keyed, int depth) {
    if (!take(open)) return false;
    if (take(close)) return true;
    do {
        if (keyed && (!string() || !take(':'))) return false;
        if (!value(depth + 1)) return false;
    } while (take(','));
    return take(close);
}

bool JsonChecker::value(int depth) {
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

}  // namespace voxa_tool
