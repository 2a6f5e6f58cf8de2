#include <android/binder_manager.h>
#include <binder_host/test_controls.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "TestBinder.h"

namespace {

using binder_host::deathLinkCount;
using binder_host::killProcessOf;
using ndk::ScopedAIBinder_DeathRecipient;
using ndk::SpAIBinder;
using testing::Each;
using testing::ElementsAre;
using testing::Ne;

// Every death notification's cookie in order of arrival, and the threads that delivered them.
std::mutex gNoticesLock;
std::vector<void*> gCookies;            // guarded by gNoticesLock
std::vector<std::thread::id> gThreads;  // guarded by gNoticesLock

void recordDeath(void* cookie) {
    std::lock_guard<std::mutex> lock(gNoticesLock);
    gCookies.push_back(cookie);
    gThreads.push_back(std::this_thread::get_id());
}

std::vector<void*> noticedCookies() {
    std::lock_guard<std::mutex> lock(gNoticesLock);
    return gCookies;
}

class DeathTest : public testing::Test {
  protected:
    void SetUp() override {
        std::lock_guard<std::mutex> lock(gNoticesLock);
        gCookies.clear();
        gThreads.clear();
    }
    void TearDown() override { binder_host::clearServices(); }

    SpAIBinder newBinder() { return binder_test::newBinder(&mObject); }

    binder_test::Object mObject;
    int mCookies[4] = {};
};

TEST_F(DeathTest, EachLinkNotifiedOnceOnAnotherThread) {
    SpAIBinder binder = newBinder();
    ScopedAIBinder_DeathRecipient first(AIBinder_DeathRecipient_new(recordDeath));
    ScopedAIBinder_DeathRecipient second(AIBinder_DeathRecipient_new(recordDeath));
    ASSERT_EQ(AIBinder_linkToDeath(binder.get(), first.get(), &mCookies[0]), STATUS_OK);
    ASSERT_EQ(AIBinder_linkToDeath(binder.get(), second.get(), &mCookies[1]), STATUS_OK);
    ASSERT_EQ(AIBinder_linkToDeath(binder.get(), first.get(), &mCookies[2]), STATUS_OK);
    EXPECT_EQ(deathLinkCount(binder.get()), 3u);

    killProcessOf(binder.get());
    EXPECT_THAT(noticedCookies(), ElementsAre(&mCookies[0], &mCookies[1], &mCookies[2]));
    {
        std::lock_guard<std::mutex> lock(gNoticesLock);
        EXPECT_THAT(gThreads, Each(Ne(std::this_thread::get_id())));
    }

    EXPECT_FALSE(AIBinder_isAlive(binder.get()));
    EXPECT_EQ(deathLinkCount(binder.get()), 0u);
    EXPECT_EQ(AIBinder_linkToDeath(binder.get(), first.get(), &mCookies[0]), STATUS_DEAD_OBJECT);
    EXPECT_EQ(AIBinder_unlinkToDeath(binder.get(), first.get(), &mCookies[0]), STATUS_DEAD_OBJECT);
    killProcessOf(binder.get());
    EXPECT_EQ(noticedCookies().size(), 3u);
    EXPECT_EQ(mObject.destroyed, 0);  // death touches the process, not the object's references
}

TEST_F(DeathTest, UnlinkAndDeletionAreHonoured) {
    SpAIBinder binder = newBinder();
    SpAIBinder other = newBinder();
    ScopedAIBinder_DeathRecipient kept(AIBinder_DeathRecipient_new(recordDeath));
    AIBinder_DeathRecipient* deleted = AIBinder_DeathRecipient_new(recordDeath);
    ASSERT_EQ(AIBinder_linkToDeath(binder.get(), kept.get(), &mCookies[0]), STATUS_OK);
    ASSERT_EQ(AIBinder_linkToDeath(binder.get(), kept.get(), &mCookies[0]), STATUS_OK);
    ASSERT_EQ(AIBinder_linkToDeath(binder.get(), kept.get(), &mCookies[1]), STATUS_OK);
    ASSERT_EQ(AIBinder_linkToDeath(binder.get(), deleted, &mCookies[2]), STATUS_OK);
    ASSERT_EQ(AIBinder_linkToDeath(other.get(), deleted, &mCookies[3]), STATUS_OK);

    EXPECT_EQ(AIBinder_unlinkToDeath(binder.get(), kept.get(), &mCookies[0]), STATUS_OK);
    EXPECT_EQ(AIBinder_unlinkToDeath(binder.get(), kept.get(), &mCookies[1]), STATUS_OK);
    EXPECT_EQ(AIBinder_unlinkToDeath(binder.get(), kept.get(), &mCookies[1]),
              STATUS_NAME_NOT_FOUND);
    AIBinder_DeathRecipient_delete(deleted);
    EXPECT_EQ(deathLinkCount(binder.get()), 1u);
    EXPECT_EQ(deathLinkCount(other.get()), 0u);
    killProcessOf(binder.get());
    killProcessOf(other.get());
    EXPECT_THAT(noticedCookies(), ElementsAre(&mCookies[0]));
}

// Each link holds the binder, and so the object, until it is unlinked, notified or deleted.
TEST_F(DeathTest, LinkHoldsBinderUntilReleased) {
    ScopedAIBinder_DeathRecipient recipient(AIBinder_DeathRecipient_new(recordDeath));
    for (int release = 0; release < 3; ++release) {
        SpAIBinder binder = newBinder();
        AIBinder* watched = binder.get();
        ASSERT_EQ(AIBinder_linkToDeath(watched, recipient.get(), &mCookies[0]), STATUS_OK);
        ASSERT_EQ(AIBinder_linkToDeath(watched, recipient.get(), &mCookies[1]), STATUS_OK);
        ASSERT_EQ(AIBinder_unlinkToDeath(watched, recipient.get(), &mCookies[1]), STATUS_OK);
        binder.set(nullptr);
        EXPECT_EQ(mObject.destroyed, release);
        EXPECT_EQ(deathLinkCount(watched), 1u);
        if (release == 0) AIBinder_unlinkToDeath(watched, recipient.get(), &mCookies[0]);
        if (release == 1) recipient.set(AIBinder_DeathRecipient_new(recordDeath));
        if (release == 2) {
            AIBinder_incStrong(watched);  // for killProcessOf, whose caller must hold one
            killProcessOf(watched);
            AIBinder_decStrong(watched);
        }
        EXPECT_EQ(mObject.destroyed, release + 1);
    }
    EXPECT_THAT(noticedCookies(), ElementsAre(&mCookies[0]));
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

TEST_F(DeathTest, RecipientMayCallBackIntoBinder) {
    SpAIBinder binder = newBinder();
    Watch watch{binder.get(), AIBinder_DeathRecipient_new(endWatch)};
    ASSERT_EQ(AIBinder_linkToDeath(binder.get(), watch.recipient, &watch), STATUS_OK);
    killProcessOf(binder.get());
    EXPECT_THAT(noticedCookies(), ElementsAre(&watch));
}

TEST_F(DeathTest, InjectedFailures) {
    SpAIBinder binder = newBinder();
    binder_host::failNextDeathRecipientNew();
    EXPECT_EQ(AIBinder_DeathRecipient_new(recordDeath), nullptr);
    ScopedAIBinder_DeathRecipient recipient(AIBinder_DeathRecipient_new(recordDeath));
    ASSERT_NE(recipient.get(), nullptr);

    binder_host::failNextLinkToDeath(STATUS_NO_MEMORY);
    EXPECT_EQ(AIBinder_linkToDeath(binder.get(), recipient.get(), &mCookies[0]), STATUS_NO_MEMORY);
    EXPECT_EQ(deathLinkCount(binder.get()), 0u);
    EXPECT_EQ(AIBinder_linkToDeath(binder.get(), recipient.get(), &mCookies[0]), STATUS_OK);

    binder_host::failNextDeathRecipientNew();
    binder_host::failNextLinkToDeath(STATUS_NO_MEMORY);
    binder_host::clearServices();  // forgets both
    ScopedAIBinder_DeathRecipient another(AIBinder_DeathRecipient_new(recordDeath));
    EXPECT_NE(another.get(), nullptr);
    EXPECT_EQ(AIBinder_linkToDeath(binder.get(), another.get(), &mCookies[1]), STATUS_OK);
}

TEST_F(DeathTest, WaitForServiceBlocksUntilAdded) {
    std::atomic<bool> added{false};
    std::thread waiter([&] {
        SpAIBinder found(AServiceManager_waitForService("test.IObject/late"));
        EXPECT_TRUE(added);
        EXPECT_NE(found.get(), nullptr);
    });
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    added = true;
    ASSERT_EQ(AServiceManager_addService(newBinder().get(), "test.IObject/late"), STATUS_OK);
    waiter.join();
}

TEST_F(DeathTest, ConcurrentReferencesDestroyOnce) {
    SpAIBinder binder = newBinder();
    ndk::ScopedAIBinder_Weak weak(AIBinder_Weak_new(binder.get()));
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&, t] {
            std::string name = "test.IObject/" + std::to_string(t % 2);
            for (int i = 0; i < 500; ++i) {
                SpAIBinder copy = binder;
                EXPECT_EQ(weak.promote(), copy);
                EXPECT_EQ(AServiceManager_addService(copy.get(), name.c_str()), STATUS_OK);
                EXPECT_EQ(SpAIBinder(AServiceManager_checkService(name.c_str())), copy);
            }
        });
    }
    for (std::thread& thread : threads) thread.join();
    binder.set(nullptr);
    EXPECT_EQ(mObject.destroyed, 0);  // still registered
    binder_host::clearServices();
    EXPECT_EQ(mObject.destroyed, 1);
    EXPECT_EQ(weak.promote().get(), nullptr);
}

// Each link made concurrently with the death is either notified once or refused.
TEST_F(DeathTest, LinksRacingDeathAreNotifiedOrRefused) {
    SpAIBinder binder = newBinder();
    ScopedAIBinder_DeathRecipient recipient(AIBinder_DeathRecipient_new(recordDeath));
    static char cookies[4][200];
    std::atomic<size_t> linked{0};
    std::vector<std::thread> threads;
    for (auto& threadCookies : cookies) {
        threads.emplace_back([&] {
            for (char& cookie : threadCookies) {
                binder_status_t status =
                        AIBinder_linkToDeath(binder.get(), recipient.get(), &cookie);
                EXPECT_TRUE(status == STATUS_OK || status == STATUS_DEAD_OBJECT) << status;
                if (status == STATUS_OK) linked++;
            }
        });
    }
    while (linked < 100) std::this_thread::yield();
    killProcessOf(binder.get());
    for (std::thread& thread : threads) thread.join();

    std::vector<void*> noticed = noticedCookies();
    std::sort(noticed.begin(), noticed.end());
    EXPECT_EQ(std::unique(noticed.begin(), noticed.end()), noticed.end());
    EXPECT_EQ(noticed.size(), linked.load());
}

}  // namespace
