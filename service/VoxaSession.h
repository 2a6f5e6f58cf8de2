// VoxaSession: one recognition session on one PAL capture stream.
#ifndef VOXA_SERVICE_VOXA_SESSION_H
#define VOXA_SERVICE_VOXA_SESSION_H

#include <aidl/vendor/orbo/hardware/voxa/IVoxaCallback.h>
#include <aidl/vendor/orbo/hardware/voxa/VoxaConfig.h>
#include <aidl/vendor/orbo/hardware/voxa/VoxaModel.h>
#include <aidl/vendor/orbo/hardware/voxa/VoxaParameter.h>
#include <pal/pal_api.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "PalWorker.h"
#include "SessionLock.h"

namespace aidl::vendor::orbo::hardware::voxa {

// One recognition session: one PAL capture stream of the ASR type, opened by loadModel, configured
// and started by start, closed by close. Results the engine raises on the stream reach the
// client's callback (palCallback).
//
// Every operation returns 0 or a negative errno-style status: the PAL's result passed through
// unchanged, or PAL_STATUS_INVALID where the session itself refuses the request.
//
// Threads: binder threads call the operations, possibly several at once; the PAL's event threads
// enter through palCallback. mLock serialises the operations and the start of each delivery, so
// the session's PAL calls never overlap; the client's callback runs outside mLock, and may call
// any operation of this or another session (SessionLock.h). After stop() or close() returns no
// delivery of this session begins, and when called from outside a callback no delivery is running.
//
// Operations called from inside a PAL callback of the service never call the PAL on that thread:
// they check what can be checked at once, end listening at once where they stop the stream, and
// hand their PAL calls to the PAL worker, which makes them in order, logs their outcome and
// reports "%s: deferred PAL calls done, handle %d, status = %d". Such a call returns 0 unless it
// is refused at once. Operations from other threads wait for the calls deferred before them.
//
// Lifetime: the service owns sessions through std::shared_ptr; a delivery and a deferred call hold
// a reference for as long as they run, so a client that releases the session from inside its
// callback does not free it under the delivering thread, and the session outlives its deferred
// close. The session's address is the stream's cookie, so a session must be closed before it is
// destroyed; the destructor does not close the stream. `worker` must outlive the session.
class VoxaSession : public std::enable_shared_from_this<VoxaSession> {
  public:
    VoxaSession(int handle, const std::shared_ptr<IVoxaCallback>& callback, PalWorker& worker);
    ~VoxaSession();

    VoxaSession(const VoxaSession&) = delete;
    VoxaSession& operator=(const VoxaSession&) = delete;

    // Opens the stream and sends the model (parameter 77). A refused model closes the stream
    // again. When the PAL calls are deferred and fail, `onDeferredFailure` gets their status on
    // the worker.
    int loadModel(const VoxaModel& model,
                  const std::function<void(int status)>& onDeferredFailure = nullptr)
            EXCLUDES(mLock);
    // Sends the configuration (parameter 78) and starts the stream; on success the session
    // listens. PAL_STATUS_INVALID when the configuration names an unknown language.
    int start(const VoxaConfig& config) EXCLUDES(mLock);
    // Stops the stream, listening or not. Afterwards the session no longer listens.
    int stop() EXCLUDES(mLock);
    // Sends FORCE_OUTPUT_EVENT as parameter 80 and CUSTOM_EXTRAS as 79, with at most
    // kMaxParameterDataSize data bytes; PAL_STATUS_INVALID for any other parameter or more data.
    int setParameter(const VoxaParameter& parameter) EXCLUDES(mLock);
    // Stops a listening session, then closes the stream; returns the close result.
    int close() EXCLUDES(mLock);
    // start, stop, setParameter and close of a session whose stream is closed (or was never
    // opened) return PAL_STATUS_INVALID and call no PAL function.

    // A report of the session for the service's dump: state, stream, model, last configuration,
    // events delivered and dropped per kind, last PAL error. Waits at most `patience` for the
    // session's lock; a session busy for longer (in a long PAL call) is reported as busy.
    std::string dump(std::chrono::milliseconds patience) EXCLUDES(mLock);

    // The PAL stream callback; `cookie` is the session's address.
    static int32_t palCallback(unsigned long* streamHandle, unsigned int eventId,
                               unsigned int* eventData, unsigned int eventDataSize,
                               unsigned long cookie);

    static constexpr size_t kMaxParameterDataSize = 20;

  private:
    static constexpr int32_t kNotListening = 0;
    static constexpr int32_t kListening = 1;

    int openPalStream() REQUIRES(mLock);
    int stopL() REQUIRES(mLock);
    // The PAL calls of each operation, made with the lock held on the calling thread or on the
    // worker; each logs its failures.
    int openAndSendModelL(const std::vector<uint8_t>& model) REQUIRES(mLock);
    int configureAndStartL(const std::vector<uint8_t>& config) REQUIRES(mLock);
    int sendParameterL(uint32_t paramId, const std::vector<uint8_t>& payload) REQUIRES(mLock);
    int closeStreamL(bool stopFirst) REQUIRES(mLock);
    // Whether the stream is open, or will be once the deferred calls asked for so far have run.
    bool streamOpenL() const REQUIRES(mLock);
    // Outside a PAL callback, waits until the PAL calls deferred so far, of any session, have been
    // made: a client that released a session from its callback and then starts another finds
    // the engine free, as it would have without the deferral.
    void awaitDeferredCalls() EXCLUDES(mLock);
    // Hands `palCalls` to the worker, which runs them with the lock held; returns 0.
    int deferL(const char* operation, std::function<int(VoxaSession&)> palCalls) REQUIRES(mLock);
    // Logs that `operation` found no open stream; returns PAL_STATUS_INVALID.
    int refuseClosedL(const char* operation) REQUIRES(mLock);
    void setStateL(int32_t state) REQUIRES(mLock);
    // Returns `status`; a failure is remembered for dump().
    int palResultL(const char* function, int status) REQUIRES(mLock);
    void onEventCallback(unsigned int* eventData, unsigned int eventId) EXCLUDES(mLock);
    // Makes the client call outside mLock, marked as this session's delivery (SessionLock.h).
    template <typename Call>
    void deliverAndUnlock(Call call) RELEASE(mLock);

    const int32_t mHandle;
    SessionLock mLock;
    // Written under mLock only; read without it by the event thread while it waits for mLock.
    std::atomic<int32_t> mState{kNotListening};
    const std::shared_ptr<IVoxaCallback> mCallback;
    pal_stream_handle* mStreamHandle GUARDED_BY(mLock) = nullptr;
    PalWorker& mWorker;
    // A deferred open or close that the worker has not made yet.
    bool mOpenDeferred GUARDED_BY(mLock) = false;
    bool mCloseDeferred GUARDED_BY(mLock) = false;

    // What dump() reports.
    enum EventKind { kPlain, kTimestamp, kSdz, kEventKinds };
    std::array<std::atomic<uint64_t>, kEventKinds> mDelivered{};
    std::array<std::atomic<uint64_t>, kEventKinds> mDropped{};
    std::string mModel GUARDED_BY(mLock);
    std::string mConfig GUARDED_BY(mLock);
    std::string mLastPalError GUARDED_BY(mLock);
};

}  // namespace aidl::vendor::orbo::hardware::voxa

#endif  // VOXA_SERVICE_VOXA_SESSION_H
