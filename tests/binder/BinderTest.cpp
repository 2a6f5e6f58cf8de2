#include <android/binder_enums.h>
#include <android/binder_interface_utils.h>
#include <android/binder_manager.h>
#include <binder_host/test_controls.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <array>
#include <vector>

#include "TestBinder.h"

namespace {

using binder_test::newBinder;
using binder_test::Object;
using binder_test::objectClass;
using ndk::ScopedFileDescriptor;
using ndk::SpAIBinder;

binder_status_t noTransact(AIBinder*, transaction_code_t, const AParcel*, AParcel*) {
    return STATUS_UNKNOWN_TRANSACTION;
}

TEST(BinderTest, ClassAndUserData) {
    AIBinder_Class* same = AIBinder_Class_define(
            "test.IObject", [](void* args) { return args; }, [](void*) {}, noTransact);
    AIBinder_Class* other = AIBinder_Class_define(
            "test.IOther", [](void* args) { return args; }, [](void*) {}, noTransact);
    Object object;
    SpAIBinder binder = newBinder(&object);
    EXPECT_EQ(AIBinder_getUserData(binder.get()), &object);
    EXPECT_EQ(AIBinder_getClass(binder.get()), objectClass());
    EXPECT_FALSE(AIBinder_isRemote(binder.get()));
    EXPECT_TRUE(AIBinder_isAlive(binder.get()));
    EXPECT_TRUE(AIBinder_associateClass(binder.get(), same));
    EXPECT_FALSE(AIBinder_associateClass(binder.get(), other));
}

TEST(BinderTest, DestroyedWhenLastStrongReferenceGoes) {
    Object object;
    AIBinder* binder = AIBinder_new(objectClass(), &object);
    ndk::ScopedAIBinder_Weak weak(AIBinder_Weak_new(binder));
    AIBinder_incStrong(binder);
    {
        SpAIBinder adopted(binder);  // the reference added above
        SpAIBinder copy = adopted;
        SpAIBinder moved = std::move(copy);
        EXPECT_EQ(copy.get(), nullptr);
        EXPECT_EQ(weak.promote(), moved);
    }
    EXPECT_EQ(object.destroyed, 0);
    AIBinder_decStrong(binder);
    EXPECT_EQ(object.destroyed, 1);
    EXPECT_EQ(weak.promote().get(), nullptr);
}

TEST(BinderTest, FileDescriptorOwnership) {
    int fds[2];
    ASSERT_EQ(pipe(fds), 0);
    ScopedFileDescriptor reader(fds[0]);
    {
        ScopedFileDescriptor writer(fds[1]);
        ScopedFileDescriptor copy = writer.dup();
        EXPECT_NE(copy, writer);
        ASSERT_EQ(write(copy.get(), "x", 1), 1);
    }
    EXPECT_EQ(fcntl(fds[1], F_GETFD), -1);
    char bytes[2] = {};
    EXPECT_EQ(read(reader.get(), bytes, 2), 1);  // then end of file: the duplicate is closed too
    EXPECT_EQ(read(reader.get(), bytes, 2), 0);
    EXPECT_EQ(ScopedFileDescriptor().dup().get(), -1);
}

// A local interface in the shape that generated code gives it.
class ICounter : public ndk::ICInterface {
  public:
    virtual int next() = 0;
};
AIBinder_Class* counterClass = ndk::ICInterface::defineClass("test.ICounter", noTransact);

class Counter : public ndk::BnCInterface<ICounter> {
  public:
    explicit Counter(bool* destroyed) : mDestroyed(destroyed) {}
    ~Counter() override { *mDestroyed = true; }
    int next() override { return ++mValue; }

  protected:
    SpAIBinder createBinder() override {
        return SpAIBinder(AIBinder_new(counterClass, static_cast<ICounter*>(this)));
    }

  private:
    bool* mDestroyed;
    int mValue = 0;
};

TEST(BinderTest, InterfaceBinderKeepsObjectAlive) {
    bool destroyed = false;
    std::shared_ptr<Counter> counter = ndk::SharedRefBase::make<Counter>(&destroyed);
    EXPECT_FALSE(counter->isRemote());
    ndk::ScopedAIBinder_Weak first(AIBinder_Weak_new(counter->asBinder().get()));
    EXPECT_EQ(first.promote().get(), nullptr);  // the object does not keep its binder

    SpAIBinder binder = counter->asBinder();
    EXPECT_EQ(counter->asBinder(), binder);
    Counter* object = counter.get();
    counter.reset();
    EXPECT_FALSE(destroyed);
    std::shared_ptr<ndk::ICInterface> found = ndk::ICInterface::asInterface(binder.get());
    EXPECT_EQ(found.get(), object);
    EXPECT_EQ(std::static_pointer_cast<ICounter>(found)->next(), 1);
    found.reset();
    binder.set(nullptr);
    EXPECT_TRUE(destroyed);
}

enum class Mode { OFF = 0, FAST = 3, SLOW = -1 };

}  // namespace

namespace ndk::internal {
template <>
constexpr inline std::array<Mode, 3> enum_values<Mode> = {Mode::OFF, Mode::FAST, Mode::SLOW};
}  // namespace ndk::internal

namespace {

TEST(BinderTest, EnumRangeInDeclarationOrder) {
    std::vector<Mode> modes(ndk::enum_range<Mode>().begin(), ndk::enum_range<Mode>().end());
    EXPECT_EQ(modes, (std::vector<Mode>{Mode::OFF, Mode::FAST, Mode::SLOW}));
}

class ServiceManagerTest : public testing::Test {
  protected:
    void TearDown() override { binder_host::clearServices(); }
};

TEST_F(ServiceManagerTest, RegisteredObjectLivesUntilReplacedOrCleared) {
    Object first, second;
    ASSERT_EQ(AServiceManager_addService(newBinder(&first).get(), "test.IObject/a"), STATUS_OK);
    ASSERT_EQ(AServiceManager_addService(newBinder(&second).get(), "test.IObject/b"), STATUS_OK);
    EXPECT_EQ(first.destroyed, 0);
    SpAIBinder found(AServiceManager_checkService("test.IObject/a"));
    EXPECT_EQ(AIBinder_getUserData(found.get()), &first);
    EXPECT_EQ(SpAIBinder(AServiceManager_getService("test.IObject/a")), found);
    EXPECT_EQ(SpAIBinder(AServiceManager_waitForService("test.IObject/a")), found);
    EXPECT_EQ(AServiceManager_checkService("test.IObject/c"), nullptr);

    ASSERT_EQ(AServiceManager_addService(found.get(), "test.IObject/b"), STATUS_OK);
    EXPECT_EQ(second.destroyed, 1);
    found.set(nullptr);
    binder_host::clearServices();
    EXPECT_EQ(first.destroyed, 1);
    EXPECT_EQ(AServiceManager_checkService("test.IObject/a"), nullptr);
}

TEST_F(ServiceManagerTest, RefusedRegistrationRegistersNothing) {
    Object object;
    SpAIBinder binder = newBinder(&object);
    EXPECT_EQ(AServiceManager_addService(nullptr, "test.IObject/a"), STATUS_UNEXPECTED_NULL);
    binder_host::failNextAddService(STATUS_PERMISSION_DENIED);
    EXPECT_EQ(AServiceManager_addService(binder.get(), "test.IObject/a"), STATUS_PERMISSION_DENIED);
    EXPECT_EQ(AServiceManager_checkService("test.IObject/a"), nullptr);
    EXPECT_EQ(AServiceManager_addService(binder.get(), "test.IObject/a"), STATUS_OK);

    binder_host::failNextAddService(STATUS_PERMISSION_DENIED);
    binder_host::clearServices();  // forgets the pending failure
    EXPECT_EQ(AServiceManager_addService(binder.get(), "test.IObject/a"), STATUS_OK);
}

}  // namespace
