// The engine as a whole: the one stream it has capacity for, the host's choice of audio source
// and the resources-available registration. The PAL functions and the host controls of
// pal_engine.h are thin wrappers around the one Engine.
#ifndef PAL_ENGINE_ENGINE_H
#define PAL_ENGINE_ENGINE_H

#include <pal/pal_api.h>
#include <pal/pal_engine.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <thread>

#include "Stream.h"

namespace pal_engine {

// Thread safety: every member may be called from any thread, a stream's callback included. mLock
// guards the state below it and is never held while a stream's thread is joined or a callback
// runs.
class Engine {
  public:
    // The one engine, created on first use; its destructor at exit closes a stream left open
    // and joins the notifier thread.
    static Engine& instance();

    int32_t open(const pal_stream_attrs* attributes, uint32_t deviceCount,
                 const pal_device* devices, uint32_t modifierCount, pal_stream_event_cb callback,
                 unsigned long cookie, pal_stream_handle** handle);
    int32_t setParam(pal_stream_handle* handle, uint32_t id, const pal_param_payload* payload);
    int32_t start(pal_stream_handle* handle);
    int32_t stop(pal_stream_handle* handle);
    int32_t close(pal_stream_handle* handle);
    int32_t setGlobalParam(uint32_t id, const void* payload, size_t size);

    void setSource(const Source& source);
    int32_t waitUntilDone(std::chrono::milliseconds timeout);

  private:
    Engine() = default;
    ~Engine();

    // Work of the notifier thread: waiting for a stream that its own callback closed, or, when
    // null, calling the resources-available function registered at the time.
    struct Job {
        std::shared_ptr<Stream> closing;
    };

    // The open stream when `handle` is its handle, else null.
    std::shared_ptr<Stream> find(pal_stream_handle* handle);
    // Runs the jobs in order until the engine quits.
    void notify();
    // With mLock held: a close has ended; the engine takes a new stream and reports it.
    void freed();
    // With mLock held: makes sure the notifier thread runs and sees the new job.
    void startNotifier();

    // Declared first, so that it outlives every stream, which gives its recogniser back at close.
    RecogniserCache mCache;
    std::mutex mLock;
    std::condition_variable mChanged;
    std::shared_ptr<Stream> mStream;  // guarded by mLock: the open stream
    bool mClosing = false;            // guarded by mLock: a close is ending the open stream
    Source mSource;                   // guarded by mLock
    pal_resources_available_param mResources = {};  // guarded by mLock
    bool mNotifying = false;  // guarded by mLock: the resources function is being called
    std::deque<Job> mJobs;    // guarded by mLock
    bool mQuitting = false;   // guarded by mLock
    std::thread mNotifier;    // guarded by mLock: runs notify(); started by the first job
};

}  // namespace pal_engine

#endif  // PAL_ENGINE_ENGINE_H
