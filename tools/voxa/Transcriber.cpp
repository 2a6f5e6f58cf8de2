#include "Transcriber.h"

#include <aidl/vendor/orbo/hardware/voxa/LanguageCode.h>
#include <aidl/vendor/orbo/hardware/voxa/ServiceError.h>
#include <aidl/vendor/orbo/hardware/voxa/VoxaModel.h>
#include <fcntl.h>
#include <pal/pal_engine.h>
#include <sndfile.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <vector>

namespace voxa_tool {

using aidl::vendor::orbo::hardware::voxa::IVoxa;
using aidl::vendor::orbo::hardware::voxa::LanguageCode;
using aidl::vendor::orbo::hardware::voxa::ServiceError;
using aidl::vendor::orbo::hardware::voxa::TranscriptionMode;
using aidl::vendor::orbo::hardware::voxa::VoxaConfig;
using aidl::vendor::orbo::hardware::voxa::VoxaEvent;
using aidl::vendor::orbo::hardware::voxa::VoxaModel;

namespace {

// How often the main thread looks at the engine while no result comes.
constexpr std::chrono::milliseconds kPollInterval(100);

LanguageCode languageCode(const std::string& code) {
    struct Entry {
        const char* code;
        LanguageCode value;
    };
    static const Entry kCodes[] = {
            {"en-US", LanguageCode::EN_US}, {"zh-CN", LanguageCode::ZH_CN},
            {"hi-IN", LanguageCode::HI_IN}, {"es-US", LanguageCode::ES_US},
            {"ko-KR", LanguageCode::KO_KR}, {"ja-JP", LanguageCode::JA_JP},
    };
    for (const Entry& entry : kCodes) {
        if (code == entry.code) return entry.value;
    }
    // The enumeration names only six languages; the service goes by the text code.
    return LanguageCode::EN_US;
}

// Where in the audio the result ends, from its times or its JSON; -1 when it says nothing.
int64_t resultEndMs(const VoxaEvent& event) {
    int64_t end = -1;
    for (const auto& result :
         event.timestamp_events.value_or(std::vector<std::optional<VoxaEvent::EventTS>>{})) {
        if (result && result->flag) end = std::max(end, result->end_ts);
    }
    static const std::string kKey = "\"end_ms\":";
    for (const auto& result :
         event.events.value_or(std::vector<std::optional<VoxaEvent::Event>>{})) {
        if (!result || !result->flag) continue;
        size_t at = result->aux_text.find(kKey);
        if (at != std::string::npos) {
            end = std::max<int64_t>(
                    end, std::strtoll(result->aux_text.c_str() + at + kKey.size(), nullptr, 10));
        }
    }
    return end;
}

bool isServiceError(const ndk::ScopedAStatus& status, ServiceError error) {
    return status.getExceptionCode() == EX_SERVICE_SPECIFIC &&
           status.getServiceSpecificError() == static_cast<int32_t>(error);
}

}  // namespace

VoxaConfig makeConfig(const Options& options) {
    VoxaConfig config;
    const bool partial = options.mode == TranscriptionMode::PARTIAL_COMMAND ||
                         options.mode == TranscriptionMode::PARTIAL_CONTINUOUS;
    config.input_lang_code = options.language;
    config.output_lang_code = options.translateTo.empty() ? options.language : options.translateTo;
    config.input_language_code = languageCode(config.input_lang_code);
    config.output_language_code = languageCode(config.output_lang_code);
    config.enable_translation = !options.translateTo.empty();
    config.enable_speaker_diarization = options.diarize;
    config.enable_continuous_mode = options.mode != TranscriptionMode::PARTIAL_COMMAND;
    config.enable_partial_transcription = partial;
    config.mode = options.mode;
    config.enable_text_timestamp =
            options.timestamps || options.format == Format::Srt || options.format == Format::Vtt;
    config.threshold = options.threshold;
    config.timeout_duration = options.timeoutMs;
    config.silence_detection_duration = options.silenceMs;
    return config;
}

std::string errorName(const ndk::ScopedAStatus& status) {
    if (status.getExceptionCode() == EX_SERVICE_SPECIFIC) {
        return toString(static_cast<ServiceError>(status.getServiceSpecificError()));
    }
    return status.getDescription();
}

std::string probeSoundFile(const std::string& path, int64_t* durationMs) {
    struct stat info;
    if (stat(path.c_str(), &info) != 0) {
        return "cannot open " + path + ": " + std::strerror(errno);
    }
    if (S_ISDIR(info.st_mode)) return "cannot read " + path + ": it is a directory";
    if (access(path.c_str(), R_OK) != 0) {
        return "cannot read " + path + ": " + std::strerror(errno);
    }
    SF_INFO format = {};
    SNDFILE* file = sf_open(path.c_str(), SFM_READ, &format);
    if (file == nullptr) {
        return path + ": unsupported audio (" + sf_strerror(nullptr) + ")";
    }
    sf_close(file);
    if (format.samplerate <= 0 || format.channels <= 0) {
        return path + ": unsupported audio (no samples)";
    }
    *durationMs = format.frames * 1000 / format.samplerate;
    return "";
}

Transcriber::Transcriber(std::shared_ptr<IVoxa> service, Formatter* formatter, Progress* progress)
    : mService(std::move(service)),
      mFormatter(formatter),
      mProgress(progress),
      mCallback(ndk::SharedRefBase::make<SessionCallback>()),
      mGlobalCallback(ndk::SharedRefBase::make<GlobalCallback>()) {}

Outcome Transcriber::run(const Options& options) {
    std::vector<int64_t> durations;
    for (const std::string& file : options.files) {
        int64_t durationMs = 0;
        if (file != kStandardInput) {
            std::string problem = probeSoundFile(file, &durationMs);
            if (!problem.empty()) return Outcome::failure(problem);
        }
        durations.push_back(durationMs);
    }

    ndk::ScopedAStatus registered = mService->registerGlobalCallback(mGlobalCallback);
    if (!registered.isOk()) {
        return Outcome::failure("registerGlobalCallback failed (" + errorName(registered) + ")");
    }
    for (size_t i = 0; i < options.files.size(); ++i) {
        // A session of its own for each file: the recogniser adapts to what its stream has
        // heard, and a file's transcript should not depend on the files before it.
        int32_t handle = -1;
        Outcome outcome = openSession(options.model, &handle);
        if (!outcome.ok()) return outcome;
        outcome = transcribeFile(handle, options, i, durations[i]);
        ndk::ScopedAStatus released = mService->releaseSession(handle);
        if (!outcome.ok()) return outcome;
        if (!released.isOk()) {
            return Outcome::failure("releaseSession failed (" + errorName(released) + ")");
        }
    }
    return Outcome::success();
}

Outcome Transcriber::openSession(const std::string& modelPath, int32_t* handle) {
    int fd = open(modelPath.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        return Outcome::failure("cannot open the model image " + modelPath + ": " +
                                std::strerror(errno));
    }
    VoxaModel model;
    model.vendorUuid = pal_engine::kEngineUuid;
    model.data = ndk::ScopedFileDescriptor(fd);
    struct stat info;
    if (fstat(fd, &info) != 0) {
        return Outcome::failure("cannot read the model image " + modelPath + ": " +
                                std::strerror(errno));
    }
    model.dataSize = static_cast<int32_t>(std::min<off_t>(info.st_size, INT32_MAX));

    ndk::ScopedAStatus status = mService->initSession(model, mCallback, handle);
    if (isServiceError(status, ServiceError::RESOURCE_CONTENTION)) {
        return Outcome::failure(
                "the recognition engine is busy with another session (RESOURCE_CONTENTION)",
                kExitBusy);
    }
    if (!status.isOk()) {
        return Outcome::failure("the service could not open a session with the model image " +
                                modelPath + " (" + errorName(status) + ")");
    }
    return Outcome::success();
}

Outcome Transcriber::transcribeFile(int32_t handle, const Options& options, size_t index,
                                    int64_t durationMs) {
    const std::string& file = options.files[index];
    const bool standardInput = file == kStandardInput;
    const pal_engine::Pace pace =
            options.realtime ? pal_engine::Pace::RealTime : pal_engine::Pace::Fast;
    if (standardInput) {
        pal_engine::setPcmSource(STDIN_FILENO, pace);
    } else {
        pal_engine::setFileSource({file}, pace);
    }
    mFormatter->beginFile(standardInput ? "standard input" : file, index, options.files.size());
    mProgress->reset(durationMs);

    ndk::ScopedAStatus status = mService->startListening(handle, makeConfig(options));
    if (!status.isOk()) return Outcome::failure(startFailure(status, options));

    const auto start = std::chrono::steady_clock::now();
    int64_t positionMs = 0;
    mProgress->update(positionMs);
    Delivery delivery;
    for (;;) {
        if (mCallback->next(kPollInterval, &delivery)) {
            deliver(delivery, &positionMs);
            continue;
        }
        // Once the engine is done, its last result is queued already.
        if (pal_engine::waitUntilDone(std::chrono::milliseconds(0)) == 0) break;
        if (options.realtime) {
            positionMs = std::max<int64_t>(positionMs,
                                           std::chrono::duration_cast<std::chrono::milliseconds>(
                                                   std::chrono::steady_clock::now() - start)
                                                   .count());
            mProgress->update(positionMs);
        }
    }
    status = mService->stopListening(handle);
    while (mCallback->next(std::chrono::milliseconds(0), &delivery)) {
        deliver(delivery, &positionMs);
    }
    mProgress->hide();
    if (!status.isOk()) {
        return Outcome::failure("stopListening failed (" + errorName(status) + ")");
    }
    return Outcome::success();
}

std::string Transcriber::startFailure(const ndk::ScopedAStatus& status, const Options& options) {
    const std::string name = errorName(status);
    if (isServiceError(status, ServiceError::OPERATION_NOT_SUPPORTED)) {
        std::vector<std::string> asked;
        if (options.language != "en-US") asked.push_back("the language " + options.language);
        if (!options.translateTo.empty()) asked.push_back("translation to " + options.translateTo);
        if (options.diarize) asked.push_back("speaker diarization");
        std::string what;
        for (size_t i = 0; i < asked.size(); ++i) {
            what += (i == 0 ? "" : i + 1 == asked.size() ? " or " : ", ") + asked[i];
        }
        return "the recognition engine does not support " +
               (what.empty() ? std::string("this configuration") : what) + " (" + name + ")";
    }
    if (isServiceError(status, ServiceError::INVALID)) {
        std::vector<std::string> known;
        mService->getSupportedLanguages(0, &known);
        for (const std::string& code : {options.language, options.translateTo}) {
            if (code.empty()) continue;
            bool listed = std::any_of(known.begin(), known.end(), [&](const std::string& row) {
                return row.size() > code.size() + 3 &&
                       row.compare(row.size() - code.size() - 3, std::string::npos, " : " + code) ==
                               0;
            });
            if (!listed) {
                return "the service knows no language " + code + " (" + name +
                       "); voxa languages lists them";
            }
        }
        return "the service refused the configuration (" + name +
               "): check --silence-ms (0 to 60000), --threshold (0 to 100) and --timeout-ms";
    }
    return "startListening failed (" + name + ")";
}

void Transcriber::deliver(const Delivery& delivery, int64_t* positionMs) {
    mProgress->hide();
    if (delivery.asr) {
        mFormatter->asrEvent(delivery.handle, *delivery.asr);
        *positionMs = std::max(*positionMs, resultEndMs(*delivery.asr));
    } else if (delivery.sdz) {
        mFormatter->sdzEvent(delivery.handle, *delivery.sdz);
    }
    mProgress->update(*positionMs);
}

}  // namespace voxa_tool
