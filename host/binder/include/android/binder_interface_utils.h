/*
 * The C++ base classes of generated interfaces: shared ownership of service objects, and the tie
 * between an interface object and its binder.
 *
 * On this host a binder made for an interface object holds a strong std::shared_ptr to it, so the
 * object lives at least as long as any strong reference to its binder (the service manager's, for
 * instance). Calls on an interface are direct C++ calls on that object.
 */
#ifndef ANDROID_BINDER_INTERFACE_UTILS_H
#define ANDROID_BINDER_INTERFACE_UTILS_H

#include <android/binder_auto_utils.h>
#include <android/binder_ibinder.h>

#include <cstddef>
#include <memory>
#include <mutex>
#include <new>
#include <utility>

namespace ndk {

// Base of objects that are only ever owned through std::shared_ptr. Create them with make<T>();
// plain `new` is not available to other code, so that an owner always exists.
class SharedRefBase {
  public:
    SharedRefBase() = default;
    SharedRefBase(const SharedRefBase&) = delete;
    SharedRefBase& operator=(const SharedRefBase&) = delete;
    virtual ~SharedRefBase() = default;

    // A shared owner of this object. Thread-safe. The first call creates the owning control block;
    // every later call shares it. Must not be called once the last owner has gone.
    template <typename T = SharedRefBase>
    std::shared_ptr<T> ref() {
        std::shared_ptr<SharedRefBase> self;
        std::call_once(mOwnerCreated, [&] {
            self = std::shared_ptr<SharedRefBase>(this);
            mSelf = self;
        });
        if (self == nullptr) self = mSelf.lock();
        return std::static_pointer_cast<T>(self);
    }

    template <typename T = SharedRefBase>
    std::shared_ptr<const T> ref() const {
        return const_cast<SharedRefBase*>(this)->ref<T>();
    }

    // Constructs a T and returns its first owner. Exceptions from T's constructor propagate, and
    // the memory is released.
    template <typename T, typename... Args>
    static std::shared_ptr<T> make(Args&&... args) {
        T* object = new T(std::forward<Args>(args)...);
        return object->template ref<T>();
    }

    static void operator delete(void* pointer) { ::operator delete(pointer); }

  private:
    static void* operator new(size_t size) { return ::operator new(size); }
    static void* operator new[](size_t size) = delete;

    std::once_flag mOwnerCreated;
    std::weak_ptr<SharedRefBase> mSelf;  // written once, under mOwnerCreated
};

// Base of every interface, local or not.
class ICInterface : public SharedRefBase {
  public:
    // A strong reference to the binder that stands for this object.
    virtual SpAIBinder asBinder() = 0;
    virtual bool isRemote() = 0;

    // Writes a readable report of the object to `fd`, for AIBinder_dump (dumpsys on a device).
    virtual binder_status_t dump(int /*fd*/, const char** /*args*/, uint32_t /*numArgs*/) {
        return STATUS_OK;
    }

    // Defines the class of binders for an interface. A binder of this class, made with
    // AIBinder_new(clazz, object) where `object` is an ICInterface*, holds a strong reference to
    // the object until its last strong reference goes.
    static AIBinder_Class* defineClass(const char* interfaceDescriptor,
                                       AIBinder_Class_onTransact onTransact) {
        AIBinder_Class* clazz =
                AIBinder_Class_define(interfaceDescriptor, &onCreate, &onDestroy, onTransact);
        AIBinder_Class_setOnDump(clazz, &onDump);
        return clazz;
    }

    // The object behind `binder`, which must be null or a binder of a class made by defineClass.
    static std::shared_ptr<ICInterface> asInterface(AIBinder* binder) {
        if (binder == nullptr) return nullptr;
        auto* owner = static_cast<std::shared_ptr<ICInterface>*>(AIBinder_getUserData(binder));
        return owner == nullptr ? nullptr : *owner;
    }

  private:
    static void* onCreate(void* args) {
        return new std::shared_ptr<ICInterface>(
                static_cast<ICInterface*>(args)->ref<ICInterface>());
    }
    static void onDestroy(void* userData) {
        delete static_cast<std::shared_ptr<ICInterface>*>(userData);
    }
    static binder_status_t onDump(AIBinder* binder, int fd, const char** args, uint32_t numArgs) {
        std::shared_ptr<ICInterface> object = asInterface(binder);
        return object == nullptr ? STATUS_UNEXPECTED_NULL : object->dump(fd, args, numArgs);
    }
};

// Base of a local implementation of INTERFACE. Its binder is made on first use by createBinder()
// and remembered weakly: the binder keeps the object alive, not the other way round, so a new
// binder is made when every strong reference to the previous one has gone.
template <typename INTERFACE>
class BnCInterface : public INTERFACE {
  public:
    SpAIBinder asBinder() final {
        std::lock_guard<std::mutex> lock(mBinderLock);
        SpAIBinder binder = mBinder.promote();
        if (binder.get() == nullptr) {
            binder = createBinder();
            mBinder.set(AIBinder_Weak_new(binder.get()));
        }
        return binder;
    }

    bool isRemote() final { return false; }

  protected:
    // Makes a new binder for this object (AIBinder_new with the interface's class and `this`).
    virtual SpAIBinder createBinder() = 0;

  private:
    std::mutex mBinderLock;
    ScopedAIBinder_Weak mBinder;  // guarded by mBinderLock
};

}  // namespace ndk

#endif /* ANDROID_BINDER_INTERFACE_UTILS_H */
