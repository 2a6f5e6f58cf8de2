// The host part of the voxa program on the recogniser-backed PAL engine (host/pal/engine): loads
// the engine's shared library, libpal_engine.so, whose PAL functions libvoxa.so binds to, and
// chooses what the engine captures through its host controls (pal_engine.h).
#ifndef VOXA_TOOL_ENGINE_HOST_H
#define VOXA_TOOL_ENGINE_HOST_H

#include <pal/pal_engine.h>

#include <memory>
#include <string>

#include "Host.h"
#include "SoundInput.h"

namespace voxa_tool {

class EngineHost : public Host {
  public:
    // Loads the engine from `library` into the process, for good, and makes its host.
    static Status load(const std::string& library, std::unique_ptr<Host>* host);

    explicit EngineHost(const pal_engine::Controls& engine);
    ~EngineHost() override;

    Status startService(const std::string& library) override;
    std::string engineUuid() override;
    EngineLanguages languages() override;
    Status openInput(const InputRequest& request, InputInfo* info) override;
    InputEnd waitUntilInputEnds() override;
    void closeInput() override;

  private:
    const pal_engine::Controls& mEngine;
    const SoundLimits mLimits;
    // The open input: a sound file that the engine opens itself, with what it holds, or a feed
    // (standard input, raw PCM) and the descriptor it reads.
    SoundFacts mFile;
    std::unique_ptr<DeviceFeed> mFeed;
    int mFeedFd = -1;  // a file the feed reads, closed with the input; -1 for standard input
};

}  // namespace voxa_tool

#endif  // VOXA_TOOL_ENGINE_HOST_H
