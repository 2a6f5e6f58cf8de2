// Where a stream's audio comes from: a sound file decoded with libsndfile, or raw PCM read from a
// descriptor. Each input delivers interleaved samples in [-1, 1] at its own rate and channel
// count; the stream converts them for the recogniser (Resampler).
#ifndef PAL_ENGINE_AUDIO_INPUT_H
#define PAL_ENGINE_AUDIO_INPUT_H

#include <pal/pal_api.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>

namespace pal_engine {

enum class ReadStatus {
    Data,     // samples were read
    Pending,  // none yet (a live source is quiet): try again
    End,      // the input is exhausted
    Error,    // the input cannot be read any further
};

// Used by one thread at a time.
class AudioInput {
  public:
    virtual ~AudioInput() = default;
    virtual int rate() const = 0;
    virtual int channels() const = 0;
    // Reads at most `frames` frames into `samples` (room for frames * channels() values) and
    // sets `*count` to the frames read (0 unless Data). Waits at most a few tens of
    // milliseconds, so that the caller can check for a stop between calls.
    virtual ReadStatus read(float* samples, size_t frames, size_t* count) = 0;
};

// Opens a sound file in any format that libsndfile decodes (WAV, FLAC, Ogg...). Returns 0, or
// PAL_STATUS_IO when the file cannot be opened or decoded.
int32_t openSoundFile(const std::string& path, std::unique_ptr<AudioInput>* input);

// Raw signed 16-bit little-endian PCM, `channels` interleaved at `rate` Hz, read from `fd` until
// end of file. The descriptor stays the caller's and must stay open while the input is used.
std::unique_ptr<AudioInput> makePcmInput(int fd, int rate, int channels);

}  // namespace pal_engine

#endif  // PAL_ENGINE_AUDIO_INPUT_H
