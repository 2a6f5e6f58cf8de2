#pragma once

#include <aidl/vendor/orbo/hardware/voxa/BnVoxa.h>
#include <aidl/vendor/orbo/hardware/voxa/IVoxaGlobalCallback.h>
#include <android/binder_auto_utils.h>

#include <atomic>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>
#include <vector>

#include "VoxaSession.h"

namespace aidl::vendor::orbo::hardware::voxa {

// The rows that getSupportedLanguages lists, "name : code"; row i's code has language id i.
// Built during static initialisation; read-only afterwards.
extern const std::vector<std::string> supportedLanguages;

// The service object: the table of recognition sessions and the binder entry points that work on
// them. One exists per process (registerService); it lives as long as its binder.
//
// Threads: binder threads call every operation concurrently; the PAL calls onResourcesAvailable on
// its own thread and binder delivers client death on another. Lock order: mSessionsLock may be
// held while a session's lock is taken, never the reverse.
class Voxa : public BnVoxa {
  public:
    Voxa();
    ~Voxa() override;

    // Registers the PAL resources-available notification (parameter 75) and watches the
    // callback's process: its death stops and closes every session.
    ndk::ScopedAStatus registerGlobalCallback(
            const std::shared_ptr<IVoxaGlobalCallback>& callback) override;
    ndk::ScopedAStatus initSession(const VoxaModel& model,
                                   const std::shared_ptr<IVoxaCallback>& callback,
                                   int32_t* handle) override;
    ndk::ScopedAStatus startListening(int32_t handle, const VoxaConfig& config) override;
    ndk::ScopedAStatus setParameter(int32_t handle, const VoxaParameter& param) override;
    ndk::ScopedAStatus stopListening(int32_t handle) override;
    ndk::ScopedAStatus releaseSession(int32_t handle) override;
    // Appends every supported-language row to *languages; the handle is only logged.
    ndk::ScopedAStatus getSupportedLanguages(int32_t handle,
                                             std::vector<std::string>* languages) override;

    // The session under `handle`, or empty (logged) when there is none.
    std::shared_ptr<VoxaSession> getSession(int handle);

    // Stops and closes every session and empties the table; the global callback's holder died.
    void clientDied();

    // Called by the PAL with the Voxa object's address as `cookie`.
    static void onResourcesAvailable(unsigned long cookie);

  private:
    // getSession for a request: an unknown handle also gets the request's own error line.
    std::shared_ptr<VoxaSession> getSessionFor(const char* operation, int32_t handle);

    // Read and replaced atomically (std::atomic_load/std::atomic_store): a binder thread sets it
    // while the PAL's thread may be reading it.
    std::shared_ptr<IVoxaGlobalCallback> mGlobalCallback;
    std::atomic<int32_t> mNextHandle{0};
    std::unordered_map<int, std::shared_ptr<VoxaSession>> mSessions;  // guarded by mSessionsLock
    std::mutex mSessionsLock;
    // Replaced by registerGlobalCallback and used by releaseSession, both under mSessionsLock.
    ndk::ScopedAIBinder_DeathRecipient mDeathRecipient;
};

// The death recipient's function; `cookie` is the Voxa object's address.
void clientDiedCallback(void* cookie);

}  // namespace aidl::vendor::orbo::hardware::voxa
