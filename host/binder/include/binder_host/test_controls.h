// Controls for tests on this host: events that only another process or the system could cause on
// a device (a process dying) and failures that the platform could return. Every function is
// thread-safe. Not part of the NDK; code that also builds for Android must not include this.
#ifndef BINDER_HOST_TEST_CONTROLS_H
#define BINDER_HOST_TEST_CONTROLS_H

#include <android/binder_ibinder.h>
#include <android/binder_status.h>

#include <cstddef>

namespace binder_host {

// Declares the process behind `binder` dead, as if it had crashed. Every recipient linked to the
// binder is called exactly once with its cookie, on a thread other than the caller's and without
// any lock of this library held, so it may call any binder function. Returns after all of them
// have returned, and then drops the links' references. From then on AIBinder_isAlive(binder) is
// false, and linking to or unlinking from it returns STATUS_DEAD_OBJECT. The object behind the
// binder is untouched: it lives as long as its strong references, and direct calls on it still
// work. Does nothing for a null or already dead binder. The caller must hold a strong reference
// to `binder`.
void killProcessOf(AIBinder* binder);

// The next AServiceManager_addService returns `status` and registers nothing.
void failNextAddService(binder_status_t status);

// The next AIBinder_DeathRecipient_new returns null.
void failNextDeathRecipientNew();

// The next AIBinder_linkToDeath returns `status` and links nothing.
void failNextLinkToDeath(binder_status_t status);

// The number of (recipient, cookie) links on `binder` now; 0 for null. The caller must hold a
// strong reference to `binder`.
size_t deathLinkCount(AIBinder* binder);

// Drops every service manager entry, releasing its reference (an object held only by the service
// manager is destroyed before this returns), and forgets every failure injected above that has not
// happened yet. Meant to run between tests.
void clearServices();

}  // namespace binder_host

#endif  // BINDER_HOST_TEST_CONTROLS_H
