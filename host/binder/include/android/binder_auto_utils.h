/*
 * Owning C++ wrappers for the binder C objects: each releases what it holds when it is destroyed
 * or given something else. None of them is thread-safe as an object; the objects they hold are.
 */
#ifndef ANDROID_BINDER_AUTO_UTILS_H
#define ANDROID_BINDER_AUTO_UTILS_H

#include <android/binder_ibinder.h>
#include <android/binder_status.h>
#include <unistd.h>

#include <cstddef>
#include <string>

namespace ndk {

// One strong reference to a binder, or none.
class SpAIBinder {
  public:
    SpAIBinder() = default;
    // Implicit, so that nullptr converts to an empty reference.
    SpAIBinder(std::nullptr_t) {}
    // Adopts the strong reference that `binder` carries; adds none.
    explicit SpAIBinder(AIBinder* binder) : mBinder(binder) {}
    SpAIBinder(const SpAIBinder& other) : mBinder(other.mBinder) { AIBinder_incStrong(mBinder); }
    SpAIBinder(SpAIBinder&& other) noexcept : mBinder(other.release()) {}
    ~SpAIBinder() { set(nullptr); }

    SpAIBinder& operator=(const SpAIBinder& other) {
        if (this != &other) {
            AIBinder_incStrong(other.mBinder);
            set(other.mBinder);
        }
        return *this;
    }
    SpAIBinder& operator=(SpAIBinder&& other) noexcept {
        if (this != &other) set(other.release());
        return *this;
    }

    AIBinder* get() const { return mBinder; }

    // Gives up the reference without dropping it; the caller now owns it.
    AIBinder* release() {
        AIBinder* binder = mBinder;
        mBinder = nullptr;
        return binder;
    }

    // Adopts the reference that `binder` carries and drops the one held before.
    void set(AIBinder* binder) {
        AIBinder* old = mBinder;
        mBinder = binder;
        AIBinder_decStrong(old);
    }

    // For C functions that return a reference through an out-parameter. Whoever writes through the
    // pointer takes over the reference held before, if any.
    AIBinder** getR() { return &mBinder; }

    bool operator==(const SpAIBinder& rhs) const { return mBinder == rhs.mBinder; }
    bool operator!=(const SpAIBinder& rhs) const { return mBinder != rhs.mBinder; }
    bool operator<(const SpAIBinder& rhs) const { return mBinder < rhs.mBinder; }
    bool operator<=(const SpAIBinder& rhs) const { return mBinder <= rhs.mBinder; }
    bool operator>(const SpAIBinder& rhs) const { return mBinder > rhs.mBinder; }
    bool operator>=(const SpAIBinder& rhs) const { return mBinder >= rhs.mBinder; }

  private:
    AIBinder* mBinder = nullptr;
};

namespace impl {

// Sole owner of one resource of type T; DEFAULT means none, and is never passed to Destroy.
template <typename T, void (*Destroy)(T), T DEFAULT>
class ScopedAResource {
  public:
    explicit ScopedAResource(T resource = DEFAULT) : mResource(resource) {}
    ~ScopedAResource() { set(DEFAULT); }

    ScopedAResource(const ScopedAResource&) = delete;
    ScopedAResource& operator=(const ScopedAResource&) = delete;
    ScopedAResource(ScopedAResource&& other) noexcept : mResource(other.release()) {}
    ScopedAResource& operator=(ScopedAResource&& other) noexcept {
        if (this != &other) set(other.release());
        return *this;
    }

    T get() const { return mResource; }

    // Gives up ownership without destroying; the caller now owns the resource.
    T release() {
        T resource = mResource;
        mResource = DEFAULT;
        return resource;
    }

    // Takes ownership of `resource` and destroys the one held before, unless it is the same.
    void set(T resource) {
        T old = mResource;
        mResource = resource;
        if (old != DEFAULT && old != resource) Destroy(old);
    }

    // For C functions that return a resource through an out-parameter. Whoever writes through the
    // pointer takes over the resource held before, if any.
    T* getR() { return &mResource; }

    bool operator==(const ScopedAResource& rhs) const { return mResource == rhs.mResource; }
    bool operator!=(const ScopedAResource& rhs) const { return mResource != rhs.mResource; }
    bool operator<(const ScopedAResource& rhs) const { return mResource < rhs.mResource; }
    bool operator<=(const ScopedAResource& rhs) const { return mResource <= rhs.mResource; }
    bool operator>(const ScopedAResource& rhs) const { return mResource > rhs.mResource; }
    bool operator>=(const ScopedAResource& rhs) const { return mResource >= rhs.mResource; }

  private:
    T mResource;
};

}  // namespace impl

// The result of a binder call. Null only when default-constructed or moved from; every getter
// expects a status, and isOk() is false without one.
class ScopedAStatus : public impl::ScopedAResource<AStatus*, AStatus_delete, nullptr> {
  public:
    explicit ScopedAStatus(AStatus* status = nullptr) : ScopedAResource(status) {}

    bool isOk() const { return get() != nullptr && AStatus_isOk(get()); }
    binder_exception_t getExceptionCode() const { return AStatus_getExceptionCode(get()); }
    int32_t getServiceSpecificError() const { return AStatus_getServiceSpecificError(get()); }
    binder_status_t getStatus() const { return AStatus_getStatus(get()); }
    const char* getMessage() const { return AStatus_getMessage(get()); }

    std::string getDescription() const {
        const char* text = AStatus_getDescription(get());
        std::string description(text);
        AStatus_deleteDescription(text);
        return description;
    }

    static ScopedAStatus ok() { return ScopedAStatus(AStatus_newOk()); }
    static ScopedAStatus fromStatus(binder_status_t status) {
        return ScopedAStatus(AStatus_fromStatus(status));
    }
    static ScopedAStatus fromExceptionCode(binder_exception_t exception) {
        return ScopedAStatus(AStatus_fromExceptionCode(exception));
    }
    static ScopedAStatus fromExceptionCodeWithMessage(binder_exception_t exception,
                                                      const char* message) {
        return ScopedAStatus(AStatus_fromExceptionCodeWithMessage(exception, message));
    }
    static ScopedAStatus fromServiceSpecificError(int32_t serviceSpecific) {
        return ScopedAStatus(AStatus_fromServiceSpecificError(serviceSpecific));
    }
    static ScopedAStatus fromServiceSpecificErrorWithMessage(int32_t serviceSpecific,
                                                             const char* message) {
        return ScopedAStatus(AStatus_fromServiceSpecificErrorWithMessage(serviceSpecific, message));
    }
};

class ScopedAIBinder_DeathRecipient
    : public impl::ScopedAResource<AIBinder_DeathRecipient*, AIBinder_DeathRecipient_delete,
                                   nullptr> {
  public:
    explicit ScopedAIBinder_DeathRecipient(AIBinder_DeathRecipient* recipient = nullptr)
        : ScopedAResource(recipient) {}
};

class ScopedAIBinder_Weak
    : public impl::ScopedAResource<AIBinder_Weak*, AIBinder_Weak_delete, nullptr> {
  public:
    explicit ScopedAIBinder_Weak(AIBinder_Weak* weak = nullptr) : ScopedAResource(weak) {}

    // A strong reference while the binder still has one, otherwise null.
    SpAIBinder promote() const { return SpAIBinder(AIBinder_Weak_promote(get())); }
};

namespace internal {
inline void closeFileDescriptor(int fd) {
    ::close(fd);
}
}  // namespace internal

// One open file descriptor, -1 when empty. Compares by descriptor number.
class ScopedFileDescriptor : public impl::ScopedAResource<int, internal::closeFileDescriptor, -1> {
  public:
    explicit ScopedFileDescriptor(int fd = -1) : ScopedAResource(fd) {}

    // A new owner of a duplicate of the descriptor; empty when this one is empty or dup fails.
    ScopedFileDescriptor dup() const { return ScopedFileDescriptor(get() < 0 ? -1 : ::dup(get())); }
};

}  // namespace ndk

#endif /* ANDROID_BINDER_AUTO_UTILS_H */
