#include "SoundInput.h"

#include <fcntl.h>
#include <poll.h>
#include <sndfile.h>
#include <soxr.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <vector>

#include "InputFile.h"

namespace voxa_tool {

namespace {

// How far past what it has read a seek may skip while libsndfile parses a header. Further seeks
// fail: on a stream they would read everything up to their target before the first frame.
constexpr int64_t kLookAhead = int64_t{64} * 1024;
// A header that declares this much data or more is a placeholder of a writer that did not know
// the length (arecord, sox writing to a pipe), not a length.
constexpr int64_t kPlaceholderBytes = 0x7fff0000;
constexpr size_t kBlockFrames = 2048;

// The bytes of a descriptor, in order. What has been read is kept until forget(), so that
// libsndfile may seek back into a header and a stream without one can be read again from its
// start as raw PCM.
class ByteStream {
  public:
    // `wakeFd`, when not negative, ends every wait for data once it is readable.
    ByteStream(int fd, int wakeFd) : mFd(fd), mWakeFd(wakeFd) {}

    size_t read(void* to, size_t bytes) {
        auto* out = static_cast<uint8_t*>(to);
        size_t done = 0;
        while (done < bytes) {
            if (mPosition == bufferEnd()) {
                if (!mKeep) {
                    mBase = mPosition;
                    mBuffer.clear();
                }
                if (!fill()) break;
            }
            const size_t n = std::min(bytes - done, static_cast<size_t>(bufferEnd() - mPosition));
            std::memcpy(out + done, mBuffer.data() + (mPosition - mBase), n);
            mPosition += static_cast<int64_t>(n);
            done += n;
        }
        return done;
    }

    bool seek(int64_t to) {
        if (to < mBase || to > bufferEnd() + kLookAhead) return false;
        while (to > bufferEnd()) {
            if (!fill()) return false;
        }
        mPosition = to;
        return true;
    }

    int64_t tell() const { return mPosition; }
    // Whether the descriptor was read to its end without a byte in it.
    bool empty() { return mBase == 0 && mBuffer.empty() && !fill(); }
    // Whether the last wait for data ended because of the wake descriptor.
    bool woken() const { return mWoken; }
    // From here on what is read is not kept.
    void forget() { mKeep = false; }

  private:
    int64_t bufferEnd() const { return mBase + static_cast<int64_t>(mBuffer.size()); }

    // Appends what the descriptor has next. Returns false at its end, on an error or once woken.
    bool fill() {
        pollfd ready[2] = {{mFd, POLLIN, 0}, {mWakeFd, POLLIN, 0}};
        while (!mEnded) {
            if (poll(ready, 2, -1) < 0) {
                if (errno == EINTR) continue;
                break;
            }
            if (ready[1].revents != 0) {
                mWoken = true;
                break;
            }
            uint8_t chunk[16384];
            const ssize_t n = ::read(mFd, chunk, sizeof(chunk));
            if (n < 0 && (errno == EINTR || errno == EAGAIN)) continue;
            if (n <= 0) break;
            mBuffer.insert(mBuffer.end(), chunk, chunk + n);
            return true;
        }
        mEnded = true;
        return false;
    }

    const int mFd;
    const int mWakeFd;
    std::vector<uint8_t> mBuffer;  // the bytes from mBase on
    int64_t mBase = 0;
    int64_t mPosition = 0;
    bool mKeep = true;
    bool mEnded = false;
    bool mWoken = false;
};

// libsndfile reads a ByteStream as a file of unknown length: it then believes what the header
// declares, which is how a truncated file shows.
SF_VIRTUAL_IO streamIo() {
    SF_VIRTUAL_IO io = {};
    io.get_filelen = [](void*) -> sf_count_t { return SF_COUNT_MAX; };
    io.seek = [](sf_count_t offset, int whence, void* data) -> sf_count_t {
        auto* stream = static_cast<ByteStream*>(data);
        const int64_t to = whence == SEEK_SET   ? offset
                           : whence == SEEK_CUR ? stream->tell() + offset
                                                : -1;
        return to >= 0 && stream->seek(to) ? to : -1;
    };
    io.read = [](void* to, sf_count_t bytes, void* data) -> sf_count_t {
        return static_cast<sf_count_t>(
                static_cast<ByteStream*>(data)->read(to, static_cast<size_t>(bytes)));
    };
    io.write = [](const void*, sf_count_t, void*) -> sf_count_t { return 0; };
    io.tell = [](void* data) -> sf_count_t { return static_cast<ByteStream*>(data)->tell(); };
    return io;
}

int bytesPerSample(int format) {
    switch (format & SF_FORMAT_SUBMASK) {
        case SF_FORMAT_PCM_S8:
        case SF_FORMAT_PCM_U8:
        case SF_FORMAT_ULAW:
        case SF_FORMAT_ALAW:
            return 1;
        case SF_FORMAT_PCM_24:
            return 3;
        case SF_FORMAT_PCM_32:
        case SF_FORMAT_FLOAT:
            return 4;
        case SF_FORMAT_DOUBLE:
            return 8;
        default:
            return 2;
    }
}

int64_t declaredFrames(const SF_INFO& info) {
    if (info.frames == SF_COUNT_MAX ||
        info.frames >= kPlaceholderBytes / info.channels / bytesPerSample(info.format)) {
        return -1;
    }
    return info.frames;
}

Status checkFormat(const std::string& name, int rate, int channels, const SoundLimits& limits) {
    if (rate < limits.minRate || rate > limits.maxRate) {
        return Status::failure(name + ": the sample rate " + std::to_string(rate) +
                               " Hz is outside what the engine takes (" +
                               std::to_string(limits.minRate) + " to " +
                               std::to_string(limits.maxRate) + " Hz)");
    }
    if (channels < 1 || channels > limits.maxChannels) {
        return Status::failure(name + ": " + std::to_string(channels) +
                               " channels are more than the engine takes (1 to " +
                               std::to_string(limits.maxChannels) + ")");
    }
    return Status::ok();
}

// Mixes the channels down and resamples to the device's rate, both channels of the device
// carrying the mix, quantised to signed 16-bit.
class DeviceConverter {
  public:
    DeviceConverter(int rate, int channels) : mRate(rate), mChannels(channels) {
        if (rate != DeviceFeed::kDeviceRate) {
            soxr_error_t error = nullptr;
            soxr_quality_spec_t quality = soxr_quality_spec(SOXR_HQ, 0);
            mResampler = soxr_create(rate, DeviceFeed::kDeviceRate, 1, &error, nullptr, &quality,
                                     nullptr);
        }
    }
    ~DeviceConverter() { soxr_delete(mResampler); }
    DeviceConverter(const DeviceConverter&) = delete;
    DeviceConverter& operator=(const DeviceConverter&) = delete;

    void convert(const float* samples, size_t frames, std::vector<int16_t>* out) {
        mMono.resize(frames);
        for (size_t i = 0; i < frames; ++i) {
            float sum = 0;
            for (int c = 0; c < mChannels; ++c) sum += samples[i * mChannels + c];
            mMono[i] = sum / static_cast<float>(mChannels);
        }
        if (mResampler == nullptr) {
            append(mMono.data(), frames, out);
            return;
        }
        mResampled.resize(frames * DeviceFeed::kDeviceRate / mRate + 1024);
        size_t used = 0;
        size_t made = 0;
        soxr_process(mResampler, mMono.data(), frames, &used, mResampled.data(), mResampled.size(),
                     &made);
        append(mResampled.data(), made, out);
    }

    void flush(std::vector<int16_t>* out) {
        if (mResampler == nullptr) return;
        mResampled.resize(4096);
        size_t made = 0;
        do {
            soxr_process(mResampler, nullptr, 0, nullptr, mResampled.data(), mResampled.size(),
                         &made);
            append(mResampled.data(), made, out);
        } while (made > 0);
    }

  private:
    static void append(const float* mono, size_t frames, std::vector<int16_t>* out) {
        for (size_t i = 0; i < frames; ++i) {
            const auto sample =
                    static_cast<int16_t>(std::lround(std::clamp(mono[i], -1.0f, 1.0f) * 32767.0f));
            for (int c = 0; c < DeviceFeed::kDeviceChannels; ++c) out->push_back(sample);
        }
    }

    const int mRate;
    const int mChannels;
    soxr_t mResampler = nullptr;
    std::vector<float> mMono;
    std::vector<float> mResampled;
};

}  // namespace

// A decoded input: libsndfile over a stream, or raw PCM.
class DeviceFeed::Source {
  public:
    Source(std::unique_ptr<ByteStream> stream, SNDFILE* file, int rate, int channels)
        : mStream(std::move(stream)), mFile(file), mRate(rate), mChannels(channels) {}
    ~Source() {
        if (mFile != nullptr) sf_close(mFile);
    }
    Source(const Source&) = delete;
    Source& operator=(const Source&) = delete;

    int rate() const { return mRate; }
    int channels() const { return mChannels; }
    bool woken() const { return mStream->woken(); }

    // Reads at most `frames` frames; 0 at the end. A trailing part of a raw frame is dropped.
    size_t read(float* samples, size_t frames) {
        if (mFile != nullptr) {
            return static_cast<size_t>(std::max<sf_count_t>(
                    0, sf_readf_float(mFile, samples, static_cast<sf_count_t>(frames))));
        }
        const size_t frameBytes = 2 * static_cast<size_t>(mChannels);
        mBytes.resize(frames * frameBytes);
        const size_t whole = mStream->read(mBytes.data(), mBytes.size()) / frameBytes;
        for (size_t i = 0; i < whole * mChannels; ++i) {
            const auto value = static_cast<int16_t>(mBytes[2 * i] | (mBytes[2 * i + 1] << 8));
            samples[i] = static_cast<float>(value) / 32768.0f;
        }
        return whole;
    }

  private:
    const std::unique_ptr<ByteStream> mStream;
    SNDFILE* const mFile;  // null for raw PCM
    const int mRate;
    const int mChannels;
    std::vector<uint8_t> mBytes;
};

Status probeSoundFile(const std::string& path, const SoundLimits& limits, SoundFacts* facts) {
    int fd = -1;
    Status opened = openInputFile(path, &fd);
    if (!opened.isOk()) return opened;
    *facts = SoundFacts();
    ByteStream stream(fd, -1);
    SF_VIRTUAL_IO io = streamIo();
    SF_INFO format = {};
    SNDFILE* file = sf_open_virtual(&io, SFM_READ, &format, &stream);
    Status status = Status::ok();
    if (file == nullptr) {
        if (!stream.empty()) {
            status = Status::failure(path + ": unsupported audio (" + sf_strerror(nullptr) + ")");
        }
    } else {
        stream.forget();
        status = checkFormat(path, format.samplerate, format.channels, limits);
        facts->rate = format.samplerate;
        facts->channels = format.channels;
        facts->declaredFrames = declaredFrames(format);
        std::vector<float> block(kBlockFrames * static_cast<size_t>(format.channels));
        sf_count_t n = 0;
        while (status.isOk() && (n = sf_readf_float(file, block.data(), kBlockFrames)) > 0) {
            facts->frames += n;
        }
        sf_close(file);
    }
    close(fd);
    return status;
}

Status DeviceFeed::start(int fd, const std::string& name, const std::optional<RawFormat>& raw,
                         const SoundLimits& limits, std::unique_ptr<DeviceFeed>* feed,
                         std::string* note) {
    std::unique_ptr<DeviceFeed> made(new DeviceFeed());
    int sockets[2];
    made->mWakeFd = eventfd(0, EFD_CLOEXEC);
    if (made->mWakeFd < 0 || socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, sockets) != 0) {
        return Status::failure(std::string("cannot make the capture socket: ") +
                               std::strerror(errno));
    }
    made->mEngineFd = sockets[0];
    made->mFeedFd = sockets[1];

    auto stream = std::make_unique<ByteStream>(fd, made->mWakeFd);
    SoundFacts& facts = made->mFacts;
    SNDFILE* file = nullptr;
    if (raw) {
        facts.rate = raw->rate;
        facts.channels = raw->channels;
    } else {
        SF_VIRTUAL_IO io = streamIo();
        SF_INFO format = {};
        file = sf_open_virtual(&io, SFM_READ, &format, stream.get());
        if (file != nullptr) {
            facts.rate = format.samplerate;
            facts.channels = format.channels;
            facts.declaredFrames = declaredFrames(format);
        } else if (stream->empty()) {
            made->mEmpty = true;
        } else {
            facts.rate = kDeviceRate;
            facts.channels = kDeviceChannels;
            stream->seek(0);
            *note = name + ": no sound file header; reading raw PCM in the device format, " +
                    std::to_string(kDeviceRate) + ":" + std::to_string(kDeviceChannels) +
                    " (signed 16-bit little-endian; --raw RATE:CHANNELS sets another)";
        }
    }
    stream->forget();
    made->mSource = std::make_unique<Source>(std::move(stream), file, facts.rate, facts.channels);
    if (made->mEmpty) {
        *feed = std::move(made);
        return Status::ok();
    }
    Status status = checkFormat(name, facts.rate, facts.channels, limits);
    if (!status.isOk()) return status;
    made->mThread = std::thread(&DeviceFeed::run, made.get());
    *feed = std::move(made);
    return Status::ok();
}

DeviceFeed::~DeviceFeed() {
    if (mWakeFd >= 0) {
        const uint64_t one = 1;
        [[maybe_unused]] ssize_t written = write(mWakeFd, &one, sizeof(one));
    }
    if (mThread.joinable()) mThread.join();
    for (int fd : {mEngineFd, mFeedFd, mWakeFd}) {
        if (fd >= 0) close(fd);
    }
}

void DeviceFeed::run() {
    DeviceConverter converter(mSource->rate(), mSource->channels());
    std::vector<float> block(kBlockFrames * static_cast<size_t>(mSource->channels()));
    std::vector<int16_t> pcm;
    auto send = [this, &pcm] {
        const auto* bytes = reinterpret_cast<const uint8_t*>(pcm.data());
        size_t left = pcm.size() * sizeof(int16_t);
        pollfd ready[2] = {{mFeedFd, POLLOUT, 0}, {mWakeFd, POLLIN, 0}};
        while (left > 0) {
            if (poll(ready, 2, -1) < 0 && errno != EINTR) return false;
            if (ready[1].revents != 0) return false;
            const ssize_t n = ::send(mFeedFd, bytes, left, MSG_NOSIGNAL | MSG_DONTWAIT);
            if (n < 0 && errno != EAGAIN && errno != EINTR) return false;
            if (n > 0) {
                bytes += n;
                left -= static_cast<size_t>(n);
            }
        }
        return true;
    };
    for (;;) {
        const size_t frames = mSource->read(block.data(), kBlockFrames);
        pcm.clear();
        if (frames == 0) {
            converter.flush(&pcm);
        } else {
            converter.convert(block.data(), frames, &pcm);
            mFramesRead += static_cast<int64_t>(frames);
        }
        if (!send()) break;
        if (frames == 0) {
            mEnded = !mSource->woken();
            break;
        }
    }
    // The engine reads the end of the input.
    shutdown(mFeedFd, SHUT_WR);
}

}  // namespace voxa_tool
