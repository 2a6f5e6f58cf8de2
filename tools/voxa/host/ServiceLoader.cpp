#include "ServiceLoader.h"

#include <aidl/vendor/orbo/hardware/voxa/IVoxa.h>
#include <android/binder_manager.h>
#include <dlfcn.h>

namespace voxa_tool {

namespace {

const std::string kInstance =
        std::string(aidl::vendor::orbo::hardware::voxa::IVoxa::descriptor) + "/default";

bool registered() {
    return ndk::SpAIBinder(AServiceManager_checkService(kInstance.c_str())).get() != nullptr;
}

}  // namespace

Status loadService(const std::string& library) {
    if (registered()) return Status::ok();

    // Never closed: see the header.
    void* handle = dlopen(library.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) {
        const char* reason = dlerror();
        return Status::failure("cannot load the service library: " +
                               std::string(reason ? reason : library));
    }
    using RegisterService = int (*)();
    auto registerService = reinterpret_cast<RegisterService>(dlsym(handle, "registerService"));
    if (registerService == nullptr) return Status::failure(library + " has no registerService");
    const int status = registerService();
    if (status != 0) {
        return Status::failure("registerService failed with status " + std::to_string(status));
    }
    if (!registered()) {
        return Status::failure("no " + kInstance + " in the service manager after registerService");
    }
    return Status::ok();
}

}  // namespace voxa_tool
