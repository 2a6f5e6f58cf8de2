/*
 * Types of the platform audio layer (PAL) as libvoxa uses them: the capture stream's attributes
 * and device records, the parameter payloads that carry a model, a configuration and parameters
 * to the speech engine, and the event payloads that the engine raises. Every record here is a
 * fixed byte layout shared with the PAL library; the static_asserts at the end pin each offset.
 *
 * Multi-byte fields are in the processor's native (little-endian) order, naturally aligned.
 */
#ifndef PAL_TYPES_H
#define PAL_TYPES_H

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

/* ---- Stream and device ---------------------------------------------------------------- */

/* A stream handle is the address of an unsigned long owned by the PAL library. */
typedef unsigned long pal_stream_handle;

enum {
    PAL_STREAM_ASR = 30, /* speech-recognition capture stream */
};

enum {
    PAL_AUDIO_OUTPUT = 1,
    PAL_AUDIO_INPUT = 2,
};

enum {
    PCM_S16_LE = 1, /* signed 16-bit little-endian PCM */
};

enum {
    PAL_DEVICE_IN_HANDSET_VA_MIC = 44, /* voice-activation handset microphone */
};

#define PAL_MAX_CHANNELS 68

struct pal_channels {
    uint16_t count;
    uint8_t map[PAL_MAX_CHANNELS]; /* channel positions, 1-based; unused entries 0 */
};

struct pal_media_format {
    uint32_t sample_rate; /* Hz */
    uint32_t bit_width;
    uint32_t format; /* PCM_S16_LE, ... */
    struct pal_channels channels;
};

/* Per-type stream information; the ASR stream uses none of it. */
union pal_stream_info {
    uint64_t words[6];
    uint8_t bytes[48];
};

struct pal_stream_attrs {
    uint32_t type; /* PAL_STREAM_ASR, ... */
    union pal_stream_info info;
    uint32_t flags;
    uint32_t direction; /* PAL_AUDIO_INPUT, ... */
    struct pal_media_format in_media_config;
    struct pal_media_format out_media_config;
};

struct pal_device {
    uint32_t id; /* PAL_DEVICE_IN_HANDSET_VA_MIC, ... */
    struct pal_media_format config;
    char address[128];
    char custom_key[256];
    uint32_t card_id;
};

/* Stream modifiers (key/value pairs); libvoxa passes none. */
struct pal_stream_modifier {
    uint32_t key;
    uint32_t value;
};

/*
 * Called by the PAL library on its event thread when a stream has an event. `event_data` is owned
 * by the PAL library and valid for the call; `cookie` is the value given to pal_stream_open.
 */
typedef int32_t (*pal_stream_event_cb)(pal_stream_handle* stream, unsigned int event_id,
                                       unsigned int* event_data, unsigned int event_size,
                                       unsigned long cookie);

/* ---- Parameters ----------------------------------------------------------------------- */

/* Global parameter: register a function called when engine resources become available. */
#define PAL_PARAM_ID_RESOURCES_AVAILABLE 75u
/* Stream parameters of the ASR stream. */
#define PAL_PARAM_ID_ASR_MODEL 77u
#define PAL_PARAM_ID_ASR_CONFIG 78u
#define PAL_PARAM_ID_ASR_CUSTOM 79u
#define PAL_PARAM_ID_ASR_FORCE_OUTPUT 80u

typedef void (*pal_resources_available_cb)(unsigned long cookie);

/* Payload of PAL_PARAM_ID_RESOURCES_AVAILABLE (16 bytes). */
struct pal_resources_available_param {
    pal_resources_available_cb callback;
    unsigned long cookie;
};

/* Every stream parameter payload: a count of the bytes that follow, then those bytes. */
struct pal_param_payload {
    uint32_t size;
    uint8_t data[0];
};

/* The PAL's 16-byte UUID record. */
typedef struct st_uuid {
    uint32_t time_low;
    uint16_t time_mid;
    uint16_t time_hi_and_version;
    uint16_t clock_seq;
    uint8_t node[6];
} st_uuid;

/* Payload of PAL_PARAM_ID_ASR_MODEL (28 bytes). */
struct pal_asr_model {
    uint32_t payload_size; /* 24 */
    st_uuid vendor_uuid;
    int32_t model_fd;   /* descriptor of the model image, owned by the caller */
    int32_t model_size; /* bytes */
};

/* Language ids run from 0 to PAL_ASR_LANGUAGE_COUNT - 1. */
#define PAL_ASR_LANGUAGE_COUNT 100

/* Payload of PAL_PARAM_ID_ASR_CONFIG (40 + data_size bytes). */
struct pal_asr_config {
    uint32_t payload_size; /* 36 + data_size */
    int32_t input_language_id;
    int32_t output_language_id;
    uint8_t enable_language_detection;
    uint8_t enable_translation;
    uint8_t continuous;
    uint8_t partial;
    uint8_t buffering;
    uint8_t enable_text_timestamp;
    uint8_t enable_speaker_diarization;
    int32_t threshold;
    int32_t timeout_duration;
    int32_t silence_detection_duration;
    uint8_t buffered_event;
    uint32_t data_size;
    uint8_t data[0];
};

/* ---- Events --------------------------------------------------------------------------- */

/* Event ids of the ASR stream; any other id carries a struct pal_asr_event. */
#define PAL_ASR_EVENT_ID_TIMESTAMP 1u
#define PAL_ASR_EVENT_ID_SPEAKER_DIARIZATION 2u

#define PAL_ASR_TEXT_SIZE 1028
#define PAL_ASR_AUX_TEXT_SIZE 4096
#define PAL_ASR_WORD_SIZE 28
#define PAL_ASR_MAX_WORDS 200

/*
 * One plain result. The trailing data is declared after the fixed part, so with several results
 * it occupies the start of the next one: results follow each other at a fixed stride.
 */
struct pal_asr_result {
    uint8_t flag;
    int32_t value;
    uint32_t reserved;
    char text[PAL_ASR_TEXT_SIZE];         /* NUL-terminated UTF-8 */
    char aux_text[PAL_ASR_AUX_TEXT_SIZE]; /* NUL-terminated UTF-8 */
    uint32_t data_size;
    uint8_t data[0];
};

struct pal_asr_event {
    uint32_t status; /* 0 when the engine succeeded */
    uint32_t num_events;
    struct pal_asr_result event[0];
};

struct pal_asr_word {
    int32_t value;
    char word[PAL_ASR_WORD_SIZE]; /* NUL-terminated UTF-8 */
    int64_t start_ts;
    int64_t end_ts;
};

/* One time-stamped result; its trailing data is placed as in struct pal_asr_result. */
struct pal_asr_ts_result {
    uint8_t flag;
    int32_t value;
    uint32_t reserved;
    char text[PAL_ASR_TEXT_SIZE];
    int64_t start_ts;
    int64_t end_ts;
    int32_t word_count; /* at most PAL_ASR_MAX_WORDS */
    struct pal_asr_word words[PAL_ASR_MAX_WORDS];
    uint32_t reserved2;
    char aux_text[PAL_ASR_AUX_TEXT_SIZE];
    uint32_t data_size;
    uint8_t data[0];
};

struct pal_asr_ts_event {
    uint32_t status;
    uint32_t num_events;
    struct pal_asr_ts_result event[0];
};

struct pal_sdz_speaker {
    int32_t value; /* identifies the speaker */
    int64_t start_ts;
    int64_t end_ts;
    uint8_t reserved[120];
};

/*
 * One diarization result. Its speakers are declared after its 8-byte header, so results follow
 * each other at a stride of 8 bytes: result i+1's header overlays result i's first speaker.
 */
struct pal_sdz_result {
    uint32_t speaker_count;
    uint32_t flag;
    struct pal_sdz_speaker speakers[0];
};

struct pal_sdz_event {
    uint32_t num_events;
    struct pal_sdz_result event[0];
};

#ifdef __cplusplus
}  // extern "C"
#endif

/* ---- Layouts -------------------------------------------------------------------------- */

#ifdef __cplusplus
#define PAL_STATIC_ASSERT static_assert
#else
#define PAL_STATIC_ASSERT _Static_assert
#endif

PAL_STATIC_ASSERT(sizeof(pal_stream_handle) == 8, "stream handle is a 64-bit unsigned long");

PAL_STATIC_ASSERT(sizeof(struct pal_stream_attrs) == 232, "stream attributes");
PAL_STATIC_ASSERT(offsetof(struct pal_stream_attrs, type) == 0, "type");
PAL_STATIC_ASSERT(offsetof(struct pal_stream_attrs, flags) == 56, "flags");
PAL_STATIC_ASSERT(offsetof(struct pal_stream_attrs, direction) == 60, "direction");
PAL_STATIC_ASSERT(offsetof(struct pal_stream_attrs, in_media_config) == 64, "input media");
PAL_STATIC_ASSERT(offsetof(struct pal_stream_attrs, in_media_config.sample_rate) == 64, "rate");
PAL_STATIC_ASSERT(offsetof(struct pal_stream_attrs, in_media_config.bit_width) == 68, "width");
PAL_STATIC_ASSERT(offsetof(struct pal_stream_attrs, in_media_config.format) == 72, "format");
PAL_STATIC_ASSERT(offsetof(struct pal_stream_attrs, in_media_config.channels.count) == 76, "ch");
PAL_STATIC_ASSERT(offsetof(struct pal_stream_attrs, in_media_config.channels.map) == 78, "map");

PAL_STATIC_ASSERT(sizeof(struct pal_device) == 476, "device record");
PAL_STATIC_ASSERT(offsetof(struct pal_device, id) == 0, "device id");
PAL_STATIC_ASSERT(offsetof(struct pal_device, config.sample_rate) == 4, "rate");
PAL_STATIC_ASSERT(offsetof(struct pal_device, config.bit_width) == 8, "width");
PAL_STATIC_ASSERT(offsetof(struct pal_device, config.format) == 12, "format");
PAL_STATIC_ASSERT(offsetof(struct pal_device, config.channels.count) == 16, "channels");
PAL_STATIC_ASSERT(offsetof(struct pal_device, config.channels.map) == 18, "channel map");

PAL_STATIC_ASSERT(sizeof(struct pal_resources_available_param) == 16, "resources payload");
PAL_STATIC_ASSERT(sizeof(struct pal_param_payload) == 4, "parameter payload header");

PAL_STATIC_ASSERT(sizeof(st_uuid) == 16, "uuid");
PAL_STATIC_ASSERT(offsetof(st_uuid, time_mid) == 4, "uuid group 2");
PAL_STATIC_ASSERT(offsetof(st_uuid, time_hi_and_version) == 6, "uuid group 3");
PAL_STATIC_ASSERT(offsetof(st_uuid, clock_seq) == 8, "uuid group 4");
PAL_STATIC_ASSERT(offsetof(st_uuid, node) == 10, "uuid node");

PAL_STATIC_ASSERT(sizeof(struct pal_asr_model) == 28, "model payload");
PAL_STATIC_ASSERT(offsetof(struct pal_asr_model, vendor_uuid) == 4, "uuid");
PAL_STATIC_ASSERT(offsetof(struct pal_asr_model, model_fd) == 20, "fd");
PAL_STATIC_ASSERT(offsetof(struct pal_asr_model, model_size) == 24, "size");

PAL_STATIC_ASSERT(sizeof(struct pal_asr_config) == 40, "config payload");
PAL_STATIC_ASSERT(offsetof(struct pal_asr_config, input_language_id) == 4, "input language");
PAL_STATIC_ASSERT(offsetof(struct pal_asr_config, output_language_id) == 8, "output language");
PAL_STATIC_ASSERT(offsetof(struct pal_asr_config, enable_language_detection) == 12, "detect");
PAL_STATIC_ASSERT(offsetof(struct pal_asr_config, enable_translation) == 13, "translate");
PAL_STATIC_ASSERT(offsetof(struct pal_asr_config, continuous) == 14, "continuous");
PAL_STATIC_ASSERT(offsetof(struct pal_asr_config, partial) == 15, "partial");
PAL_STATIC_ASSERT(offsetof(struct pal_asr_config, buffering) == 16, "buffering");
PAL_STATIC_ASSERT(offsetof(struct pal_asr_config, enable_text_timestamp) == 17, "timestamps");
PAL_STATIC_ASSERT(offsetof(struct pal_asr_config, enable_speaker_diarization) == 18, "sdz");
PAL_STATIC_ASSERT(offsetof(struct pal_asr_config, threshold) == 20, "threshold");
PAL_STATIC_ASSERT(offsetof(struct pal_asr_config, timeout_duration) == 24, "timeout");
PAL_STATIC_ASSERT(offsetof(struct pal_asr_config, silence_detection_duration) == 28, "silence");
PAL_STATIC_ASSERT(offsetof(struct pal_asr_config, buffered_event) == 32, "buffered event");
PAL_STATIC_ASSERT(offsetof(struct pal_asr_config, data_size) == 36, "data size");
PAL_STATIC_ASSERT(offsetof(struct pal_asr_config, data) == 40, "data");

PAL_STATIC_ASSERT(offsetof(struct pal_asr_event, num_events) == 4, "count");
PAL_STATIC_ASSERT(offsetof(struct pal_asr_event, event) == 8, "first result");
PAL_STATIC_ASSERT(sizeof(struct pal_asr_result) == 5140, "result stride");
PAL_STATIC_ASSERT(offsetof(struct pal_asr_result, value) == 4, "value");
PAL_STATIC_ASSERT(offsetof(struct pal_asr_result, text) == 12, "text");
PAL_STATIC_ASSERT(offsetof(struct pal_asr_result, aux_text) == 1040, "aux text");
PAL_STATIC_ASSERT(offsetof(struct pal_asr_result, data_size) == 5136, "data size");
PAL_STATIC_ASSERT(offsetof(struct pal_asr_result, data) == 5140, "data");

PAL_STATIC_ASSERT(offsetof(struct pal_asr_ts_event, event) == 8, "first result");
PAL_STATIC_ASSERT(sizeof(struct pal_asr_ts_result) == 14768, "time-stamped result stride");
PAL_STATIC_ASSERT(offsetof(struct pal_asr_ts_result, value) == 4, "value");
PAL_STATIC_ASSERT(offsetof(struct pal_asr_ts_result, text) == 12, "text");
PAL_STATIC_ASSERT(offsetof(struct pal_asr_ts_result, start_ts) == 1040, "start");
PAL_STATIC_ASSERT(offsetof(struct pal_asr_ts_result, end_ts) == 1048, "end");
PAL_STATIC_ASSERT(offsetof(struct pal_asr_ts_result, word_count) == 1056, "word count");
PAL_STATIC_ASSERT(offsetof(struct pal_asr_ts_result, words) == 1064, "words");
PAL_STATIC_ASSERT(offsetof(struct pal_asr_ts_result, aux_text) == 10668, "aux text");
PAL_STATIC_ASSERT(offsetof(struct pal_asr_ts_result, data_size) == 14764, "data size");
PAL_STATIC_ASSERT(offsetof(struct pal_asr_ts_result, data) == 14768, "data");
PAL_STATIC_ASSERT(sizeof(struct pal_asr_word) == 48, "word slot");
PAL_STATIC_ASSERT(offsetof(struct pal_asr_word, word) == 4, "word");
PAL_STATIC_ASSERT(offsetof(struct pal_asr_word, start_ts) == 32, "word start");
PAL_STATIC_ASSERT(offsetof(struct pal_asr_word, end_ts) == 40, "word end");

PAL_STATIC_ASSERT(offsetof(struct pal_sdz_event, event) == 8, "first result");
PAL_STATIC_ASSERT(sizeof(struct pal_sdz_result) == 8, "diarization result stride");
PAL_STATIC_ASSERT(offsetof(struct pal_sdz_result, flag) == 4, "flag");
PAL_STATIC_ASSERT(offsetof(struct pal_sdz_result, speakers) == 8, "speakers");
PAL_STATIC_ASSERT(sizeof(struct pal_sdz_speaker) == 144, "speaker record");
PAL_STATIC_ASSERT(offsetof(struct pal_sdz_speaker, start_ts) == 8, "speaker start");
PAL_STATIC_ASSERT(offsetof(struct pal_sdz_speaker, end_ts) == 16, "speaker end");

#undef PAL_STATIC_ASSERT

#endif /* PAL_TYPES_H */
