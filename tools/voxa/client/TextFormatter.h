// The text format: each final result on a line, as a person reads a transcript.
#ifndef VOXA_TOOL_TEXT_FORMATTER_H
#define VOXA_TOOL_TEXT_FORMATTER_H

#include <string>
#include <vector>

#include "Formatter.h"

namespace voxa_tool {

// "Speaker 2: " in front when diarizing; with time stamps "[00:00.210 --> 00:02.980] text"
// followed by its words with their times (headed by the spoken language's code when the text is
// a translation). Marking words by confidence shows "(confidence 87)" after each result and the
// words below the mark in brackets, in the line unless it is a translation and in the word list.
// A live terminal shows the current partial result on one line, replaced as it changes.
class TextFormatter : public Formatter {
  public:
    TextFormatter(const FormatSettings& settings, std::ostream& out)
        : mSettings(settings), mOut(out) {}

    void beginFile(const std::string& name, size_t index, size_t count) override;
    void asrEvent(int32_t handle, const VoxaEvent& event) override;
    void endFile() override;

  private:
    std::string line(const Result& result) const;
    void writeWords(const std::vector<VoxaEvent::Word>& words);
    // The end of `text` that fits the line, cut at a character's first byte.
    void showPartial(const std::string& text);
    void clearPartial();

    const FormatSettings mSettings;
    std::ostream& mOut;
    bool mPartialShown = false;
    int mFiles = 0;  // begun so far
};

}  // namespace voxa_tool

#endif  // VOXA_TOOL_TEXT_FORMATTER_H
