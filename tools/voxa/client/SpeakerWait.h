// A formatter in front of another, for diarization: final results wait for their speaker.
#ifndef VOXA_TOOL_SPEAKER_WAIT_H
#define VOXA_TOOL_SPEAKER_WAIT_H

#include <deque>
#include <memory>
#include <utility>

#include "Formatter.h"

namespace voxa_tool {

// Holds final results that no diarization event has labelled yet until one comes, or the input
// ends, so that the formatter behind it can name their speakers.
class SpeakerWait : public Formatter {
  public:
    explicit SpeakerWait(std::unique_ptr<Formatter> formatter) : mFormatter(std::move(formatter)) {}

    void beginFile(const std::string& name, size_t index, size_t count) override;
    void asrEvent(int32_t handle, const VoxaEvent& event) override;
    void sdzEvent(int32_t handle, const SpeakerDiarizationEvent& event) override;
    void endFile() override;

  private:
    void release();

    const std::unique_ptr<Formatter> mFormatter;
    std::deque<std::pair<int32_t, VoxaEvent>> mHeld;
};

}  // namespace voxa_tool

#endif  // VOXA_TOOL_SPEAKER_WAIT_H
