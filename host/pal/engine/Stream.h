// One capture stream of the engine: its model, its configuration, and while it is started the
// capture thread that reads the audio source, converts it, feeds the recogniser and raises the
// stream's events through its callback.
#ifndef PAL_ENGINE_STREAM_H
#define PAL_ENGINE_STREAM_H

#include <pal/pal_engine.h>
#include <pal/pal_types.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "AudioInput.h"
#include "EventPayload.h"
#include "Recogniser.h"
#include "Resampler.h"

namespace pal_engine {

// What the host chose to capture (pal_engine.h).
struct Source {
    enum class Kind { None, Files, Pcm };
    Kind kind = Kind::None;
    std::vector<std::string> paths;
    int fd = -1;
    Pace pace = Pace::RealTime;
};

// A configuration payload (PAL_PARAM_ID_ASR_CONFIG) as the engine uses it.
struct Settings {
    bool continuous = true;   // keep recognising after the first final result
    bool partial = false;     // raise partial hypotheses
    bool timestamps = false;  // raise final results as time-stamped events
    int32_t threshold = 0;    // lowest confidence of a final result that is raised
    int32_t timeoutMs = 0;    // end the recognition after this long without speech; 0: never
    int32_t silenceMs = kDefaultSilenceMs;
};

// Reads a configuration payload. Returns 0; -22 for a malformed payload or a value out of range;
// -38 for a language other than en-US (id 0), translation or speaker diarization.
int32_t parseSettings(const pal_param_payload* payload, Settings* settings);

// Thread safety: every member may be called from any thread. mLock guards the state below it;
// the callback is never called with it held. The capture thread alone uses the recogniser while
// it runs (mRunning); the other members touch it only when no capture thread runs.
class Stream {
  public:
    // `device` is the format that a PCM source delivers.
    Stream(pal_stream_event_cb callback, unsigned long cookie, const pal_media_format& device);
    // Precondition: close() has returned.
    ~Stream();
    Stream(const Stream&) = delete;
    Stream& operator=(const Stream&) = delete;

    // The handle handed out for this stream: the address of a word that the stream owns.
    pal_stream_handle* handle() { return &mHandle; }

    // Parameters 77 (model; loads the recogniser, which takes a moment), 78 (configuration),
    // 79 (custom extras, ignored) and 80 (force output). Returns 0, -22 or -38 as
    // docs/ENGINE.md lists.
    int32_t setParam(uint32_t id, const pal_param_payload* payload);
    // Starts capturing `source`; first waits for an event callback left running by a stop.
    // Returns 0; -22 when started already, no model is loaded or called on the capture thread;
    // -19 when there is no source; -5 when a file cannot be opened or decoded.
    int32_t start(const Source& source);
    // After it returns no event begins. An event already being delivered on the capture thread
    // is not waited for (its callback may wait for what the caller holds); close() waits for it.
    // Returns 0, or -22 when called on the capture thread.
    int32_t stop();
    // Stops and waits for the capture thread to end. Returns 0, or -22 when called on the
    // capture thread.
    int32_t close();
    // Whether the calling thread is this stream's capture thread.
    bool onCaptureThread();

    // pal_engine::waitUntilDone for this stream.
    int32_t waitUntilDone(std::chrono::milliseconds timeout);

  private:
    struct Recording;
    // One part of the source with the converter for its format.
    struct Input {
        std::unique_ptr<AudioInput> audio;
        std::unique_ptr<Resampler> resampler;
    };

    void capture(std::vector<Input> inputs, Settings settings, Pace pace);
    // Ends the capture thread and joins it; a thread inside the stream callback is joined only
    // when `waitForCallback`.
    int32_t endCapture(bool waitForCallback);
    // Delivers `event` unless a stop came first. Returns false when the capture must end.
    bool raise(Event& event);
    // Waits until `deadline` or a stop or force-output request. Returns false on a stop.
    bool waitUntil(std::chrono::steady_clock::time_point deadline);
    // Takes the pending force-output request. Returns false on a stop.
    bool poll(bool* force);

    pal_stream_handle mHandle = 0;
    const pal_stream_event_cb mCallback;
    const unsigned long mCookie;
    const pal_media_format mDevice;

    std::mutex mLock;
    std::condition_variable mChanged;
    std::unique_ptr<Recogniser> mRecogniser;  // guarded by mLock
    Settings mSettings;                       // guarded by mLock
    std::thread mCapture;                     // guarded by mLock
    bool mStarted = false;                    // guarded by mLock: between start and stop
    bool mRunning = false;                    // guarded by mLock: the capture thread is at work
    bool mStopRequested = false;              // guarded by mLock
    bool mForceOutput = false;                // guarded by mLock
    bool mInCallback = false;                 // guarded by mLock
};

}  // namespace pal_engine

#endif  // PAL_ENGINE_STREAM_H
