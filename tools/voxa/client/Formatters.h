// Output of `voxa transcribe`: the service's results written to a stream as they arrive, in one
// of the formats of Options.h. Times are milliseconds from the start of the input.
#ifndef VOXA_TOOL_FORMATTERS_H
#define VOXA_TOOL_FORMATTERS_H

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

namespace voxa_tool {

// Used by one thread at a time. Writes to the stream it was made with, which must outlive it.
class Formatter {
  public:
    virtual ~Formatter() = default;
    // Comes before the results of the input `name`, the `index`-th (from 0) of `count` inputs
    // written to the same stream.
    virtual void beginFile(const std::string& name, size_t index, size_t count) = 0;
    virtual void asrEvent(int32_t handle,
                          const aidl::vendor::orbo::hardware::voxa::VoxaEvent& event) = 0;
    virtual void sdzEvent(
            int32_t handle,
            const aidl::vendor::orbo::hardware::voxa::SpeakerDiarizationEvent& event) = 0;
    // Comes after the last result of the input.
    virtual void endFile() {}
};

struct FormatSettings {
    Format format = Format::Text;
    bool timestamps = false;    // text: each result's times and its words'
    bool diarize = false;       // label each final result with its speaker
    bool liveTerminal = false;  // text: show the partial result on a terminal's last line
};

// text: each final result on a line, "Speaker 2: " in front when diarizing; with timestamps
//   "[00:00.210 --> 00:02.980] text" followed by its words with their times. A live terminal
//   shows the current partial result on one line, replaced as it changes.
// json: one line per callback. onAsrEvent: {"file","handle","callback","status","results"},
//   each result {"final","confidence","text","start_ms","end_ms","words","speaker","aux_text",
//   "data"}, the same keys with or without time stamps (null where there are none); aux_text
//   embedded as an object when it is one in JSON, else as a string. onSdzEvent:
//   {"file","handle","callback","speakers"}.
// srt, vtt: cues from the words of time-stamped final results: at most two lines of 42
//   characters and 7 s, at least 1 s where the next cue leaves room, never overlapping; vtt
//   names the speaker as a voice (<v Speaker 2>) when diarizing.
std::unique_ptr<Formatter> makeFormatter(const FormatSettings& settings, std::ostream& out);

// A final result's speaker: the one the diarization events so far give the most time within
// [startMs, endMs].
class SpeakerTrack {
  public:
    void add(const aidl::vendor::orbo::hardware::voxa::SpeakerDiarizationEvent& event);
    std::optional<int32_t> speakerOf(int64_t startMs, int64_t endMs) const;

  private:
    std::vector<aidl::vendor::orbo::hardware::voxa::SpeakerDiarizationEvent::SpeakerInfo> mSegments;
};

}  // namespace voxa_tool

#endif  // VOXA_TOOL_FORMATTERS_H
