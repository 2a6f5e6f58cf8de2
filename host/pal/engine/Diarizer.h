// Speaker diarization of a recording from its cepstra, utterance by utterance, with no speaker
// model and no number of speakers given: the speech of each ended utterance (its frames well
// above the utterance's quietest, by energy) is cut where the speaker changes (the Bayesian
// information criterion, BIC, over a sliding window), the pieces of the whole recording so far
// are clustered bottom-up (two clusters merge while one full-covariance Gaussian explains them
// better than two, by BIC), and the utterance's speech is resegmented frame by frame with each
// speaker's Gaussian, which finds the changes that the sliding window missed. Speakers are
// numbered from 1 in the order they are first heard, and a number once given is never taken back:
// later evidence may tie a new piece to an earlier speaker, not renumber what was reported.
// docs/ENGINE.md describes the method and its limits.
#ifndef PAL_ENGINE_DIARIZER_H
#define PAL_ENGINE_DIARIZER_H

#include <cstddef>
#include <cstdint>
#include <vector>

#include "Gaussian.h"

namespace pal_engine {

// A stretch of the recording, in ms from its start.
struct Span {
    int64_t startMs = 0;
    int64_t endMs = 0;
};

struct SpeakerTurn {
    int32_t speaker = 0;  // from 1
    Span span;
};

// Not thread-safe.
class Diarizer {
  public:
    // Frames of `frameSize` values each: the cepstra of FrontEnd, the first one the energy.
    explicit Diarizer(int frameSize);

    // Appends cepstra of the recording, one frame per 10 ms from where the last one ended; the
    // first frame ever added starts the recording. Only the last minute is kept.
    void addFrames(const float* frames, size_t count);
    // An utterance has ended; `utterance` is the stretch of the recording it took, with some
    // silence around its speech. Returns which speaker said what in it, in order; a turn covers
    // speech only, pauses under 300 ms included. Frames up to the utterance's end are dropped.
    std::vector<SpeakerTurn> assign(const Span& utterance);

  private:
    struct Piece {
        Statistics statistics;
        int32_t speaker = 0;  // 0 until reported
    };

    // Where the speaker changes in `frames` (each dimension values): frame indices, ascending.
    std::vector<size_t> changes(const std::vector<float>& frames) const;
    // Clusters every piece; returns the cluster of each.
    std::vector<size_t> cluster() const;
    // Gives a speaker to the new pieces, from `first` on, after clustering.
    void label(size_t first);
    // Gives each of `frames`, the speech of the new pieces, the speaker whose Gaussian (from all
    // of its pieces) explains it best, the speaker changing only where that gains enough; the
    // runs of one speaker become the new pieces, `bounds` their first frames and the end.
    // Returns false, changing nothing, when fewer than two speakers have been heard long enough.
    bool resegment(const std::vector<float>& frames, size_t first, std::vector<size_t>* bounds);
    // Numbers again, in the order they are heard, the speakers first numbered after the first
    // `known`: resegmentation may have taken every frame from one.
    void renumber(size_t first, int32_t known);

    const int mFrameSize;
    const int mDimension;        // the coefficients used: all but the energy
    std::vector<float> mFrames;  // mFrameSize values each
    int64_t mFirstFrame = 0;     // index in the recording of the first frame kept
    std::vector<Piece> mPieces;  // every piece of speech so far
    int32_t mSpeakers = 0;       // speakers numbered so far
};

}  // namespace pal_engine

#endif  // PAL_ENGINE_DIARIZER_H
