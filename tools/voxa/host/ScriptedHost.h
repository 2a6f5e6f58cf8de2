// The host part of `voxa replay` on the scripted engine (host/pal/scripted): the voxa-replay
// executable links the scripted engine and exports its PAL functions for libvoxa.so to bind to.
// A session's input is a scenario, which starts playing when the input is opened and has ended
// once it has played, or once the client has stopped listening.
#ifndef VOXA_TOOL_SCRIPTED_HOST_H
#define VOXA_TOOL_SCRIPTED_HOST_H

#include <string>

#include "Host.h"

namespace voxa_tool {

class ScriptedHost : public Host {
  public:
    Status startService(const std::string& library) override;
    std::string engineUuid() override;
    // The scenario decides what the engine accepts: no language is claimed.
    EngineLanguages languages() override { return {}; }
    Status openInput(const InputRequest& request, InputInfo* info) override;
    InputEnd waitUntilInputEnds() override;
    void closeInput() override {}
};

}  // namespace voxa_tool

#endif  // VOXA_TOOL_SCRIPTED_HOST_H
