// Output of `voxa transcribe`: the service's results written to a stream as they arrive, in one
// of the formats of Options.h. Times in the records are milliseconds from the start of the file.
#ifndef VOXA_TOOL_FORMATTERS_H
#define VOXA_TOOL_FORMATTERS_H

#include <aidl/vendor/orbo/hardware/voxa/SpeakerDiarizationEvent.h>
#include <aidl/vendor/orbo/hardware/voxa/VoxaEvent.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <ostream>
#include <string>

#include "Options.h"

namespace voxa_tool {

// Used by one thread at a time. Writes to the stream it was made with, which must outlive it.
class Formatter {
  public:
    virtual ~Formatter() = default;
    // Comes before the results of `file`, the `index`-th (from 0) of `count` files.
    virtual void beginFile(const std::string& file, size_t index, size_t count) = 0;
    virtual void asrEvent(int32_t handle,
                          const aidl::vendor::orbo::hardware::voxa::VoxaEvent& event) = 0;
    virtual void sdzEvent(
            int32_t handle,
            const aidl::vendor::orbo::hardware::voxa::SpeakerDiarizationEvent& event) = 0;
};

// text: each final result on a line; a time-stamped one as "[00:00.210 --> 00:02.980] text"
//   followed by its words with their times. Partial results are not shown.
// json: one object per event, with every field of the record, the handle and the file.
// srt, vtt: subtitle cues made from the words of time-stamped results (the results must be
//   time-stamped; others are left out), at most two lines of 42 characters and 7 s a cue.
std::unique_ptr<Formatter> makeFormatter(Format format, std::ostream& out);

}  // namespace voxa_tool

#endif  // VOXA_TOOL_FORMATTERS_H
