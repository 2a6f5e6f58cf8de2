// The generated code where no service test looks: the interface classes' identity, hash and
// binders of local objects; a descriptor's text form, values that are no member of their
// enumeration, and descriptor ownership. IVoxa's descriptor and version are those the service
// registers and reports, every other field's text form is in its log lines (service_test) and
// in the device transcripts (device_scenario_test).

#include <aidl/vendor/orbo/hardware/voxa/IVoxa.h>
#include <aidl/vendor/orbo/hardware/voxa/ServiceError.h>
#include <aidl/vendor/orbo/hardware/voxa/VoxaModel.h>
#include <aidl/vendor/orbo/hardware/voxa/VoxaParameter.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <climits>
#include <fstream>
#include <memory>
#include <string>

#include "support/RecordingCallback.h"

namespace aidl::vendor::orbo::hardware::voxa {
namespace {

using voxa_test::CountingGlobalCallback;
using voxa_test::RecordingCallback;

std::string frozenHash() {
    std::string hash;
    std::ifstream(VOXA_FROZEN_HASH_FILE) >> hash;
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

// fromBinder finds the local object of its own interface only. The binder keeps that object
// alive, never the other way round (that would be a cycle).
TEST(InterfaceTest, DescriptorsVersionHashFromBinderAndLifetimes) {
    ASSERT_EQ(40u, frozenHash().size());
    EXPECT_STREQ("vendor.orbo.hardware.voxa.IVoxaCallback", IVoxaCallback::descriptor);
    EXPECT_STREQ("vendor.orbo.hardware.voxa.IVoxaGlobalCallback", IVoxaGlobalCallback::descriptor);
    EXPECT_EQ(frozenHash(), IVoxa::hash);
    auto global = ndk::SharedRefBase::make<CountingGlobalCallback>();
    expectVersionAndHash<IVoxaGlobalCallback>(*global);
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

ndk::ScopedFileDescriptor openDevNull() {
    int fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
    EXPECT_GE(fd, 0);
    return ndk::ScopedFileDescriptor(fd);
}

bool isOpen(int fd) {
    return fcntl(fd, F_GETFD) != -1;
}

// The text forms of a descriptor and of values that are no member of their enumeration. A copied
// model owns a duplicate of the descriptor, so each copy closes only its own.
TEST(RecordTest, TextFormsAndCopiesThatDuplicateTheDescriptor) {
    VoxaModel model;
    model.vendorUuid = "0a1b2c3d-4e5f-6071-8293-a4b5c6d7e8f9";
    model.data = openDevNull();
    model.dataSize = 123456;
    EXPECT_EQ("VoxaModel{vendorUuid: 0a1b2c3d-4e5f-6071-8293-a4b5c6d7e8f9, data: fd:" +
                      std::to_string(model.data.get()) + ", dataSize: 123456}",
              model.toString());
    VoxaParameter parameter;
    parameter.param = static_cast<ParameterType>(9);
    EXPECT_EQ("VoxaParameter{param: 9, data: []}", parameter.toString());
    EXPECT_EQ("-2147483648", toString(static_cast<ServiceError>(INT_MIN)));

    VoxaModel assigned;
    assigned.data = openDevNull();
    const int replaced = assigned.data.get();
    int copied = -1;
    {
        const VoxaModel copy(model);
        copied = copy.data.get();
        EXPECT_EQ(123456, copy.dataSize);
        struct stat a {};
        struct stat b {};
        ASSERT_NE(model.data.get(), copied);
        ASSERT_EQ(0, fstat(model.data.get(), &a) + fstat(copied, &b));
        EXPECT_EQ(a.st_ino, b.st_ino);
        assigned = copy;
        EXPECT_NE(copied, assigned.data.get());
        EXPECT_FALSE(isOpen(replaced));
    }
    EXPECT_FALSE(isOpen(copied));
    EXPECT_TRUE(isOpen(model.data.get()));
}

}  // namespace
}  // namespace aidl::vendor::orbo::hardware::voxa
