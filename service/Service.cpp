#define LOG_TAG "Voxa"

#include "Service.h"

#include <android/binder_manager.h>
#include <log/log.h>

#include <exception>
#include <string>

#include "Utils.h"
#include "Voxa.h"

using aidl::vendor::orbo::hardware::voxa::IVoxa;
using aidl::vendor::orbo::hardware::voxa::Voxa;

extern "C" int registerService() {
    ALOGI("Register ASR Service");

    std::shared_ptr<Voxa> voxa;
    try {
        voxa = ndk::SharedRefBase::make<Voxa>();
    } catch (const std::exception& e) {
        ALOGE("Voxa initialization failed: %s", e.what());
        return PAL_STATUS_NOT_SUPPORTED;
    }

    const std::string instance = std::string(IVoxa::descriptor) + "/default";
    binder_status_t status;
    {
        // The service manager's reference keeps the object alive after this returns.
        ndk::SpAIBinder binder = voxa->asBinder();
        status = AServiceManager_addService(binder.get(), instance.c_str());
    }
    if (status != STATUS_OK) {
        ALOGW("Could not register %s, status=%d", instance.c_str(), status);
    }
    return status;
}
