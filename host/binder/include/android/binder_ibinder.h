/*
 * Binder objects, their classes, strong and weak references, and death notification.
 *
 * Every binder in this process is local: AIBinder_new makes it and the object it carries is
 * reached by direct calls, never by transactions. A binder is reference counted. AIBinder_new
 * returns it with one strong reference owned by the caller; when the last strong reference goes,
 * the class's onDestroy runs with the user data and weak references no longer promote. Every
 * function here is thread-safe.
 */
#ifndef ANDROID_BINDER_IBINDER_H
#define ANDROID_BINDER_IBINDER_H

#include <android/binder_parcel.h>
#include <android/binder_status.h>
#include <stdbool.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef uint32_t transaction_code_t;
typedef uint32_t binder_flags_t;

/* The range of codes that interface operations use. */
#define FIRST_CALL_TRANSACTION 0x00000001
#define LAST_CALL_TRANSACTION 0x00ffffff

#define FLAG_ONEWAY 0x01

typedef struct AIBinder_Class AIBinder_Class;
typedef struct AIBinder AIBinder;
typedef struct AIBinder_Weak AIBinder_Weak;
typedef struct AIBinder_DeathRecipient AIBinder_DeathRecipient;

/* Makes the user data of a new binder from the `args` given to AIBinder_new. */
typedef void* (*AIBinder_Class_onCreate)(void* args);

/* Releases the user data once the binder's last strong reference is gone. */
typedef void (*AIBinder_Class_onDestroy)(void* userData);

/* Kept for source compatibility: no transaction ever reaches a handler on this host. */
typedef binder_status_t (*AIBinder_Class_onTransact)(AIBinder* binder, transaction_code_t code,
                                                     const AParcel* in, AParcel* out);

/*
 * Defines a class of binders for one interface. All arguments are required; null gives null. The
 * descriptor is copied. Classes live until the process ends: the result may be kept in a static.
 */
AIBinder_Class* AIBinder_Class_define(const char* interfaceDescriptor,
                                      AIBinder_Class_onCreate onCreate,
                                      AIBinder_Class_onDestroy onDestroy,
                                      AIBinder_Class_onTransact onTransact);

/* The descriptor given to AIBinder_Class_define; valid as long as the class. */
const char* AIBinder_Class_getDescriptor(const AIBinder_Class* clazz);

/* Writes a readable report of the binder's object to `fd` (what dumpsys prints). */
typedef binder_status_t (*AIBinder_onDump)(AIBinder* binder, int fd, const char** args,
                                           uint32_t numArgs);

/* Sets the class's dump handler; binders of a class without one dump nothing. */
void AIBinder_Class_setOnDump(AIBinder_Class* clazz, AIBinder_onDump onDump);

/*
 * Calls the dump handler of the binder's class with `fd` and the arguments, on the calling thread,
 * and returns its result; STATUS_OK when the class has none, STATUS_UNEXPECTED_NULL for a null
 * binder.
 */
binder_status_t AIBinder_dump(AIBinder* binder, int fd, const char** args, uint32_t numArgs);

/*
 * Makes a binder of `clazz` whose user data is onCreate(args). Returns it with one strong
 * reference that the caller owns, or null when `clazz` is null.
 */
AIBinder* AIBinder_new(const AIBinder_Class* clazz, void* args);

/* Always false: every binder here lives in this process. */
bool AIBinder_isRemote(const AIBinder* binder);

/* False once the binder's process has been declared dead (see binder_host/test_controls.h). */
bool AIBinder_isAlive(const AIBinder* binder);

/*
 * True when `binder` was made with `clazz` or with a class of the same descriptor; the caller may
 * then treat it as a binder of that interface. False for null arguments.
 */
bool AIBinder_associateClass(AIBinder* binder, const AIBinder_Class* clazz);

/* The class the binder was made with; null for a null binder. */
const AIBinder_Class* AIBinder_getClass(AIBinder* binder);

/* The result of the class's onCreate; null for a null binder. */
void* AIBinder_getUserData(AIBinder* binder);

/*
 * Adds and drops strong references. The caller of AIBinder_incStrong must already hold one (or
 * know that one is held for the duration). Both accept null and then do nothing.
 */
void AIBinder_incStrong(AIBinder* binder);
void AIBinder_decStrong(AIBinder* binder);

/*
 * Weak references: they keep the binder's memory but not its object. The caller of
 * AIBinder_Weak_new must hold a strong reference; it owns the result (null for a null binder) and
 * deletes it with AIBinder_Weak_delete (null accepted). AIBinder_Weak_promote returns a new strong
 * reference while any strong reference remains, null after the last one has gone.
 */
AIBinder_Weak* AIBinder_Weak_new(AIBinder* binder);
void AIBinder_Weak_delete(AIBinder_Weak* weakBinder);
AIBinder* AIBinder_Weak_promote(AIBinder_Weak* weakBinder);

/*
 * Death notification. A recipient is a function; each link pairs a recipient with a cookie on one
 * binder. When the binder's process dies, every link's function is called once with its cookie on
 * a thread other than the one that reported the death, and the links are removed. The same pair
 * may be linked more than once; each link is notified and unlinked separately.
 */
typedef void (*AIBinder_DeathRecipient_onBinderDied)(void* cookie);

/* The caller owns the result; null when `onBinderDied` is null. */
AIBinder_DeathRecipient* AIBinder_DeathRecipient_new(
        AIBinder_DeathRecipient_onBinderDied onBinderDied);

/*
 * Unlinks the recipient from every binder, dropping the links' references, and frees it (null
 * accepted). A notification already on its way when this is called still arrives.
 */
void AIBinder_DeathRecipient_delete(AIBinder_DeathRecipient* recipient);

/*
 * STATUS_OK, STATUS_UNEXPECTED_NULL for a null binder or recipient, or STATUS_DEAD_OBJECT when the
 * binder's process has already died. The caller must hold a strong reference. The link itself
 * holds one until it is unlinked, notified or its recipient deleted, standing in for the
 * reference through which a watcher in another process reaches the binder on a device: while
 * watched, the binder and the object behind it stay the same.
 */
binder_status_t AIBinder_linkToDeath(AIBinder* binder, AIBinder_DeathRecipient* recipient,
                                     void* cookie);

/*
 * Removes one link of (recipient, cookie): STATUS_OK, STATUS_NAME_NOT_FOUND when there is none,
 * STATUS_UNEXPECTED_NULL for a null binder or recipient, or STATUS_DEAD_OBJECT once the binder's
 * process has died (its links are gone then).
 */
binder_status_t AIBinder_unlinkToDeath(AIBinder* binder, AIBinder_DeathRecipient* recipient,
                                       void* cookie);

#ifdef __cplusplus
}  // extern "C"
#endif

#endif /* ANDROID_BINDER_IBINDER_H */
