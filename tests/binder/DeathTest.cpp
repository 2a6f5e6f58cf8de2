#include <android/binder_manager.h>
#include <binder_host/test_controls.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
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
using testing::ElementsAre;

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

    SpAIBinder newBinder() { return binder_test::newBinder(&mObject); }

    binder_test::Object mObject;
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
