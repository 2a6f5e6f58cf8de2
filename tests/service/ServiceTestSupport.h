// What the service's tests share: event payloads, records, the fake PAL fixture and a fresh
// service.
#ifndef VOXA_TEST_SERVICE_TEST_SUPPORT_H
#define VOXA_TEST_SERVICE_TEST_SUPPORT_H

#include <android/binder_manager.h>
#include <binder_host/test_controls.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pal/fake_pal.h>

#include <atomic>
#include <future>
#include <string>
#include <vector>

#include "Service.h"
#include "Voxa.h"
#include "VoxaSession.h"
#include "support/Bytes.h"
#include "support/LogCapture.h"
#include "support/RecordingCallback.h"

namespace aidl::vendor::orbo::hardware::voxa {

using fake_pal::FakePal;
using fake_pal::Function;
using voxa_test::Bytes;
using voxa_test::CountingGlobalCallback;
using voxa_test::Error;
using voxa_test::Info;
using voxa_test::Lines;
using voxa_test::LogCapture;
using voxa_test::RecordingCallback;

// Event payloads as the engine raises them, written by offset.
inline std::vector<uint8_t> asrPayload(const std::string& text, uint32_t status = 0) {
    return Bytes(8 + 5140).u32(0, status).u32(4, 1).u8(8, 1).text(8 + 12, text).vector();
}
inline std::vector<uint8_t> timestampPayload(const std::string& word) {
    Bytes bytes(8 + 14768);
    bytes.u32(4, 1).text(8 + 12, word).i32(8 + 1056, 1).text(8 + 1064 + 4, word);
    return bytes.vector();
}
inline std::vector<uint8_t> sdzPayload(int32_t speaker) {
    return Bytes(16 + 144).u32(0, 1).u32(8, 1).u32(12, 1).i32(16, speaker).vector();
}

inline VoxaModel testModel() {
    VoxaModel model;
    model.vendorUuid = "12345678-9abc-def0-1234-56789abcdef0";
    model.dataSize = 1024;
    return model;
}

inline VoxaConfig englishConfig() {
    VoxaConfig config;
    config.input_lang_code = "en-US";
    config.output_lang_code = "en-US";
    config.mode = TranscriptionMode::PARTIAL_CONTINUOUS;
    return config;
}

// A clean fake PAL and log for every test.
class FakePalTest : public ::testing::Test {
  protected:
    FakePalTest() { pal().reset(); }
    ~FakePalTest() override { pal().reset(); }

    static FakePal& pal() { return FakePal::instance(); }

    // The open stream opened last.
    static pal_stream_handle* lastStream() { return pal().openStreams().back(); }

    LogCapture mLog;
    // For sessions made without the service.
    PalWorker mWorker;
};

// The fake PAL waits, in its stop, close and set_param, for every callback it runs, and fails the
// test when such a call would wait for itself; for the scope.
class StrictPal {
  public:
    StrictPal() { FakePal::instance().setStrict(true); }
    ~StrictPal() { FakePal::instance().setStrict(false); }
};

// Holds the next call of a PAL function inside it, so that the session's lock stays taken by the
// thread that called it (a binder thread, or the service's worker), until release(). Later calls
// pass.
class PalCallGate {
  public:
    explicit PalCallGate(Function function) : mFunction(function) {
        FakePal::instance().setHook(function, [this](const fake_pal::Call&) {
            if (mHeld.exchange(true)) return;
            mEntered.set_value();
            mRelease.wait();
        });
    }
    ~PalCallGate() { FakePal::instance().setHook(mFunction, nullptr); }

    void waitUntilEntered() { mEntered.get_future().wait(); }
    void release() { mReleaseSignal.set_value(); }

  private:
    Function mFunction;
    std::atomic<bool> mHeld{false};
    std::promise<void> mEntered, mReleaseSignal;
    std::shared_future<void> mRelease = mReleaseSignal.get_future().share();
};

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

#endif  // VOXA_TEST_SERVICE_TEST_SUPPORT_H
