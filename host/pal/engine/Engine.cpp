#include "Engine.h"

#include <cerrno>
#include <cstring>
#include <utility>

namespace pal_engine {

namespace {

bool acceptedDevice(const pal_device& device) {
    const pal_media_format& format = device.config;
    return device.id == PAL_DEVICE_IN_HANDSET_VA_MIC && format.format == PCM_S16_LE &&
           format.bit_width == 16 && format.sample_rate >= 8000 && format.sample_rate <= 192000 &&
           (format.channels.count == 1 || format.channels.count == 2);
}

// The stream delivers what the recogniser takes: 16 kHz mono 16-bit PCM.
bool acceptedAttributes(const pal_stream_attrs& attributes) {
    const pal_media_format& format = attributes.in_media_config;
    return attributes.type == PAL_STREAM_ASR && attributes.direction == PAL_AUDIO_INPUT &&
           format.sample_rate == static_cast<uint32_t>(kRecogniserRate) && format.bit_width == 16 &&
           format.format == PCM_S16_LE && format.channels.count == 1;
}

}  // namespace

Engine& Engine::instance() {
    static Engine engine;
    return engine;
}

Engine::~Engine() {
    std::shared_ptr<Stream> stream;
    {
        std::lock_guard<std::mutex> lock(mLock);
        stream = std::move(mStream);
        mQuitting = true;
        mChanged.notify_all();
    }
    if (stream != nullptr && !stream->onCaptureThread()) {
        stream->close();
    }
    // The notifier finishes the jobs queued so far, then ends.
    std::thread notifier;
    {
        std::lock_guard<std::mutex> lock(mLock);
        notifier = std::move(mNotifier);
    }
    if (notifier.joinable()) {
        notifier.join();
    }
}

std::shared_ptr<Stream> Engine::find(pal_stream_handle* handle) {
    std::lock_guard<std::mutex> lock(mLock);
    if (handle == nullptr || mStream == nullptr || mStream->handle() != handle) {
        return nullptr;
    }
    return mStream;
}

int32_t Engine::open(const pal_stream_attrs* attributes, uint32_t deviceCount,
                     const pal_device* devices, uint32_t modifierCount,
                     pal_stream_event_cb callback, unsigned long cookie,
                     pal_stream_handle** handle) {
    if (attributes == nullptr || !acceptedAttributes(*attributes) || deviceCount != 1 ||
        devices == nullptr || !acceptedDevice(devices[0]) || modifierCount != 0 ||
        callback == nullptr || handle == nullptr) {
        return PAL_STATUS_INVALID;
    }
    std::lock_guard<std::mutex> lock(mLock);
    if (mStream != nullptr || mClosing) {
        return PAL_STATUS_BUSY;
    }
    mStream = std::make_shared<Stream>(callback, cookie, devices[0].config, mCache);
    *handle = mStream->handle();
    return 0;
}

int32_t Engine::setParam(pal_stream_handle* handle, uint32_t id, const pal_param_payload* payload) {
    std::shared_ptr<Stream> stream = find(handle);
    return stream == nullptr ? PAL_STATUS_INVALID : stream->setParam(id, payload);
}

int32_t Engine::start(pal_stream_handle* handle) {
    std::shared_ptr<Stream> stream = find(handle);
    if (stream == nullptr) {
        return PAL_STATUS_INVALID;
    }
    Source source;
    {
        std::lock_guard<std::mutex> lock(mLock);
        source = mSource;
    }
    return stream->start(source);
}

int32_t Engine::stop(pal_stream_handle* handle) {
    std::shared_ptr<Stream> stream = find(handle);
    return stream == nullptr ? PAL_STATUS_INVALID : stream->stop();
}

int32_t Engine::close(pal_stream_handle* handle) {
    std::shared_ptr<Stream> stream;
    {
        std::lock_guard<std::mutex> lock(mLock);
        if (handle == nullptr || mStream == nullptr || mStream->handle() != handle) {
            return PAL_STATUS_INVALID;
        }
        stream = std::move(mStream);
        mClosing = true;
    }
    if (stream->onCaptureThread()) {
        // The stream's own callback closes it: its capture thread cannot wait for itself, so
        // the notifier thread waits for it, and only then frees the engine.
        stream->stop();
        std::lock_guard<std::mutex> lock(mLock);
        mJobs.push_back({std::move(stream)});
        startNotifier();
        return 0;
    }
    stream->close();
    stream.reset();
    std::lock_guard<std::mutex> lock(mLock);
    freed();
    return 0;
}

void Engine::freed() {
    mClosing = false;
    if (mResources.callback != nullptr) {
        mJobs.push_back({nullptr});
        startNotifier();
    }
}

void Engine::startNotifier() {
    if (!mNotifier.joinable() && !mQuitting) {
        mNotifier = std::thread(&Engine::notify, this);
    }
    mChanged.notify_all();
}

int32_t Engine::setGlobalParam(uint32_t id, const void* payload, size_t size) {
    if (id != PAL_PARAM_ID_RESOURCES_AVAILABLE || payload == nullptr ||
        size != sizeof(pal_resources_available_param)) {
        return PAL_STATUS_INVALID;
    }
    std::unique_lock<std::mutex> lock(mLock);
    // The function replaced may be running; once this returns it is not (unless it is the caller).
    if (std::this_thread::get_id() != mNotifier.get_id()) {
        mChanged.wait(lock, [this] { return !mNotifying; });
    }
    std::memcpy(&mResources, payload, sizeof(mResources));
    return 0;
}

void Engine::notify() {
    std::unique_lock<std::mutex> lock(mLock);
    for (;;) {
        mChanged.wait(lock, [this] { return mQuitting || !mJobs.empty(); });
        if (mJobs.empty()) {
            return;
        }
        Job job = std::move(mJobs.front());
        mJobs.pop_front();
        lock.unlock();
        if (job.closing != nullptr) {
            job.closing->close();
            job.closing.reset();
            lock.lock();
            freed();
            continue;
        }
        // The registration in force now: a withdrawn one (a null function) calls nothing.
        lock.lock();
        const pal_resources_available_param resources = mResources;
        if (resources.callback == nullptr) continue;
        mNotifying = true;
        lock.unlock();
        resources.callback(resources.cookie);
        lock.lock();
        mNotifying = false;
        mChanged.notify_all();
    }
}

void Engine::setSource(const Source& source) {
    std::lock_guard<std::mutex> lock(mLock);
    mSource = source;
}

int32_t Engine::waitUntilDone(std::chrono::milliseconds timeout) {
    std::shared_ptr<Stream> stream;
    {
        std::lock_guard<std::mutex> lock(mLock);
        stream = mStream;
    }
    return stream == nullptr ? 0 : stream->waitUntilDone(timeout);
}

int32_t setFileSource(const std::vector<std::string>& paths, Pace pace) {
    if (paths.empty()) {
        return PAL_STATUS_INVALID;
    }
    Source source;
    source.kind = Source::Kind::Files;
    source.paths = paths;
    source.pace = pace;
    Engine::instance().setSource(source);
    return 0;
}

int32_t setPcmSource(int fd, Pace pace) {
    if (fd < 0) {
        return PAL_STATUS_INVALID;
    }
    Source source;
    source.kind = Source::Kind::Pcm;
    source.fd = fd;
    source.pace = pace;
    Engine::instance().setSource(source);
    return 0;
}

void clearSource() {
    Engine::instance().setSource(Source());
}

int32_t waitUntilDone(std::chrono::milliseconds timeout) {
    return Engine::instance().waitUntilDone(timeout);
}

}  // namespace pal_engine

using pal_engine::Engine;

extern "C" {

int32_t pal_stream_open(struct pal_stream_attrs* attributes, uint32_t num_devices,
                        struct pal_device* devices, uint32_t num_modifiers,
                        struct pal_stream_modifier* /*modifiers*/, pal_stream_event_cb callback,
                        unsigned long cookie, pal_stream_handle** stream) {
    return Engine::instance().open(attributes, num_devices, devices, num_modifiers, callback,
                                   cookie, stream);
}

int32_t pal_stream_set_param(pal_stream_handle* stream, uint32_t param_id,
                             struct pal_param_payload* payload) {
    return Engine::instance().setParam(stream, param_id, payload);
}

int32_t pal_stream_start(pal_stream_handle* stream) {
    return Engine::instance().start(stream);
}

int32_t pal_stream_stop(pal_stream_handle* stream) {
    return Engine::instance().stop(stream);
}

int32_t pal_stream_close(pal_stream_handle* stream) {
    return Engine::instance().close(stream);
}

int32_t pal_set_param(uint32_t param_id, void* payload, size_t size) {
    return Engine::instance().setGlobalParam(param_id, payload, size);
}

}  // extern "C"
