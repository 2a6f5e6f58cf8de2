#pragma once

#include <aidl/vendor/orbo/hardware/voxa/IVoxaCallback.h>
#include <aidl/vendor/orbo/hardware/voxa/VoxaConfig.h>
#include <aidl/vendor/orbo/hardware/voxa/VoxaModel.h>
#include <aidl/vendor/orbo/hardware/voxa/VoxaParameter.h>
#include <pal/pal_api.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <string>

#include "SessionLock.h"

namespace aidl::vendor::orbo::hardware::voxa {

// One recognition session: one PAL capture stream of the ASR type, opened by loadModel, configured
// and started by start, closed by close. Results the engine raises on the stream reach the
// client's callback (palCallback).
//
// Every operation returns 0 or a negative errno-style status: the PAL's result passed through
// unchanged, or -22 where the session itself refuses the request.
//
// Threads: binder threads call the operations, possibly several at once; the PAL's event thread
// enters through palCallback. mLock serialises the operations and the start of each delivery, so
// the session's PAL calls never overlap; the client's callback runs outside mLock, and may call
// any operation of this or another session (SessionLock.h). After stop() or close() returns no
// delivery of this session begins, and when called from outside a callback no delivery is running.
//
// Lifetime: the service owns sessions through std::shared_ptr, and a delivery holds a reference
// for as long as it runs, so a client that releases the session from inside its callback does not
// free it under the delivering thread. The session's address is the stream's cookie, so a session
// must be closed before it is destroyed; the destructor does not close the stream.
class VoxaSession : public std::enable_shared_from_this<VoxaSession> {
  public:
    VoxaSession(int handle, const std::shared_ptr<IVoxaCallback>& callback);
    ~VoxaSession();

    VoxaSession(const VoxaSession&) = delete;
    VoxaSession& operator=(const VoxaSession&) = delete;

    // Opens the stream and sends the model (parameter 77). A refused model closes the stream again.
    int loadModel(const VoxaModel& model) EXCLUDES(mLock);
    // Sends the configuration (parameter 78) and starts the stream; on success the session
    // listens. -22 when the configuration names an unknown language.
    int start(const VoxaConfig& config) EXCLUDES(mLock);
    // Stops the stream, listening or not. Afterwards the session no longer listens.
    int stop() EXCLUDES(mLock);
    // Sends FORCE_OUTPUT_EVENT as parameter 80 and CUSTOM_EXTRAS as 79, with at most
    // kMaxParameterDataSize data bytes; -22 for any other parameter or more data.
    int setParameter(const VoxaParameter& parameter) EXCLUDES(mLock);
    // Stops a listening session, then closes the stream; returns the close result.
    int close() EXCLUDES(mLock);
    // start, stop, setParameter and close of a session whose stream is closed (or was never
    // opened) return -22 and call no PAL function.

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
    // Logs that `operation` found no open stream; returns -22.
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

    // What dump() reports.
    enum EventKind { kPlain, kTimestamp, kSdz, kEventKinds };
    std::array<std::atomic<uint64_t>, kEventKinds> mDelivered{};
    std::array<std::atomic<uint64_t>, kEventKinds> mDropped{};
    std::string mModel GUARDED_BY(mLock);
    std::string mConfig GUARDED_BY(mLock);
    std::string mLastPalError GUARDED_BY(mLock);
};

}  // namespace aidl::vendor::orbo::hardware::voxa
