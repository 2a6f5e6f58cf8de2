// The client's IVoxaGlobalCallback: the service's news that the engine is free again.
#ifndef VOXA_TOOL_GLOBAL_CALLBACK_H
#define VOXA_TOOL_GLOBAL_CALLBACK_H

#include <aidl/vendor/orbo/hardware/voxa/BnVoxaGlobalCallback.h>

#include <memory>

#include "SessionEvents.h"

namespace voxa_tool {

// Registering it makes the service watch this client for death, as on a device. The news is
// queued for the main thread, which waits for it when it has to wait for a busy engine.
class GlobalCallback : public aidl::vendor::orbo::hardware::voxa::BnVoxaGlobalCallback {
  public:
    explicit GlobalCallback(std::shared_ptr<SessionEvents> events) : mEvents(std::move(events)) {}

    ndk::ScopedAStatus onResourcesAvailable() override;

  private:
    const std::shared_ptr<SessionEvents> mEvents;
};

}  // namespace voxa_tool

#endif  // VOXA_TOOL_GLOBAL_CALLBACK_H
