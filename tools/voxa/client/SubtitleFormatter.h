// The srt and vtt formats: subtitles from the time-stamped final results.
#ifndef VOXA_TOOL_SUBTITLE_FORMATTER_H
#define VOXA_TOOL_SUBTITLE_FORMATTER_H

#include <optional>
#include <string>
#include <vector>

#include "Formatter.h"

namespace voxa_tool {

// Cues of at most two lines of 42 characters and 7 s, at least 1 s where the next cue leaves
// room, never overlapping; vtt names the speaker as a voice (<v Speaker 2>) when diarizing. A
// cue's text comes from the result's words, or, when the text is a translation, from the
// translation's words spread over the result's time in proportion to their length. SubRip and
// WebVTT differ in the header, the cue numbers, the decimal separator and voices. A cue is
// written once the next one is known, so that it may last into the silence after it.
class SubtitleFormatter : public Formatter {
  public:
    SubtitleFormatter(const FormatSettings& settings, std::ostream& out)
        : mSettings(settings), mOut(out), mWebVtt(settings.format == Format::Vtt) {}

    void beginFile(const std::string& name, size_t index, size_t count) override;
    void asrEvent(int32_t handle, const VoxaEvent& event) override;
    void endFile() override;

    // A word as a cue shows it.
    struct Word {
        std::string text;
        int64_t startMs;
        int64_t endMs;
    };

  private:
    struct Cue {
        int64_t startMs;
        int64_t endMs;
        std::string text;
    };

    std::vector<Word> wordsOf(const Result& result) const;
    void queue(const std::vector<Word>& words, const std::optional<int32_t>& speaker);
    // Writes the pending cue, lasting at least kCueMinMs where it may last until `limitMs`.
    void write(int64_t limitMs);

    const FormatSettings mSettings;
    std::ostream& mOut;
    const bool mWebVtt;
    int mCues = 0;
    std::optional<Cue> mPending;
};

}  // namespace voxa_tool

#endif  // VOXA_TOOL_SUBTITLE_FORMATTER_H
