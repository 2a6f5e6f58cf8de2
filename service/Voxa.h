// Voxa: the service object, its session table and the IVoxa entry points.
#ifndef VOXA_SERVICE_VOXA_H
#define VOXA_SERVICE_VOXA_H

#include <aidl/vendor/orbo/hardware/voxa/BnVoxa.h>
#include <aidl/vendor/orbo/hardware/voxa/IVoxaGlobalCallback.h>
#include <android/binder_auto_utils.h>

#include <atomic>
#include <memory>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "Mutex.h"
#include "PalWorker.h"
#include "VoxaSession.h"

namespace aidl::vendor::orbo::hardware::voxa {

// The rows that getSupportedLanguages lists, "name : code", one per row of kLanguages.
// Built during static initialisation; read-only afterwards.
extern const std::vector<std::string> supportedLanguages;

// The service object: the table of recognition sessions and the binder entry points that work on
// them. One exists per process (registerService); it lives as long as its binder.
//
// Threads: binder threads call every operation concurrently; the PAL calls onResourcesAvailable on
// its own thread and binder delivers client death on another. A client may call any operation from
// inside its callbacks. mSessionsLock is held only for short work on the table and the death watch,
// never while a session's lock is taken or a session is called, so the two never nest. Operations
// called from inside a PAL callback hand their PAL calls to mWorker (VoxaSession.h), and so does
// registerGlobalCallback, whose callback is then kept and watched at once.
//
// Lifetime: the destructor runs the deferred calls still queued and closes every session; it must
// not run on a PAL callback thread.
class Voxa : public BnVoxa {
  public:
    Voxa();
    // Closes the sessions still open and withdraws the resources-available registration, so that
    // the PAL calls nothing of this object once it is gone.
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

    // The state report that dumpsys prints: handles issued, the global callback and whether its
    // holder is watched, resources notifications, and every session (VoxaSession::dump). Never
    // waits long on a session that is busy in a PAL call.
    binder_status_t dump(int fd, const char** args, uint32_t numArgs) override;

    // The session under `handle`, or empty (logged) when there is none.
    std::shared_ptr<VoxaSession> getSession(int handle) EXCLUDES(mSessionsLock);

    // Stops and closes every session and empties the table; the global callback's holder died.
    void clientDied() EXCLUDES(mSessionsLock);

    // Called by the PAL with the Voxa object's address as `cookie`.
    static void onResourcesAvailable(unsigned long cookie);

    // Returns once the PAL calls deferred so far have been made; for tests.
    void waitForDeferredCalls() { mWorker.waitForPosted(); }

    // The handle the next initSession draws; for tests of the counter's wrap-around.
    void setNextHandle(int32_t handle) { mNextHandle = handle; }

  private:
    using SessionTable = std::unordered_map<int, std::shared_ptr<VoxaSession>>;

    // getSession for a request: an unknown handle also gets the request's own error line.
    std::shared_ptr<VoxaSession> getSessionFor(const char* operation, int32_t handle);
    // The next handle that names no session and no initSession in progress; reserved until
    // addSession or dropReservation. `*deathsSoFar` is the client deaths so far, for addSession.
    int32_t reserveHandle(uint64_t* deathsSoFar) EXCLUDES(mSessionsLock);
    // Puts the session in the table under its reserved handle. Returns false, and adds nothing,
    // when the client died since `deathsSeen` was read: the caller then closes the session.
    bool addSession(int32_t handle, const std::shared_ptr<VoxaSession>& session,
                    uint64_t deathsSeen) EXCLUDES(mSessionsLock);
    void dropReservation(int32_t handle) EXCLUDES(mSessionsLock);
    // Erases a session; erasing the last one stops watching the client.
    void eraseSessionL(SessionTable::iterator entry) REQUIRES(mSessionsLock);
    // Registers onResourcesAvailable with the PAL; returns the PAL's status, logging a refusal.
    int registerWithPal();
    // Links the death recipient to the global callback's holder; false when it cannot be watched.
    bool watchClientL(AIBinder* binder, binder_status_t* status) REQUIRES(mSessionsLock);

    // Declared first so that it goes last: sessions keep a reference to it.
    PalWorker mWorker;
    // Read and replaced atomically (std::atomic_load/std::atomic_store): a binder thread sets it
    // while the PAL's thread may be reading it.
    std::shared_ptr<IVoxaGlobalCallback> mGlobalCallback;
    std::atomic<int32_t> mNextHandle{0};
    Mutex mSessionsLock;
    SessionTable mSessions GUARDED_BY(mSessionsLock);
    // Handles drawn by an initSession still loading its model.
    std::unordered_set<int32_t> mReservedHandles GUARDED_BY(mSessionsLock);
    ndk::ScopedAIBinder_DeathRecipient mDeathRecipient GUARDED_BY(mSessionsLock);
    // Whether mDeathRecipient is linked to the global callback's holder.
    bool mClientWatched GUARDED_BY(mSessionsLock) = false;
    // Client deaths so far: an initSession that overlapped one closes its session.
    uint64_t mDeaths GUARDED_BY(mSessionsLock) = 0;
    uint64_t mHandlesIssued GUARDED_BY(mSessionsLock) = 0;
    std::atomic<uint64_t> mResourcesNotifications{0};
    // Whether the PAL holds our resources-available registration.
    std::atomic<bool> mRegisteredWithPal{false};
    // Set by the destructor: a registration deferred from then on is dropped.
    std::atomic<bool> mShuttingDown{false};
};

// The death recipient's function; `cookie` is the Voxa object's address.
void clientDiedCallback(void* cookie);

}  // namespace aidl::vendor::orbo::hardware::voxa

#endif  // VOXA_SERVICE_VOXA_H
