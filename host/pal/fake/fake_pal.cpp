#include "pal/fake_pal.h"

#include <cstring>
#include <memory>
#include <new>
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

FakePal::FakePal() : mThread(&FakePal::runEvents, this) {}

FakePal::~FakePal() {
    {
        std::lock_guard<std::mutex> lock(mQueueLock);
        mStopping = true;
    }
    mQueueChanged.notify_one();
    mThread.join();
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
    return post(std::packaged_task<int32_t()>(
            [this, stream, callback, cookie, reported, eventId, size, data = std::move(data)] {
                return deliver(stream, [&] {
                    return callback(reported, eventId, reinterpret_cast<unsigned int*>(data.get()),
                                    size, cookie);
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
    post(std::packaged_task<int32_t()>([this] {
        pal_resources_available_param registered;
        {
            std::lock_guard<std::mutex> lock(mLock);
            registered = mResources;
            mNotifying = registered.callback != nullptr;
        }
        if (registered.callback == nullptr) return 0;
        registered.callback(registered.cookie);
        {
            std::lock_guard<std::mutex> lock(mLock);
            mNotifying = false;
        }
        mDeliveryDone.notify_all();
        return 0;
    })).wait();
    return true;
}

int32_t FakePal::deliver(pal_stream_handle* stream, const std::function<int32_t()>& callback) {
    {
        std::lock_guard<std::mutex> lock(mLock);
        const Stream* known = findStreamLocked(stream);
        if (known == nullptr || !known->open) return kNotDelivered;
        mDelivering = stream;
    }
    int32_t result = callback();
    {
        std::lock_guard<std::mutex> lock(mLock);
        mDelivering = nullptr;
    }
    mDeliveryDone.notify_all();
    return result;
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
    if (call.function == Function::StreamClose) {
        // Whatever the result, the stream calls back no more once close returns; a delivery in
        // progress on it finishes first, unless it is the caller.
        if (std::this_thread::get_id() != mThread.get_id()) {
            mDeliveryDone.wait(
                    lock, [&] { return mDelivering == nullptr || mDelivering != call.stream; });
        }
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
                if (call.paramId == PAL_PARAM_ID_RESOURCES_AVAILABLE &&
                    call.payload.size() == sizeof(mResources)) {
                    // Replacing the registration waits for a notification in progress, unless
                    // it is the caller.
                    if (std::this_thread::get_id() != mThread.get_id()) {
                        mDeliveryDone.wait(lock, [&] { return !mNotifying; });
                    }
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

std::future<int32_t> FakePal::post(std::packaged_task<int32_t()> task) {
    std::future<int32_t> result = task.get_future();
    {
        std::lock_guard<std::mutex> lock(mQueueLock);
        mQueue.push_back(std::move(task));
    }
    mQueueChanged.notify_one();
    return result;
}

void FakePal::runEvents() {
    std::unique_lock<std::mutex> lock(mQueueLock);
    for (;;) {
        mQueueChanged.wait(lock, [this] { return mStopping || !mQueue.empty(); });
        if (mStopping) {
            return;
        }
        std::packaged_task<int32_t()> task = std::move(mQueue.front());
        mQueue.pop_front();
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
