#include <android/binder_auto_utils.h>
#include <android/binder_manager.h>
#include <binder_host/test_controls.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace {

using binder_host::deathLinkCount;
using binder_host::killProcessOf;
using ndk::ScopedAIBinder_DeathRecipient;
using ndk::ScopedAStatus;
using ndk::SpAIBinder;
using testing::ElementsAre;

// The user data of a test binder: counts how often the class's onDestroy released it.
struct Object {
    std::atomic<int> destroyed{0};
};

SpAIBinder newBinder(Object* object) {
    static AIBinder_Class* const clazz = AIBinder_Class_define(
            "test.IObject", [](void* args) { return args; },
            [](void* userData) { static_cast<Object*>(userData)->destroyed++; },
            [](AIBinder*, transaction_code_t, const AParcel*, AParcel*) {
                return static_cast<binder_status_t>(STATUS_UNKNOWN_TRANSACTION);
            });
    return SpAIBinder(AIBinder_new(clazz, object));
}

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

    Object mFirst, mSecond;  // outlive the entries that TearDown drops
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

std::thread::id gTestThread;  // written before any recipient can run
std::mutex gCookiesLock;
std::vector<void*> gCookies;  // guarded by gCookiesLock; every notice's cookie in order of arrival

// Death notices come on a thread of the binder library, never on the one that noticed the death.
void recordDeath(void* cookie) {
    EXPECT_NE(std::this_thread::get_id(), gTestThread);
    std::lock_guard<std::mutex> lock(gCookiesLock);
    gCookies.push_back(cookie);
}

std::vector<void*> noticedCookies() {
    std::lock_guard<std::mutex> lock(gCookiesLock);
    return gCookies;
}

// A recipient that tidies up after itself, as a service does when its client dies.
struct Watch {
    AIBinder* binder;
    AIBinder_DeathRecipient* recipient;
};
void endWatch(void* cookie) {
    auto* watch = static_cast<Watch*>(cookie);
    EXPECT_EQ(AIBinder_unlinkToDeath(watch->binder, watch->recipient, cookie), STATUS_DEAD_OBJECT);
    AIBinder_DeathRecipient_delete(watch->recipient);
    recordDeath(cookie);
}

class DeathTest : public testing::Test {
  protected:
    void SetUp() override {
        gTestThread = std::this_thread::get_id();
        std::lock_guard<std::mutex> lock(gCookiesLock);
        gCookies.clear();
    }
    void TearDown() override { binder_host::clearServices(); }

    SpAIBinder newBinder() { return ::newBinder(&mObject); }

    Object mObject;
    int mCookies[4] = {};
};

TEST_F(DeathTest, EachLinkNotifiedOnceAndRecipientsMayCallBack) {
    SpAIBinder binder = newBinder();
    ScopedAIBinder_DeathRecipient first(AIBinder_DeathRecipient_new(recordDeath));
    ScopedAIBinder_DeathRecipient second(AIBinder_DeathRecipient_new(recordDeath));
    Watch watch{binder.get(), AIBinder_DeathRecipient_new(endWatch)};
    ASSERT_EQ(AIBinder_linkToDeath(binder.get(), first.get(), &mCookies[0]), STATUS_OK);
    ASSERT_EQ(AIBinder_linkToDeath(binder.get(), second.get(), &mCookies[1]), STATUS_OK);
    ASSERT_EQ(AIBinder_linkToDeath(binder.get(), watch.recipient, &watch), STATUS_OK);
    ASSERT_EQ(AIBinder_linkToDeath(binder.get(), first.get(), &mCookies[2]), STATUS_OK);
    EXPECT_EQ(deathLinkCount(binder.get()), 4u);

    killProcessOf(binder.get());
    EXPECT_THAT(noticedCookies(), ElementsAre(&mCookies[0], &mCookies[1], &watch, &mCookies[2]));
    EXPECT_FALSE(AIBinder_isAlive(binder.get()));
    EXPECT_EQ(deathLinkCount(binder.get()), 0u);
    EXPECT_EQ(AIBinder_linkToDeath(binder.get(), first.get(), &mCookies[0]), STATUS_DEAD_OBJECT);
    EXPECT_EQ(AIBinder_unlinkToDeath(binder.get(), first.get(), &mCookies[0]), STATUS_DEAD_OBJECT);
    killProcessOf(binder.get());
    EXPECT_EQ(noticedCookies().size(), 4u);
    EXPECT_EQ(mObject.destroyed, 0);  // death touches the process, not the object's references
}

// Each link holds the binder, and so the object, until it is unlinked, deleted or notified.
TEST_F(DeathTest, LinksHoldTheBinderUntilUnlinkedDeletedOrNotified) {
    SpAIBinder binder = newBinder();
    SpAIBinder other = newBinder();
    AIBinder* watched = binder.get();
    ScopedAIBinder_DeathRecipient kept(AIBinder_DeathRecipient_new(recordDeath));
    ScopedAIBinder_DeathRecipient deleted(AIBinder_DeathRecipient_new(recordDeath));
    ASSERT_EQ(AIBinder_linkToDeath(watched, kept.get(), &mCookies[0]), STATUS_OK);
    ASSERT_EQ(AIBinder_linkToDeath(watched, kept.get(), &mCookies[0]), STATUS_OK);
    ASSERT_EQ(AIBinder_linkToDeath(watched, kept.get(), &mCookies[1]), STATUS_OK);
    ASSERT_EQ(AIBinder_linkToDeath(watched, deleted.get(), &mCookies[2]), STATUS_OK);
    ASSERT_EQ(AIBinder_linkToDeath(other.get(), deleted.get(), &mCookies[3]), STATUS_OK);
    binder.set(nullptr);
    other.set(nullptr);

    EXPECT_EQ(AIBinder_unlinkToDeath(watched, kept.get(), &mCookies[0]), STATUS_OK);
    EXPECT_EQ(AIBinder_unlinkToDeath(watched, kept.get(), &mCookies[1]), STATUS_OK);
    EXPECT_EQ(AIBinder_unlinkToDeath(watched, kept.get(), &mCookies[1]), STATUS_NAME_NOT_FOUND);
    EXPECT_EQ(mObject.destroyed, 0);
    deleted.set(nullptr);
    EXPECT_EQ(mObject.destroyed, 1);  // `other`, now unwatched
    EXPECT_EQ(deathLinkCount(watched), 1u);
    AIBinder_incStrong(watched);  // for killProcessOf, whose caller must hold one
    killProcessOf(watched);
    EXPECT_EQ(mObject.destroyed, 1);
    AIBinder_decStrong(watched);
    EXPECT_EQ(mObject.destroyed, 2);
    EXPECT_THAT(noticedCookies(), ElementsAre(&mCookies[0]));
}

}  // namespace
