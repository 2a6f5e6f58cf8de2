// Cepstra of 16 kHz mono audio from sphinxbase's front end (fe.h), computed without removing
// silence, so that frame i always covers the audio from i * 10 ms: with the acoustic model's
// feature parameters, the input of the whole-utterance pass; finer, for speaker diarization.
#ifndef PAL_ENGINE_FRONT_END_H
#define PAL_ENGINE_FRONT_END_H

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

struct cmd_ln_s;
struct fe_s;

namespace pal_engine {

// Duration of one frame of cepstra.
constexpr int64_t kFrameMs = 10;

// Not thread-safe: one thread at a time.
class FrontEnd {
  public:
    // With the feature parameters of the acoustic model in directory `acousticModel` (its
    // feat.params). Returns null when the front end cannot be made.
    static std::unique_ptr<FrontEnd> forModel(const std::string& acousticModel);
    // For telling speakers apart: 30 unliftered cepstra from 40 filters, whose finer view of the
    // spectrum separates voices that the recogniser's 13 blur together. Returns null when the
    // front end cannot be made.
    static std::unique_ptr<FrontEnd> forSpeakers();

    // Values in each frame; the first is the energy.
    ~FrontEnd();
    FrontEnd(const FrontEnd&) = delete;
    FrontEnd& operator=(const FrontEnd&) = delete;

    int size() const { return mSize; }
    // Starts a new run of audio: what was fed before and not finished is dropped.
    void reset();
    // Appends to `frames` (size() values each) the frames that `count` more samples complete.
    void process(const int16_t* samples, size_t count, std::vector<float>* frames);
    // Ends the run: appends the last frame, padded with zeros, when samples are left over.
    void finish(std::vector<float>* frames);

  private:
    FrontEnd(fe_s* fe, int size);
    // With `config`, a parse of the recogniser's arguments, which it takes.
    static std::unique_ptr<FrontEnd> create(cmd_ln_s* config);

    fe_s* const mFe;
    const int mSize;
    std::vector<float> mScratch;  // frames as the front end writes them
};

}  // namespace pal_engine

#endif  // PAL_ENGINE_FRONT_END_H
