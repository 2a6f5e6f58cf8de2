/*
 * The parcel type that transaction handlers name in their signature. On this host calls are direct
 * C++ calls and nothing is ever parcelled, so the type is declared but has no functions and no
 * parcel is ever created.
 */
#ifndef ANDROID_BINDER_PARCEL_H
#define ANDROID_BINDER_PARCEL_H

#ifdef __cplusplus
extern "C" {
#endif

typedef struct AParcel AParcel;

#ifdef __cplusplus
}  // extern "C"
#endif

#endif /* ANDROID_BINDER_PARCEL_H */
