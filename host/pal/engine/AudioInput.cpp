#include "AudioInput.h"

#include <poll.h>
#include <sndfile.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <vector>

namespace pal_engine {

namespace {

// A pause in a live source longer than this returns Pending.
constexpr int kPollMs = 20;

class SoundFileInput : public AudioInput {
  public:
    SoundFileInput(SNDFILE* file, const SF_INFO& info) : mFile(file), mInfo(info) {}
    ~SoundFileInput() override { sf_close(mFile); }

    int rate() const override { return mInfo.samplerate; }
    int channels() const override { return mInfo.channels; }

    ReadStatus read(float* samples, size_t frames, size_t* count) override {
        *count = 0;
        sf_count_t n = sf_readf_float(mFile, samples, static_cast<sf_count_t>(frames));
        if (n > 0) {
            *count = static_cast<size_t>(n);
            return ReadStatus::Data;
        }
        return sf_error(mFile) == SF_ERR_NO_ERROR ? ReadStatus::End : ReadStatus::Error;
    }

  private:
    SNDFILE* mFile;
    const SF_INFO mInfo;
};

class PcmInput : public AudioInput {
  public:
    PcmInput(int fd, int rate, int channels) : mFd(fd), mRate(rate), mChannels(channels) {}

    int rate() const override { return mRate; }
    int channels() const override { return mChannels; }

    ReadStatus read(float* samples, size_t frames, size_t* count) override {
        *count = 0;
        pollfd ready = {mFd, POLLIN, 0};
        int polled = poll(&ready, 1, kPollMs);
        if (polled < 0) {
            return errno == EINTR ? ReadStatus::Pending : ReadStatus::Error;
        }
        if (polled == 0) {
            return ReadStatus::Pending;
        }

        const size_t frameBytes = 2 * static_cast<size_t>(mChannels);
        const size_t kept = mBytes.size();
        mBytes.resize(frames * frameBytes);
        ssize_t n = ::read(mFd, mBytes.data() + kept, mBytes.size() - kept);
        if (n < 0) {
            mBytes.resize(kept);
            return errno == EINTR || errno == EAGAIN ? ReadStatus::Pending : ReadStatus::Error;
        }
        if (n == 0) {
            return ReadStatus::End;  // a trailing part of a frame is dropped
        }
        size_t total = kept + static_cast<size_t>(n);
        size_t whole = total / frameBytes;
        for (size_t i = 0; i < whole * mChannels; ++i) {
            int16_t value = static_cast<int16_t>(mBytes[2 * i] | (mBytes[2 * i + 1] << 8));
            samples[i] = static_cast<float>(value) / 32768.0f;
        }
        // Keep the start of a frame split across reads for the next call.
        std::memmove(mBytes.data(), mBytes.data() + whole * frameBytes, total - whole * frameBytes);
        mBytes.resize(total - whole * frameBytes);
        *count = whole;
        return whole > 0 ? ReadStatus::Data : ReadStatus::Pending;
    }

  private:
    const int mFd;
    const int mRate;
    const int mChannels;
    std::vector<uint8_t> mBytes;  // bytes read, from a partial frame at the front
};

}  // namespace

int32_t openSoundFile(const std::string& path, std::unique_ptr<AudioInput>* input) {
    SF_INFO info = {};
    SNDFILE* file = sf_open(path.c_str(), SFM_READ, &info);
    if (file == nullptr) {
        return PAL_STATUS_IO;
    }
    if (info.channels < 1 || info.samplerate < 1) {
        sf_close(file);
        return PAL_STATUS_IO;
    }
    input->reset(new SoundFileInput(file, info));
    return 0;
}

std::unique_ptr<AudioInput> makePcmInput(int fd, int rate, int channels) {
    return std::make_unique<PcmInput>(fd, rate, channels);
}

}  // namespace pal_engine
