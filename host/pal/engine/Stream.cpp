#include "Stream.h"

#include <cstring>
#include <utility>

namespace pal_engine {

namespace {

constexpr uint32_t kConfigFixedSize = sizeof(pal_asr_config) - sizeof(uint32_t);
constexpr uint32_t kModelFixedSize = sizeof(pal_asr_model) - sizeof(uint32_t);
// Ids of the language table that the service knows; only 0, en-US, is recognised here.
constexpr int32_t kLanguageCount = 100;
constexpr int32_t kEnglishUs = 0;
constexpr int32_t kMaxSilenceMs = 60 * 1000;
// Audio read per step of the capture thread.
constexpr int kBlocksPerSecond = 20;

bool sameUuid(const st_uuid& a, const st_uuid& b) {
    return a.time_low == b.time_low && a.time_mid == b.time_mid &&
           a.time_hi_and_version == b.time_hi_and_version && a.clock_seq == b.clock_seq &&
           std::memcmp(a.node, b.node, sizeof(a.node)) == 0;
}

}  // namespace

int32_t parseSettings(const pal_param_payload* payload, Settings* settings) {
    if (payload == nullptr || payload->size < kConfigFixedSize) {
        return -22;
    }
    pal_asr_config config;
    std::memcpy(&config, payload, sizeof(config));
    if (config.data_size != payload->size - kConfigFixedSize) {
        return -22;
    }
    for (int32_t id : {config.input_language_id, config.output_language_id}) {
        if (id < 0 || id >= kLanguageCount) {
            return -22;
        }
    }
    if (config.threshold < 0 || config.threshold > 100 || config.timeout_duration < 0 ||
        config.silence_detection_duration < 0 ||
        config.silence_detection_duration > kMaxSilenceMs) {
        return -22;
    }
    if (config.input_language_id != kEnglishUs || config.output_language_id != kEnglishUs ||
        config.enable_translation != 0 || config.enable_speaker_diarization != 0) {
        return -38;
    }
    settings->continuous = config.continuous != 0;
    settings->partial = config.partial != 0;
    settings->timestamps = config.enable_text_timestamp != 0;
    settings->threshold = config.threshold;
    settings->timeoutMs = config.timeout_duration;
    settings->silenceMs = config.silence_detection_duration == 0
                                  ? kDefaultSilenceMs
                                  : config.silence_detection_duration;
    return 0;
}

// The capture thread's view of one recording: where it stands in the audio and in the current
// utterance.
struct Stream::Recording {
    Recording(Stream& stream, Recogniser& recogniser, const Settings& settings)
        : stream(stream), recogniser(recogniser), settings(settings) {}

    Stream& stream;
    Recogniser& recogniser;
    const Settings settings;
    int64_t samples = 0;  // fed to the recogniser
    bool inUtterance = false;
    int64_t quietSinceMs = 0;  // end of the last utterance
    std::string partial;       // last partial hypothesis raised

    int64_t nowMs() const { return samples * 1000 / kRecogniserRate; }

    // Ends the current utterance and raises its result, unless it is empty or below the
    // threshold (a forced result is raised whatever it holds). Returns false when the
    // recognition is over: the stream stopped, or a command got its result.
    bool finishUtterance(Ending ending) {
        Result result = recogniser.endUtterance();
        inUtterance = false;
        quietSinceMs = nowMs();
        partial.clear();
        bool wanted = ending == Ending::Forced ||
                      (!result.words.empty() && result.confidence >= settings.threshold);
        if (!wanted) {
            return true;
        }
        Event event = makeFinalEvent(result, ending, settings.timestamps);
        return stream.raise(event) && settings.continuous;
    }

    // Feeds converted audio. Returns false when the recognition is over.
    bool feed(const std::vector<int16_t>& pcm) {
        if (pcm.empty()) {
            return true;
        }
        bool speech = recogniser.process(pcm.data(), pcm.size());
        samples += static_cast<int64_t>(pcm.size());
        if (speech && !inUtterance) {
            inUtterance = true;
        }
        if (inUtterance && !speech) {
            return finishUtterance(Ending::Silence);
        }
        if (inUtterance && settings.partial) {
            std::string hypothesis = recogniser.hypothesis();
            if (!hypothesis.empty() && hypothesis != partial) {
                partial = hypothesis;
                Event event = makePartialEvent(hypothesis);
                if (!stream.raise(event)) {
                    return false;
                }
            }
        }
        if (!inUtterance && settings.timeoutMs > 0 &&
            nowMs() - quietSinceMs >= settings.timeoutMs) {
            Result silence;
            silence.startMs = quietSinceMs;
            silence.endMs = nowMs();
            Event event = makeFinalEvent(silence, Ending::TimeOut, settings.timestamps);
            stream.raise(event);
            return false;
        }
        return true;
    }
};

Stream::Stream(pal_stream_event_cb callback, unsigned long cookie, const pal_media_format& device)
    : mCallback(callback), mCookie(cookie), mDevice(device) {}

Stream::~Stream() = default;

int32_t Stream::setParam(uint32_t id, const pal_param_payload* payload) {
    if (payload == nullptr) {
        return -22;
    }
    std::lock_guard<std::mutex> lock(mLock);
    switch (id) {
        case PAL_PARAM_ID_ASR_MODEL: {
            if (mStarted || mRunning || payload->size < kModelFixedSize) {
                return -22;
            }
            pal_asr_model model;
            std::memcpy(&model, payload, sizeof(model));
            if (!sameUuid(model.vendor_uuid, kEngineUuidRecord)) {
                return -22;
            }
            ModelImage image;
            int32_t status = readModelImage(model.model_fd, model.model_size, &image);
            if (status != 0) {
                return status;
            }
            if (image.language != "en-US") {
                return -22;
            }
            std::unique_ptr<Recogniser> recogniser;
            status = Recogniser::create(image, &recogniser);
            if (status == 0) {
                mRecogniser = std::move(recogniser);
            }
            return status;
        }
        case PAL_PARAM_ID_ASR_CONFIG: {
            if (mStarted) {
                return -22;
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
                return -22;
            }
            mForceOutput = true;
            mChanged.notify_all();
            return 0;
        default:
            return -22;
    }
}

int32_t Stream::start(const Source& source) {
    std::thread previous;
    {
        std::lock_guard<std::mutex> lock(mLock);
        if (mStarted || mRecogniser == nullptr) {
            return -22;
        }
        if (mCapture.get_id() == std::this_thread::get_id()) {
            return -22;
        }
        previous = std::move(mCapture);
    }
    // A stop that found the last recording delivering an event left its thread to us.
    if (previous.joinable()) {
        previous.join();
    }

    std::vector<Input> inputs;
    switch (source.kind) {
        case Source::Kind::None:
            return -19;
        case Source::Kind::Files:
            for (const std::string& path : source.paths) {
                Input input;
                int32_t status = openSoundFile(path, &input.audio);
                if (status != 0) {
                    return status;
                }
                inputs.push_back(std::move(input));
            }
            break;
        case Source::Kind::Pcm:
            inputs.push_back({makePcmInput(source.fd, static_cast<int>(mDevice.sample_rate),
                                           mDevice.channels.count),
                              nullptr});
            break;
    }
    for (Input& input : inputs) {
        if (Resampler::create(input.audio->rate(), input.audio->channels(), &input.resampler) !=
            0) {
            return -5;
        }
    }

    std::lock_guard<std::mutex> lock(mLock);
    if (mStarted || mCapture.joinable()) {
        return -22;  // another start came first
    }
    if (mRecogniser->setSilence(mSettings.silenceMs) != 0) {
        return -22;
    }
    mStarted = true;
    mRunning = true;
    mStopRequested = false;
    mForceOutput = false;
    mCapture = std::thread(&Stream::capture, this, std::move(inputs), mSettings, source.pace);
    return 0;
}

int32_t Stream::stop() {
    return endCapture(false);
}

int32_t Stream::close() {
    return endCapture(true);
}

int32_t Stream::endCapture(bool waitForCallback) {
    std::thread capture;
    {
        std::lock_guard<std::mutex> lock(mLock);
        if (mCapture.get_id() == std::this_thread::get_id()) {
            return -22;
        }
        mStarted = false;
        mStopRequested = true;
        mChanged.notify_all();
        if (waitForCallback || !mInCallback) {
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
    return mChanged.wait_for(lock, timeout, done) ? 0 : -110;
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

void Stream::capture(std::vector<Input> inputs, Settings settings, Pace pace) {
    Recogniser* recogniser = nullptr;
    {
        std::lock_guard<std::mutex> lock(mLock);
        recogniser = mRecogniser.get();
    }
    Recording recording(*this, *recogniser, settings);
    recogniser->beginRecording();
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
                        (recording.samples + static_cast<int64_t>(pcm.size())) * 1000 /
                        kRecogniserRate);
                going = waitUntil(begin + heard);
            }
            if (going) {
                going = recording.feed(pcm);
            }
        }
    }
    if (going && recording.inUtterance) {
        recording.finishUtterance(Ending::EndOfAudio);
    }
    recogniser->endRecording();

    std::lock_guard<std::mutex> lock(mLock);
    mRunning = false;
    mChanged.notify_all();
}

}  // namespace pal_engine
