#pragma once

#include <android/binder_auto_utils.h>
#include <android/binder_ibinder.h>

#include <atomic>

namespace binder_test {

// The user data of a test binder: counts how often the class's onDestroy released it.
struct Object {
    std::atomic<int> destroyed{0};
};

inline ndk::SpAIBinder newBinder(Object* object) {
    static AIBinder_Class* const clazz = AIBinder_Class_define(
            "test.IObject", [](void* args) { return args; },
            [](void* userData) { static_cast<Object*>(userData)->destroyed++; },
            [](AIBinder*, transaction_code_t, const AParcel*, AParcel*) {
                return static_cast<binder_status_t>(STATUS_UNKNOWN_TRANSACTION);
            });
    return ndk::SpAIBinder(AIBinder_new(clazz, object));
}

}  // namespace binder_test
