// Helpers for tests that drive the engine through the PAL API, as the service does.
#pragma once

#include <fcntl.h>
#include <pal/pal_api.h>
#include <pal/pal_engine.h>
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <cstring>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace engine_test {

inline const std::string kLibriVox = "/usr/share/pocketsphinx/test/data/librivox/";
// "he was not an ill disposed young man", 2.99 s.
inline const std::string kShortRecording =
        kLibriVox + "sense_and_sensibility_01_austen_64kb-0880.wav";
// "he might even have been made amiable himself", 3.29 s.
inline const std::string kSecondRecording =
        kLibriVox + "sense_and_sensibility_01_austen_64kb-0930.wav";
// "and mister john dashwood had then leisure to consider how much ...", 7.1 s.
inline const std::string kLongRecording =
        kLibriVox + "sense_and_sensibility_01_austen_64kb-0870.wav";

template <typename T>
T readAt(const std::vector<uint8_t>& bytes, size_t offset) {
    T value;
    std::memcpy(&value, bytes.data() + offset, sizeof(T));
    return value;
}

inline std::string textAt(const std::vector<uint8_t>& bytes, size_t offset) {
    return std::string(reinterpret_cast<const char*>(bytes.data() + offset));
}

// Writes a 16 kHz mono WAV file of `seconds` of digital silence; returns its path.
inline std::string writeSilence(int seconds) {
    char path[] = "/tmp/engine-silence-XXXXXX";
    int fd = mkstemp(path);
    const uint32_t data = static_cast<uint32_t>(seconds) * 16000 * 2;
    uint8_t header[44] = {'R', 'I',  'F', 'F', 0, 0, 0,  0, 'W', 'A', 'V',  'E',  'f', 'm',
                          't', ' ',  16,  0,   0, 0, 1,  0, 1,   0,   0x80, 0x3e, 0,   0,
                          0,   0x7d, 0,   0,   2, 0, 16, 0, 'd', 'a', 't',  'a'};
    const uint32_t riff = 36 + data;
    std::memcpy(header + 4, &riff, 4);
    std::memcpy(header + 40, &data, 4);
    std::vector<uint8_t> bytes(header, header + sizeof(header));
    bytes.resize(bytes.size() + data);
    ssize_t written = write(fd, bytes.data(), bytes.size());
    close(fd);
    return written == static_cast<ssize_t>(bytes.size()) ? path : "";
}

// Stream attributes and device record exactly as the service builds them.
inline pal_stream_attrs serviceAttributes() {
    pal_stream_attrs attributes = {};
    attributes.type = PAL_STREAM_ASR;
    attributes.direction = PAL_AUDIO_INPUT;
    attributes.in_media_config = {16000, 16, PCM_S16_LE, {1, {1}}};
    return attributes;
}

inline pal_device serviceDevice() {
    pal_device device = {};
    device.id = PAL_DEVICE_IN_HANDSET_VA_MIC;
    device.config = {48000, 16, PCM_S16_LE, {2, {1, 2}}};
    return device;
}

// A parameter payload: the 32-bit count, then the bytes.
inline std::vector<uint8_t> payload(const void* record, size_t size) {
    std::vector<uint8_t> bytes(size);
    std::memcpy(bytes.data(), record, size);
    return bytes;
}

inline std::vector<uint8_t> modelPayload(int fd, int32_t size,
                                         st_uuid uuid = pal_engine::kEngineUuidRecord) {
    pal_asr_model model = {24, uuid, fd, size};
    return payload(&model, sizeof(model));
}

inline pal_asr_config englishConfig() {
    pal_asr_config config = {};
    config.payload_size = 36;
    config.continuous = 1;
    return config;
}

inline int32_t setParam(pal_stream_handle* stream, uint32_t id, std::vector<uint8_t> bytes) {
    return pal_stream_set_param(stream, id, reinterpret_cast<pal_param_payload*>(bytes.data()));
}

inline int32_t setConfig(pal_stream_handle* stream, const pal_asr_config& config) {
    return setParam(stream, PAL_PARAM_ID_ASR_CONFIG, payload(&config, sizeof(config)));
}

// Loads the shipped model image through a descriptor, as a client hands it over.
inline int32_t loadShippedModel(pal_stream_handle* stream) {
    int fd = open(VOXA_ENGINE_MODEL, O_RDONLY | O_CLOEXEC);
    off_t size = lseek(fd, 0, SEEK_END);
    int32_t status =
            setParam(stream, PAL_PARAM_ID_ASR_MODEL, modelPayload(fd, static_cast<int32_t>(size)));
    close(fd);
    return status;
}

struct Received {
    pal_stream_handle* stream;
    unsigned int id;
    std::vector<uint8_t> bytes;
    std::thread::id thread;

    bool final() const { return bytes[8] == 1; }
    std::string text() const { return textAt(bytes, 8 + 12); }
    std::string json() const {
        return textAt(bytes, 8 + (id == PAL_ASR_EVENT_ID_TIMESTAMP ? 10668 : 1040));
    }
};

// Collects the events of the stream it was opened with; `onEvent`, when set, runs inside the
// callback after the event is recorded.
class Recorder {
  public:
    static int32_t callback(pal_stream_handle* stream, unsigned int id, unsigned int* data,
                            unsigned int size, unsigned long cookie) {
        auto* self = reinterpret_cast<Recorder*>(cookie);
        const auto* bytes = reinterpret_cast<const uint8_t*>(data);
        size_t index;
        {
            std::lock_guard<std::mutex> lock(self->mLock);
            self->mEvents.push_back({stream, id, std::vector<uint8_t>(bytes, bytes + size),
                                     std::this_thread::get_id()});
            index = self->mEvents.size() - 1;
            self->mChanged.notify_all();
        }
        if (self->onEvent) self->onEvent(index);
        return 0;
    }

    int32_t open(pal_stream_handle** stream) {
        pal_stream_attrs attributes = serviceAttributes();
        pal_device device = serviceDevice();
        return pal_stream_open(&attributes, 1, &device, 0, nullptr, &Recorder::callback,
                               reinterpret_cast<unsigned long>(this), stream);
    }

    std::vector<Received> events() {
        std::lock_guard<std::mutex> lock(mLock);
        return mEvents;
    }

    bool waitForEvents(size_t count, std::chrono::milliseconds timeout = std::chrono::seconds(30)) {
        std::unique_lock<std::mutex> lock(mLock);
        return mChanged.wait_for(lock, timeout, [&] { return mEvents.size() >= count; });
    }

    std::function<void(size_t)> onEvent;

  private:
    std::mutex mLock;
    std::condition_variable mChanged;
    std::vector<Received> mEvents;
};

}  // namespace engine_test
