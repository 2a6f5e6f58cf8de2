/*
 * The process's binder thread pool. Calls on this host run directly on the caller's thread, so
 * there is no pool to start; the functions exist so that a service's main() reads as on a device.
 */
#ifndef ANDROID_BINDER_PROCESS_H
#define ANDROID_BINDER_PROCESS_H

#include <stdbool.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* Does nothing: no binder thread is needed to receive calls. */
void ABinderProcess_startThreadPool(void);

/* Records the count and returns true. The count limits nothing: no pool thread is ever made. */
bool ABinderProcess_setThreadPoolMaxThreadCount(uint32_t numThreads);

/* Blocks the calling thread for the rest of the process's life, as a pool thread would. */
void ABinderProcess_joinThreadPool(void);

#ifdef __cplusplus
}  // extern "C"
#endif

#endif /* ANDROID_BINDER_PROCESS_H */
