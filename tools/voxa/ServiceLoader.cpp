#include "ServiceLoader.h"

#include <android/binder_manager.h>
#include <dlfcn.h>

namespace voxa_tool {

using aidl::vendor::orbo::hardware::voxa::IVoxa;

namespace {

std::shared_ptr<IVoxa> registeredService() {
    ndk::SpAIBinder binder(AServiceManager_checkService(serviceInstance().c_str()));
    return IVoxa::fromBinder(binder);
}

}  // namespace

std::string serviceInstance() {
    return std::string(IVoxa::descriptor) + "/default";
}

std::string loadService(const std::string& library, std::shared_ptr<IVoxa>* service) {
    *service = registeredService();
    if (*service != nullptr) return "";

    // Never closed: see the header.
    void* handle = dlopen(library.c_str(), RTLD_NOW | RTLD_LOCAL);
    if (handle == nullptr) {
        const char* reason = dlerror();
        return "cannot load the service library: " + std::string(reason ? reason : library);
    }
    using RegisterService = int (*)();
    auto registerService = reinterpret_cast<RegisterService>(dlsym(handle, "registerService"));
    if (registerService == nullptr) {
        return library + " has no registerService";
    }
    int status = registerService();
    if (status != 0) {
        return "registerService failed with status " + std::to_string(status);
    }
    *service = registeredService();
    if (*service == nullptr) {
        return "no " + serviceInstance() + " in the service manager after registerService";
    }
    return "";
}

}  // namespace voxa_tool
