#define LOG_TAG "Voxa"

#include "VoxaSession.h"

#include <log/log.h>

#include <algorithm>
#include <cstring>
#include <sstream>
#include <string>
#include <vector>

#include "AidlToPalConverter.h"
#include "PalToAidlConverter.h"
#include "Utils.h"

namespace aidl::vendor::orbo::hardware::voxa {

namespace {

// The PAL takes parameter payloads through a non-const pointer, and only reads them.
pal_param_payload* asPalPayload(const std::vector<uint8_t>& bytes) {
    return reinterpret_cast<pal_param_payload*>(const_cast<uint8_t*>(bytes.data()));
}

// The parameter as its Enter line shows it. Data too long to be sent is shown by its size alone,
// so that a refusal costs nothing however much a client sends.
std::string describe(const VoxaParameter& parameter) {
    if (parameter.data.size() <= VoxaSession::kMaxParameterDataSize) return parameter.toString();
    return "VoxaParameter{param: " + toString(parameter.param) + ", data: [" +
           std::to_string(parameter.data.size()) + " bytes]}";
}

// The configuration as dump() shows it: what decides the engine's work, without the free data.
std::string summarise(const VoxaConfig& config) {
    auto code = [](const std::string& text) { return text.substr(0, 16); };
    auto onOff = [](bool value) { return value ? "on" : "off"; };
    return code(config.input_lang_code) + " -> " + code(config.output_lang_code) + ", mode " +
           toString(config.mode) + ", translation " + onOff(config.enable_translation) +
           ", diarization " + onOff(config.enable_speaker_diarization) + ", timestamps " +
           onOff(config.enable_text_timestamp) + ", silence " +
           std::to_string(config.silence_detection_duration) + " ms";
}

}  // namespace

VoxaSession::VoxaSession(int handle, const std::shared_ptr<IVoxaCallback>& callback,
                         PalWorker& worker)
    : mHandle(handle), mCallback(callback), mWorker(worker) {
    ALOGI("%s: Enter, handle %d", __func__, handle);
}

VoxaSession::~VoxaSession() {
    ALOGI("%s: Enter, handle %d", __func__, mHandle);
}

int VoxaSession::openPalStream() {
    pal_stream_attrs attributes;
    std::memset(&attributes, 0, sizeof(attributes));
    attributes.type = PAL_STREAM_ASR;
    attributes.flags = 0;
    attributes.direction = PAL_AUDIO_INPUT;
    attributes.in_media_config.sample_rate = 16000;
    attributes.in_media_config.bit_width = 16;
    attributes.in_media_config.format = PCM_S16_LE;
    attributes.in_media_config.channels.count = 1;
    attributes.in_media_config.channels.map[0] = 1;

    pal_device device;
    std::memset(&device, 0, sizeof(device));
    device.id = PAL_DEVICE_IN_HANDSET_VA_MIC;
    device.config.sample_rate = 48000;
    device.config.bit_width = 16;
    device.config.format = PCM_S16_LE;
    device.config.channels.count = 2;
    device.config.channels.map[0] = 1;
    device.config.channels.map[1] = 2;

    int status = palResultL(
            "pal_stream_open",
            pal_stream_open(&attributes, 1, &device, 0, nullptr, &VoxaSession::palCallback,
                            reinterpret_cast<unsigned long>(this), &mStreamHandle));
    if (status != 0) {
        ALOGE("%s: failed to open pal stream, status %d", __func__, status);
    }
    return status;
}

int VoxaSession::loadModel(const VoxaModel& model,
                           const std::function<void(int status)>& onDeferredFailure) {
    const std::string text = model.toString();
    std::vector<uint8_t> payload;
    AidlToPalConverter::convertModel(model, payload);
    awaitDeferredCalls();
    ScopedLock<SessionLock> lock(mLock);
    ALOGI("%s: Enter handle %d, model %s", __func__, mHandle, text.c_str());
    mModel = model.vendorUuid.substr(0, 64) + " (" + std::to_string(model.dataSize) + " bytes)";
    int status;
    if (!SessionLock::insidePalCallback()) {
        status = openAndSendModelL(payload);
        if (status != 0) return status;
        ALOGI("%s: Exit, handle %d, status = %d", __func__, mHandle, status);
        return status;
    }

    mOpenDeferred = true;
    status = deferL(__func__, [payload, onDeferredFailure](VoxaSession& session) {
        int result;
        {
            ScopedLock<SessionLock> lock(session.mLock);
            session.mOpenDeferred = false;
            result = session.openAndSendModelL(payload);
        }
        if (result != 0 && onDeferredFailure) onDeferredFailure(result);
        return result;
    });
    ALOGI("%s: Exit, handle %d, status = %d", __func__, mHandle, status);
    return status;
}

int VoxaSession::openAndSendModelL(const std::vector<uint8_t>& model) {
    int status = openPalStream();
    if (status != 0) return status;

    status = palResultL(
            "pal_stream_set_param(model)",
            pal_stream_set_param(mStreamHandle, PAL_PARAM_ID_ASR_MODEL, asPalPayload(model)));
    if (status != 0) {
        ALOGE("loadModel: failed to set asr model, status = %d", status);
        // The service drops a session whose model failed. Left open, the stream would keep the
        // engine busy and call back into the freed session through its cookie.
        pal_stream_close(mStreamHandle);
        mStreamHandle = nullptr;
    }
    return status;
}

int VoxaSession::start(const VoxaConfig& config) {
    const std::string text = config.toString();
    awaitDeferredCalls();
    ScopedLock<SessionLock> lock(mLock);
    ALOGI("%s: Enter, handle %d, config %s", __func__, mHandle, text.c_str());
    if (!streamOpenL()) return refuseClosedL(__func__);
    mConfig = summarise(config);

    std::vector<uint8_t> payload;
    AidlToPalConverter::convertConfig(config, payload);
    if (payload.empty()) {
        ALOGE("%s: Failed to parse config, status = %d", __func__, PAL_STATUS_INVALID);
        return PAL_STATUS_INVALID;
    }
    int status;
    if (!SessionLock::insidePalCallback()) {
        status = configureAndStartL(payload);
        if (status != 0) return status;
    } else {
        status = deferL(__func__, [payload](VoxaSession& session) {
            ScopedLock<SessionLock> lock(session.mLock);
            if (session.mStreamHandle == nullptr) return session.refuseClosedL("start");
            return session.configureAndStartL(payload);
        });
    }
    ALOGI("%s: Exit, handle %d, status = %d", __func__, mHandle, status);
    return status;
}

int VoxaSession::configureAndStartL(const std::vector<uint8_t>& config) {
    int status = palResultL(
            "pal_stream_set_param(config)",
            pal_stream_set_param(mStreamHandle, PAL_PARAM_ID_ASR_CONFIG, asPalPayload(config)));
    if (status != 0) {
        ALOGE("start: failed to set asr config, status = %d", status);
        return status;
    }

    // Listening before the stream starts, so that an event the engine raises while it starts
    // waits for the lock and is delivered once the start has succeeded.
    const int32_t stateBefore = mState;
    mState = kListening;
    status = palResultL("pal_stream_start", pal_stream_start(mStreamHandle));
    if (status != 0) {
        setStateL(stateBefore);
        ALOGE("start: failed to start pal stream, status = %d", status);
    }
    return status;
}

int VoxaSession::stopL() {
    ALOGI("%s: Enter, handle %d", __func__, mHandle);
    // Not listening before the stream stops: an event thread waiting for the lock gives up
    // instead of holding up a PAL that waits for its callbacks to return.
    setStateL(kNotListening);
    int status = palResultL("pal_stream_stop", pal_stream_stop(mStreamHandle));
    if (status != 0) {
        ALOGE("%s: error, failed to stop pal stream, status = %d", __func__, status);
    }
    ALOGI("%s: Exit, handle %d, status = %d", __func__, mHandle, status);
    return status;
}

int VoxaSession::stop() {
    ALOGI("%s: Enter, handle %d", __func__, mHandle);
    awaitDeferredCalls();
    ScopedLock<SessionLock> lock(mLock);
    int status;
    if (!streamOpenL()) {
        status = refuseClosedL(__func__);
    } else if (!SessionLock::insidePalCallback()) {
        status = stopL();
    } else {
        setStateL(kNotListening);
        status = deferL(__func__, [](VoxaSession& session) {
            ScopedLock<SessionLock> lock(session.mLock);
            if (session.mStreamHandle == nullptr) return session.refuseClosedL("stop");
            return session.stopL();
        });
    }
    ALOGI("%s: Exit, handle %d, status = %d", __func__, mHandle, status);
    return status;
}

int VoxaSession::setParameter(const VoxaParameter& parameter) {
    const std::string text = describe(parameter);
    awaitDeferredCalls();
    ScopedLock<SessionLock> lock(mLock);
    ALOGI("%s: Enter, handle %d, parameters %s", __func__, mHandle, text.c_str());

    uint32_t paramId;
    switch (parameter.param) {
        case ParameterType::FORCE_OUTPUT_EVENT:
            paramId = PAL_PARAM_ID_ASR_FORCE_OUTPUT;
            break;
        case ParameterType::CUSTOM_EXTRAS:
            paramId = PAL_PARAM_ID_ASR_CUSTOM;
            break;
        default:
            ALOGE("%s: Invalid param %d", __func__, static_cast<int32_t>(parameter.param));
            return PAL_STATUS_INVALID;
    }

    // The PAL sizes these parameters for kMaxParameterDataSize bytes; more would overrun it.
    if (parameter.data.size() > kMaxParameterDataSize) {
        ALOGE("%s: Invalid param data size %zu, at most %zu bytes", __func__, parameter.data.size(),
              kMaxParameterDataSize);
        return PAL_STATUS_INVALID;
    }

    // The count of data bytes, then the data.
    std::vector<uint8_t> payload(sizeof(uint32_t) + kMaxParameterDataSize, 0);
    const auto size = static_cast<uint32_t>(parameter.data.size());
    std::memcpy(payload.data(), &size, sizeof(size));
    std::copy(parameter.data.begin(), parameter.data.end(), payload.begin() + sizeof(size));

    int status;
    if (!streamOpenL()) {
        status = refuseClosedL(__func__);
    } else if (!SessionLock::insidePalCallback()) {
        status = sendParameterL(paramId, payload);
    } else {
        status = deferL(__func__, [paramId, payload](VoxaSession& session) {
            ScopedLock<SessionLock> lock(session.mLock);
            if (session.mStreamHandle == nullptr) return session.refuseClosedL("setParameter");
            return session.sendParameterL(paramId, payload);
        });
    }
    ALOGI("%s: Exit, handle %d, status = %d", __func__, mHandle, status);
    return status;
}

int VoxaSession::sendParameterL(uint32_t paramId, const std::vector<uint8_t>& payload) {
    int status = palResultL("pal_stream_set_param(parameter)",
                            pal_stream_set_param(mStreamHandle, paramId, asPalPayload(payload)));
    if (status != 0) {
        ALOGE("setParameter: failed to set asr param, status = %d", status);
    }
    return status;
}

int VoxaSession::close() {
    awaitDeferredCalls();
    ScopedLock<SessionLock> lock(mLock);
    ALOGI("%s: Enter, handle %d", __func__, mHandle);
    int status;
    const bool listening = mState == kListening;
    if (!streamOpenL()) {
        status = refuseClosedL(__func__);
    } else if (!SessionLock::insidePalCallback()) {
        status = closeStreamL(listening);
    } else {
        mCloseDeferred = true;
        setStateL(kNotListening);
        status = deferL(__func__, [listening](VoxaSession& session) {
            ScopedLock<SessionLock> lock(session.mLock);
            session.mCloseDeferred = false;
            if (session.mStreamHandle == nullptr) return session.refuseClosedL("close");
            return session.closeStreamL(listening);
        });
    }
    ALOGI("%s: Exit, handle %d, status = %d", __func__, mHandle, status);
    return status;
}

int VoxaSession::closeStreamL(bool stopFirst) {
    if (stopFirst) {
        int stopStatus = stopL();
        if (stopStatus != 0) {
            ALOGE("close: failed to stop pal stream, status = %d", stopStatus);
        }
    }

    int status = palResultL("pal_stream_close", pal_stream_close(mStreamHandle));
    if (status != 0) {
        ALOGE("close: failed to close pal stream, status = %d", status);
    }
    mStreamHandle = nullptr;
    setStateL(kNotListening);
    return status;
}

bool VoxaSession::streamOpenL() const {
    return (mStreamHandle != nullptr || mOpenDeferred) && !mCloseDeferred;
}

int VoxaSession::deferL(const char* operation, std::function<int(VoxaSession&)> palCalls) {
    ALOGI("%s: PAL calls deferred to the worker, handle %d", operation, mHandle);
    mWorker.post([self = shared_from_this(), operation, palCalls = std::move(palCalls)] {
        int status = palCalls(*self);
        ALOGI("%s: deferred PAL calls done, handle %d, status = %d", operation, self->mHandle,
              status);
    });
    return 0;
}

void VoxaSession::awaitDeferredCalls() {
    if (!SessionLock::insidePalCallback()) mWorker.waitForPosted();
}

int VoxaSession::refuseClosedL(const char* operation) {
    ALOGE("%s: stream closed, handle %d", operation, mHandle);
    return PAL_STATUS_INVALID;
}

void VoxaSession::setStateL(int32_t state) {
    mState = state;
    mLock.wake();
}

int VoxaSession::palResultL(const char* function, int status) {
    if (status != 0) mLastPalError = std::string(function) + " " + std::to_string(status);
    return status;
}

std::string VoxaSession::dump(std::chrono::milliseconds patience) {
    std::ostringstream out;
    out << "  handle " << mHandle << ": " << (mState == kListening ? "listening" : "not listening");
    if (mLock.tryLockFor(patience)) {
        auto orNone = [](const std::string& text) { return text.empty() ? "none" : text; };
        out << ", stream ";
        if (mStreamHandle == nullptr) {
            out << "closed";
        } else {
            out << static_cast<const void*>(mStreamHandle);
        }
        out << "\n    model: " << orNone(mModel) << "\n    last configuration: " << orNone(mConfig)
            << "\n    last PAL error: " << orNone(mLastPalError) << "\n";
        mLock.unlock();
    } else {
        out << ", busy in a PAL call\n";
    }
    auto counts = [](const std::array<std::atomic<uint64_t>, kEventKinds>& kinds) {
        return "plain " + std::to_string(kinds[kPlain]) + ", time-stamped " +
               std::to_string(kinds[kTimestamp]) + ", diarization " + std::to_string(kinds[kSdz]);
    };
    out << "    events delivered: " << counts(mDelivered) << "; dropped: " << counts(mDropped)
        << "\n";
    return out.str();
}

int32_t VoxaSession::palCallback(unsigned long* streamHandle, unsigned int eventId,
                                 unsigned int* eventData, unsigned int eventDataSize,
                                 unsigned long cookie) {
    if (streamHandle == nullptr || eventData == nullptr) {
        ALOGE("%s: error, invalid handle/eventData id %d, size %d", __func__, eventId,
              eventDataSize);
        return PAL_STATUS_INVALID;
    }
    if (cookie == 0) return 0;

    SessionLock::InPalCallback inCallback;
    reinterpret_cast<VoxaSession*>(cookie)->onEventCallback(eventData, eventId);
    return 0;
}

void VoxaSession::onEventCallback(unsigned int* eventData, unsigned int eventId) {
    const EventKind kind = eventId == PAL_ASR_EVENT_ID_SPEAKER_DIARIZATION ? kSdz
                           : eventId == PAL_ASR_EVENT_ID_TIMESTAMP         ? kTimestamp
                                                                           : kPlain;
    // Decoded before the wait for the lock, which the converters do not need: an event that
    // waited reaches the client as soon as the lock comes free.
    VoxaEvent event;
    SpeakerDiarizationEvent sdzEvent;
    if (kind == kSdz) {
        PalToAidlConverter::convertSdzEvent(reinterpret_cast<pal_sdz_event*>(eventData), sdzEvent);
    } else if (kind == kTimestamp) {
        PalToAidlConverter::convertAsrTimeStampEvent(reinterpret_cast<pal_asr_ts_event*>(eventData),
                                                     event);
    } else {
        PalToAidlConverter::convertAsrEvent(reinterpret_cast<pal_asr_event*>(eventData), event);
    }
    // Keeps the session alive if the client releases it from inside the callback.
    std::shared_ptr<VoxaSession> self = weak_from_this().lock();

    // Waits while the session listens; a stop or close clears the state and the event is dropped.
    if (self == nullptr || !mLock.lockToDeliver([this] { return mState != kListening; })) {
        mDropped[kind]++;
    } else if (mState != kListening) {
        mLock.unlock();
        mDropped[kind]++;
    } else {
        mDelivered[kind]++;
        if (kind == kSdz) {
            ALOGI("%s:[%d] send sdz event", __func__, mHandle);
            deliverAndUnlock([&] { mCallback->onSdzEvent(mHandle, sdzEvent); });
        } else if (kind == kTimestamp) {
            ALOGI("%s:[%d] send asr timestamp event", __func__, mHandle);
            deliverAndUnlock([&] { mCallback->onAsrEvent(mHandle, event); });
        } else {
            ALOGI("%s:[%d] send asr event", __func__, mHandle);
            deliverAndUnlock([&] { mCallback->onAsrEvent(mHandle, event); });
        }
    }

    ALOGI("%s: Exit, handle %d", __func__, mHandle);
}

template <typename Call>
void VoxaSession::deliverAndUnlock(Call call) {
    mLock.unlockToDeliver();
    call();
    mLock.endDelivery();
}

}  // namespace aidl::vendor::orbo::hardware::voxa
