#include "SpeakerTrack.h"

#include <algorithm>

namespace voxa_tool {

using aidl::vendor::orbo::hardware::voxa::SpeakerDiarizationEvent;

void SpeakerTrack::add(const SpeakerDiarizationEvent& event) {
    for (const SpeakerDiarizationEvent::Event& entry : event.events) {
        mSegments.insert(mSegments.end(), entry.speakers.begin(), entry.speakers.end());
    }
}

std::optional<int32_t> SpeakerTrack::speakerOf(int64_t startMs, int64_t endMs) const {
    std::optional<int32_t> best;
    int64_t bestOverlap = -1;
    for (const SpeakerDiarizationEvent::SpeakerInfo& segment : mSegments) {
        const int64_t overlap =
                std::min(endMs, segment.end_ts) - std::max(startMs, segment.start_ts);
        if (overlap >= 0 && overlap > bestOverlap) {
            bestOverlap = overlap;
            best = segment.value;
        }
    }
    return best;
}

}  // namespace voxa_tool
