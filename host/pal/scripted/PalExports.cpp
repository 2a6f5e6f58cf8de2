// The PAL API of an executable whose PAL is the scripted engine (the pal_scripted_pal library).

#include <pal/pal_api.h>
#include <pal/pal_scripted.h>

using pal_scripted::palFunctions;

extern "C" {

int32_t pal_stream_open(struct pal_stream_attrs* attributes, uint32_t num_devices,
                        struct pal_device* devices, uint32_t num_modifiers,
                        struct pal_stream_modifier* modifiers, pal_stream_event_cb callback,
                        unsigned long cookie, pal_stream_handle** stream) {
    return palFunctions().streamOpen(attributes, num_devices, devices, num_modifiers, modifiers,
                                     callback, cookie, stream);
}

int32_t pal_stream_set_param(pal_stream_handle* stream, uint32_t param_id,
                             struct pal_param_payload* payload) {
    return palFunctions().streamSetParam(stream, param_id, payload);
}

int32_t pal_stream_start(pal_stream_handle* stream) {
    return palFunctions().streamStart(stream);
}

int32_t pal_stream_stop(pal_stream_handle* stream) {
    return palFunctions().streamStop(stream);
}

int32_t pal_stream_close(pal_stream_handle* stream) {
    return palFunctions().streamClose(stream);
}

int32_t pal_set_param(uint32_t param_id, void* payload, size_t size) {
    return palFunctions().setParam(param_id, payload, size);
}

}  // extern "C"
