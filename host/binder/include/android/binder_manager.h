/*
 * The service manager: one table for the whole process from instance name to binder. The table
 * holds one strong reference on each registered binder, so a registered object lives until its
 * entry is replaced or cleared. Every function here is thread-safe.
 */
#ifndef ANDROID_BINDER_MANAGER_H
#define ANDROID_BINDER_MANAGER_H

#include <android/binder_ibinder.h>
#include <android/binder_status.h>
#include <stdbool.h>

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Registers `binder` under `instance`, replacing (and releasing) any binder registered under that
 * name before. The caller keeps its own reference. STATUS_OK, or STATUS_UNEXPECTED_NULL for a null
 * argument.
 */
binder_status_t AServiceManager_addService(AIBinder* binder, const char* instance);

/*
 * The binder registered under `instance`, as a new strong reference that the caller owns, or null
 * when nothing is registered there (or `instance` is null). Never waits.
 */
AIBinder* AServiceManager_checkService(const char* instance);

/*
 * As AServiceManager_checkService, but blocks until something is registered under `instance`.
 * Null only for a null `instance`.
 */
AIBinder* AServiceManager_waitForService(const char* instance);

/*
 * Calls `callback` once for every declared instance of the interface `interface` (a descriptor),
 * in ascending order, with the instance's name after "<descriptor>/" and `context`. The names are
 * taken first and the callback runs without any lock held, so it may call the service manager.
 * Does nothing for a null `interface` or `callback`.
 */
void AServiceManager_forEachDeclaredInstance(const char* interface, void* context,
                                             void (*callback)(const char*, void*));

#ifdef __cplusplus
}  // extern "C"
#endif

#endif /* ANDROID_BINDER_MANAGER_H */
