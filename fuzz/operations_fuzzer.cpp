// Sequences of IVoxa operations chosen by the fuzz bytes: their arguments (known and unknown
// handles, models and configurations with any text and values, parameter data of any size), the
// results the fake PAL returns, the events it raises, resources notifications, client deaths, and
// client callbacks that call back into the service. After every step the streams the fake holds
// open are exactly those of the sessions the client still holds, and no event ever reaches a
// session after its stop or release returned (or before it started); after the service is gone
// no stream is open.
#include <aidl/vendor/orbo/hardware/voxa/BnVoxaCallback.h>
#include <aidl/vendor/orbo/hardware/voxa/BnVoxaGlobalCallback.h>
#include <aidl/vendor/orbo/hardware/voxa/IVoxa.h>
#include <android/binder_manager.h>
#include <android/log.h>
#include <binder_host/test_controls.h>
#include <fuzzer/FuzzedDataProvider.h>
#include <pal/fake_pal.h>

#include <cstring>
#include <functional>
#include <iterator>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <utility>

#include "Service.h"
#include "Voxa.h"

using namespace aidl::vendor::orbo::hardware::voxa;
using fake_pal::FakePal;
using fake_pal::Function;

namespace {

constexpr size_t kMaxSteps = 64;

// What the client knows of each session it holds: its stream, and whether it may hear an event
// now (from just before a start until a stop returned).
struct Held {
    pal_stream_handle* stream;
    bool mayHear;
};
struct ClientModel {
    std::mutex lock;
    std::map<int32_t, Held> held;
};

// What both of the client's callbacks do: check that the event may arrive, then make the call
// back into the service that the fuzz input asked for, once.
class Hearing {
  public:
    explicit Hearing(ClientModel& model) : mModel(model) {}

    // Runs once inside the next callback, with the session handle it was called for (-1 for a
    // resources notification).
    std::function<void(int32_t)> nested;

  protected:
    ndk::ScopedAStatus heard(int32_t handle) {
        if (handle >= 0) {
            std::lock_guard<std::mutex> guard(mModel.lock);
            // An event for a session that is not listening.
            auto session = mModel.held.find(handle);
            if (session == mModel.held.end() || !session->second.mayHear) __builtin_trap();
        }
        std::function<void(int32_t)> call = std::move(nested);
        nested = nullptr;
        if (call) call(handle);
        return ndk::ScopedAStatus::ok();
    }

  private:
    ClientModel& mModel;
};

class SessionClient : public BnVoxaCallback, public Hearing {
  public:
    using Hearing::Hearing;
    ndk::ScopedAStatus onAsrEvent(int32_t handle, const VoxaEvent&) override {
        return heard(handle);
    }
    ndk::ScopedAStatus onSdzEvent(int32_t handle, const SpeakerDiarizationEvent&) override {
        return heard(handle);
    }
};

class GlobalClient : public BnVoxaGlobalCallback, public Hearing {
  public:
    using Hearing::Hearing;
    ndk::ScopedAStatus onResourcesAvailable() override { return heard(-1); }
};

class Run {
  public:
    explicit Run(FuzzedDataProvider& input) : mInput(input) {
        FakePal::instance().reset();
        FakePal::instance().setStrict(true);
        binder_host::clearServices();
        registerService();
        mVoxa = IVoxa::fromBinder(ndk::SpAIBinder(
                AServiceManager_checkService("vendor.orbo.hardware.voxa.IVoxa/default")));
    }

    ~Run() {
        mVoxa.reset();
        binder_host::clearServices();
        if (!FakePal::instance().openStreams().empty()) __builtin_trap();
    }

    void step() {
        const std::function<void()> steps[] = {
                [this] { registerGlobalCallback(); },
                [this] { initSession(); },
                [this] { start(anyHandle()); },
                [this] { setParameter(anyHandle()); },
                [this] { stop(anyHandle()); },
                [this] { release(anyHandle()); },
                [this] {
                    std::vector<std::string> languages;
                    mVoxa->getSupportedLanguages(anyHandle(), &languages);
                },
                [this] { scriptPal(); },
                [this] { raiseEvent(anyHandle()); },
                [] { FakePal::instance().notifyResourcesAvailable(); },
                [this] { die(); },
                [this] { callBackOnNextEvent(); },
        };
        steps[mInput.ConsumeIntegralInRange<size_t>(0, std::size(steps) - 1)]();
        checkStreams();
    }

  private:
    int32_t anyHandle() {
        std::lock_guard<std::mutex> guard(mModel.lock);
        if (mModel.held.empty() || mInput.ConsumeIntegralInRange<int>(0, 7) == 0) {
            return mInput.ConsumeIntegralInRange<int32_t>(-2, 70);
        }
        auto entry = mModel.held.begin();
        std::advance(entry, mInput.ConsumeIntegralInRange<size_t>(0, mModel.held.size() - 1));
        return entry->first;
    }

    // Sets whether a held session may hear events; returns what it was (false if not held).
    bool setMayHear(int32_t handle, bool mayHear) {
        std::lock_guard<std::mutex> guard(mModel.lock);
        auto session = mModel.held.find(handle);
        return session != mModel.held.end() && std::exchange(session->second.mayHear, mayHear);
    }

    void registerGlobalCallback() {
        if (mGlobal == nullptr || mInput.ConsumeBool()) {
            mGlobal = ndk::SharedRefBase::make<GlobalClient>(mModel);
        }
        if (mVoxa->registerGlobalCallback(mGlobal).isOk()) mWatched = mGlobal;
    }

    void initSession() {
        VoxaModel model;
        // A well-formed identifier, or any text for the lenient UUID parser.
        model.vendorUuid = mInput.ConsumeBool() ? "12345678-9abc-def0-1234-56789abcdef0"
                                                : mInput.ConsumeRandomLengthString(40);
        model.dataSize = mInput.ConsumeIntegral<int32_t>();
        int32_t handle;
        if (!mVoxa->initSession(model, mSessions, &handle).isOk()) return;
        std::lock_guard<std::mutex> guard(mModel.lock);
        mModel.held[handle] = {FakePal::instance().calls(Function::StreamOpen).back().stream,
                               false};
    }

    void start(int32_t handle) {
        VoxaConfig config;
        config.input_lang_code = languageCode();
        config.output_lang_code = languageCode();
        config.mode = static_cast<TranscriptionMode>(mInput.ConsumeIntegralInRange<int>(-1, 4));
        config.enable_translation = mInput.ConsumeBool();
        config.threshold = mInput.ConsumeIntegral<int32_t>();
        config.silence_detection_duration = mInput.ConsumeIntegral<int32_t>();
        config.data = mInput.ConsumeBytes<uint8_t>(mInput.ConsumeIntegralInRange<size_t>(0, 64));
        const bool before = setMayHear(handle, true);
        if (!mVoxa->startListening(handle, config).isOk()) setMayHear(handle, before);
    }

    // A known code, one that is not, or any text.
    std::string languageCode() {
        const char* codes[] = {"en-US", "yue-CH", "en-us", ""};
        const int pick = mInput.ConsumeIntegralInRange<int>(0, 4);
        return pick < 4 ? codes[pick] : mInput.ConsumeRandomLengthString(24);
    }

    void setParameter(int32_t handle) {
        VoxaParameter parameter;
        parameter.param = static_cast<ParameterType>(mInput.ConsumeIntegralInRange<int>(-2, 3));
        parameter.data = mInput.ConsumeBytes<uint8_t>(mInput.ConsumeIntegralInRange<size_t>(0, 40));
        mVoxa->setParameter(handle, parameter);
    }

    void stop(int32_t handle) {
        mVoxa->stopListening(handle);
        setMayHear(handle, false);
    }

    void release(int32_t handle) {
        mVoxa->releaseSession(handle);
        std::lock_guard<std::mutex> guard(mModel.lock);
        mModel.held.erase(handle);
    }

    void scriptPal() {
        const int32_t results[] = {0, -EBUSY, -EINVAL, -ENOSYS, -EIO};
        FakePal::instance().queueResults(
                static_cast<Function>(mInput.ConsumeIntegralInRange<int>(0, 5)),
                {results[mInput.ConsumeIntegralInRange<int>(0, 4)]});
    }

    // An event on the stream of a held session.
    void raiseEvent(int32_t handle) {
        pal_stream_handle* stream;
        {
            std::lock_guard<std::mutex> guard(mModel.lock);
            auto session = mModel.held.find(handle);
            if (session == mModel.held.end()) return;
            stream = session->second.stream;
        }
        uint32_t eventId = mInput.ConsumeIntegralInRange<uint32_t>(0, 3);
        // One result (or one speaker) whose first fields come from the input; no trailing data.
        std::vector<uint8_t> payload(eventId == 1 ? 8 + sizeof(pal_asr_ts_result)
                                                  : 8 + sizeof(pal_asr_result));
        std::vector<uint8_t> head = mInput.ConsumeBytes<uint8_t>(64);
        std::copy(head.begin(), head.end(), payload.begin() + 8);
        uint32_t one = 1;
        std::memcpy(payload.data() + (eventId == 2 ? 0 : 4), &one, sizeof(one));
        if (eventId == 2) std::memcpy(payload.data() + 8, &one, sizeof(one));
        FakePal::instance().raiseEvent(stream, eventId, payload);
    }

    void die() {
        if (mWatched == nullptr) return;
        binder_host::killProcessOf(mWatched->asBinder().get());
        std::lock_guard<std::mutex> guard(mModel.lock);
        mModel.held.clear();
        mWatched = nullptr;
        mGlobal = nullptr;
    }

    // The next callback (an event of a session or a resources notification) calls the service.
    // A session opened from a callback opens its stream later, on the service's worker, so the
    // model, which knows each session by its stream, leaves that to the tests.
    void callBackOnNextEvent() {
        int operation = mInput.ConsumeIntegralInRange<int>(0, 3);
        int32_t other = anyHandle();
        bool own = mInput.ConsumeBool();
        auto nested = [this, operation, other, own](int32_t handle) {
            static void (Run::*const kOnSession[])(int32_t) = {&Run::stop, &Run::release,
                                                               &Run::start, &Run::setParameter};
            (this->*kOnSession[operation])(own && handle >= 0 ? handle : other);
        };
        mSessions->nested = nested;
        if (mGlobal != nullptr) mGlobal->nested = nested;
    }

    // Once the calls that callbacks deferred have run.
    void checkStreams() {
        static_cast<Voxa*>(mVoxa.get())->waitForDeferredCalls();
        std::vector<pal_stream_handle*> open = FakePal::instance().openStreams();
        std::lock_guard<std::mutex> guard(mModel.lock);
        std::set<pal_stream_handle*> held;
        for (auto& [handle, session] : mModel.held) held.insert(session.stream);
        if (held != std::set<pal_stream_handle*>(open.begin(), open.end())) __builtin_trap();
    }

    FuzzedDataProvider& mInput;
    ClientModel mModel;
    std::shared_ptr<IVoxa> mVoxa;
    std::shared_ptr<SessionClient> mSessions = ndk::SharedRefBase::make<SessionClient>(mModel);
    std::shared_ptr<GlobalClient> mGlobal;
    std::shared_ptr<GlobalClient> mWatched;
};

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size > 4096) return 0;
    __android_log_set_logger([](const __android_logger_data*, const char*) {});
    FuzzedDataProvider input(data, size);
    Run run(input);
    for (size_t i = 0; i < kMaxSteps && input.remaining_bytes() > 0; ++i) run.step();
    return 0;
}
