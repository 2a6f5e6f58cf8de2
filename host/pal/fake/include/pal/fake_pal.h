/*
 * A programmable stand-in for the platform audio layer, for tests of code that calls the PAL API
 * (pal/pal_api.h). Linking the pal_fake library provides the six PAL functions; each records a
 * copy of its arguments and returns a result that the test scripted (0 unless told otherwise).
 * The test drives the other direction through FakePal: it raises stream events and reports
 * engine resources as available, and the fake calls the registered functions on one of its own
 * event threads, as the PAL library does.
 *
 * A PAL may wait, inside pal_stream_stop, pal_stream_close and pal_set_param, for the callbacks
 * it is running. The fake always does so in pal_stream_close and in pal_set_param of the
 * resources-available registration, for callbacks running on other threads; in strict mode
 * (setStrict) it does so in all three, and a call made on a thread that is running such a
 * callback fails the test at once, as it would hang on such a PAL. A wait that lasts longer than
 * kCallbackPatience fails the test too, with a message naming the call, instead of hanging.
 *
 * Thread safety: every member of FakePal may be called from any thread, and the PAL functions may
 * be called concurrently with them, also from inside a callback that the fake is making. The
 * fake never holds a lock of its own while it calls into the code under test.
 */
#ifndef PAL_FAKE_PAL_H
#define PAL_FAKE_PAL_H

#include <pal/pal_api.h>
#include <pal/pal_functions.h>

#include <array>
#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <future>
#include <mutex>
#include <optional>
#include <ostream>
#include <thread>
#include <vector>

namespace fake_pal {

using Function = pal_host::PalFunction;
using pal_host::toString;

// One call of a PAL function: copies of everything it was given. Fields that the function does
// not take stay empty, zero or null.
struct Call {
    Function function = Function::StreamOpen;
    // The handle the call was given; for a successful pal_stream_open the handle it handed out.
    pal_stream_handle* stream = nullptr;
    uint32_t paramId = 0;
    // pal_stream_set_param: the 4-byte count and the bytes it counts. pal_set_param: `size` bytes.
    std::vector<uint8_t> payload;
    // pal_stream_open: the attribute record and `num_devices` device records, as bytes.
    std::vector<uint8_t> attributes;
    std::vector<uint8_t> devices;
    uint32_t numDevices = 0;
    uint32_t numModifiers = 0;
    bool modifiersNull = true;
    pal_stream_event_cb callback = nullptr;
    unsigned long cookie = 0;
    // The thread that made the call.
    std::thread::id thread = std::this_thread::get_id();
};

// How raiseEvent hands an event to the callback. By default the callback gets the stream's
// handle, a copy of the payload and the payload's size; these override each, so that tests can
// present the malformed calls that the code under test must refuse.
struct Delivery {
    // Which of the fake's event threads makes the call (below kEventThreads).
    size_t thread = 0;
    bool nullStream = false;
    bool nullPayload = false;
    std::optional<uint32_t> size;
};

// raiseEvent's result when no callback was made: the stream is unknown (never handed out, or
// forgotten by reset) or was opened without a callback.
constexpr int32_t kNotDelivered = PAL_STATUS_NO_DEVICE;

// Event payloads are copied to storage of exactly their size (so that AddressSanitizer reports
// reads past the end) aligned to this many bytes.
constexpr size_t kPayloadAlignment = 16;

constexpr size_t kEventThreads = 2;
constexpr std::chrono::seconds kCallbackPatience{5};

class FakePal {
  public:
    // The one fake, created on first use; its destructor at exit joins the event thread and
    // drops events still queued.
    static FakePal& instance();

    FakePal(const FakePal&) = delete;
    FakePal& operator=(const FakePal&) = delete;

    // Forgets the calls, the scripted results, the streams and the resources-available
    // registration. Events already raised are still delivered; handles handed out before are
    // never handed out again.
    void reset();

    // Forgets the calls only; streams, scripts and the registration stay.
    void clearCalls();

    // Strict mode (see above); it stays until changed, also across reset().
    void setStrict(bool strict);

    // Runs `hook` inside every later call of `function`, with the call's arguments, before the
    // call is recorded or its result chosen, and without any lock of the fake held (for example to
    // hold the caller there, or to queue the call's result). Null removes it.
    void setHook(Function function, std::function<void(const Call&)> hook);

    // The calls made since the last reset, in the order they were made.
    std::vector<Call> calls() const;
    std::vector<Call> calls(Function function) const;
    std::vector<Function> functions() const;

    // Every later call of `function` returns `result` once the queued results are used up.
    void setResult(Function function, int32_t result);
    // The next calls of `function` return `results` in order, after any queued before.
    void queueResults(Function function, std::vector<int32_t> results);

    // Streams opened and not yet closed since the last reset, in the order they were opened.
    std::vector<pal_stream_handle*> openStreams() const;

    // Calls the callback that `stream` was opened with, with its cookie and `eventId`, on the
    // event thread that `delivery` names, and returns what the callback returned. The stream may be
    // started or not (so that tests can check how the code under test treats early and late events)
    // but must still be open when the event's turn comes: as on a device, a closed stream raises
    // nothing. Each event thread delivers its events one at a time in the order in which they were
    // raised. Returns kNotDelivered when there is no callback to call. Precondition: not called
    // from inside a callback that the fake is making (it would wait on itself); use raiseEventAsync
    // there.
    int32_t raiseEvent(pal_stream_handle* stream, uint32_t eventId,
                       const std::vector<uint8_t>& payload, const Delivery& delivery = {});
    // As raiseEvent, without waiting: the future gets the callback's result.
    std::future<int32_t> raiseEventAsync(pal_stream_handle* stream, uint32_t eventId,
                                         const std::vector<uint8_t>& payload,
                                         const Delivery& delivery = {});

    // Calls the function registered with pal_set_param(PAL_PARAM_ID_RESOURCES_AVAILABLE) with
    // its cookie, on event thread 0, and waits for it. Returns false, calling nothing, when no
    // function is registered. Same precondition as raiseEvent.
    bool notifyResourcesAvailable();

    std::thread::id eventThread(size_t index = 0) const { return mThreads[index].thread.get_id(); }

  private:
    friend struct EntryPoints;

    struct Stream {
        pal_stream_handle* handle;
        pal_stream_event_cb callback;
        unsigned long cookie;
        bool open;
    };
    static constexpr size_t kFunctionCount = pal_host::kPalFunctionCount;
    struct Script {
        int32_t result = 0;
        std::deque<int32_t> queued;
    };

    FakePal();
    ~FakePal();

    // Records `call` and returns its scripted result, applying the call's effect on success:
    // pal_stream_open creates a stream and writes its handle to `*openedStream` (when not null),
    // pal_stream_close marks the stream closed, and a pal_set_param with the resources-available
    // registration stores it.
    int32_t record(Call call, pal_stream_handle** openedStream);
    void runHook(const Call& call);
    int32_t deliver(pal_stream_handle* stream, const std::function<int32_t()>& callback);
    void finishCallback(pal_stream_handle* stream);
    // Waits, for `call`, until no callback of `stream` (null: the resources-available function)
    // runs on another thread; fails the test as the class comment says.
    void waitForCallbacksLocked(std::unique_lock<std::mutex>& lock, const Call& call,
                                pal_stream_handle* stream);
    Stream* findStreamLocked(pal_stream_handle* handle);

    struct EventThread {
        std::mutex lock;
        std::condition_variable changed;
        std::deque<std::packaged_task<int32_t()>> queue;  // guarded by lock
        bool stopping = false;                            // guarded by lock
        std::thread thread;  // runs runEvents; started last, joined by the destructor
    };
    std::future<int32_t> post(size_t thread, std::packaged_task<int32_t()> task);
    static void runEvents(EventThread& thread);

    // A callback in progress; `stream` is null for the resources-available function.
    struct Running {
        std::thread::id thread;
        pal_stream_handle* stream;
    };

    mutable std::mutex mLock;
    std::vector<Call> mCalls;                     // guarded by mLock
    std::array<Script, kFunctionCount> mScripts;  // guarded by mLock; indexed by Function
    std::vector<Stream> mStreams;                 // guarded by mLock
    std::deque<pal_stream_handle> mHandles;       // guarded by mLock; never shrinks, so never moves
    pal_resources_available_param mResources{};   // guarded by mLock
    std::array<std::function<void(const Call&)>, kFunctionCount> mHooks;  // guarded by mLock
    std::vector<Running> mRunning;                                        // guarded by mLock
    bool mStrict = false;                                                 // guarded by mLock
    std::condition_variable mCallbackDone;  // signalled when a callback returns

    std::array<EventThread, kEventThreads> mThreads;
};

}  // namespace fake_pal

#endif  // PAL_FAKE_PAL_H
