#define LOG_TAG "Voxa"

#include "Voxa.h"

#include <android/binder_ibinder.h>
#include <log/log.h>
#include <pal/pal_api.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <map>
#include <sstream>

#include "AidlToPalConverter.h"
#include "Utils.h"

namespace aidl::vendor::orbo::hardware::voxa {

namespace {

// How long dump() waits for a session's lock before it reports the session as busy.
constexpr std::chrono::milliseconds kDumpPatience{100};

}  // namespace

const std::vector<std::string> supportedLanguages = [] {
    std::vector<std::string> rows;
    for (const Language& language : kLanguages) {
        rows.push_back(std::string(language.name) + " : " + language.code);
    }
    return rows;
}();

Voxa::Voxa() {
    ALOGI("%s: ", "Voxa");
}

Voxa::~Voxa() {
    ALOGI("%s: ", "~Voxa");
    // Deferred calls still queued may open streams or register with the PAL: they run first, and
    // a registration deferred from now on is dropped.
    mShuttingDown = true;
    mWorker.stop();
    if (mRegisteredWithPal) {
        pal_resources_available_param withdrawal = {nullptr, 0};
        pal_set_param(PAL_PARAM_ID_RESOURCES_AVAILABLE, &withdrawal, sizeof(withdrawal));
    }
    SessionTable sessions;
    {
        ScopedLock<Mutex> lock(mSessionsLock);
        mDeathRecipient.set(nullptr);
        sessions.swap(mSessions);
    }
    // Each stream's cookie points to its session, which goes with the table.
    for (auto& [handle, session] : sessions) session->close();
    // What callbacks deferred while the streams closed.
    mWorker.stop();
}

std::shared_ptr<VoxaSession> Voxa::getSession(int handle) {
    ScopedLock<Mutex> lock(mSessionsLock);
    auto entry = mSessions.find(handle);
    if (entry == mSessions.end()) {
        ALOGE("%s: client not found for handle %d", __func__, handle);
        return nullptr;
    }
    return entry->second;
}

std::shared_ptr<VoxaSession> Voxa::getSessionFor(const char* operation, int32_t handle) {
    std::shared_ptr<VoxaSession> session = getSession(handle);
    if (session == nullptr) {
        ALOGE("%s: invalid handle %d", operation, handle);
    }
    return session;
}

ndk::ScopedAStatus Voxa::initSession(const VoxaModel& model,
                                     const std::shared_ptr<IVoxaCallback>& callback,
                                     int32_t* handle) {
    ALOGI("%s: Enter", __func__);

    // Handles are never reused, not even after a failed load.
    uint64_t deathsSeen;
    const int32_t newHandle = reserveHandle(&deathsSeen);
    *handle = newHandle;

    // A device's binder refuses a null callback before it reaches us; a caller in the same
    // process can still pass one, and events would then have nowhere to go.
    if (callback == nullptr) {
        dropReservation(newHandle);
        ALOGE("%s: null callback for handle %d", __func__, newHandle);
        return Utils::convertToAidlStatus(PAL_STATUS_INVALID);
    }

    auto session = std::make_shared<VoxaSession>(newHandle, callback, mWorker);
    if (SessionLock::insidePalCallback()) {
        // The stream opens on the worker, after the session is in the table: calls the client
        // makes meanwhile queue behind the open, and a failed open takes the session out again.
        if (addSession(newHandle, session, deathsSeen)) {
            session->loadModel(model, [this, newHandle, opened = session.get()](int status) {
                ALOGE("initSession: Failed to load model with handle %d, status %d", newHandle,
                      status);
                ScopedLock<Mutex> lock(mSessionsLock);
                auto entry = mSessions.find(newHandle);
                if (entry != mSessions.end() && entry->second.get() == opened) eraseSessionL(entry);
            });
        }
        ALOGI("%s: Exit handle %d, status %d", __func__, newHandle, 0);
        return Utils::convertToAidlStatus(0);
    }

    int status = session->loadModel(model);
    if (status != 0) {
        dropReservation(newHandle);
        ALOGE("%s: Failed to load model with handle %d, status %d", __func__, newHandle, status);
        return Utils::convertToAidlStatus(status);
    }

    if (!addSession(newHandle, session, deathsSeen)) {
        // The client died while its model loaded: the session goes the way its others went.
        session->stop();
        session->close();
    }
    ALOGI("%s: Exit handle %d, status %d", __func__, newHandle, status);
    return Utils::convertToAidlStatus(status);
}

ndk::ScopedAStatus Voxa::releaseSession(int32_t handle) {
    ALOGI("%s: Enter handle %d", __func__, handle);
    std::shared_ptr<VoxaSession> session = getSessionFor(__func__, handle);
    if (session == nullptr) return Utils::convertToAidlStatus(PAL_STATUS_INVALID);

    int status = session->close();
    if (status != 0) {
        ALOGE("%s: Failed to unload model with handle %d, status %d", __func__, handle, status);
    }

    ScopedLock<Mutex> lock(mSessionsLock);
    auto entry = mSessions.find(handle);
    if (entry != mSessions.end()) eraseSessionL(entry);
    ALOGI("%s: Exit handle %d, status %d", __func__, handle, status);
    return Utils::convertToAidlStatus(status);
}

ndk::ScopedAStatus Voxa::startListening(int32_t handle, const VoxaConfig& config) {
    ALOGI("%s: Enter handle %d", __func__, handle);
    std::shared_ptr<VoxaSession> session = getSessionFor(__func__, handle);
    if (session == nullptr) return Utils::convertToAidlStatus(PAL_STATUS_INVALID);

    int status = session->start(config);
    if (status != 0) {
        // No exit line on this path, unlike stop and setParameter.
        ALOGE("%s: Failed to start with handle %d, status %d", __func__, handle, status);
    } else {
        ALOGI("%s: Exit handle %d, status %d", __func__, handle, status);
    }
    return Utils::convertToAidlStatus(status);
}

ndk::ScopedAStatus Voxa::stopListening(int32_t handle) {
    ALOGI("%s: Enter handle %d", __func__, handle);
    std::shared_ptr<VoxaSession> session = getSessionFor(__func__, handle);
    if (session == nullptr) return Utils::convertToAidlStatus(PAL_STATUS_INVALID);

    int status = session->stop();
    if (status != 0) {
        ALOGE("%s: Failed to stop recognition model with handle %d, status %d", __func__, handle,
              status);
    }
    ALOGI("%s: Exit handle %d, status %d", __func__, handle, status);
    return Utils::convertToAidlStatus(status);
}

ndk::ScopedAStatus Voxa::setParameter(int32_t handle, const VoxaParameter& param) {
    ALOGI("%s: Enter handle %d", __func__, handle);
    std::shared_ptr<VoxaSession> session = getSessionFor(__func__, handle);
    if (session == nullptr) return Utils::convertToAidlStatus(PAL_STATUS_INVALID);

    int status = session->setParameter(param);
    if (status != 0) {
        ALOGE("%s: Failed to set param with handle %d, status %d", __func__, handle, status);
    }
    ALOGI("%s: Exit handle %d, status %d", __func__, handle, status);
    return Utils::convertToAidlStatus(status);
}

ndk::ScopedAStatus Voxa::getSupportedLanguages(int32_t handle,
                                               std::vector<std::string>* languages) {
    ALOGI("%s: Enter handle %d", __func__, handle);
    languages->insert(languages->end(), supportedLanguages.begin(), supportedLanguages.end());
    ALOGI("%s: Exit handle %d, status %d", __func__, handle, 0);
    return Utils::convertToAidlStatus(0);
}

ndk::ScopedAStatus Voxa::registerGlobalCallback(
        const std::shared_ptr<IVoxaGlobalCallback>& callback) {
    // See initSession: only a caller in the same process can pass a null callback.
    if (callback == nullptr) {
        ALOGE("%s: null callback", __func__);
        ALOGI("%s: Exit, status %d", __func__, PAL_STATUS_INVALID);
        return Utils::convertToAidlStatus(PAL_STATUS_INVALID);
    }

    int status = 0;
    if (!SessionLock::insidePalCallback()) {
        status = registerWithPal();
        if (status != 0) {
            ALOGI("%s: Exit, status %d", __func__, status);
            return Utils::convertToAidlStatus(status);
        }
    } else {
        // Every registration hands the PAL the same function and cookie, so its order does not
        // matter; the callback is kept and its holder watched at once.
        ALOGI("%s: PAL calls deferred to the worker", __func__);
        mWorker.post([this] {
            if (mShuttingDown) return;
            int result = registerWithPal();
            ALOGI("registerGlobalCallback: deferred PAL calls done, status %d", result);
        });
    }

    {
        // The recipient and the callback are shared with releaseSession's unlink, which runs
        // under the same lock; registrations from several threads also take their turn.
        ScopedLock<Mutex> lock(mSessionsLock);
        mDeathRecipient.set(AIBinder_DeathRecipient_new(clientDiedCallback));
        mClientWatched = false;
        binder_status_t linkResult = STATUS_OK;
        if (mDeathRecipient.get() == nullptr) {
            ALOGE("%s: Unable to create death recepient", __func__);
            status = PAL_STATUS_INVALID;
        } else if (ndk::SpAIBinder binder = callback->asBinder();
                   !watchClientL(binder.get(), &linkResult)) {
            ndk::ScopedAStatus linkStatus(AStatus_fromStatus(linkResult));
            status = linkStatus.getStatus();
            ALOGE("%s: link to death notification failed, status %d: %s", __func__, status,
                  linkStatus.getMessage());
        }

        // Kept even when the client could not be watched: resources notifications still reach it.
        std::atomic_store(&mGlobalCallback, callback);
    }
    ALOGI("%s: Exit, status %d", __func__, status);
    return Utils::convertToAidlStatus(status);
}

int Voxa::registerWithPal() {
    pal_resources_available_param registration = {&Voxa::onResourcesAvailable,
                                                  reinterpret_cast<unsigned long>(this)};
    int status =
            pal_set_param(PAL_PARAM_ID_RESOURCES_AVAILABLE, &registration, sizeof(registration));
    if (status != 0) {
        ALOGE("registerGlobalCallback: failed to set resources available callback, status %d",
              status);
    } else {
        mRegisteredWithPal = true;
    }
    return status;
}

void Voxa::onResourcesAvailable(unsigned long cookie) {
    SessionLock::InPalCallback inCallback;
    if (cookie != 0) {
        auto* voxa = reinterpret_cast<Voxa*>(cookie);
        voxa->mResourcesNotifications++;
        std::shared_ptr<IVoxaGlobalCallback> callback = std::atomic_load(&voxa->mGlobalCallback);
        if (callback != nullptr) callback->onResourcesAvailable();
    }
    ALOGI("%s: Exit", __func__);
}

binder_status_t Voxa::dump(int fd, const char** /*args*/, uint32_t /*numArgs*/) {
    std::map<int, std::shared_ptr<VoxaSession>> sessions;
    bool watched;
    uint64_t issued;
    {
        ScopedLock<Mutex> lock(mSessionsLock);
        sessions.insert(mSessions.begin(), mSessions.end());
        watched = mClientWatched;
        issued = mHandlesIssued;
    }
    std::ostringstream out;
    out << descriptor << "/default, interface version " << version << "\n"
        << "handles issued: " << issued << ", next " << mNextHandle << "\n"
        << "global callback: " << (std::atomic_load(&mGlobalCallback) ? "registered" : "none")
        << ", holder " << (watched ? "watched" : "not watched") << "\n"
        << "resources-available notifications: " << mResourcesNotifications << "\n"
        << "sessions: " << sessions.size() << "\n";
    for (auto& [handle, session] : sessions) out << session->dump(kDumpPatience);

    const std::string report = out.str();
    for (size_t written = 0; written < report.size();) {
        ssize_t result = write(fd, report.data() + written, report.size() - written);
        if (result < 0 && errno == EINTR) continue;
        if (result < 0) return STATUS_FAILED_TRANSACTION;
        written += static_cast<size_t>(result);
    }
    return STATUS_OK;
}

void Voxa::clientDied() {
    // The table lock is not held while a session is stopped and closed: the stop may wait for a
    // delivery whose client is calling the service. Each session stays in the table until it is
    // closed, so that a request that races the death finds it (and waits for it, or closes it)
    // rather than returning while the session still listens.
    std::vector<std::pair<int, std::shared_ptr<VoxaSession>>> sessions;
    {
        ScopedLock<Mutex> lock(mSessionsLock);
        sessions.assign(mSessions.begin(), mSessions.end());
        ++mDeaths;
        mClientWatched = false;
    }
    for (auto& [handle, session] : sessions) {
        session->stop();
        session->close();
        ScopedLock<Mutex> lock(mSessionsLock);
        auto entry = mSessions.find(handle);
        if (entry != mSessions.end() && entry->second == session) mSessions.erase(entry);
    }
}

int32_t Voxa::reserveHandle(uint64_t* deathsSoFar) {
    ScopedLock<Mutex> lock(mSessionsLock);
    *deathsSoFar = mDeaths;
    // After the counter wraps around, a handle still in use is skipped, never shared.
    int32_t handle;
    do {
        handle = mNextHandle.fetch_add(1);
        ++mHandlesIssued;
    } while (mSessions.count(handle) != 0 || mReservedHandles.count(handle) != 0);
    mReservedHandles.insert(handle);
    return handle;
}

void Voxa::dropReservation(int32_t handle) {
    ScopedLock<Mutex> lock(mSessionsLock);
    mReservedHandles.erase(handle);
}

bool Voxa::addSession(int32_t handle, const std::shared_ptr<VoxaSession>& session,
                      uint64_t deathsSeen) {
    ScopedLock<Mutex> lock(mSessionsLock);
    mReservedHandles.erase(handle);
    if (mDeaths != deathsSeen) return false;
    mSessions[handle] = session;
    // Releasing the last session stopped watching the client; its next session watches it again.
    std::shared_ptr<IVoxaGlobalCallback> globalCallback = std::atomic_load(&mGlobalCallback);
    if (mSessions.size() == 1 && !mClientWatched && globalCallback != nullptr &&
        mDeathRecipient.get() != nullptr) {
        binder_status_t ignored;
        watchClientL(globalCallback->asBinder().get(), &ignored);
    }
    return true;
}

void Voxa::eraseSessionL(SessionTable::iterator entry) {
    mSessions.erase(entry);
    if (mSessions.empty()) {
        // The client stays watched while it has sessions (addSession watches it again). It may
        // never have registered a global callback; then there is nothing to unlink.
        std::shared_ptr<IVoxaGlobalCallback> globalCallback = std::atomic_load(&mGlobalCallback);
        if (globalCallback != nullptr) {
            ndk::SpAIBinder binder = globalCallback->asBinder();
            AIBinder_unlinkToDeath(binder.get(), mDeathRecipient.get(), this);
        }
        mClientWatched = false;
    }
}

bool Voxa::watchClientL(AIBinder* binder, binder_status_t* status) {
    *status = AIBinder_linkToDeath(binder, mDeathRecipient.get(), this);
    mClientWatched = *status == STATUS_OK;
    return mClientWatched;
}

void clientDiedCallback(void* cookie) {
    ALOGI("%s: Client died %pk", __func__, cookie);
    if (cookie != nullptr) static_cast<Voxa*>(cookie)->clientDied();
}

}  // namespace aidl::vendor::orbo::hardware::voxa
