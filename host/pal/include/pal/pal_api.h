/*
 * The platform audio layer's functions that libvoxa calls. All return 0 on success or a negative
 * errno-style code; -16 (busy), -22 (invalid) and -38 (not supported) have meanings of their own.
 */
#ifndef PAL_API_H
#define PAL_API_H

#include <pal/pal_types.h>

#ifdef __cplusplus
extern "C" {
#endif

/*
 * Opens a stream. `callback` receives the stream's events with `cookie`; on success the new
 * handle is written to `*stream`, which stays valid until pal_stream_close.
 */
int32_t pal_stream_open(struct pal_stream_attrs* attributes, uint32_t num_devices,
                        struct pal_device* devices, uint32_t num_modifiers,
                        struct pal_stream_modifier* modifiers, pal_stream_event_cb callback,
                        unsigned long cookie, pal_stream_handle** stream);

/* Sends a stream parameter; `payload` starts with the count of the bytes that follow it. */
int32_t pal_stream_set_param(pal_stream_handle* stream, uint32_t param_id,
                             struct pal_param_payload* payload);

int32_t pal_stream_start(pal_stream_handle* stream);

/* After this returns, the stream raises no further event until it is started again. */
int32_t pal_stream_stop(pal_stream_handle* stream);

/*
 * After this returns, no callback of the stream is running or will run: the caller may free what
 * the cookie points to.
 */
int32_t pal_stream_close(pal_stream_handle* stream);

/* Sends a global parameter of `size` bytes. */
int32_t pal_set_param(uint32_t param_id, void* payload, size_t size);

#ifdef __cplusplus
}  // extern "C"
#endif

#endif /* PAL_API_H */
