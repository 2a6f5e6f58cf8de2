// One capture stream of the engine: its model, its configuration, and while it is started the
// capture thread that reads the audio source, converts it, and hands it to a Recording, which
// raises the stream's events through its callback.
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
#include "RecogniserCache.h"
#include "Resampler.h"
#include "Settings.h"
#include "Translator.h"

namespace pal_engine {

// What the host chose to capture (pal_engine.h).
struct Source {
    enum class Kind { None, Files, Pcm };
    Kind kind = Kind::None;
    std::vector<std::string> paths;
    int fd = -1;
    Pace pace = Pace::RealTime;
};

// Thread safety: every member may be called from any thread, the stream's callback included.
// mLock guards the state below it; the callback is never called with it held. While a capture
// thread runs (mRunning) it alone uses the recogniser and the translator; the other members
// touch them only when no capture thread runs, except Translator::interrupt.
class Stream {
  public:
    // `device` is the format that a PCM source delivers. The stream takes its recogniser from
    // `cache`, which must outlive it, and gives it back at close.
    Stream(pal_stream_event_cb callback, unsigned long cookie, const pal_media_format& device,
           RecogniserCache& cache);
    // Precondition: close() has returned on another thread than the capture thread.
    ~Stream();
    Stream(const Stream&) = delete;
    Stream& operator=(const Stream&) = delete;

    // The handle handed out for this stream: the address of a word that the stream owns.
    pal_stream_handle* handle() { return &mHandle; }

    // Parameters 77 (model; takes the recogniser from the cache, which may load it), 78
    // (configuration), 79 (custom extras, ignored) and 80 (force output). Returns 0,
    // PAL_STATUS_INVALID or PAL_STATUS_NOT_SUPPORTED as docs/ENGINE.md lists.
    int32_t setParam(uint32_t id, const pal_param_payload* payload);
    // Starts capturing `source`; first waits for the capture thread of the last start to end.
    // Returns 0; PAL_STATUS_INVALID when started already, no model is loaded or called on the
    // capture thread; PAL_STATUS_NO_DEVICE when there is no source; PAL_STATUS_IO when a file
    // cannot be opened or decoded or the translator cannot be started.
    int32_t start(const Source& source);
    // After it returns no event begins. Neither an event being delivered on the capture thread
    // nor the capture thread itself is waited for (the callback may wait for what the caller
    // holds, or be the caller); close() waits for them. Returns 0.
    int32_t stop();
    // Stops, waits for the capture thread to end and gives the recogniser back to the cache.
    // Returns 0, or PAL_STATUS_INVALID when called on the capture thread, which cannot wait for
    // itself.
    int32_t close();
    // Whether the calling thread is this stream's capture thread.
    bool onCaptureThread();

    // pal_engine::waitUntilDone for this stream.
    int32_t waitUntilDone(std::chrono::milliseconds timeout);

  private:
    // One part of the source with the converter for its format.
    struct Input {
        std::unique_ptr<AudioInput> audio;
        std::unique_ptr<Resampler> resampler;
    };

    void capture(std::vector<Input> inputs, Settings settings, Pace pace,
                 std::unique_ptr<FrontEnd> frontEnd);
    // Opens the inputs of `source`. Returns 0, PAL_STATUS_NO_DEVICE or PAL_STATUS_IO.
    int32_t open(const Source& source, std::vector<Input>* inputs);
    // Ends the capture thread; joins it when `waitForCallback` or when it is not delivering an
    // event, unless called on it.
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
    RecogniserCache& mCache;

    std::mutex mLock;
    std::condition_variable mChanged;
    std::unique_ptr<Recogniser> mRecogniser;  // guarded by mLock
    std::unique_ptr<Translator> mTranslator;  // guarded by mLock: one pipeline per stream
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
