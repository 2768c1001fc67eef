#include "host/framework/kernel_handles.h"

#include <cstdint>
#include <new>
#include <unordered_map>

#include "host/common/resource_ledger.h"

namespace host::framework {
namespace {

struct HandleTable {
    std::mutex mutex;
    std::uintptr_t next = 0x1000;
    std::unordered_map<std::uintptr_t, std::shared_ptr<KernelObject>> objects;
};

HandleTable& Table()
{
    static HandleTable table;
    return table;
}

}  // namespace

HANDLE InsertHandle(std::shared_ptr<KernelObject> object)
{
    HandleTable& table = Table();
    std::lock_guard lock(table.mutex);
    const std::uintptr_t value = table.next;
    try {
        table.objects.emplace(value, std::move(object));
    } catch (const std::bad_alloc&) {
        return nullptr;
    }
    table.next += 4;
    ResourceLedger::Instance().Acquire(ResourceKind::Handle);
    return reinterpret_cast<HANDLE>(value);
}

std::shared_ptr<KernelObject> LookupHandle(HANDLE handle)
{
    HandleTable& table = Table();
    std::lock_guard lock(table.mutex);
    auto it = table.objects.find(reinterpret_cast<std::uintptr_t>(handle));
    return it != table.objects.end() ? it->second : nullptr;
}

bool RemoveHandle(HANDLE handle)
{
    std::shared_ptr<KernelObject> released;  // destroyed outside the lock
    {
        HandleTable& table = Table();
        std::lock_guard lock(table.mutex);
        auto it = table.objects.find(reinterpret_cast<std::uintptr_t>(handle));
        if (it == table.objects.end())
            return false;
        released = std::move(it->second);
        table.objects.erase(it);
    }
    ResourceLedger::Instance().Release(ResourceKind::Handle);
    return true;
}

}  // namespace host::framework
