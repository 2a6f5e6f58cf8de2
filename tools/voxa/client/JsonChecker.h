// Whether a text is a JSON object, by the grammar of RFC 8259, without building anything: the
// JSON output embeds the engine's second text as it is when it is one.
#ifndef VOXA_TOOL_JSON_CHECKER_H
#define VOXA_TOOL_JSON_CHECKER_H

#include <string>

namespace voxa_tool {

// Reads the text it was made with, which must outlive it, once.
class JsonChecker {
  public:
    explicit JsonChecker(const std::string& text) : mAt(text.c_str()), mEnd(mAt + text.size()) {}

    bool isObject();

  private:
    static constexpr int kMaxDepth = 64;

    void space();
    bool take(char c);
    bool digits();
    bool word(const char* literal);
    bool string();
    bool number();
    // A list of items between `open` and `close`; an object's items are "key": value.
    bool items(char open, char close, bool keyed, int depth);
    bool value(int depth);

    const char* mAt;
    const char* const mEnd;
};

}  // namespace voxa_tool

#endif  // VOXA_TOOL_JSON_CHECKER_H
