// The generated interface classes: identity, version and hash, and binders of local objects.

#include <aidl/vendor/orbo/hardware/voxa/BnVoxa.h>
#include <aidl/vendor/orbo/hardware/voxa/BnVoxaCallback.h>
#include <aidl/vendor/orbo/hardware/voxa/BnVoxaGlobalCallback.h>
#include <gtest/gtest.h>

#include <fstream>
#include <memory>
#include <string>

namespace aidl::vendor::orbo::hardware::voxa {
namespace {

std::string frozenHash() {
    std::ifstream file(VOXA_FROZEN_HASH_FILE);
    std::string hash;
    file >> hash;
    return hash;
}

class StubVoxa : public BnVoxa {
  public:
    ndk::ScopedAStatus registerGlobalCallback(
            const std::shared_ptr<IVoxaGlobalCallback>& /*callback*/) override {
        return ndk::ScopedAStatus::ok();
    }
    ndk::ScopedAStatus initSession(const VoxaModel& /*model*/,
                                   const std::shared_ptr<IVoxaCallback>& /*callback*/,
                                   int32_t* handle) override {
        *handle = 0;
        return ndk::ScopedAStatus::ok();
    }
    ndk::ScopedAStatus startListening(int32_t /*handle*/, const VoxaConfig& /*config*/) override {
        return ndk::ScopedAStatus::ok();
    }
    ndk::ScopedAStatus setParameter(int32_t /*handle*/, const VoxaParameter& /*param*/) override {
        return ndk::ScopedAStatus::ok();
    }
    ndk::ScopedAStatus stopListening(int32_t /*handle*/) override {
        return ndk::ScopedAStatus::ok();
    }
    ndk::ScopedAStatus releaseSession(int32_t /*handle*/) override {
        return ndk::ScopedAStatus::ok();
    }
    ndk::ScopedAStatus getSupportedLanguages(int32_t /*handle*/,
                                             std::vector<std::string>* /*languages*/) override {
        return ndk::ScopedAStatus::ok();
    }
};

class StubCallback : public BnVoxaCallback {
  public:
    ndk::ScopedAStatus onAsrEvent(int32_t /*handle*/, const VoxaEvent& /*event*/) override {
        return ndk::ScopedAStatus::ok();
    }
    ndk::ScopedAStatus onSdzEvent(int32_t /*handle*/,
                                  const SpeakerDiarizationEvent& /*event*/) override {
        return ndk::ScopedAStatus::ok();
    }
};

class StubGlobalCallback : public BnVoxaGlobalCallback {
  public:
    ndk::ScopedAStatus onResourcesAvailable() override { return ndk::ScopedAStatus::ok(); }
};

template <typename I>
void expectVersionAndHash(I& object) {
    int32_t version = 0;
    ndk::ScopedAStatus status = object.getInterfaceVersion(&version);
    EXPECT_TRUE(status.isOk());
    EXPECT_EQ(3, version);
    std::string hash;
    status = object.getInterfaceHash(&hash);
    EXPECT_TRUE(status.isOk());
    EXPECT_EQ(frozenHash(), hash);
}

TEST(InterfaceIdentityTest, DescriptorsVersionAndFrozenHash) {
    ASSERT_EQ(40u, frozenHash().size());
    EXPECT_STREQ("vendor.orbo.hardware.voxa.IVoxa", IVoxa::descriptor);
    EXPECT_STREQ("vendor.orbo.hardware.voxa.IVoxaCallback", IVoxaCallback::descriptor);
    EXPECT_STREQ("vendor.orbo.hardware.voxa.IVoxaGlobalCallback", IVoxaGlobalCallback::descriptor);
    EXPECT_EQ(3, IVoxa::version);
    EXPECT_EQ(frozenHash(), IVoxa::hash);
    EXPECT_EQ(frozenHash(), IVoxaCallback::hash);
    EXPECT_EQ(frozenHash(), IVoxaGlobalCallback::hash);

    // Reached through the interface, as a client calls them.
    std::shared_ptr<IVoxa> voxa = ndk::SharedRefBase::make<StubVoxa>();
    expectVersionAndHash(*voxa);
    std::shared_ptr<IVoxaCallback> callback = ndk::SharedRefBase::make<StubCallback>();
    expectVersionAndHash(*callback);
    std::shared_ptr<IVoxaGlobalCallback> global = ndk::SharedRefBase::make<StubGlobalCallback>();
    expectVersionAndHash(*global);
}

TEST(InterfaceBinderTest, FromBinderReturnsTheLocalObjectOfItsOwnInterfaceOnly) {
    auto voxa = ndk::SharedRefBase::make<StubVoxa>();
    auto callback = ndk::SharedRefBase::make<StubCallback>();
    auto global = ndk::SharedRefBase::make<StubGlobalCallback>();
    ndk::SpAIBinder voxaBinder = voxa->asBinder();
    ndk::SpAIBinder callbackBinder = callback->asBinder();
    ndk::SpAIBinder globalBinder = global->asBinder();

    EXPECT_EQ(voxa.get(), IVoxa::fromBinder(voxaBinder).get());
    EXPECT_EQ(callback.get(), IVoxaCallback::fromBinder(callbackBinder).get());
    EXPECT_EQ(global.get(), IVoxaGlobalCallback::fromBinder(globalBinder).get());

    EXPECT_EQ(nullptr, IVoxa::fromBinder(callbackBinder));
    EXPECT_EQ(nullptr, IVoxaCallback::fromBinder(globalBinder));
    EXPECT_EQ(nullptr, IVoxaGlobalCallback::fromBinder(voxaBinder));
    EXPECT_EQ(nullptr, IVoxa::fromBinder(ndk::SpAIBinder()));
}

TEST(InterfaceBinderTest, BinderKeepsItsObjectAlive) {
    std::weak_ptr<StubVoxa> watch;
    ndk::SpAIBinder binder;
    {
        auto voxa = ndk::SharedRefBase::make<StubVoxa>();
        watch = voxa;
        binder = voxa->asBinder();
    }
    std::shared_ptr<IVoxa> found = IVoxa::fromBinder(binder);
    ASSERT_NE(nullptr, found);
    expectVersionAndHash(*found);

    found.reset();
    binder = ndk::SpAIBinder();
    EXPECT_TRUE(watch.expired());
}

}  // namespace
}  // namespace aidl::vendor::orbo::hardware::voxa
