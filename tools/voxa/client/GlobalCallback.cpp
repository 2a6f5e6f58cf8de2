#include "GlobalCallback.h"

namespace voxa_tool {

ndk::ScopedAStatus GlobalCallback::onResourcesAvailable() {
    SessionEvent event;
    event.resourcesAvailable = true;
    mEvents->push(std::move(event));
    return ndk::ScopedAStatus::ok();
}

}  // namespace voxa_tool
