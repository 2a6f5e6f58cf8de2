/*
 * Host-side controls of the PAL engine (the pal_engine library), the implementation of the PAL
 * API (pal/pal_api.h) on the CMU PocketSphinx recogniser. The service reaches the engine only
 * through the PAL functions; the host process uses these to choose what the capture stream hears
 * and to learn when it has heard all of it. The library reads no configuration, environment or
 * file of its own: the audio comes from what is set here, the recogniser's files from the model
 * image handed to it (docs/ENGINE.md).
 *
 * Thread safety: every function may be called from any thread, concurrently with the PAL
 * functions, but not from inside a stream callback (they would wait on the engine's own thread).
 */
#ifndef PAL_ENGINE_H
#define PAL_ENGINE_H

#include <pal/pal_api.h>

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

namespace pal_engine {

// The engine's UUID, as a VoxaModel's vendorUuid names it. A model payload
// (PAL_PARAM_ID_ASR_MODEL) for any other UUID is refused with PAL_STATUS_INVALID.
constexpr char kEngineUuid[] = "6f1d2c3b-8a47-4e95-b0c2-5d7e9a31f648";
constexpr st_uuid kEngineUuidRecord = {
        0x6f1d2c3b, 0x8a47, 0x4e95, 0xb0c2, {0x5d, 0x7e, 0x9a, 0x31, 0xf6, 0x48}};

enum class Pace {
    RealTime,  // as a microphone delivers it: a second of audio takes a second
    Fast,      // as fast as the recogniser decodes it
};

// Makes every later pal_stream_start capture the sound files `paths` (any format libsndfile
// decodes: WAV, FLAC, Ogg...), one after the other as one recording. The paths are copied; the
// files are opened by pal_stream_start. Returns 0, or PAL_STATUS_INVALID when `paths` is empty.
int32_t setFileSource(const std::vector<std::string>& paths, Pace pace);

// Makes every later pal_stream_start capture raw PCM read from `fd` until end of file, in the
// format of the stream's device record (signed 16-bit little-endian, interleaved; the service
// opens 48 kHz stereo). The descriptor stays the caller's and must stay open until the stream
// is stopped. Returns 0, or PAL_STATUS_INVALID for a negative descriptor.
int32_t setPcmSource(int fd, Pace pace);

// Forgets the source: pal_stream_start then fails with PAL_STATUS_NO_DEVICE until one is set again.
void clearSource();

// Waits until the open stream's recognition is over: its source exhausted and the final result
// of the last utterance delivered (the callback returned), or the recognition ended by itself
// (a command's result, a time-out), or the stream stopped. Returns 0 when it is over, also at
// once when no stream is open or started; PAL_STATUS_TIMED_OUT when `timeout` passes first. A
// negative timeout waits without limit.
int32_t waitUntilDone(std::chrono::milliseconds timeout);

// What the engine can do, for a host that describes it to its users and checks its input before
// a start would fail. Abilities.cpp keeps it in step with the model image and the resampler.
struct Abilities {
    std::vector<std::string> recognised;    // language codes of the models it recognises with
    std::vector<std::string> translatedTo;  // language codes it translates into
    bool diarizes = false;                  // it tells speakers apart
    int minSampleRate = 0;                  // Hz, of a sound file or a PCM source
    int maxSampleRate = 0;
    int maxChannels = 0;
};

Abilities abilities();

// The controls above as one record, for a host that loads the engine as a shared library
// (libpal_engine.so), which exports the PAL functions and pal_engine_controls alone.
struct Controls {
    int32_t (*setFileSource)(const std::vector<std::string>& paths, Pace pace);
    int32_t (*setPcmSource)(int fd, Pace pace);
    void (*clearSource)();
    int32_t (*waitUntilDone)(std::chrono::milliseconds timeout);
    Abilities (*abilities)();
};

}  // namespace pal_engine

extern "C" const pal_engine::Controls* pal_engine_controls();

#endif  // PAL_ENGINE_H
