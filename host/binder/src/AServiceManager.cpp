// The service manager: a process-wide table from instance name to one strong binder reference.
// References are dropped only after the table's lock is released, because dropping the last one
// runs the object's destructor, which may call back into the service manager.

#include <android/binder_manager.h>
#include <binder_host/test_controls.h>

#include <condition_variable>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "InjectedFailures.h"

namespace {

struct ServiceTable {
    std::mutex mLock;
    std::condition_variable mAdded;               // signalled on every registration
    std::map<std::string, AIBinder*> mServices;   // guarded by mLock; owns one strong ref each
    std::optional<binder_status_t> mFailNextAdd;  // guarded by mLock
};

// Never destroyed: registered objects stay alive until the process ends, as on a device, rather
// than being destroyed at exit after the state they depend on.
ServiceTable& serviceTable() {
    static ServiceTable* table = new ServiceTable;
    return *table;
}

// Requires mLock.
AIBinder* findLocked(ServiceTable& table, const char* instance) {
    auto entry = table.mServices.find(instance);
    if (entry == table.mServices.end()) return nullptr;
    AIBinder_incStrong(entry->second);
    return entry->second;
}

}  // namespace

binder_status_t AServiceManager_addService(AIBinder* binder, const char* instance) {
    ServiceTable& table = serviceTable();
    AIBinder* replaced = nullptr;
    {
        std::lock_guard<std::mutex> lock(table.mLock);
        if (table.mFailNextAdd.has_value()) {
            binder_status_t status = *table.mFailNextAdd;
            table.mFailNextAdd.reset();
            return status;
        }
        if (binder == nullptr || instance == nullptr) return STATUS_UNEXPECTED_NULL;
        AIBinder_incStrong(binder);
        AIBinder*& slot = table.mServices[instance];
        replaced = std::exchange(slot, binder);
    }
    table.mAdded.notify_all();
    AIBinder_decStrong(replaced);
    return STATUS_OK;
}

AIBinder* AServiceManager_checkService(const char* instance) {
    if (instance == nullptr) return nullptr;
    ServiceTable& table = serviceTable();
    std::lock_guard<std::mutex> lock(table.mLock);
    return findLocked(table, instance);
}

AIBinder* AServiceManager_waitForService(const char* instance) {
    if (instance == nullptr) return nullptr;
    ServiceTable& table = serviceTable();
    std::unique_lock<std::mutex> lock(table.mLock);
    AIBinder* binder = nullptr;
    table.mAdded.wait(lock, [&] { return (binder = findLocked(table, instance)) != nullptr; });
    return binder;
}

void AServiceManager_forEachDeclaredInstance(const char* interface, void* context,
                                             void (*callback)(const char*, void*)) {
    if (interface == nullptr || callback == nullptr) return;
    const std::string prefix = std::string(interface) + "/";
    std::vector<std::string> names;
    {
        ServiceTable& table = serviceTable();
        std::lock_guard<std::mutex> lock(table.mLock);
        for (auto entry = table.mServices.lower_bound(prefix);
             entry != table.mServices.end() && entry->first.compare(0, prefix.size(), prefix) == 0;
             ++entry) {
            names.push_back(entry->first.substr(prefix.size()));
        }
    }
    for (const std::string& name : names) callback(name.c_str(), context);
}

namespace binder_host {

void failNextAddService(binder_status_t status) {
    ServiceTable& table = serviceTable();
    std::lock_guard<std::mutex> lock(table.mLock);
    table.mFailNextAdd = status;
}

void clearServices() {
    ServiceTable& table = serviceTable();
    std::map<std::string, AIBinder*> dropped;
    {
        std::lock_guard<std::mutex> lock(table.mLock);
        dropped.swap(table.mServices);
        table.mFailNextAdd.reset();
    }
    internal::forgetDeathFailures();
    for (const auto& entry : dropped) AIBinder_decStrong(entry.second);
}

}  // namespace binder_host
