// Checks every registered instance of IVoxa through the interface alone, as a vendor test suite
// checks a HAL on a device. Only VtsEnvironment.h knows the platform.

#include <aidl/vendor/orbo/hardware/voxa/IVoxa.h>
#include <aidl/vendor/orbo/hardware/voxa/ServiceError.h>
#include <android/binder_manager.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <chrono>
#include <future>
#include <memory>
#include <string>
#include <tuple>
#include <vector>

#include "VtsEnvironment.h"
#include "support/RecordingCallback.h"

#ifdef __ANDROID__
#include <aidl/Vintf.h>
#endif

namespace aidl::vendor::orbo::hardware::voxa {
namespace {

using voxa_test::CountingGlobalCallback;
using voxa_test::RecordingCallback;

constexpr int32_t kOk = 0;
constexpr auto kInvalid = static_cast<int32_t>(ServiceError::INVALID);
constexpr auto kContention = static_cast<int32_t>(ServiceError::RESOURCE_CONTENTION);

// 0 for OK, otherwise the service-specific error, which every failure must be.
int32_t error(const ndk::ScopedAStatus& status) {
    if (status.isOk()) return kOk;
    EXPECT_EQ(EX_SERVICE_SPECIFIC, status.getExceptionCode()) << status.getDescription();
    return status.getServiceSpecificError();
}

VoxaConfig config(const std::string& input = "en-US", const std::string& output = "en-US") {
    VoxaConfig config;
    config.input_lang_code = input;
    config.output_lang_code = output;
    config.mode = TranscriptionMode::PARTIAL_CONTINUOUS;
    return config;
}

VoxaParameter parameter(ParameterType type, size_t size) {
    VoxaParameter parameter;
    parameter.param = type;
    parameter.data.assign(size, 0x5a);
    return parameter;
}

std::vector<std::string> instanceNames() {
    voxa_vts::startInstances();
#ifdef __ANDROID__
    return android::getAidlHalInstanceNames(IVoxa::descriptor);
#else
    std::vector<std::string> names;
    AServiceManager_forEachDeclaredInstance(
            IVoxa::descriptor, &names, [](const char* name, void* to) {
                static_cast<std::vector<std::string>*>(to)->push_back(
                        std::string(IVoxa::descriptor) + "/" + name);
            });
    return names;
#endif
}

// Each test is one client: it registers its global callback and releases what it opened.
class VoxaVts : public testing::TestWithParam<std::string> {
  protected:
    void SetUp() override {
        mVoxa = IVoxa::fromBinder(
                ndk::SpAIBinder(AServiceManager_waitForService(GetParam().c_str())));
        ASSERT_NE(nullptr, mVoxa);
        ASSERT_EQ(kOk, error(mVoxa->registerGlobalCallback(
                               ndk::SharedRefBase::make<CountingGlobalCallback>())));
    }
    void TearDown() override {
        for (int32_t handle : mHandles) mVoxa->releaseSession(handle);
    }

    int32_t open(const std::shared_ptr<RecordingCallback>& client) {
        VoxaModel model;  // the recogniser's engine
        model.vendorUuid = "6f1d2c3b-8a47-4e95-b0c2-5d7e9a31f648";
        int32_t handle = 0;
        EXPECT_EQ(kOk, error(mVoxa->initSession(model, client, &handle)));
        mHandles.push_back(handle);
        return handle;
    }
    static std::shared_ptr<RecordingCallback> client() {
        return ndk::SharedRefBase::make<RecordingCallback>();
    }

    std::shared_ptr<IVoxa> mVoxa;
    std::vector<int32_t> mHandles;
};

// Handles count up and are never reused; stop and release may be repeated; a released or
// never-issued handle is refused by every call that takes one.
TEST_P(VoxaVts, SessionLifecycle) {
    int32_t first = open(client()), second = open(client()), third = open(client());
    EXPECT_LT(first, second);
    EXPECT_LT(second, third);
    int32_t idle = error(mVoxa->stopListening(second));
    ASSERT_EQ(kOk, error(mVoxa->startListening(second, config())));
    EXPECT_EQ(kOk, error(mVoxa->stopListening(second)));
    for (int32_t code : {idle, error(mVoxa->stopListening(second))}) {
        EXPECT_TRUE(code <= kOk && code >= static_cast<int32_t>(ServiceError::FAILURE)) << code;
    }
    ASSERT_EQ(kOk, error(mVoxa->releaseSession(second)));
    EXPECT_LT(third, open(client()));
    for (int32_t handle : {second, -1}) {
        SCOPED_TRACE(handle);
        EXPECT_EQ(kInvalid, error(mVoxa->startListening(handle, config())));
        EXPECT_EQ(kInvalid,
                  error(mVoxa->setParameter(handle, parameter(ParameterType::CUSTOM_EXTRAS, 1))));
        EXPECT_EQ(kInvalid, error(mVoxa->stopListening(handle)));
        EXPECT_EQ(kInvalid, error(mVoxa->releaseSession(handle)));
    }
}

// A refused configuration or parameter leaves the session as it was: idle, or listening.
TEST_P(VoxaVts, InvalidConfigurationsAndParametersAreRefused) {
    auto events = client();
    int32_t handle = open(events);
    EXPECT_EQ(kInvalid, error(mVoxa->startListening(handle, config("xx-XX"))));
    ASSERT_EQ(kOk, error(mVoxa->startListening(handle, config())));
    EXPECT_EQ(kInvalid, error(mVoxa->startListening(handle, config("en-US", "en-us"))));
    for (auto [type, size, expected] : {std::tuple(ParameterType::INVALID, 1, kInvalid),
                                        {ParameterType(7), 1, kInvalid},
                                        {ParameterType::CUSTOM_EXTRAS, 21, kInvalid},
                                        {ParameterType::CUSTOM_EXTRAS, 20, kOk},
                                        {ParameterType::FORCE_OUTPUT_EVENT, 0, kOk}}) {
        EXPECT_EQ(expected, error(mVoxa->setParameter(handle, parameter(type, size)))) << size;
    }
    EXPECT_TRUE(events->waitForDeliveries(events->deliveries().size() + 1));
}

// While one session listens another may be refused for contention; once the first has stopped the
// second starts, and when it has had a result any late result of the first has had its turn.
TEST_P(VoxaVts, EventsArriveOnlyBetweenStartAndStop) {
    auto first = client(), second = client();
    int32_t firstHandle = open(first), secondHandle = open(second);
    ASSERT_EQ(kOk, error(mVoxa->startListening(firstHandle, config())));
    ASSERT_TRUE(first->waitForDeliveries(1));
    int32_t started = error(mVoxa->startListening(secondHandle, config()));
    EXPECT_TRUE(started == kOk || started == kContention) << started;
    ASSERT_EQ(kOk, error(mVoxa->stopListening(firstHandle)));
    size_t atStop = first->deliveries().size();
    if (started != kOk) {
        EXPECT_TRUE(second->deliveries().empty());
        ASSERT_EQ(kOk, error(mVoxa->startListening(secondHandle, config())));
    }
    ASSERT_TRUE(second->waitForDeliveries(1));
    EXPECT_EQ(atStop, first->deliveries().size());
    for (const auto& delivery : first->deliveries()) EXPECT_EQ(firstHandle, delivery.handle);
    for (const auto& delivery : second->deliveries()) EXPECT_EQ(secondHandle, delivery.handle);
}

TEST_P(VoxaVts, SupportedLanguagesAreAppended) {
    std::vector<std::string> languages;
    ASSERT_EQ(kOk, error(mVoxa->getSupportedLanguages(-1, &languages)));
    ASSERT_EQ(100u, languages.size());
    EXPECT_EQ("english : en-US", languages[0]);
    for (const std::string& row : languages) EXPECT_NE(std::string::npos, row.find(" : ")) << row;
    ASSERT_EQ(kOk, error(mVoxa->getSupportedLanguages(open(client()), &languages)));
    ASSERT_EQ(200u, languages.size());
    EXPECT_TRUE(std::equal(languages.begin(), languages.begin() + 100, languages.begin() + 100));
}

// The call made from inside the callback ends the session: no later result, and the engine is
// free for another session.
TEST_P(VoxaVts, ClientEndsItsSessionFromItsCallback) {
    for (bool release : {false, true}) {
        SCOPED_TRACE(release ? "releaseSession" : "stopListening");
        auto ending = client();
        int32_t handle = open(ending);
        auto ended = std::make_shared<std::promise<int32_t>>();
        auto once = std::make_shared<std::atomic<bool>>(false);
        ending->onCall([=, voxa = mVoxa.get()] {
            if (once->exchange(true)) return;
            ended->set_value(
                    error(release ? voxa->releaseSession(handle) : voxa->stopListening(handle)));
        });
        std::future<int32_t> endedStatus = ended->get_future();
        ASSERT_EQ(kOk, error(mVoxa->startListening(handle, config())));
        ASSERT_EQ(std::future_status::ready, endedStatus.wait_for(std::chrono::seconds(10)));
        EXPECT_EQ(kOk, endedStatus.get());
        auto next = client();
        int32_t nextHandle = open(next);
        ASSERT_EQ(kOk, error(mVoxa->startListening(nextHandle, config())));
        ASSERT_TRUE(next->waitForDeliveries(1));
        EXPECT_EQ(1u, ending->deliveries().size());
        EXPECT_EQ(release ? kInvalid : kOk, error(mVoxa->releaseSession(handle)));
        EXPECT_EQ(kOk, error(mVoxa->releaseSession(nextHandle)));
    }
}

#ifdef __ANDROID__
GTEST_ALLOW_UNINSTANTIATED_PARAMETERIZED_TEST(VoxaVts);
#endif
INSTANTIATE_TEST_SUITE_P(Instances, VoxaVts, testing::ValuesIn(instanceNames()),
                         [](const testing::TestParamInfo<std::string>& info) {
                             std::string name = info.param;
                             std::replace_if(
                                     name.begin(), name.end(),
                                     [](unsigned char c) { return !std::isalnum(c); }, '_');
                             return name;
                         });

}  // namespace
}  // namespace aidl::vendor::orbo::hardware::voxa
