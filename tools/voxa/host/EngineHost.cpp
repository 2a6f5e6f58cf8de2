#include "EngineHost.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>

#include "PalLoader.h"
#include "ServiceLoader.h"

namespace voxa_tool {

namespace {

SoundLimits limitsOf(const pal_engine::Abilities& abilities) {
    return {abilities.minSampleRate, abilities.maxSampleRate, abilities.maxChannels};
}

int64_t toMs(int64_t frames, int rate) {
    return frames < 0 || rate <= 0 ? -1 : frames * 1000 / rate;
}

}  // namespace

Status EngineHost::load(const std::string& library, std::unique_ptr<Host>* host) {
    const void* controls = nullptr;
    Status status = loadPal(library, "pal_engine_controls", &controls);
    if (status.isOk()) {
        *host = std::make_unique<EngineHost>(*static_cast<const pal_engine::Controls*>(controls));
    }
    return status;
}

EngineHost::EngineHost(const pal_engine::Controls& engine)
    : mEngine(engine), mLimits(limitsOf(engine.abilities())) {}

EngineHost::~EngineHost() {
    closeInput();
}

Status EngineHost::startService(const std::string& library) {
    return loadService(library);
}

std::string EngineHost::engineUuid() {
    return pal_engine::kEngineUuid;
}

EngineLanguages EngineHost::languages() {
    pal_engine::Abilities abilities = mEngine.abilities();
    return {std::move(abilities.recognised), std::move(abilities.translatedTo), abilities.diarizes};
}

Status EngineHost::openInput(const InputRequest& request, InputInfo* info) {
    const pal_engine::Pace pace =
            request.realtime ? pal_engine::Pace::RealTime : pal_engine::Pace::Fast;
    const bool standardInput = request.path == kStandardInput;
    *info = InputInfo();
    info->name = standardInput ? "standard input" : request.path;
    if (!standardInput && !request.raw) {
        Status status = probeSoundFile(request.path, mLimits, &mFile);
        if (!status.isOk()) return status;
        info->durationMs = toMs(mFile.frames, mFile.rate);
        info->empty = mFile.frames == 0;
        mEngine.setFileSource({request.path}, pace);
        return Status::ok();
    }

    int fd = STDIN_FILENO;
    if (!standardInput) {
        fd = open(request.path.c_str(), O_RDONLY | O_CLOEXEC);
        if (fd < 0) {
            return Status::failure("cannot open " + request.path + ": " + std::strerror(errno));
        }
        mFeedFd = fd;
    }
    Status status = DeviceFeed::start(fd, info->name, request.raw, mLimits, &mFeed, &info->note);
    if (!status.isOk()) {
        closeInput();
        return status;
    }
    info->empty = mFeed->empty();
    mEngine.setPcmSource(mFeed->engineFd(), pace);
    return Status::ok();
}

InputEnd EngineHost::waitUntilInputEnds() {
    mEngine.waitUntilDone(std::chrono::milliseconds(-1));
    InputEnd end;
    if (mFeed == nullptr) {
        end.endMs = toMs(mFile.frames, mFile.rate);
        end.declaredMs = toMs(mFile.declaredFrames, mFile.rate);
    } else {
        const SoundFacts& facts = mFeed->facts();
        end.endMs = mFeed->ended() ? toMs(mFeed->framesRead(), facts.rate) : -1;
        end.declaredMs = toMs(facts.declaredFrames, facts.rate);
    }
    return end;
}

void EngineHost::closeInput() {
    mEngine.clearSource();
    mFeed.reset();
    if (mFeedFd >= 0) close(mFeedFd);
    mFeedFd = -1;
    mFile = SoundFacts();
}

}  // namespace voxa_tool
