// Binders, their classes, weak references and death links.
//
// Reference counts are atomics, so taking and dropping references never blocks. Everything about
// death notification (links, the dead flag, each recipient's binders, the injected failures) is
// guarded by one lock, DeathState::mLock. No caller-supplied function (onCreate, onDestroy, a
// recipient) ever runs with a lock of this file held, so each may call back into the library; in
// particular strong references are dropped only after the lock is released.

#include <android/binder_ibinder.h>
#include <binder_host/test_controls.h>

#include <algorithm>
#include <atomic>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <unordered_map>
#include <utility>
#include <vector>

#include "InjectedFailures.h"

struct AIBinder_Class {
    std::string mDescriptor;
    AIBinder_Class_onCreate mOnCreate;
    AIBinder_Class_onDestroy mOnDestroy;
    AIBinder_onDump mOnDump = nullptr;  // set before the class's first binder is made
};

namespace {

struct DeathLink {
    AIBinder_DeathRecipient* recipient;
    void* cookie;
};

}  // namespace

struct AIBinder {
    explicit AIBinder(const AIBinder_Class* clazz) : mClass(clazz) {}

    const AIBinder_Class* const mClass;
    void* mUserData = nullptr;  // set before the binder is handed out, read-only afterwards
    std::atomic<int32_t> mStrong{1};
    // One per AIBinder_Weak, plus one that all strong references share; the memory goes with the
    // last, so a weak reference can always look at mStrong.
    std::atomic<int32_t> mWeak{1};
    bool mDead = false;  // guarded by DeathState::mLock
    // Guarded by DeathState::mLock, in order of linking. Each link owns a strong reference.
    std::vector<DeathLink> mLinks;
};

struct AIBinder_Weak {
    AIBinder* mBinder;
};

struct AIBinder_DeathRecipient {
    AIBinder_DeathRecipient_onBinderDied mOnDied;
    // Number of links per binder, so that deletion finds every link; the links keep these binders
    // alive. Guarded by DeathState::mLock.
    std::unordered_map<AIBinder*, size_t> mLinkCounts;
};

namespace {

struct DeathState {
    std::mutex mLock;
    bool mFailNextRecipientNew = false;            // guarded by mLock
    std::optional<binder_status_t> mFailNextLink;  // guarded by mLock
};

// The shared state below is never destroyed: binders may still be released by other objects'
// static destructors while the process exits.
DeathState& deathState() {
    static DeathState* state = new DeathState;
    return *state;
}

// Classes live until the process ends. Held here, they stay reachable and are not taken for leaks.
struct ClassRegistry {
    std::mutex mLock;
    std::vector<std::unique_ptr<AIBinder_Class>> mClasses;  // guarded by mLock
};

ClassRegistry& classRegistry() {
    static ClassRegistry* registry = new ClassRegistry;
    return *registry;
}

void decWeak(AIBinder* binder) {
    if (binder->mWeak.fetch_sub(1, std::memory_order_acq_rel) == 1) delete binder;
}

}  // namespace

AIBinder_Class* AIBinder_Class_define(const char* interfaceDescriptor,
                                      AIBinder_Class_onCreate onCreate,
                                      AIBinder_Class_onDestroy onDestroy,
                                      AIBinder_Class_onTransact onTransact) {
    if (interfaceDescriptor == nullptr || onCreate == nullptr || onDestroy == nullptr ||
        onTransact == nullptr) {
        return nullptr;
    }
    auto clazz = std::make_unique<AIBinder_Class>(
            AIBinder_Class{interfaceDescriptor, onCreate, onDestroy});
    AIBinder_Class* result = clazz.get();
    ClassRegistry& registry = classRegistry();
    std::lock_guard<std::mutex> lock(registry.mLock);
    registry.mClasses.push_back(std::move(clazz));
    return result;
}

const char* AIBinder_Class_getDescriptor(const AIBinder_Class* clazz) {
    return clazz == nullptr ? nullptr : clazz->mDescriptor.c_str();
}

void AIBinder_Class_setOnDump(AIBinder_Class* clazz, AIBinder_onDump onDump) {
    if (clazz != nullptr) clazz->mOnDump = onDump;
}

binder_status_t AIBinder_dump(AIBinder* binder, int fd, const char** args, uint32_t numArgs) {
    if (binder == nullptr) return STATUS_UNEXPECTED_NULL;
    if (binder->mClass->mOnDump == nullptr) return STATUS_OK;
    return binder->mClass->mOnDump(binder, fd, args, numArgs);
}

AIBinder* AIBinder_new(const AIBinder_Class* clazz, void* args) {
    if (clazz == nullptr) return nullptr;
    AIBinder* binder = new AIBinder(clazz);
    binder->mUserData = clazz->mOnCreate(args);
    return binder;
}

bool AIBinder_isRemote(const AIBinder*) {
    return false;
}

bool AIBinder_isAlive(const AIBinder* binder) {
    if (binder == nullptr) return false;
    std::lock_guard<std::mutex> lock(deathState().mLock);
    return !binder->mDead;
}

bool AIBinder_associateClass(AIBinder* binder, const AIBinder_Class* clazz) {
    if (binder == nullptr || clazz == nullptr) return false;
    return binder->mClass == clazz || binder->mClass->mDescriptor == clazz->mDescriptor;
}

const AIBinder_Class* AIBinder_getClass(AIBinder* binder) {
    return binder == nullptr ? nullptr : binder->mClass;
}

void* AIBinder_getUserData(AIBinder* binder) {
    return binder == nullptr ? nullptr : binder->mUserData;
}

void AIBinder_incStrong(AIBinder* binder) {
    // The caller already holds a reference, so the count cannot be reaching zero meanwhile.
    if (binder != nullptr) binder->mStrong.fetch_add(1, std::memory_order_relaxed);
}

void AIBinder_decStrong(AIBinder* binder) {
    if (binder == nullptr) return;
    // A binder whose count reaches zero has no death links left: each link holds a reference.
    if (binder->mStrong.fetch_sub(1, std::memory_order_acq_rel) != 1) return;
    binder->mClass->mOnDestroy(binder->mUserData);
    decWeak(binder);
}

AIBinder_Weak* AIBinder_Weak_new(AIBinder* binder) {
    if (binder == nullptr) return nullptr;
    binder->mWeak.fetch_add(1, std::memory_order_relaxed);
    return new AIBinder_Weak{binder};
}

void AIBinder_Weak_delete(AIBinder_Weak* weakBinder) {
    if (weakBinder == nullptr) return;
    decWeak(weakBinder->mBinder);
    delete weakBinder;
}

AIBinder* AIBinder_Weak_promote(AIBinder_Weak* weakBinder) {
    if (weakBinder == nullptr) return nullptr;
    AIBinder* binder = weakBinder->mBinder;
    int32_t count = binder->mStrong.load(std::memory_order_relaxed);
    // Once the count has reached zero the object is gone for good: never step it back up.
    while (count > 0) {
        if (binder->mStrong.compare_exchange_weak(count, count + 1, std::memory_order_acquire,
                                                  std::memory_order_relaxed)) {
            return binder;
        }
    }
    return nullptr;
}

AIBinder_DeathRecipient* AIBinder_DeathRecipient_new(
        AIBinder_DeathRecipient_onBinderDied onBinderDied) {
    {
        DeathState& state = deathState();
        std::lock_guard<std::mutex> lock(state.mLock);
        if (std::exchange(state.mFailNextRecipientNew, false)) return nullptr;
    }
    if (onBinderDied == nullptr) return nullptr;
    return new AIBinder_DeathRecipient{onBinderDied, {}};
}

void AIBinder_DeathRecipient_delete(AIBinder_DeathRecipient* recipient) {
    if (recipient == nullptr) return;
    std::vector<AIBinder*> released;  // one entry per link removed
    {
        std::lock_guard<std::mutex> lock(deathState().mLock);
        for (const auto& [binder, count] : recipient->mLinkCounts) {
            std::vector<DeathLink>& links = binder->mLinks;
            links.erase(std::remove_if(links.begin(), links.end(),
                                       [recipient](const DeathLink& link) {
                                           return link.recipient == recipient;
                                       }),
                        links.end());
            released.insert(released.end(), count, binder);
        }
    }
    delete recipient;
    for (AIBinder* binder : released) AIBinder_decStrong(binder);
}

binder_status_t AIBinder_linkToDeath(AIBinder* binder, AIBinder_DeathRecipient* recipient,
                                     void* cookie) {
    DeathState& state = deathState();
    std::lock_guard<std::mutex> lock(state.mLock);
    if (state.mFailNextLink.has_value()) {
        binder_status_t status = *state.mFailNextLink;
        state.mFailNextLink.reset();
        return status;
    }
    if (binder == nullptr || recipient == nullptr) return STATUS_UNEXPECTED_NULL;
    if (binder->mDead) return STATUS_DEAD_OBJECT;
    // Stands for the reference that a watching process holds on a device, which keeps the binder
    // (and so the object behind it) the same for as long as it is watched.
    AIBinder_incStrong(binder);
    binder->mLinks.push_back({recipient, cookie});
    ++recipient->mLinkCounts[binder];
    return STATUS_OK;
}

binder_status_t AIBinder_unlinkToDeath(AIBinder* binder, AIBinder_DeathRecipient* recipient,
                                       void* cookie) {
    if (binder == nullptr || recipient == nullptr) return STATUS_UNEXPECTED_NULL;
    {
        std::lock_guard<std::mutex> lock(deathState().mLock);
        if (binder->mDead) return STATUS_DEAD_OBJECT;
        std::vector<DeathLink>& links = binder->mLinks;
        auto link = std::find_if(links.begin(), links.end(), [&](const DeathLink& candidate) {
            return candidate.recipient == recipient && candidate.cookie == cookie;
        });
        if (link == links.end()) return STATUS_NAME_NOT_FOUND;
        links.erase(link);
        if (--recipient->mLinkCounts[binder] == 0) recipient->mLinkCounts.erase(binder);
    }
    AIBinder_decStrong(binder);
    return STATUS_OK;
}

namespace binder_host {

void killProcessOf(AIBinder* binder) {
    if (binder == nullptr) return;
    struct Notice {
        AIBinder_DeathRecipient_onBinderDied onDied;
        void* cookie;
    };
    std::vector<Notice> notices;
    {
        std::lock_guard<std::mutex> lock(deathState().mLock);
        if (binder->mDead) return;
        binder->mDead = true;
        for (const DeathLink& link : binder->mLinks) {
            notices.push_back({link.recipient->mOnDied, link.cookie});
            link.recipient->mLinkCounts.erase(binder);
        }
        binder->mLinks.clear();
    }
    if (notices.empty()) return;
    // Binder delivers obituaries on one of its own threads, never on the thread that noticed.
    std::thread delivery([&notices] {
        for (const Notice& notice : notices) notice.onDied(notice.cookie);
    });
    delivery.join();
    for (size_t i = 0; i < notices.size(); ++i) AIBinder_decStrong(binder);  // the links' refs
}

void failNextDeathRecipientNew() {
    DeathState& state = deathState();
    std::lock_guard<std::mutex> lock(state.mLock);
    state.mFailNextRecipientNew = true;
}

void failNextLinkToDeath(binder_status_t status) {
    DeathState& state = deathState();
    std::lock_guard<std::mutex> lock(state.mLock);
    state.mFailNextLink = status;
}

size_t deathLinkCount(AIBinder* binder) {
    if (binder == nullptr) return 0;
    std::lock_guard<std::mutex> lock(deathState().mLock);
    return binder->mLinks.size();
}

namespace internal {

void forgetDeathFailures() {
    DeathState& state = deathState();
    std::lock_guard<std::mutex> lock(state.mLock);
    state.mFailNextRecipientNew = false;
    state.mFailNextLink.reset();
}

}  // namespace internal

}  // namespace binder_host
