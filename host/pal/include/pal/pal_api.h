/*
 * The platform audio layer's functions that libvoxa calls. All return 0 on success or a negative
 * errno-style code; -EBUSY, -EINVAL and -ENOSYS have meanings of their own.
 *
 * Callbacks (a stream's events, the resources-available function) run on the PAL's own threads,
 * never on a thread that is inside one of these functions, and may call any of them. A callback
 * may be waiting for the service while the service calls the PAL, so only pal_stream_stop,
 * pal_stream_close and pal_set_param may wait for a callback to return, and none of them waits
 * for the callback that is calling it.
 */
#ifndef PAL_API_H
#define PAL_API_H

#include <errno.h>
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

/*
 * After this returns, the stream raises no further event until it is started again. It need not
 * wait for an event already being delivered.
 */
int32_t pal_stream_stop(pal_stream_handle* stream);

/*
 * After this returns, whatever its result, no callback of the stream is running or will run
 * (except the one that called it): the caller may free what the cookie points to.
 */
int32_t pal_stream_close(pal_stream_handle* stream);

/*
 * Sends a global parameter of `size` bytes. PAL_PARAM_ID_RESOURCES_AVAILABLE replaces the
 * registered function (a null function withdraws it); after it returns the function it replaced
 * is not running (except where it is the caller) and will not be called.
 */
int32_t pal_set_param(uint32_t param_id, void* payload, size_t size);

#ifdef __cplusplus
}  // extern "C"
#endif

#endif /* PAL_API_H */
