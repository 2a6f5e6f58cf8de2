// The host part of `voxa replay` on the scripted engine (host/pal/scripted): loads its shared
// library, libpal_scripted.so, whose PAL functions libvoxa.so binds to, and plays scenarios
// through its host controls (pal_scripted.h).
// A session's input is a scenario, which starts playing when the input is opened and has ended
// once it has played, or once the client has stopped listening.
#ifndef VOXA_TOOL_SCRIPTED_HOST_H
#define VOXA_TOOL_SCRIPTED_HOST_H

#include <pal/pal_scripted.h>

#include <memory>
#include <string>

#include "Host.h"

namespace voxa_tool {

class ScriptedHost : public Host {
  public:
    // Loads the scripted engine from `library` into the process, for good, and makes its host.
    static Status load(const std::string& library, std::unique_ptr<Host>* host);

    explicit ScriptedHost(const pal_scripted::Controls& engine) : mEngine(engine) {}

    Status startService(const std::string& library) override;
    std::string engineUuid() override;
    // The scenario decides what the engine accepts: no language is claimed.
    EngineLanguages languages() override { return {}; }
    Status openInput(const InputRequest& request, InputInfo* info) override;
    InputEnd waitUntilInputEnds() override;
    void closeInput() override {}

  private:
    const pal_scripted::Controls& mEngine;
};

}  // namespace voxa_tool

#endif  // VOXA_TOOL_SCRIPTED_HOST_H
