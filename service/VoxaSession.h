#pragma once

#include <aidl/vendor/orbo/hardware/voxa/IVoxaCallback.h>
#include <aidl/vendor/orbo/hardware/voxa/VoxaConfig.h>
#include <aidl/vendor/orbo/hardware/voxa/VoxaModel.h>
#include <aidl/vendor/orbo/hardware/voxa/VoxaParameter.h>
#include <pal/pal_api.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <mutex>

namespace aidl::vendor::orbo::hardware::voxa {

// One recognition session: one PAL capture stream of the ASR type, opened by loadModel, configured
// and started by start, closed by close. Results the engine raises on the stream reach the
// client's callback (palCallback).
//
// Every operation returns 0 or a negative errno-style status: the PAL's result passed through
// unchanged, or -22 where the session itself refuses the request.
//
// Threads: binder threads call the operations, possibly several at once; the PAL's event thread
// enters through palCallback. mLock serialises all of them, PAL calls and client callbacks
// included. The session's address is the stream's cookie, so a session must be closed before it is
// destroyed; the destructor does not close the stream.
class VoxaSession {
  public:
    VoxaSession(int handle, const std::shared_ptr<IVoxaCallback>& callback);
    ~VoxaSession();

    VoxaSession(const VoxaSession&) = delete;
    VoxaSession& operator=(const VoxaSession&) = delete;

    // Opens the stream and sends the model (parameter 77). A refused model closes the stream again.
    int loadModel(const VoxaModel& model);
    // Sends the configuration (parameter 78) and starts the stream; on success the session
    // listens. -22 when the configuration names an unknown language.
    int start(const VoxaConfig& config);
    // Stops the stream, listening or not. Afterwards the session no longer listens.
    int stop();
    // Sends FORCE_OUTPUT_EVENT as parameter 80 and CUSTOM_EXTRAS as 79, with at most
    // kMaxParameterDataSize data bytes; -22 for any other parameter or more data.
    int setParameter(const VoxaParameter& parameter);
    // Stops a listening session, then closes the stream; returns the close result.
    int close();

    // The PAL stream callback; `cookie` is the session's address.
    static int32_t palCallback(unsigned long* streamHandle, unsigned int eventId,
                               unsigned int* eventData, unsigned int eventDataSize,
                               unsigned long cookie);

    static constexpr size_t kMaxParameterDataSize = 20;

  private:
    static constexpr int32_t kNotListening = 0;
    static constexpr int32_t kListening = 1;

    int openPalStream();  // requires mLock
    int stopL();          // requires mLock
    void onEventCallback(unsigned int* eventData, unsigned int eventId);

    const int32_t mHandle;
    std::mutex mLock;
    // Written under mLock only; read without it by the event thread while it waits for mLock.
    std::atomic<int32_t> mState{kNotListening};
    std::shared_ptr<IVoxaCallback> mCallback;
    pal_stream_handle* mStreamHandle = nullptr;  // guarded by mLock
};

}  // namespace aidl::vendor::orbo::hardware::voxa
