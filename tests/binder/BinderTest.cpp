#include <android/binder_auto_utils.h>
#include <android/binder_manager.h>
#include <binder_host/test_controls.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "TestBinder.h"

namespace {

using binder_test::newBinder;
using ndk::ScopedAStatus;
using ndk::SpAIBinder;

// Each kind of failure the service and the voxa program meet, and what its accessors report.
TEST(StatusTest, AccessorsReportWhatTheStatusWasMadeFrom) {
    struct Case {
        ScopedAStatus status;
        binder_exception_t exception;
        binder_status_t code;
        int32_t error;
        const char* message;
        const char* description;
    };
    Case cases[] = {
            {ScopedAStatus::fromStatus(STATUS_DEAD_OBJECT), EX_TRANSACTION_FAILED,
             STATUS_DEAD_OBJECT, 0, "",
             "EX_TRANSACTION_FAILED (-129), status STATUS_DEAD_OBJECT (-32)"},
            {ScopedAStatus::fromExceptionCodeWithMessage(EX_SECURITY, "denied"), EX_SECURITY,
             STATUS_OK, 0, "denied", "EX_SECURITY (-1): denied"},
            {ScopedAStatus::fromServiceSpecificErrorWithMessage(-4, "FAILURE"), EX_SERVICE_SPECIFIC,
             STATUS_OK, -4, "FAILURE", "EX_SERVICE_SPECIFIC (-8), error -4: FAILURE"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.description);
        EXPECT_FALSE(c.status.isOk());
        EXPECT_EQ(c.status.getExceptionCode(), c.exception);
        EXPECT_EQ(c.status.getStatus(), c.code);
        EXPECT_EQ(c.status.getServiceSpecificError(), c.error);
        EXPECT_STREQ(c.status.getMessage(), c.message);
        EXPECT_EQ(c.status.getDescription(), c.description);
    }
    EXPECT_EQ(ScopedAStatus::fromStatus(STATUS_OK).getDescription(), "ok");
}

class ServiceManagerTest : public testing::Test {
  protected:
    void TearDown() override { binder_host::clearServices(); }

    binder_test::Object mFirst, mSecond;  // outlive the entries that TearDown drops
};

TEST_F(ServiceManagerTest, RegisteredObjectLivesUntilReplacedOrCleared) {
    ASSERT_EQ(AServiceManager_addService(newBinder(&mFirst).get(), "test.IObject/a"), STATUS_OK);
    ASSERT_EQ(AServiceManager_addService(newBinder(&mSecond).get(), "test.IObject/b"), STATUS_OK);
    EXPECT_EQ(mFirst.destroyed, 0);
    SpAIBinder found(AServiceManager_checkService("test.IObject/a"));
    EXPECT_EQ(AIBinder_getUserData(found.get()), &mFirst);
    EXPECT_EQ(SpAIBinder(AServiceManager_getService("test.IObject/a")), found);
    EXPECT_EQ(SpAIBinder(AServiceManager_waitForService("test.IObject/a")), found);
    EXPECT_EQ(AServiceManager_checkService("test.IObject/c"), nullptr);

    ASSERT_EQ(AServiceManager_addService(found.get(), "test.IObject/b"), STATUS_OK);
    EXPECT_EQ(mSecond.destroyed, 1);
    found.set(nullptr);
    binder_host::clearServices();
    EXPECT_EQ(mFirst.destroyed, 1);
    EXPECT_EQ(AServiceManager_checkService("test.IObject/a"), nullptr);
}

// An interface's declared instances are the names registered under its descriptor and a slash,
// not under a descriptor that merely starts with it; the callback may use the service manager.
TEST_F(ServiceManagerTest, DeclaredInstancesAreThoseRegisteredUnderTheDescriptor) {
    SpAIBinder binder = newBinder(&mFirst);
    for (const char* name : {"test.IObject/b", "test.IObject/a", "test.IObjectCallback/c",
                             "test.IObjec/d", "test.IObject"}) {
        ASSERT_EQ(AServiceManager_addService(binder.get(), name), STATUS_OK);
    }
    std::vector<std::string> found;
    AServiceManager_forEachDeclaredInstance("test.IObject", &found, [](const char* name, void* to) {
        SpAIBinder again(
                AServiceManager_checkService(("test.IObject/" + std::string(name)).c_str()));
        if (again.get() != nullptr) static_cast<std::vector<std::string>*>(to)->push_back(name);
    });
    EXPECT_THAT(found, testing::ElementsAre("a", "b"));
    EXPECT_TRUE(AServiceManager_isDeclared("test.IObject/a"));
    EXPECT_FALSE(AServiceManager_isDeclared("test.IObject/e"));
    EXPECT_FALSE(AServiceManager_isDeclared(nullptr));
    binder_host::clearServices();
    EXPECT_FALSE(AServiceManager_isDeclared("test.IObject/a"));
}

}  // namespace
