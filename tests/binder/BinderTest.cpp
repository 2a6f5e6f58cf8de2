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

// A failed transaction, as the service meets one when its client cannot be watched, and as the
// voxa program names it (by its description). Service-specific errors reach the client exactly
// (VtsHalVoxaTargetTest, device_scenario_test); nothing here makes other exceptions.
TEST(StatusTest, AFailedTransactionReportsItsStatus) {
    ScopedAStatus status = ScopedAStatus::fromStatus(STATUS_DEAD_OBJECT);
    EXPECT_FALSE(status.isOk());
    EXPECT_EQ(status.getExceptionCode(), EX_TRANSACTION_FAILED);
    EXPECT_EQ(status.getStatus(), STATUS_DEAD_OBJECT);
    EXPECT_EQ(status.getServiceSpecificError(), 0);
    EXPECT_EQ(status.getDescription(),
              "EX_TRANSACTION_FAILED (-129), status STATUS_DEAD_OBJECT (-32)");
    EXPECT_EQ(ScopedAStatus::fromStatus(STATUS_OK).getDescription(), "ok");
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

class BinderTest : public testing::Test {
  protected:
    void SetUp() override {
        gTestThread = std::this_thread::get_id();
        std::lock_guard<std::mutex> lock(gCookiesLock);
        gCookies.clear();
    }
    void TearDown() override { binder_host::clearServices(); }

    Object mFirst, mSecond;  // outlive the entries that TearDown drops
    int mCookies[4] = {};
};

// A registered object lives until it is replaced or the services are cleared. An interface's
// declared instances are the names registered under its descriptor and a slash, in name order, not
// under a descriptor that merely starts with it; the callback may use the service manager.
TEST_F(BinderTest, RegisteredObjectsAreListedAndLiveUntilReplacedOrCleared) {
    ASSERT_EQ(AServiceManager_addService(newBinder(&mSecond).get(), "test.IObject/b"), STATUS_OK);
    ASSERT_EQ(AServiceManager_addService(newBinder(&mFirst).get(), "test.IObject/a"), STATUS_OK);
    EXPECT_EQ(mFirst.destroyed, 0);
    SpAIBinder found(AServiceManager_checkService("test.IObject/a"));
    EXPECT_EQ(AIBinder_getUserData(found.get()), &mFirst);
    EXPECT_EQ(SpAIBinder(AServiceManager_waitForService("test.IObject/a")), found);
    EXPECT_EQ(AServiceManager_checkService("test.IObject/c"), nullptr);
    for (const char* name : {"test.IObjectCallback/c", "test.IObjec/d", "test.IObject"}) {
        ASSERT_EQ(AServiceManager_addService(found.get(), name), STATUS_OK);
    }
    std::vector<std::string> listed;
    AServiceManager_forEachDeclaredInstance(
            "test.IObject", &listed, [](const char* name, void* to) {
                SpAIBinder again(AServiceManager_checkService(
                        ("test.IObject/" + std::string(name)).c_str()));
                if (again.get() != nullptr)
                    static_cast<std::vector<std::string>*>(to)->push_back(name);
            });
    EXPECT_THAT(listed, testing::ElementsAre("a", "b"));

    ASSERT_EQ(AServiceManager_addService(found.get(), "test.IObject/b"), STATUS_OK);
    EXPECT_EQ(mSecond.destroyed, 1);
    found.set(nullptr);
    binder_host::clearServices();
    EXPECT_EQ(mFirst.destroyed, 1);
    EXPECT_EQ(AServiceManager_checkService("test.IObject/a"), nullptr);
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

TEST_F(BinderTest, EachLinkNotifiedOnceAndRecipientsMayCallBack) {
    SpAIBinder binder = newBinder(&mFirst);
    ScopedAIBinder_DeathRecipient first(AIBinder_DeathRecipient_new(recordDeath));
    ScopedAIBinder_DeathRecipient second(AIBinder_DeathRecipient_new(recordDeath));
    Watch watch{binder.get(), AIBinder_DeathRecipient_new(endWatch)};
    ASSERT_EQ(AIBinder_linkToDeath(binder.get(), first.get(), &mCookies[0]), STATUS_OK);
    ASSERT_EQ(AIBinder_linkToDeath(binder.get(), second.get(), &mCookies[1]), STATUS_OK);
    ASSERT_EQ(AIBinder_linkToDeath(binder.get(), watch.recipient, &watch), STATUS_OK);
    ASSERT_EQ(AIBinder_linkToDeath(binder.get(), first.get(), &mCookies[2]), STATUS_OK);
    EXPECT_EQ(deathLinkCount(binder.get()), 4u);

    killProcessOf(binder.get());
    EXPECT_THAT(noticedCookies(),
                testing::ElementsAre(&mCookies[0], &mCookies[1], &watch, &mCookies[2]));
    EXPECT_FALSE(AIBinder_isAlive(binder.get()));
    EXPECT_EQ(deathLinkCount(binder.get()), 0u);
    EXPECT_EQ(AIBinder_linkToDeath(binder.get(), first.get(), &mCookies[0]), STATUS_DEAD_OBJECT);
    EXPECT_EQ(AIBinder_unlinkToDeath(binder.get(), first.get(), &mCookies[0]), STATUS_DEAD_OBJECT);
    killProcessOf(binder.get());
    EXPECT_EQ(noticedCookies().size(), 4u);
    EXPECT_EQ(mFirst.destroyed, 0);  // death touches the process, not the object's references
}

// Each link holds the binder, and so the object, until it is unlinked, deleted or notified.
TEST_F(BinderTest, LinksHoldTheBinderUntilUnlinkedDeletedOrNotified) {
    SpAIBinder binder = newBinder(&mFirst);
    SpAIBinder other = newBinder(&mFirst);
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
    EXPECT_EQ(mFirst.destroyed, 0);
    deleted.set(nullptr);
    EXPECT_EQ(mFirst.destroyed, 1);  // `other`, now unwatched
    EXPECT_EQ(deathLinkCount(watched), 1u);
    AIBinder_incStrong(watched);  // for killProcessOf, whose caller must hold one
    killProcessOf(watched);
    EXPECT_EQ(mFirst.destroyed, 1);
    AIBinder_decStrong(watched);
    EXPECT_EQ(mFirst.destroyed, 2);
    EXPECT_THAT(noticedCookies(), testing::ElementsAre(&mCookies[0]));
}

}  // namespace
