// One stream of the PAL engine opened as the service opens it, with the shipped model, that
// recognises a source and records what its callback receives: the final results with the time
// each was delivered, and the speakers of the diarization events.
#ifndef VOXA_BENCH_ENGINE_SESSION_H
#define VOXA_BENCH_ENGINE_SESSION_H

#include <pal/pal_api.h>
#include <pal/pal_engine.h>

#include <chrono>
#include <mutex>
#include <string>
#include <vector>

#include "Segment.h"

namespace voxa_bench {

using Clock = std::chrono::steady_clock;

class EngineSession {
  public:
    struct Final {
        std::string text;
        std::string json;
        Clock::time_point delivered;
        Clock::time_point previous;  // when the event before it was delivered, or the start
    };

    EngineSession();
    ~EngineSession();
    EngineSession(const EngineSession&) = delete;
    EngineSession& operator=(const EngineSession&) = delete;

    // Recognises `files` with `config` (its payload_size set here); returns false when the
    // engine refuses.
    bool run(pal_asr_config config, const std::vector<std::string>& files, pal_engine::Pace pace);

    Clock::time_point started() const { return mStarted; }
    std::vector<Final> finals();
    std::vector<Segment> speakers();

  private:
    static int32_t callback(pal_stream_handle*, unsigned int id, unsigned int* data, unsigned int,
                            unsigned long cookie);

    bool mOk = false;
    pal_stream_handle* mStream = nullptr;
    Clock::time_point mStarted;
    std::mutex mLock;
    std::vector<Final> mFinals;      // guarded by mLock
    std::vector<Segment> mSpeakers;  // guarded by mLock
    Clock::time_point mLastEvent;    // guarded by mLock
};

}  // namespace voxa_bench

#endif  // VOXA_BENCH_ENGINE_SESSION_H
