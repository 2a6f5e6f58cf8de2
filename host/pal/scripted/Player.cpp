#include "Player.h"

#include <pal/pal_scripted.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <sstream>

namespace pal_scripted {

namespace {

std::string milliseconds(std::chrono::milliseconds duration) {
    return std::to_string(duration.count()) + " ms";
}

}  // namespace

Player& Player::instance() {
    static Player player;
    return player;
}

Player::Player() : mThread(&Player::run, this) {}

Player::~Player() {
    {
        std::lock_guard<std::mutex> lock(mLock);
        mStopping = true;
        mChanged.notify_all();
    }
    mThread.join();
}

void Player::load(Scenario scenario) {
    std::lock_guard<std::mutex> lock(mLock);
    mScenario = std::make_shared<const Scenario>(std::move(scenario));
    ++mGeneration;
    mState = State::Playing;
    mNext = 0;
    mFailure.clear();
    mReplies.clear();
    mCalls.clear();
    mOpened = 0;
    mStopped = 0;
    for (Stream& stream : mStreams) stream.ordinal = 0;
    settleLocked();
    mChanged.notify_all();
}

int32_t Player::waitUntilPlayed(std::chrono::milliseconds timeout, std::string* error) {
    std::unique_lock<std::mutex> lock(mLock);
    if (mState == State::Idle) return PAL_STATUS_INVALID;
    auto over = [this] { return mState != State::Playing; };
    if (timeout.count() < 0) {
        mChanged.wait(lock, over);
    } else if (!mChanged.wait_for(lock, timeout, over)) {
        return PAL_STATUS_TIMED_OUT;
    }
    return playedLocked(error);
}

int32_t Player::waitUntilPlayedOrStopped(std::string* error) {
    std::unique_lock<std::mutex> lock(mLock);
    if (mState == State::Idle) return PAL_STATUS_INVALID;
    mChanged.wait(lock, [this] { return mState != State::Playing || mStopped > 0; });
    return playedLocked(error);
}

int32_t Player::playedLocked(std::string* error) const {
    if (mState != State::Failed) return 0;
    if (error != nullptr) *error = mFailure;
    return PAL_STATUS_IO;
}

void Player::run() {
    std::unique_lock<std::mutex> lock(mLock);
    while (!mStopping) {
        if (mState == State::Playing) {
            playLocked(lock);
        } else {
            mChanged.wait(lock);
        }
    }
}

void Player::playLocked(std::unique_lock<std::mutex>& lock) {
    // The scenario stays alive across the unlocked parts even when another one is loaded.
    const std::shared_ptr<const Scenario> scenario = mScenario;
    const uint64_t generation = mGeneration;
    const Step& step = scenario->steps[mNext];
    auto replaced = [&] { return mStopping || mGeneration != generation; };
    const auto deadline = std::chrono::steady_clock::now() + step.duration;

    switch (step.kind) {
        case Step::Kind::Reply:
        case Step::Kind::Await: {
            // settleLocked takes replies and met awaits, here or in the call that meets this one.
            const size_t index = mNext;
            if (!mChanged.wait_until(lock, deadline,
                                     [&] { return replaced() || mNext != index; })) {
                failLocked(step, std::string("no ") + toString(step.call) + " call within " +
                                         milliseconds(step.duration));
            }
            return;
        }
        case Step::Kind::Delay:
            mChanged.wait_until(lock, deadline, replaced);
            break;
        case Step::Kind::ResourcesAvailable: {
            pal_resources_available_param resources = mResources;
            if (resources.callback == nullptr) {
                failLocked(step,
                           "no function is registered for resources-available "
                           "notifications (pal_set_param 75)");
                return;
            }
            lock.unlock();
            resources.callback(resources.cookie);
            lock.lock();
            break;
        }
        case Step::Kind::Event: {
            Stream* stream = nullptr;
            bool found = mChanged.wait_until(lock, deadline, [&] {
                stream = targetLocked(step);
                return replaced() || (stream != nullptr && stream->started);
            });
            if (replaced()) return;
            if (!found) {
                failLocked(step, "no started stream within " + milliseconds(step.duration));
                return;
            }
            // A copy for the callee, who gets a pointer it may treat as its own.
            std::vector<uint64_t> payload = step.payload;
            mDelivering = stream;
            lock.unlock();
            stream->callback(&stream->handle, step.eventId,
                             reinterpret_cast<unsigned int*>(payload.data()), step.payloadSize,
                             stream->cookie);
            lock.lock();
            mDelivering = nullptr;
            mChanged.notify_all();
            break;
        }
    }
    if (!replaced()) {
        ++mNext;
        settleLocked();
    }
}

void Player::settleLocked() {
    while (mState == State::Playing && mNext < mScenario->steps.size()) {
        const Step& step = mScenario->steps[mNext];
        if (step.kind == Step::Kind::Reply) {
            mReplies.push_back({step.call, step.param, step.status, step.times});
        } else if (step.kind != Step::Kind::Await) {
            break;
        } else {
            auto calls = mCalls.find({step.call, step.param});
            if (calls == mCalls.end() || calls->second < step.ordinal) break;
        }
        ++mNext;
    }
    if (mState == State::Playing && mNext == mScenario->steps.size()) {
        mState = State::Played;
    }
    mChanged.notify_all();
}

void Player::failLocked(const Step& step, const std::string& reason) {
    mState = State::Failed;
    mFailure = mScenario->name + ":" + std::to_string(step.line) + ": " + reason;
    mChanged.notify_all();
}

int32_t Player::replyLocked(Function call, uint32_t param) {
    ++mCalls[{call, param}];
    if (param != kAnyParam) ++mCalls[{call, kAnyParam}];
    for (auto reply = mReplies.begin(); reply != mReplies.end(); ++reply) {
        if (reply->call == call && (reply->param == kAnyParam || reply->param == param)) {
            int32_t status = reply->status;
            if (--reply->remaining == 0) mReplies.erase(reply);
            return status;
        }
    }
    return 0;
}

Player::Stream* Player::findLocked(pal_stream_handle* handle) {
    for (Stream& stream : mStreams) {
        if (&stream.handle == handle && stream.open) return &stream;
    }
    return nullptr;
}

Player::Stream* Player::targetLocked(const Step& step) {
    for (auto stream = mStreams.rbegin(); stream != mStreams.rend(); ++stream) {
        if (!stream->open) continue;
        if (step.stream == 0 || stream->ordinal == step.stream) return &*stream;
    }
    return nullptr;
}

int32_t Player::open(pal_stream_event_cb callback, unsigned long cookie,
                     pal_stream_handle** handle) {
    std::lock_guard<std::mutex> lock(mLock);
    int32_t status = replyLocked(Function::StreamOpen, kAnyParam);
    if (status == 0 && (callback == nullptr || handle == nullptr)) status = PAL_STATUS_INVALID;
    if (status == 0) {
        Stream& stream = mStreams.emplace_back();
        stream.callback = callback;
        stream.cookie = cookie;
        stream.ordinal = ++mOpened;
        *handle = &stream.handle;
    }
    settleLocked();
    return status;
}

int32_t Player::setParam(pal_stream_handle* handle, uint32_t id, const pal_param_payload* payload) {
    std::lock_guard<std::mutex> lock(mLock);
    int32_t status = replyLocked(Function::StreamSetParam, id);
    if (status == 0 && (findLocked(handle) == nullptr || payload == nullptr)) {
        status = PAL_STATUS_INVALID;
    }
    settleLocked();
    return status;
}

int32_t Player::start(pal_stream_handle* handle) {
    std::lock_guard<std::mutex> lock(mLock);
    int32_t status = replyLocked(Function::StreamStart, kAnyParam);
    Stream* stream = findLocked(handle);
    if (status == 0 && (stream == nullptr || stream->started)) status = PAL_STATUS_INVALID;
    if (status == 0) stream->started = true;
    settleLocked();
    return status;
}

int32_t Player::stop(pal_stream_handle* handle) {
    std::lock_guard<std::mutex> lock(mLock);
    int32_t status = replyLocked(Function::StreamStop, kAnyParam);
    Stream* stream = findLocked(handle);
    if (status == 0 && stream == nullptr) status = PAL_STATUS_INVALID;
    // An event whose callback is running is not waited for: the callback may be waiting for what
    // the caller holds. close() waits for it.
    // The client is done listening, whatever the reply.
    if (stream != nullptr && stream->started) ++mStopped;
    if (status == 0) stream->started = false;
    settleLocked();
    return status;
}

int32_t Player::close(pal_stream_handle* handle) {
    std::unique_lock<std::mutex> lock(mLock);
    int32_t status = replyLocked(Function::StreamClose, kAnyParam);
    Stream* stream = findLocked(handle);
    if (stream == nullptr) {
        settleLocked();
        return status == 0 ? PAL_STATUS_INVALID : status;
    }
    // A scripted failure changes only the status: the stream closes all the same, since the
    // caller may free what the cookie points to once this returns.
    stream->open = false;
    stream->started = false;
    if (std::this_thread::get_id() != mThread.get_id()) {
        mChanged.wait(lock, [&] { return mDelivering != stream; });
    }
    settleLocked();
    return status;
}

int32_t Player::setGlobalParam(uint32_t id, const void* payload, size_t size) {
    std::lock_guard<std::mutex> lock(mLock);
    int32_t status = replyLocked(Function::SetParam, id);
    if (status == 0 && (id != PAL_PARAM_ID_RESOURCES_AVAILABLE || payload == nullptr ||
                        size != sizeof(pal_resources_available_param))) {
        status = PAL_STATUS_INVALID;
    }
    if (status == 0) std::memcpy(&mResources, payload, sizeof(mResources));
    settleLocked();
    return status;
}

std::string loadScenario(const std::string& text, const std::string& name) {
    Scenario scenario;
    std::string error = readScenario(text, name, &scenario);
    if (error.empty()) Player::instance().load(std::move(scenario));
    return error;
}

std::string loadScenarioFile(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) return path + ": " + std::strerror(errno);
    std::ostringstream text;
    text << file.rdbuf();
    if (file.bad()) return path + ": cannot be read";
    return loadScenario(text.str(), path);
}

int32_t waitUntilPlayed(std::chrono::milliseconds timeout, std::string* error) {
    return Player::instance().waitUntilPlayed(timeout, error);
}

int32_t waitUntilPlayedOrStopped(std::string* error) {
    return Player::instance().waitUntilPlayedOrStopped(error);
}

const PalFunctions& palFunctions() {
    static const PalFunctions functions = {
            [](pal_stream_attrs*, uint32_t, pal_device*, uint32_t, pal_stream_modifier*,
               pal_stream_event_cb callback, unsigned long cookie, pal_stream_handle** stream) {
                return Player::instance().open(callback, cookie, stream);
            },
            [](pal_stream_handle* stream, uint32_t id, pal_param_payload* payload) {
                return Player::instance().setParam(stream, id, payload);
            },
            [](pal_stream_handle* stream) { return Player::instance().start(stream); },
            [](pal_stream_handle* stream) { return Player::instance().stop(stream); },
            [](pal_stream_handle* stream) { return Player::instance().close(stream); },
            [](uint32_t id, void* payload, size_t size) {
                return Player::instance().setGlobalParam(id, payload, size);
            },
    };
    return functions;
}

}  // namespace pal_scripted
