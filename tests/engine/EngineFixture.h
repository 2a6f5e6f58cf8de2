// The PAL engine driven through the PAL API as the service drives it: the stream attributes and
// device record the service opens with, a configuration, and a fixture that records the events.
#ifndef VOXA_TESTS_ENGINE_ENGINE_FIXTURE_H
#define VOXA_TESTS_ENGINE_ENGINE_FIXTURE_H

#include <gtest/gtest.h>
#include <pal/pal_api.h>
#include <pal/pal_engine.h>
#include <sys/mman.h>
#include <unistd.h>

#include <fstream>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "support/Bytes.h"

namespace engine_test {

const std::string kLibriVox =
        "/usr/share/pocketsphinx/test/data/librivox/sense_and_sensibility_01_austen_64kb-";
// "he was not an ill disposed young man", 2.99 s.
const std::string kShortRecording = kLibriVox + "0880.wav";
// "he might even have been made amiable himself", 3.29 s.
const std::string kSecondRecording = kLibriVox + "0930.wav";
// "and mister john dashwood had then leisure to consider how much ...", 7.1 s.
const std::string kLongRecording = kLibriVox + "0870.wav";

using Bytes = std::vector<uint8_t>;
using voxa_test::readAt;
using voxa_test::readFile;
using voxa_test::textAt;

// Writes `seconds` of digital silence as a WAV file in the recordings' format (16 kHz mono, 16
// bits, a 44-byte header); returns its path.
inline std::string writeSilence(uint32_t seconds) {
    const uint32_t sizes[] = {36 + seconds * 32000, seconds * 32000};
    std::string wav = readFile(kShortRecording).substr(0, 44) + std::string(sizes[1], '\0');
    wav.replace(4, 4, reinterpret_cast<const char*>(&sizes[0]), 4);
    wav.replace(40, 4, reinterpret_cast<const char*>(&sizes[1]), 4);
    const std::string path = ::testing::TempDir() + "engine-silence-" + std::to_string(getpid());
    return std::ofstream(path, std::ios::binary) << wav ? path : "";
}

// Continuous, US English: the buffering mode's flags; with `partial`, partial-continuous.
inline pal_asr_config englishConfig(bool partial = false) {
    pal_asr_config config = {};
    config.payload_size = 36;
    config.continuous = 1;
    config.partial = partial;
    config.buffering = !partial;
    return config;
}

// Sets a parameter whose payload is `record`, its 32-bit count first.
template <typename T>
int32_t setParam(pal_stream_handle* stream, uint32_t id, T record) {
    return pal_stream_set_param(stream, id, reinterpret_cast<pal_param_payload*>(&record));
}

struct Received {
    pal_stream_handle* stream;
    unsigned int id;
    Bytes bytes;

    bool final() const { return bytes[8] == 1; }
    std::string text() const { return textAt(bytes, 8 + 12); }
    std::string json() const {
        return textAt(bytes, 8 + (id == PAL_ASR_EVENT_ID_TIMESTAMP ? 10668 : 1040));
    }
};

// Opens the stream as the service does and records its events. Leaves the engine as it found it:
// no stream, no source, no resources-available registration.
class EngineTest : public ::testing::Test {
  protected:
    void TearDown() override {
        if (mStream != nullptr) {
            EXPECT_EQ(0, pal_stream_close(mStream));
        }
        pal_resources_available_param none = {};
        pal_set_param(PAL_PARAM_ID_RESOURCES_AVAILABLE, &none, sizeof(none));
        pal_engine::clearSource();
    }

    static int32_t callback(pal_stream_handle* stream, unsigned int id, unsigned int* data,
                            unsigned int size, unsigned long cookie) {
        auto* self = reinterpret_cast<EngineTest*>(cookie);
        const auto* bytes = reinterpret_cast<const uint8_t*>(data);
        size_t index;
        {
            std::lock_guard<std::mutex> lock(self->mLock);
            index = self->mEvents.size();
            self->mEvents.push_back({stream, id, Bytes(bytes, bytes + size)});
        }
        if (self->mOnEvent) self->mOnEvent(index);
        return 0;
    }

    // The arguments of pal_stream_open exactly as the service passes them.
    struct OpenCall {
        OpenCall() {
            attributes.type = PAL_STREAM_ASR;
            attributes.direction = PAL_AUDIO_INPUT;
            attributes.in_media_config = {16000, 16, PCM_S16_LE, {1, {1}}};
            devices[0].id = PAL_DEVICE_IN_HANDSET_VA_MIC;
            devices[0].config = {48000, 16, PCM_S16_LE, {2, {1, 2}}};
            devices[1] = devices[0];
        }
        pal_stream_attrs attributes = {};
        pal_device devices[2] = {};
        uint32_t deviceCount = 1;
        pal_stream_modifier modifier = {1, 2};
        uint32_t modifierCount = 0;
        pal_stream_event_cb callback = &EngineTest::callback;
    };

    // Opens a stream with the service's arguments, changed by `change`.
    int32_t open(pal_stream_handle** stream, const std::function<void(OpenCall&)>& change = {}) {
        OpenCall c;
        if (change) change(c);
        return pal_stream_open(&c.attributes, c.deviceCount, c.devices, c.modifierCount,
                               &c.modifier, c.callback, reinterpret_cast<unsigned long>(this),
                               stream);
    }

    // Hands the stream a model image holding `text` through a descriptor, claiming `size` bytes
    // (all of them when negative); the engine leaves the descriptor's offset alone.
    int32_t loadImage(const std::string& text, int32_t size = -1,
                      st_uuid uuid = pal_engine::kEngineUuidRecord) {
        int fd = memfd_create("image", MFD_CLOEXEC);
        EXPECT_EQ(static_cast<ssize_t>(text.size()), write(fd, text.data(), text.size()));
        if (size < 0) size = static_cast<int32_t>(text.size());
        int32_t status =
                setParam(mStream, PAL_PARAM_ID_ASR_MODEL, pal_asr_model{24, uuid, fd, size});
        EXPECT_EQ(static_cast<off_t>(text.size()), lseek(fd, 0, SEEK_CUR));
        close(fd);
        return status;
    }

    // Opens the stream and loads `image` (the shipped model's by default).
    void openWithModel(const std::string& image = readFile(VOXA_ENGINE_MODEL)) {
        ASSERT_EQ(0, open(&mStream));
        ASSERT_EQ(0, loadImage(image));
    }

    // Configures, starts on `files` at full speed and waits until the recording is recognised.
    void recognise(const pal_asr_config& config, const std::vector<std::string>& files) {
        ASSERT_EQ(0, pal_engine::setFileSource(files, pal_engine::Pace::Fast));
        ASSERT_EQ(0, setParam(mStream, PAL_PARAM_ID_ASR_CONFIG, config));
        ASSERT_EQ(0, pal_stream_start(mStream));
        ASSERT_EQ(0, pal_engine::waitUntilDone(std::chrono::seconds(300)));
        EXPECT_EQ(0, pal_stream_stop(mStream));
    }

    std::vector<Received> events() {
        std::lock_guard<std::mutex> lock(mLock);
        return mEvents;
    }

    // Runs inside the stream callback after each event is recorded, with the event's index.
    std::function<void(size_t)> mOnEvent;
    pal_stream_handle* mStream = nullptr;

  private:
    std::mutex mLock;
    std::vector<Received> mEvents;
};

}  // namespace engine_test

#endif  // VOXA_TESTS_ENGINE_ENGINE_FIXTURE_H
