// The recognition of one recording, from the first sample to the last result, on its stream's
// capture thread: where utterances begin and end, which result each gives (the first pass's, or
// the whole-utterance pass's in the modes without partial results), its translation, its
// speakers, the time-out, and the events that say all this.
#ifndef PAL_ENGINE_RECORDING_H
#define PAL_ENGINE_RECORDING_H

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "Diarizer.h"
#include "EventPayload.h"
#include "FrontEnd.h"
#include "Recogniser.h"
#include "Settings.h"
#include "Translator.h"

namespace pal_engine {

// Longest utterance of the modes without partial results: its audio is kept for the
// whole-utterance pass, which then takes place.
constexpr int64_t kMaxUtteranceMs = 30 * 1000;

// Not thread-safe: the capture thread alone uses it.
class Recording {
  public:
    // Delivers an event; returns false when the stream stopped.
    using Raise = std::function<bool(Event&)>;

    // `translator` (null unless the settings translate) and `recogniser` must outlive the
    // recording; `frontEnd` gives the cepstra of diarization (null unless the settings ask for
    // it). Begins the recording.
    Recording(Recogniser& recogniser, const Settings& settings, Translator* translator,
              std::unique_ptr<FrontEnd> frontEnd, Raise raise);
    // Ends the recording, dropping an open utterance.
    ~Recording();
    Recording(const Recording&) = delete;
    Recording& operator=(const Recording&) = delete;

    // Audio fed so far, in samples at kRecogniserRate.
    int64_t samples() const { return mSamples; }
    bool inUtterance() const { return mInUtterance; }

    // Feeds converted audio. Returns false when the recognition is over: the stream stopped, a
    // command got its result, or the time-out passed.
    bool feed(const std::vector<int16_t>& pcm);
    // Ends the current utterance and raises its result, unless it is empty or below the
    // threshold (a forced result is raised whatever it holds); with diarization, a result for
    // each speaker's words, each after its speakers. Returns false when the recognition is over.
    bool finishUtterance(Ending ending);

  private:
    int64_t nowMs() const { return mSamples * 1000 / kRecogniserRate; }
    // The translation of a final result's text, when the settings ask for one.
    std::unique_ptr<Translation> translate(const std::string& text);
    // Keeps the audio that the whole-utterance pass will need.
    void keep(const std::vector<int16_t>& pcm);

    Recogniser& mRecogniser;
    const Settings mSettings;
    Translator* const mTranslator;
    const std::unique_ptr<FrontEnd> mFrontEnd;
    const Raise mRaise;
    Diarizer mDiarizer;
    std::vector<float> mCepstra;  // scratch of diarization

    int64_t mSamples = 0;
    bool mInUtterance = false;
    int64_t mQuietSinceMs = 0;      // end of the last utterance
    int64_t mUtteranceStartMs = 0;  // where the current utterance's audio begins
    std::string mPartial;           // last partial hypothesis raised
    std::vector<int16_t> mAudio;    // the current utterance's audio, for the whole-utterance pass
    int64_t mAudioStart = 0;        // the sample of the recording that mAudio begins with
};

}  // namespace pal_engine

#endif  // PAL_ENGINE_RECORDING_H
