#include "Transcriber.h"

#include <aidl/vendor/orbo/hardware/voxa/LanguageCode.h>
#include <aidl/vendor/orbo/hardware/voxa/ServiceError.h>
#include <aidl/vendor/orbo/hardware/voxa/VoxaModel.h>
#include <aidl/vendor/orbo/hardware/voxa/VoxaParameter.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <thread>
#include <vector>

#include "Cli.h"
#include "Formatter.h"
#include "Signals.h"

namespace voxa_tool {

using aidl::vendor::orbo::hardware::voxa::LanguageCode;
using aidl::vendor::orbo::hardware::voxa::ParameterType;
using aidl::vendor::orbo::hardware::voxa::ServiceError;
using aidl::vendor::orbo::hardware::voxa::TranscriptionMode;
using aidl::vendor::orbo::hardware::voxa::VoxaConfig;
using aidl::vendor::orbo::hardware::voxa::VoxaEvent;
using aidl::vendor::orbo::hardware::voxa::VoxaModel;
using aidl::vendor::orbo::hardware::voxa::VoxaParameter;

namespace {

// How often the progress bar moves while the audio plays at its own pace.
constexpr std::chrono::milliseconds kProgressInterval(100);
// How long a forced result may take to come after a stop signal, so that the program ends within
// 3 s of it.
constexpr std::chrono::milliseconds kForcedResultWait(2500);
constexpr char kBusy[] =
        "the recognition engine is busy with another session (RESOURCE_CONTENTION)";
constexpr auto kForever = std::chrono::milliseconds(-1);

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

bool isServiceError(const ndk::ScopedAStatus& status, ServiceError error) {
    return status.getExceptionCode() == EX_SERVICE_SPECIFIC &&
           status.getServiceSpecificError() == static_cast<int32_t>(error);
}

bool isFinal(const VoxaEvent& event) {
    const std::vector<Result> results = resultsOf(event);
    return std::any_of(results.begin(), results.end(), [](const Result& r) { return r.final; });
}

}  // namespace

VoxaConfig makeConfig(const Options& options) {
    VoxaConfig config;
    config.input_lang_code = options.language;
    config.output_lang_code = options.translateTo.empty() ? options.language : options.translateTo;
    config.input_language_code = languageCode(config.input_lang_code);
    config.output_language_code = languageCode(config.output_lang_code);
    config.enable_translation = !options.translateTo.empty();
    config.enable_speaker_diarization = options.diarize;
    config.enable_continuous_mode = options.mode != TranscriptionMode::PARTIAL_COMMAND;
    config.enable_partial_transcription = options.mode == TranscriptionMode::PARTIAL_COMMAND ||
                                          options.mode == TranscriptionMode::PARTIAL_CONTINUOUS;
    config.mode = options.mode;
    config.enable_text_timestamp = true;
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

Transcriber::Transcriber(std::shared_ptr<aidl::vendor::orbo::hardware::voxa::IVoxa> service,
                         Host* host, Progress* progress, std::ostream& err)
    : mService(std::move(service)),
      mHost(host),
      mProgress(progress),
      mErr(err),
      mEvents(ndk::SharedRefBase::make<SessionEvents>()),
      mGlobalCallback(ndk::SharedRefBase::make<GlobalCallback>(mEvents)) {}

Status Transcriber::run(const Options& options, Output* output) {
    ndk::ScopedAStatus registered = mService->registerGlobalCallback(mGlobalCallback);
    if (!registered.isOk()) {
        return Status::failure("registerGlobalCallback failed (" + errorName(registered) + ")");
    }
    // A signal while no session listens ends the program at once: there is nothing to force.
    setSignalHandler([this](int signal) {
        if (!mListening) return false;
        mSignal = signal;
        SessionEvent event;
        event.signal = signal;
        mEvents->push(std::move(event));
        return true;
    });
    Status worst = Status::ok();
    for (size_t i = 0; i < options.files.size() && mSignal == 0; ++i) {
        bool fatal = false;
        Status status = transcribe(options, i, output, &fatal);
        if (fatal) {
            worst = std::move(status);
            break;
        }
        if (!status.isOk()) {
            if (!status.message().empty()) note(status.message());
            worst = Status::failure("");
        }
    }
    setSignalHandler(nullptr);
    if (mSignal != 0) {
        mProgress->hide();
        return Status::interrupted(mSignal);
    }
    return worst;
}

Status Transcriber::transcribe(const Options& options, size_t index, Output* output, bool* fatal) {
    const std::string& file = options.files[index];
    InputInfo info;
    Status status = mHost->openInput({file, options.raw, options.realtime}, &info);
    if (!status.isOk()) return status;
    if (!info.note.empty()) note(info.note);
    mHeard = Heard();
    mHeard.input = info.name;

    // A session of its own for each input: the recogniser adapts to what its stream has heard,
    // and a transcript should not depend on the inputs before it.
    int32_t handle = -1;
    if (!info.empty) {
        status = openSession(options, &handle);
        if (!status.isOk()) {
            *fatal = true;
            mHost->closeInput();
            return status;
        }
    }
    status = output->begin(file, info.name, index, options.files.size());
    if (!status.isOk()) {
        if (handle >= 0) mService->releaseSession(handle);
        mHost->closeInput();
        return status;
    }

    std::optional<InputEnd> end;
    if (!info.empty) {
        mProgress->reset(info.durationMs);
        status = startSession(handle, options);
        if (status.isOk()) {
            mProgress->update(0);
            ndk::ScopedAStatus stopped;
            end = listen(handle, options, output->formatter(), &stopped);
            if (!stopped.isOk()) {
                status = Status::failure("stopListening failed (" + errorName(stopped) + ")");
            }
        }
        mProgress->hide();
        // Every result that came before the stop is written.
        SessionEvent event;
        while (mEvents->next(std::chrono::milliseconds(0), &event)) {
            deliver(event, options, output->formatter());
        }
        ndk::ScopedAStatus released = mService->releaseSession(handle);
        if (status.isOk() && !released.isOk()) {
            status = Status::failure("releaseSession failed (" + errorName(released) + ")");
        }
    }
    *fatal = status.exitCode() == kExitBusy;
    if (status.isOk() && end && !end->error.empty()) status = Status::failure(end->error);
    if (status.isOk() && mHeard.failure) status = Status::failure("");
    if (status.isOk() && mHeard.withoutTimes &&
        (options.format == Format::Srt || options.format == Format::Vtt)) {
        status = Status::failure(info.name + ": results without times cannot be subtitles");
    }
    Status written = output->end(status.isOk());
    mHost->closeInput();
    if (!status.isOk()) return status;
    if (!written.isOk()) return written;

    if (info.empty || (end && !mHeard.speech)) {
        note(info.name + ": no speech found" +
             (options.threshold > 0 ? " at a confidence of " + std::to_string(options.threshold) +
                                              " or more (--threshold)"
                                    : ""));
    }
    if (end && end->endMs >= 0 && end->declaredMs > end->endMs) {
        note(info.name + ": ends at " + secondsText(end->endMs) + " s of " +
             secondsText(end->declaredMs) + " s");
    }
    return Status::ok();
}

bool Transcriber::waitUntilFree(const Options& options) {
    if (!options.waitBusy) return false;
    note("the recognition engine is busy with another session; waiting until it is free");
    SessionEvent event;
    while (mEvents->next(kForever, &event) && !event.resourcesAvailable) {
    }
    return true;
}

Status Transcriber::openSession(const Options& options, int32_t* handle) {
    // News that came before says nothing of an engine found busy now.
    SessionEvent stale;
    while (mEvents->next(std::chrono::milliseconds(0), &stale)) {
    }
    Status status = initSession(options.model, handle);
    if (status.exitCode() == kExitBusy && waitUntilFree(options)) {
        status = initSession(options.model, handle);
    }
    return status;
}

Status Transcriber::initSession(const std::string& modelPath, int32_t* handle) {
    const int fd = open(modelPath.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        return Status::failure("cannot open the model image " + modelPath + ": " +
                               std::strerror(errno));
    }
    VoxaModel model;
    model.vendorUuid = mHost->engineUuid();
    model.data = ndk::ScopedFileDescriptor(fd);
    struct stat info;
    if (fstat(fd, &info) != 0) {
        return Status::failure("cannot read the model image " + modelPath + ": " +
                               std::strerror(errno));
    }
    model.dataSize = static_cast<int32_t>(std::min<off_t>(info.st_size, INT32_MAX));

    ndk::ScopedAStatus status = mService->initSession(model, mEvents, handle);
    if (isServiceError(status, ServiceError::RESOURCE_CONTENTION)) return Status::busy(kBusy);
    if (!status.isOk()) {
        return Status::failure("the service could not open a session with the model image " +
                               modelPath + " (" + errorName(status) + ")");
    }
    return Status::ok();
}

Status Transcriber::startSession(int32_t handle, const Options& options) {
    const VoxaConfig config = makeConfig(options);
    ndk::ScopedAStatus status = mService->startListening(handle, config);
    if (isServiceError(status, ServiceError::RESOURCE_CONTENTION) && waitUntilFree(options)) {
        status = mService->startListening(handle, config);
    }
    return status.isOk() ? Status::ok() : startFailure(status, options);
}

std::optional<InputEnd> Transcriber::listen(int32_t handle, const Options& options,
                                            Formatter& formatter, ndk::ScopedAStatus* stopped) {
    std::thread waiter([this] {
        SessionEvent event;
        event.inputEnded = mHost->waitUntilInputEnds();
        mEvents->push(std::move(event));
    });
    const auto start = std::chrono::steady_clock::now();
    mListening = true;
    std::optional<InputEnd> end;
    std::optional<std::chrono::steady_clock::time_point> forcedBy;
    SessionEvent event;
    for (;;) {
        auto timeout = options.realtime ? kProgressInterval : kForever;
        if (forcedBy) {
            timeout = std::chrono::duration_cast<std::chrono::milliseconds>(
                    *forcedBy - std::chrono::steady_clock::now());
            if (timeout.count() <= 0) break;
        }
        if (!mEvents->next(timeout, &event)) {
            if (options.realtime) {
                mHeard.positionMs = std::max<int64_t>(
                        mHeard.positionMs, std::chrono::duration_cast<std::chrono::milliseconds>(
                                                   std::chrono::steady_clock::now() - start)
                                                   .count());
                mProgress->update(mHeard.positionMs);
            }
            continue;
        }
        if (event.inputEnded) {
            if (!forcedBy) end = event.inputEnded;
            break;
        }
        if (event.signal) {
            if (forcedBy) continue;
            // Whatever the engine has heard of the utterance in progress comes as a final result.
            VoxaParameter force;
            force.param = ParameterType::FORCE_OUTPUT_EVENT;
            if (!mService->setParameter(handle, force).isOk()) break;
            forcedBy = std::chrono::steady_clock::now() + kForcedResultWait;
            continue;
        }
        deliver(event, options, formatter);
        if (forcedBy && event.asr && isFinal(*event.asr)) break;
    }
    mListening = false;
    if (options.dump) {
        mErr.flush();
        Status dumped = dumpService(*mService, STDERR_FILENO);
        if (!dumped.isOk()) note(dumped.message());
    }
    *stopped = mService->stopListening(handle);
    // The host's wait ends with the stop at the latest.
    waiter.join();
    return end;
}

Status Transcriber::startFailure(const ndk::ScopedAStatus& status, const Options& options) {
    const std::string name = errorName(status);
    if (isServiceError(status, ServiceError::OPERATION_NOT_SUPPORTED)) {
        // What was asked that the engine does not claim to handle; a host part that claims
        // nothing (no recognised language) names nothing.
        const EngineLanguages engine = mHost->languages();
        auto lacks = [](const std::vector<std::string>& codes, const std::string& code) {
            return std::find(codes.begin(), codes.end(), code) == codes.end();
        };
        std::vector<std::string> asked;
        if (!engine.recognised.empty()) {
            if (lacks(engine.recognised, options.language)) {
                asked.push_back("the language " + options.language);
            }
            if (!options.translateTo.empty() && lacks(engine.translatedTo, options.translateTo)) {
                asked.push_back("translation to " + options.translateTo);
            }
            if (options.diarize && !engine.diarizes) asked.push_back("speaker diarization");
        }
        std::string what;
        for (size_t i = 0; i < asked.size(); ++i) {
            what += (i == 0 ? "" : i + 1 == asked.size() ? " or " : ", ") + asked[i];
        }
        return Status::failure("the recognition engine does not support " +
                               (what.empty() ? std::string("this configuration") : what) + " (" +
                               name + ")");
    }
    if (isServiceError(status, ServiceError::RESOURCE_CONTENTION)) return Status::busy(kBusy);
    return Status::failure("startListening failed (" + name + ")");
}

void Transcriber::deliver(const SessionEvent& event, const Options& options, Formatter& formatter) {
    if (!event.asr && !event.sdz) return;
    mProgress->hide();
    if (event.sdz) {
        formatter.sdzEvent(event.handle, *event.sdz);
    } else {
        formatter.asrEvent(event.handle, *event.asr);
        const std::vector<Result> results = resultsOf(*event.asr);
        if (event.asr->status != 0 && !mHeard.failure) {
            mHeard.failure = true;
            // The engine's second text may say what failed.
            const std::string why = results.empty() ? "" : results.front().auxText;
            note(mHeard.input + ": the recognition engine reported a failure (status " +
                 std::to_string(event.asr->status) + ")" + (why.empty() ? "" : ": " + why));
        }
        for (const Result& result : results) {
            if (!result.final) continue;
            mHeard.speech = mHeard.speech || !result.text.empty();
            if (result.endMs) mHeard.positionMs = std::max(mHeard.positionMs, *result.endMs);
            if (!result.startMs && !result.text.empty() && !mHeard.withoutTimes) {
                mHeard.withoutTimes = true;
                if (options.diarize) {
                    note(mHeard.input + ": results without times cannot be given a speaker");
                }
            }
        }
    }
    mProgress->update(mHeard.positionMs);
}

void Transcriber::note(const std::string& text) {
    mProgress->hide();
    mErr << "voxa: " << text << "\n" << std::flush;
}

}  // namespace voxa_tool
