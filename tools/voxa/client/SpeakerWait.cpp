#include "SpeakerWait.h"

namespace voxa_tool {

void SpeakerWait::beginFile(const std::string& name, size_t index, size_t count) {
    forgetSpeakers();
    mFormatter->beginFile(name, index, count);
}

void SpeakerWait::asrEvent(int32_t handle, const VoxaEvent& event) {
    bool labelled = mHeld.empty();
    for (const Result& result : resultsOf(event)) {
        if (result.final && result.startMs && !speakerOf(*result.startMs, *result.endMs)) {
            labelled = false;
        }
    }
    if (labelled) {
        mFormatter->asrEvent(handle, event);
    } else {
        mHeld.emplace_back(handle, event);
    }
}

void SpeakerWait::sdzEvent(int32_t handle, const SpeakerDiarizationEvent& event) {
    Formatter::sdzEvent(handle, event);
    mFormatter->sdzEvent(handle, event);
    release();
}

void SpeakerWait::endFile() {
    release();
    mFormatter->endFile();
}

void SpeakerWait::release() {
    for (const auto& [handle, event] : mHeld) mFormatter->asrEvent(handle, event);
    mHeld.clear();
}

}  // namespace voxa_tool
