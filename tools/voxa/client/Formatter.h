// Output of `voxa transcribe`: the service's results written to a stream as they arrive, in one
// of the formats of Options.h, by a Formatter of that format; and what the formatters share:
// the results of either kind of event, and times as text. Times are milliseconds from the start
// of the input.
#ifndef VOXA_TOOL_FORMATTER_H
#define VOXA_TOOL_FORMATTER_H

#include <aidl/vendor/orbo/hardware/voxa/SpeakerDiarizationEvent.h>
#include <aidl/vendor/orbo/hardware/voxa/VoxaEvent.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include "Options.h"
#include "SpeakerTrack.h"

namespace voxa_tool {

using aidl::vendor::orbo::hardware::voxa::SpeakerDiarizationEvent;
using aidl::vendor::orbo::hardware::voxa::VoxaEvent;

// Used by one thread at a time. Writes to the stream it was made with, which must outlive it.
class Formatter {
  public:
    virtual ~Formatter() = default;
    // Comes before the results of the input `name`, the `index`-th (from 0) of `count` inputs
    // written to the same stream.
    virtual void beginFile(const std::string& name, size_t index, size_t count) = 0;
    virtual void asrEvent(int32_t handle, const VoxaEvent& event) = 0;
    // Records who spoke when, for speakerOf; a format that shows the event writes it too.
    virtual void sdzEvent(int32_t handle, const SpeakerDiarizationEvent& event);
    // Comes after the last result of the input.
    virtual void endFile() {}

  protected:
    // The speaker of a final result of the input in progress, as the events so far tell.
    std::optional<int32_t> speakerOf(int64_t startMs, int64_t endMs) const {
        return mSpeakers.speakerOf(startMs, endMs);
    }
    // Forgets the speakers, for the next input.
    void forgetSpeakers() { mSpeakers = SpeakerTrack(); }

  private:
    SpeakerTrack mSpeakers;
};

struct FormatSettings {
    Format format = Format::Text;
    bool timestamps = false;    // text: each result's times and its words'
    bool diarize = false;       // label each final result with its speaker
    bool liveTerminal = false;  // text: show the partial result on a terminal's last line
    // The results' text is a translation; their words are still those heard, in this language.
    std::string translatedFrom;
    // Text and subtitles: show each result's confidence and mark words below this; -1: neither.
    int32_t markBelow = -1;
};

// text (TextFormatter.h), json (JsonFormatter.h), srt or vtt (SubtitleFormatter.h); with
// diarization, behind a SpeakerWait.
std::unique_ptr<Formatter> makeFormatter(const FormatSettings& settings, std::ostream& out);

// A result of either kind of VoxaEvent, times absent from a plain one.
struct Result {
    bool final = false;
    int32_t confidence = 0;
    std::string text;
    std::string auxText;
    std::vector<uint8_t> data;
    std::optional<int64_t> startMs;
    std::optional<int64_t> endMs;
    std::vector<VoxaEvent::Word> words;
};

std::vector<Result> resultsOf(const VoxaEvent& event);

// "01:02.345", with hours in front from the first hour on, or always.
std::string clockTime(int64_t ms, char separator = '.', bool alwaysHours = false);
// "1.23"
std::string secondsText(int64_t ms);
// "Speaker 2"
std::string speakerName(int32_t speaker);
// `word`, in brackets when its confidence is below `settings.markBelow`.
std::string markedWord(const VoxaEvent::Word& word, const FormatSettings& settings);

}  // namespace voxa_tool

#endif  // VOXA_TOOL_FORMATTER_H
