// The generated interface classes: identity, version and hash, and binders of local objects.

#include <aidl/vendor/orbo/hardware/voxa/IVoxa.h>
#include <gtest/gtest.h>

#include <fstream>
#include <memory>
#include <string>

#include "support/RecordingCallback.h"

namespace aidl::vendor::orbo::hardware::voxa {
namespace {

using voxa_test::CountingGlobalCallback;
using voxa_test::RecordingCallback;

std::string frozenHash() {
    std::ifstream file(VOXA_FROZEN_HASH_FILE);
    std::string hash;
    file >> hash;
    return hash;
}

// Reached through the interface, as a client calls them.
template <typename I>
void expectVersionAndHash(I& object) {
    int32_t version = 0;
    EXPECT_TRUE(object.getInterfaceVersion(&version).isOk());
    EXPECT_EQ(3, version);
    std::string hash;
    EXPECT_TRUE(object.getInterfaceHash(&hash).isOk());
    EXPECT_EQ(frozenHash(), hash);
}

TEST(InterfaceTest, DescriptorsVersionAndFrozenHash) {
    ASSERT_EQ(40u, frozenHash().size());
    EXPECT_STREQ("vendor.orbo.hardware.voxa.IVoxa", IVoxa::descriptor);
    EXPECT_STREQ("vendor.orbo.hardware.voxa.IVoxaCallback", IVoxaCallback::descriptor);
    EXPECT_STREQ("vendor.orbo.hardware.voxa.IVoxaGlobalCallback", IVoxaGlobalCallback::descriptor);
    EXPECT_EQ(3, IVoxa::version);
    EXPECT_EQ(frozenHash(), IVoxa::hash);
    EXPECT_EQ(frozenHash(), IVoxaCallback::hash);
    EXPECT_EQ(frozenHash(), IVoxaGlobalCallback::hash);
    expectVersionAndHash<IVoxaCallback>(*ndk::SharedRefBase::make<RecordingCallback>());
    expectVersionAndHash<IVoxaGlobalCallback>(*ndk::SharedRefBase::make<CountingGlobalCallback>());
}

// fromBinder finds the local object of its own interface only. The binder keeps that object
// alive, never the other way round (that would be a cycle).
TEST(InterfaceTest, FromBinderAndLifetimes) {
    auto global = ndk::SharedRefBase::make<CountingGlobalCallback>();
    EXPECT_EQ(global.get(), IVoxaGlobalCallback::fromBinder(global->asBinder()).get());
    EXPECT_EQ(nullptr, IVoxaCallback::fromBinder(global->asBinder()));
    EXPECT_EQ(nullptr, IVoxa::fromBinder(global->asBinder()));
    EXPECT_EQ(nullptr, IVoxa::fromBinder(ndk::SpAIBinder()));

    auto callback = ndk::SharedRefBase::make<RecordingCallback>();
    std::weak_ptr<RecordingCallback> watch = callback;
    ndk::ScopedAIBinder_Weak first(AIBinder_Weak_new(callback->asBinder().get()));
    EXPECT_EQ(nullptr, first.promote().get());
    ndk::SpAIBinder binder = callback->asBinder();
    EXPECT_EQ(binder, callback->asBinder());
    EXPECT_EQ(nullptr, IVoxaGlobalCallback::fromBinder(binder));
    callback.reset();

    std::shared_ptr<IVoxaCallback> found = IVoxaCallback::fromBinder(binder);
    EXPECT_EQ(watch.lock(), found);
    ASSERT_NE(nullptr, found);
    expectVersionAndHash(*found);
    found.reset();
    binder = ndk::SpAIBinder();
    EXPECT_TRUE(watch.expired());
}

}  // namespace
}  // namespace aidl::vendor::orbo::hardware::voxa
