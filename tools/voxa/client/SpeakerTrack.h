// Who spoke when, as the diarization events of one input have told so far.
#ifndef VOXA_TOOL_SPEAKER_TRACK_H
#define VOXA_TOOL_SPEAKER_TRACK_H

#include <aidl/vendor/orbo/hardware/voxa/SpeakerDiarizationEvent.h>

#include <cstdint>
#include <optional>
#include <vector>

namespace voxa_tool {

// A final result's speaker: the one the diarization events so far give the most time within
// [startMs, endMs]. Used by one thread at a time.
class SpeakerTrack {
  public:
    void add(const aidl::vendor::orbo::hardware::voxa::SpeakerDiarizationEvent& event);
    std::optional<int32_t> speakerOf(int64_t startMs, int64_t endMs) const;

  private:
    std::vector<aidl::vendor::orbo::hardware::voxa::SpeakerDiarizationEvent::SpeakerInfo> mSegments;
};

}  // namespace voxa_tool

#endif  // VOXA_TOOL_SPEAKER_TRACK_H
