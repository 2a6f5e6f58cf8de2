#include "EngineSession.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cstring>
#include <fstream>
#include <iterator>

namespace voxa_bench {

EngineSession::EngineSession() {
    pal_stream_attrs attributes = {};
    attributes.type = PAL_STREAM_ASR;
    attributes.direction = PAL_AUDIO_INPUT;
    attributes.in_media_config = {16000, 16, PCM_S16_LE, {1, {1}}};
    pal_device device = {};
    device.id = PAL_DEVICE_IN_HANDSET_VA_MIC;
    device.config = {48000, 16, PCM_S16_LE, {2, {1, 2}}};
    mOk = pal_stream_open(&attributes, 1, &device, 0, nullptr, &EngineSession::callback,
                          reinterpret_cast<unsigned long>(this), &mStream) == 0;
    std::ifstream file(VOXA_ENGINE_MODEL, std::ios::binary);
    const std::string image((std::istreambuf_iterator<char>(file)),
                            std::istreambuf_iterator<char>());
    int fd = memfd_create("image", MFD_CLOEXEC);
    mOk = mOk && write(fd, image.data(), image.size()) == static_cast<ssize_t>(image.size());
    pal_asr_model model = {24, pal_engine::kEngineUuidRecord, fd,
                           static_cast<int32_t>(image.size())};
    mOk = mOk && pal_stream_set_param(mStream, PAL_PARAM_ID_ASR_MODEL,
                                      reinterpret_cast<pal_param_payload*>(&model)) == 0;
    close(fd);
}

EngineSession::~EngineSession() {
    if (mStream != nullptr) pal_stream_close(mStream);
}

bool EngineSession::run(pal_asr_config config, const std::vector<std::string>& files,
                        pal_engine::Pace pace) {
    {
        std::lock_guard<std::mutex> lock(mLock);
        mFinals.clear();
        mSpeakers.clear();
        mStarted = mLastEvent = Clock::now();
    }
    config.payload_size = 36;
    return mOk && pal_engine::setFileSource(files, pace) == 0 &&
           pal_stream_set_param(mStream, PAL_PARAM_ID_ASR_CONFIG,
                                reinterpret_cast<pal_param_payload*>(&config)) == 0 &&
           pal_stream_start(mStream) == 0 &&
           pal_engine::waitUntilDone(std::chrono::milliseconds(-1)) == 0 &&
           pal_stream_stop(mStream) == 0;
}

std::vector<EngineSession::Final> EngineSession::finals() {
    std::lock_guard<std::mutex> lock(mLock);
    return mFinals;
}

std::vector<Segment> EngineSession::speakers() {
    std::lock_guard<std::mutex> lock(mLock);
    return mSpeakers;
}

int32_t EngineSession::callback(pal_stream_handle*, unsigned int id, unsigned int* data,
                                unsigned int, unsigned long cookie) {
    const Clock::time_point now = Clock::now();
    auto* self = reinterpret_cast<EngineSession*>(cookie);
    const auto* bytes = reinterpret_cast<const char*>(data);
    std::lock_guard<std::mutex> lock(self->mLock);
    if (id == PAL_ASR_EVENT_ID_SPEAKER_DIARIZATION) {
        uint32_t count = 0;
        std::memcpy(&count, bytes + 8, sizeof(count));
        for (uint32_t s = 0; s < count; ++s) {
            Segment turn;
            std::memcpy(&turn.speaker, bytes + 16 + 144 * s, 4);
            std::memcpy(&turn.startMs, bytes + 16 + 144 * s + 8, 8);
            std::memcpy(&turn.endMs, bytes + 16 + 144 * s + 16, 8);
            self->mSpeakers.push_back(turn);
        }
    } else if (bytes[8] == 1) {
        const size_t json = id == PAL_ASR_EVENT_ID_TIMESTAMP ? 8 + 10668 : 8 + 1040;
        self->mFinals.push_back({bytes + 8 + 12, bytes + json, now, self->mLastEvent});
    }
    self->mLastEvent = now;
    return 0;
}

}  // namespace voxa_bench
