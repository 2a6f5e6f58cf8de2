// Converts captured audio to the recogniser's format: mixes the channels down to mono and
// resamples to 16 kHz with libsoxr, then quantises to signed 16-bit.
#ifndef PAL_ENGINE_RESAMPLER_H
#define PAL_ENGINE_RESAMPLER_H

#include <pal/pal_api.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

struct soxr;

namespace pal_engine {

// Not thread-safe.
class Resampler {
  public:
    // For input at `rate` Hz with `channels` interleaved channels. Returns 0, or PAL_STATUS_INVALID
    // for a rate or channel count that the resampler cannot take.
    static int32_t create(int rate, int channels, std::unique_ptr<Resampler>* resampler);
    ~Resampler();
    Resampler(const Resampler&) = delete;
    Resampler& operator=(const Resampler&) = delete;

    // Takes `frames` frames of samples in [-1, 1] and appends what is ready of the output to
    // `out`; the resampler keeps a short tail until flush.
    void convert(const float* samples, size_t frames, std::vector<int16_t>* out);
    // Ends the input: appends the rest of the output.
    void flush(std::vector<int16_t>* out);

  private:
    Resampler(soxr* resampler, int rate, int channels);
    void drain(const float* mono, size_t frames, std::vector<int16_t>* out);

    soxr* mResampler;
    const int mRate;
    const int mChannels;
    std::vector<float> mMono;    // scratch: the input mixed down
    std::vector<float> mOutput;  // scratch: the resampler's output
};

}  // namespace pal_engine

#endif  // PAL_ENGINE_RESAMPLER_H
