#include "pal/fake_pal.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <new>
#include <string>
#include <utility>

namespace fake_pal {

namespace {

std::vector<uint8_t> copyBytes(const void* data, size_t size) {
    if (data == nullptr) {
        return {};
    }
    const auto* bytes = static_cast<const uint8_t*>(data);
    return std::vector<uint8_t>(bytes, bytes + size);
}

struct AlignedDelete {
    void operator()(uint8_t* bytes) const {
        operator delete (bytes, std::align_val_t{kPayloadAlignment});
    }
};
using AlignedBytes = std::unique_ptr<uint8_t, AlignedDelete>;

AlignedBytes copyAligned(const std::vector<uint8_t>& payload) {
    AlignedBytes copy(static_cast<uint8_t*>(operator new (payload.size(),
                                                          std::align_val_t{kPayloadAlignment})));
    if (!payload.empty()) {
        std::memcpy(copy.get(), payload.data(), payload.size());
    }
    return copy;
}

}  // namespace

// The PAL functions' way into the fake's private recording.
struct EntryPoints {
    static int32_t record(Call call, pal_stream_handle** openedStream = nullptr) {
        return FakePal::instance().record(std::move(call), openedStream);
    }
};

FakePal& FakePal::instance() {
    static FakePal fake;
    return fake;
}

FakePal::FakePal() {
    for (EventThread& thread : mThreads)
        thread.thread = std::thread(&FakePal::runEvents, std::ref(thread));
}

FakePal::~FakePal() {
    for (EventThread& thread : mThreads) {
        {
            std::lock_guard<std::mutex> lock(thread.lock);
            thread.stopping = true;
        }
        thread.changed.notify_one();
        thread.thread.join();
    }
}

void FakePal::reset() {
    std::lock_guard<std::mutex> lock(mLock);
    mCalls.clear();
    mScripts = {};
    mStreams.clear();
    mResources = {};
}

void FakePal::clearCalls() {
    std::lock_guard<std::mutex> lock(mLock);
    mCalls.clear();
}

void FakePal::setStrict(bool strict) {
    std::lock_guard<std::mutex> lock(mLock);
    mStrict = strict;
}

void FakePal::setHook(Function function, std::function<void(const Call&)> hook) {
    std::lock_guard<std::mutex> lock(mLock);
    mHooks[static_cast<size_t>(function)] = std::move(hook);
}

void FakePal::runHook(const Call& call) {
    std::function<void(const Call&)> hook;
    {
        std::lock_guard<std::mutex> lock(mLock);
        hook = mHooks[static_cast<size_t>(call.function)];
    }
    if (hook) hook(call);
}

std::vector<Call> FakePal::calls() const {
    std::lock_guard<std::mutex> lock(mLock);
    return mCalls;
}

std::vector<Call> FakePal::calls(Function function) const {
    std::lock_guard<std::mutex> lock(mLock);
    std::vector<Call> matching;
    for (const Call& call : mCalls) {
        if (call.function == function) {
            matching.push_back(call);
        }
    }
    return matching;
}

std::vector<Function> FakePal::functions() const {
    std::lock_guard<std::mutex> lock(mLock);
    std::vector<Function> sequence;
    sequence.reserve(mCalls.size());
    for (const Call& call : mCalls) {
        sequence.push_back(call.function);
    }
    return sequence;
}

void FakePal::setResult(Function function, int32_t result) {
    std::lock_guard<std::mutex> lock(mLock);
    mScripts[static_cast<size_t>(function)].result = result;
}

void FakePal::queueResults(Function function, std::vector<int32_t> results) {
    std::lock_guard<std::mutex> lock(mLock);
    std::deque<int32_t>& queued = mScripts[static_cast<size_t>(function)].queued;
    queued.insert(queued.end(), results.begin(), results.end());
}

std::vector<pal_stream_handle*> FakePal::openStreams() const {
    std::lock_guard<std::mutex> lock(mLock);
    std::vector<pal_stream_handle*> open;
    for (const Stream& stream : mStreams) {
        if (stream.open) {
            open.push_back(stream.handle);
        }
    }
    return open;
}

int32_t FakePal::raiseEvent(pal_stream_handle* stream, uint32_t eventId,
                            const std::vector<uint8_t>& payload, const Delivery& delivery) {
    return raiseEventAsync(stream, eventId, payload, delivery).get();
}

std::future<int32_t> FakePal::raiseEventAsync(pal_stream_handle* stream, uint32_t eventId,
                                              const std::vector<uint8_t>& payload,
                                              const Delivery& delivery) {
    pal_stream_event_cb callback = nullptr;
    unsigned long cookie = 0;
    {
        std::lock_guard<std::mutex> lock(mLock);
        if (const Stream* known = findStreamLocked(stream)) {
            callback = known->callback;
            cookie = known->cookie;
        }
    }
    if (callback == nullptr) {
        std::promise<int32_t> undelivered;
        undelivered.set_value(kNotDelivered);
        return undelivered.get_future();
    }
    pal_stream_handle* reported = delivery.nullStream ? nullptr : stream;
    auto size = static_cast<unsigned int>(delivery.size.value_or(payload.size()));
    AlignedBytes data = delivery.nullPayload ? nullptr : copyAligned(payload);
    return post(delivery.thread,
                std::packaged_task<int32_t()>([this, stream, callback, cookie, reported, eventId,
                                               size, data = std::move(data)] {
                    return deliver(stream, [&] {
                        return callback(reported, eventId,
                                        reinterpret_cast<unsigned int*>(data.get()), size, cookie);
                    });
                }));
}

bool FakePal::notifyResourcesAvailable() {
    {
        std::lock_guard<std::mutex> lock(mLock);
        if (mResources.callback == nullptr) return false;
    }
    // The registration is read when the notification's turn comes: a withdrawal before then
    // leaves nothing to call.
    post(0, std::packaged_task<int32_t()>([this] {
             pal_resources_available_param registered;
             {
                 std::lock_guard<std::mutex> lock(mLock);
                 registered = mResources;
                 if (registered.callback == nullptr) return 0;
                 mRunning.push_back({std::this_thread::get_id(), nullptr});
             }
             registered.callback(registered.cookie);
             finishCallback(nullptr);
             return 0;
         })).wait();
    return true;
}

int32_t FakePal::deliver(pal_stream_handle* stream, const std::function<int32_t()>& callback) {
    {
        std::lock_guard<std::mutex> lock(mLock);
        const Stream* known = findStreamLocked(stream);
        if (known == nullptr || !known->open) return kNotDelivered;
        mRunning.push_back({std::this_thread::get_id(), stream});
    }
    int32_t result = callback();
    finishCallback(stream);
    return result;
}

void FakePal::finishCallback(pal_stream_handle* stream) {
    {
        std::lock_guard<std::mutex> lock(mLock);
        const std::thread::id self = std::this_thread::get_id();
        for (auto running = mRunning.begin(); running != mRunning.end(); ++running) {
            if (running->thread == self && running->stream == stream) {
                mRunning.erase(running);
                break;
            }
        }
    }
    mCallbackDone.notify_all();
}

void FakePal::waitForCallbacksLocked(std::unique_lock<std::mutex>& lock, const Call& call,
                                     pal_stream_handle* stream) {
    const std::thread::id self = std::this_thread::get_id();
    auto running = [&](bool onThisThread) {
        for (const Running& callback : mRunning) {
            if (callback.stream == stream && (callback.thread == self) == onThisThread) return true;
        }
        return false;
    };
    const std::string what = stream == nullptr ? std::string("the resources-available function")
                                               : "a callback of stream " + std::to_string(*stream);
    if (mStrict && running(true)) {
        std::fprintf(stderr,
                     "fake PAL: %s was called from inside %s, on the thread that runs it; a PAL "
                     "that waits for its callbacks would never return\n",
                     toString(call.function), what.c_str());
        std::abort();
    }
    if (!mCallbackDone.wait_for(lock, kCallbackPatience, [&] { return !running(false); })) {
        std::fprintf(stderr, "fake PAL: %s waited %lld s for %s to return\n",
                     toString(call.function), static_cast<long long>(kCallbackPatience.count()),
                     what.c_str());
        std::abort();
    }
}

int32_t FakePal::record(Call call, pal_stream_handle** openedStream) {
    runHook(call);
    std::unique_lock<std::mutex> lock(mLock);
    Script& script = mScripts[static_cast<size_t>(call.function)];
    int32_t result = script.result;
    if (!script.queued.empty()) {
        result = script.queued.front();
        script.queued.pop_front();
    }
    const bool resourcesRegistration =
            call.function == Function::SetParam && call.paramId == PAL_PARAM_ID_RESOURCES_AVAILABLE;
    const bool stopsStream = call.function == Function::StreamClose ||
                             (mStrict && call.function == Function::StreamStop);
    if (stopsStream && call.stream != nullptr) {
        waitForCallbacksLocked(lock, call, call.stream);
    } else if (resourcesRegistration || (mStrict && call.function == Function::SetParam)) {
        waitForCallbacksLocked(lock, call, nullptr);
    }
    if (call.function == Function::StreamClose) {
        // Whatever the result, the stream calls back no more once close returns.
        if (Stream* stream = findStreamLocked(call.stream)) {
            stream->open = false;
        }
    }
    if (result == 0) {
        switch (call.function) {
            case Function::StreamOpen:
                if (openedStream != nullptr) {
                    // The handle's value numbers the streams, which helps when reading a dump.
                    mHandles.push_back(mHandles.size() + 1);
                    call.stream = &mHandles.back();
                    mStreams.push_back({call.stream, call.callback, call.cookie, true});
                    *openedStream = call.stream;
                }
                break;
            case Function::SetParam:
                if (resourcesRegistration && call.payload.size() == sizeof(mResources)) {
                    std::memcpy(&mResources, call.payload.data(), sizeof(mResources));
                }
                break;
            default:
                break;
        }
    }
    mCalls.push_back(std::move(call));
    return result;
}

FakePal::Stream* FakePal::findStreamLocked(pal_stream_handle* handle) {
    if (handle == nullptr) {
        return nullptr;
    }
    for (Stream& stream : mStreams) {
        if (stream.handle == handle) {
            return &stream;
        }
    }
    return nullptr;
}

std::future<int32_t> FakePal::post(size_t thread, std::packaged_task<int32_t()> task) {
    EventThread& target = mThreads.at(thread);
    std::future<int32_t> result = task.get_future();
    {
        std::lock_guard<std::mutex> lock(target.lock);
        target.queue.push_back(std::move(task));
    }
    target.changed.notify_one();
    return result;
}

void FakePal::runEvents(EventThread& thread) {
    std::unique_lock<std::mutex> lock(thread.lock);
    for (;;) {
        thread.changed.wait(lock, [&] { return thread.stopping || !thread.queue.empty(); });
        if (thread.stopping) {
            return;
        }
        std::packaged_task<int32_t()> task = std::move(thread.queue.front());
        thread.queue.pop_front();
        lock.unlock();
        task();
        lock.lock();
    }
}

}  // namespace fake_pal

extern "C" {

int32_t pal_stream_open(struct pal_stream_attrs* attributes, uint32_t num_devices,
                        struct pal_device* devices, uint32_t num_modifiers,
                        struct pal_stream_modifier* modifiers, pal_stream_event_cb callback,
                        unsigned long cookie, pal_stream_handle** stream) {
    fake_pal::Call call;
    call.function = fake_pal::Function::StreamOpen;
    call.attributes = fake_pal::copyBytes(attributes, sizeof(*attributes));
    call.devices = fake_pal::copyBytes(devices, num_devices * sizeof(*devices));
    call.numDevices = num_devices;
    call.numModifiers = num_modifiers;
    call.modifiersNull = modifiers == nullptr;
    call.callback = callback;
    call.cookie = cookie;
    return fake_pal::EntryPoints::record(std::move(call), stream);
}

int32_t pal_stream_set_param(pal_stream_handle* stream, uint32_t param_id,
                             struct pal_param_payload* payload) {
    fake_pal::Call call;
    call.function = fake_pal::Function::StreamSetParam;
    call.stream = stream;
    call.paramId = param_id;
    if (payload != nullptr) {
        call.payload = fake_pal::copyBytes(payload, sizeof(*payload) + payload->size);
    }
    return fake_pal::EntryPoints::record(std::move(call));
}

int32_t pal_stream_start(pal_stream_handle* stream) {
    fake_pal::Call call;
    call.function = fake_pal::Function::StreamStart;
    call.stream = stream;
    return fake_pal::EntryPoints::record(std::move(call));
}

int32_t pal_stream_stop(pal_stream_handle* stream) {
    fake_pal::Call call;
    call.function = fake_pal::Function::StreamStop;
    call.stream = stream;
    return fake_pal::EntryPoints::record(std::move(call));
}

int32_t pal_stream_close(pal_stream_handle* stream) {
    fake_pal::Call call;
    call.function = fake_pal::Function::StreamClose;
    call.stream = stream;
    return fake_pal::EntryPoints::record(std::move(call));
}

int32_t pal_set_param(uint32_t param_id, void* payload, size_t size) {
    fake_pal::Call call;
    call.function = fake_pal::Function::SetParam;
    call.paramId = param_id;
    call.payload = fake_pal::copyBytes(payload, size);
    return fake_pal::EntryPoints::record(std::move(call));
}

}  // extern "C"
