#include "Stream.h"

#include <cerrno>
#include <cstring>
#include <utility>

#include "Recording.h"

namespace pal_engine {

namespace {

constexpr uint32_t kModelFixedSize = sizeof(pal_asr_model) - sizeof(uint32_t);
// Audio read per step of the capture thread.
constexpr int kBlocksPerSecond = 20;

bool sameUuid(const st_uuid& a, const st_uuid& b) {
    return a.time_low == b.time_low && a.time_mid == b.time_mid &&
           a.time_hi_and_version == b.time_hi_and_version && a.clock_seq == b.clock_seq &&
           std::memcmp(a.node, b.node, sizeof(a.node)) == 0;
}

}  // namespace

Stream::Stream(pal_stream_event_cb callback, unsigned long cookie, const pal_media_format& device,
               RecogniserCache& cache)
    : mCallback(callback), mCookie(cookie), mDevice(device), mCache(cache) {}

Stream::~Stream() = default;

int32_t Stream::setParam(uint32_t id, const pal_param_payload* payload) {
    if (payload == nullptr) {
        return PAL_STATUS_INVALID;
    }
    std::lock_guard<std::mutex> lock(mLock);
    switch (id) {
        case PAL_PARAM_ID_ASR_MODEL: {
            if (mStarted || mRunning || payload->size < kModelFixedSize) {
                return PAL_STATUS_INVALID;
            }
            pal_asr_model model;
            std::memcpy(&model, payload, sizeof(model));
            if (!sameUuid(model.vendor_uuid, kEngineUuidRecord)) {
                return PAL_STATUS_INVALID;
            }
            ModelImage image;
            int32_t status = readModelImage(model.model_fd, model.model_size, &image);
            if (status != 0) {
                return status;
            }
            if (image.language != "en-US") {
                return PAL_STATUS_INVALID;
            }
            if (mRecogniser != nullptr && mRecogniser->identity() == modelIdentity(image)) {
                return 0;  // the same model again; each start begins clean anyway
            }
            std::unique_ptr<Recogniser> recogniser;
            status = mCache.take(image, &recogniser);
            if (status == 0) {
                if (mRecogniser != nullptr) {
                    mCache.keep(std::move(mRecogniser));
                }
                mRecogniser = std::move(recogniser);
            }
            return status;
        }
        case PAL_PARAM_ID_ASR_CONFIG: {
            if (mStarted) {
                return PAL_STATUS_INVALID;
            }
            Settings settings;
            int32_t status = parseSettings(payload, &settings);
            if (status == 0) {
                mSettings = settings;
            }
            return status;
        }
        case PAL_PARAM_ID_ASR_CUSTOM:
            // No extra the engine knows of; accepted so that clients may send their own.
            return 0;
        case PAL_PARAM_ID_ASR_FORCE_OUTPUT:
            if (!mStarted) {
                return PAL_STATUS_INVALID;
            }
            mForceOutput = true;
            mChanged.notify_all();
            return 0;
        default:
            return PAL_STATUS_INVALID;
    }
}

int32_t Stream::open(const Source& source, std::vector<Input>* inputs) {
    switch (source.kind) {
        case Source::Kind::None:
            return PAL_STATUS_NO_DEVICE;
        case Source::Kind::Files:
            for (const std::string& path : source.paths) {
                Input input;
                int32_t status = openSoundFile(path, &input.audio);
                if (status != 0) {
                    return status;
                }
                inputs->push_back(std::move(input));
            }
            break;
        case Source::Kind::Pcm:
            inputs->push_back({makePcmInput(source.fd, static_cast<int>(mDevice.sample_rate),
                                            mDevice.channels.count),
                               nullptr});
            break;
    }
    for (Input& input : *inputs) {
        if (Resampler::create(input.audio->rate(), input.audio->channels(), &input.resampler) !=
            0) {
            return PAL_STATUS_IO;
        }
    }
    return 0;
}

int32_t Stream::start(const Source& source) {
    std::thread previous;
    {
        std::lock_guard<std::mutex> lock(mLock);
        if (mStarted || mRecogniser == nullptr) {
            return PAL_STATUS_INVALID;
        }
        if (mCapture.get_id() == std::this_thread::get_id()) {
            return PAL_STATUS_INVALID;
        }
        previous = std::move(mCapture);
    }
    // A stop that did not wait for the last capture thread left it to us.
    if (previous.joinable()) {
        previous.join();
    }
    std::vector<Input> inputs;
    int32_t status = open(source, &inputs);
    if (status != 0) {
        return status;
    }

    std::lock_guard<std::mutex> lock(mLock);
    if (mStarted || mCapture.joinable() || mRecogniser == nullptr) {
        return PAL_STATUS_INVALID;  // another start, or a close, came first
    }
    if (mRecogniser->prepare(mSettings.silenceMs, mSettings.partial) != 0) {
        mRecogniser.reset();  // its decoder is in no known state: neither used nor kept
        return PAL_STATUS_INVALID;
    }
    std::unique_ptr<FrontEnd> frontEnd;
    if (mSettings.diarize && (frontEnd = FrontEnd::forSpeakers()) == nullptr) {
        return PAL_STATUS_IO;
    }
    if (mSettings.translateTo < 0) {
        mTranslator.reset();
    } else if (mTranslator == nullptr || mTranslator->languageId() != mSettings.translateTo) {
        mTranslator = Translator::create(mSettings.translateTo);
    }
    if (mTranslator != nullptr && mTranslator->start() != 0) {
        mTranslator.reset();
    }
    if (mSettings.translateTo >= 0 && mTranslator == nullptr) {
        return PAL_STATUS_IO;
    }
    mStarted = true;
    mRunning = true;
    mStopRequested = false;
    mForceOutput = false;
    mCapture = std::thread(&Stream::capture, this, std::move(inputs), mSettings, source.pace,
                           std::move(frontEnd));
    return 0;
}

int32_t Stream::stop() {
    return endCapture(false);
}

int32_t Stream::close() {
    if (onCaptureThread()) {
        return PAL_STATUS_INVALID;
    }
    endCapture(true);
    // The capture thread has ended: nothing else uses the recogniser now.
    std::unique_ptr<Recogniser> recogniser;
    {
        std::lock_guard<std::mutex> lock(mLock);
        recogniser = std::move(mRecogniser);
    }
    if (recogniser != nullptr) {
        mCache.keep(std::move(recogniser));
    }
    return 0;
}

int32_t Stream::endCapture(bool waitForCallback) {
    std::thread capture;
    {
        std::lock_guard<std::mutex> lock(mLock);
        mStarted = false;
        mStopRequested = true;
        mChanged.notify_all();
        if (mTranslator != nullptr) {
            mTranslator->interrupt();
        }
        const bool onCapture = mCapture.get_id() == std::this_thread::get_id();
        if (!onCapture && (waitForCallback || !mInCallback)) {
            capture = std::move(mCapture);
        }
    }
    if (capture.joinable()) {
        capture.join();
    }
    return 0;
}

bool Stream::onCaptureThread() {
    std::lock_guard<std::mutex> lock(mLock);
    return mCapture.get_id() == std::this_thread::get_id();
}

int32_t Stream::waitUntilDone(std::chrono::milliseconds timeout) {
    std::unique_lock<std::mutex> lock(mLock);
    auto done = [this] { return !mRunning || mStopRequested; };
    if (timeout.count() < 0) {
        mChanged.wait(lock, done);
        return 0;
    }
    return mChanged.wait_for(lock, timeout, done) ? 0 : PAL_STATUS_TIMED_OUT;
}

bool Stream::raise(Event& event) {
    {
        std::lock_guard<std::mutex> lock(mLock);
        if (mStopRequested) {
            return false;
        }
        mInCallback = true;
    }
    mCallback(&mHandle, event.id, event.data(), event.size, mCookie);
    std::lock_guard<std::mutex> lock(mLock);
    mInCallback = false;
    mChanged.notify_all();
    return !mStopRequested;
}

bool Stream::waitUntil(std::chrono::steady_clock::time_point deadline) {
    std::unique_lock<std::mutex> lock(mLock);
    mChanged.wait_until(lock, deadline, [this] { return mStopRequested || mForceOutput; });
    return !mStopRequested;
}

bool Stream::poll(bool* force) {
    std::lock_guard<std::mutex> lock(mLock);
    *force = mForceOutput;
    mForceOutput = false;
    return !mStopRequested;
}

void Stream::capture(std::vector<Input> inputs, Settings settings, Pace pace,
                     std::unique_ptr<FrontEnd> frontEnd) {
    Recogniser* recogniser = nullptr;
    Translator* translator = nullptr;
    {
        std::lock_guard<std::mutex> lock(mLock);
        recogniser = mRecogniser.get();
        translator = mTranslator.get();
    }
    {
        Recording recording(*recogniser, settings, translator, std::move(frontEnd),
                            [this](Event& event) { return raise(event); });
        const auto begin = std::chrono::steady_clock::now();
        std::vector<float> block;
        std::vector<int16_t> pcm;
        bool going = true;
        for (size_t i = 0; going && i < inputs.size(); ++i) {
            AudioInput& input = *inputs[i].audio;
            Resampler& resampler = *inputs[i].resampler;
            const size_t frames = static_cast<size_t>(input.rate() / kBlocksPerSecond);
            block.resize(frames * static_cast<size_t>(input.channels()));
            ReadStatus status = ReadStatus::Data;
            while (going && status != ReadStatus::End && status != ReadStatus::Error) {
                bool force = false;
                going = poll(&force);
                if (going && force) {
                    going = recording.finishUtterance(Ending::Forced);
                }
                if (!going) {
                    break;
                }
                size_t count = 0;
                status = input.read(block.data(), frames, &count);
                if (status == ReadStatus::Pending) {
                    continue;
                }
                pcm.clear();
                if (status == ReadStatus::Data) {
                    resampler.convert(block.data(), count, &pcm);
                } else {
                    resampler.flush(&pcm);
                }
                if (pace == Pace::RealTime) {
                    auto heard = std::chrono::milliseconds(
                            (recording.samples() + static_cast<int64_t>(pcm.size())) * 1000 /
                            kRecogniserRate);
                    going = waitUntil(begin + heard);
                }
                if (going) {
                    going = recording.feed(pcm);
                }
            }
        }
        if (going && recording.inUtterance()) {
            recording.finishUtterance(Ending::EndOfAudio);
        }
    }

    std::lock_guard<std::mutex> lock(mLock);
    mRunning = false;
    mChanged.notify_all();
}

}  // namespace pal_engine
