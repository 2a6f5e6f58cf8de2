// The scripted engine's state and its player thread: the streams, the replies in force, the calls
// counted for awaits, and the scenario being played. The six PAL functions and the host controls
// of pal_scripted.h forward to the one Player.
#ifndef PAL_SCRIPTED_PLAYER_H
#define PAL_SCRIPTED_PLAYER_H

#include <pal/pal_types.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "Scenario.h"

namespace pal_scripted {

// Thread safety: every member may be called from any thread. mLock guards everything below it;
// no callback is ever made with it held.
class Player {
  public:
    // The one player, created on first use; its destructor at exit ends the player thread.
    static Player& instance();

    Player(const Player&) = delete;
    Player& operator=(const Player&) = delete;

    void load(Scenario scenario);
    int32_t waitUntilPlayed(std::chrono::milliseconds timeout, std::string* error);
    int32_t waitUntilPlayedOrStopped(std::string* error);

    // The PAL functions, with their pal_api.h contracts.
    int32_t open(pal_stream_event_cb callback, unsigned long cookie, pal_stream_handle** stream);
    int32_t setParam(pal_stream_handle* stream, uint32_t id, const pal_param_payload* payload);
    int32_t start(pal_stream_handle* stream);
    int32_t stop(pal_stream_handle* stream);
    int32_t close(pal_stream_handle* stream);
    int32_t setGlobalParam(uint32_t id, const void* payload, size_t size);

  private:
    enum class State { Idle, Playing, Played, Failed };

    struct Stream {
        pal_stream_handle handle = 0;  // its address is the handle handed out
        pal_stream_event_cb callback = nullptr;
        unsigned long cookie = 0;
        bool open = true;
        bool started = false;
        int ordinal = 0;  // order of opening since the load; 0 when opened before it
    };

    struct Reply {
        Function call;
        uint32_t param;
        int32_t status;
        int remaining;
    };

    Player();
    ~Player();

    void run();
    // Plays the step at mNext that waits or calls out; returns with mLock held.
    void playLocked(std::unique_lock<std::mutex>& lock);
    // Takes the steps that need no waiting (replies, and awaits already met), marks the scenario
    // played after its last step, and wakes every waiter.
    void settleLocked();
    void failLocked(const Step& step, const std::string& reason);

    // The end of waitUntilPlayed: 0, or PAL_STATUS_IO and the failure in `*error`.
    int32_t playedLocked(std::string* error) const;
    // Counts the call for awaits and returns the status of the reply in force for it, 0 when
    // there is none. The caller applies the call's effect, then lets the scenario go on with
    // settleLocked.
    int32_t replyLocked(Function call, uint32_t param);
    Stream* findLocked(pal_stream_handle* handle);
    Stream* targetLocked(const Step& step);

    std::mutex mLock;
    std::condition_variable mChanged;
    std::deque<Stream> mStreams;  // never shrinks, so handles stay valid for the process
    pal_resources_available_param mResources{};
    std::shared_ptr<const Scenario> mScenario;  // shared with a delivery in progress
    uint64_t mGeneration = 0;                   // counts loads; a wait ends when it changes
    State mState = State::Idle;
    size_t mNext = 0;  // the next step
    std::string mFailure;
    std::vector<Reply> mReplies;                          // in force, in the order given
    std::map<std::pair<Function, uint32_t>, int> mCalls;  // since the load, for awaits
    int mOpened = 0;                                      // streams opened since the load
    int mStopped = 0;                                     // started streams stopped since the load
    const Stream* mDelivering = nullptr;                  // the stream being called back
    bool mStopping = false;

    std::thread mThread;  // runs run(); started last, joined by the destructor
};

}  // namespace pal_scripted

#endif  // PAL_SCRIPTED_PLAYER_H
