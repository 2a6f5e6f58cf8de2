/*
 * The platform audio layer's functions that libvoxa calls. All return 0 on success or a negative
 * errno-style status (enum pal_status names those the PAL and the service use).
 *
 * What the service needs of a PAL's threads, and no more:
 * - Callbacks (a stream's events, the resources-available function) run on any number of the
 *   PAL's own threads, never on a thread that is inside one of these functions. The service never
 *   calls these functions from inside a callback: calls its clients make there are deferred to a
 *   thread of the service's own.
 * - pal_stream_stop and pal_stream_close may wait for every running callback of their stream, and
 *   pal_set_param for the running resources-available function. None of them may wait for a
 *   callback of another stream: such a callback may be waiting, briefly, for the session whose
 *   stream is being stopped.
 * - pal_stream_open, pal_stream_set_param and pal_stream_start do not wait for callbacks: an event
 *   of the stream may be waiting for the session that makes the call.
 */
#ifndef PAL_API_H
#define PAL_API_H

#include <errno.h>
#include <pal/pal_types.h>

#ifdef __cplusplus
extern "C" {
#endif

/*
 * The statuses that cross the PAL API besides 0, by name; the numbers are the negated errno
 * values. The service reports BUSY, INVALID and NOT_SUPPORTED to its clients as errors of their
 * own (RESOURCE_CONTENTION, INVALID, OPERATION_NOT_SUPPORTED) and every other one as FAILURE; it
 * also refuses requests itself with PAL_STATUS_INVALID.
 */
enum pal_status {
    PAL_STATUS_BUSY = -EBUSY,           /* the engine serves another stream */
    PAL_STATUS_INVALID = -EINVAL,       /* a request, a handle or a payload is refused */
    PAL_STATUS_NOT_SUPPORTED = -ENOSYS, /* the engine cannot do what was asked */
    PAL_STATUS_NO_DEVICE = -ENODEV,     /* there is nothing to capture from */
    PAL_STATUS_IO = -EIO,               /* the audio or the model could not be read */
    PAL_STATUS_TIMED_OUT = -ETIMEDOUT,  /* a wait ended before what it waited for */
};

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
 * After this returns, whatever its result, no callback of the stream is running or will run: the
 * caller may free what the cookie points to.
 */
int32_t pal_stream_close(pal_stream_handle* stream);

/*
 * Sends a global parameter of `size` bytes. PAL_PARAM_ID_RESOURCES_AVAILABLE replaces the
 * registered function (a null function withdraws it); after it returns the function it replaced
 * is not running and will not be called.
 */
int32_t pal_set_param(uint32_t param_id, void* payload, size_t size);

#ifdef __cplusplus
}  // extern "C"
#endif

#endif /* PAL_API_H */
