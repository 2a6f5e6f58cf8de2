#pragma once

#include <android/binder_manager.h>
#include <binder_host/test_controls.h>

#include "Service.h"
#include "SessionTestSupport.h"
#include "Voxa.h"

namespace aidl::vendor::orbo::hardware::voxa {

using voxa_test::CountingGlobalCallback;

inline constexpr char kInstance[] = "vendor.orbo.hardware.voxa.IVoxa/default";

// A fresh service, registered as the host process registers it and obtained as a client would.
class ServiceTest : public FakePalTest {
  protected:
    ServiceTest() {
        binder_host::clearServices();
        EXPECT_EQ(0, registerService());
        mVoxa = IVoxa::fromBinder(ndk::SpAIBinder(AServiceManager_checkService(kInstance)));
        EXPECT_NE(nullptr, mVoxa);
        mLog.clear();
    }
    ~ServiceTest() override {
        mVoxa.reset();
        binder_host::clearServices();
    }

    // The service object behind the interface, for what only the PAL and binder see of it.
    Voxa& service() const { return *static_cast<Voxa*>(mVoxa.get()); }
    unsigned long serviceAddress() const { return reinterpret_cast<unsigned long>(&service()); }

    int32_t openSession(const std::shared_ptr<RecordingCallback>& client) {
        int32_t handle = -100;
        EXPECT_TRUE(mVoxa->initSession(testModel(), client, &handle).isOk());
        return handle;
    }

    std::shared_ptr<IVoxa> mVoxa;
};

// The service-specific error a status carries, 0 for OK.
inline int32_t serviceError(const ndk::ScopedAStatus& status) {
    if (status.isOk()) return 0;
    EXPECT_EQ(EX_SERVICE_SPECIFIC, status.getExceptionCode());
    return status.getServiceSpecificError();
}

}  // namespace aidl::vendor::orbo::hardware::voxa
