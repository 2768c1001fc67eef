// COM task memory: the allocator behind every string and CLSID a PROPVARIANT owns.
// Each live block is counted in the resource ledger so a test sees leaks.
#include <cstdlib>

#include "host/common/fault_injection.h"
#include "host/common/resource_ledger.h"
#include "platform/com.h"

extern "C" void* CoTaskMemAlloc(SIZE_T cb)
{
    host::DriverCall driverCall(host::FaultPoint::CoTaskMem);
    if (driverCall.Fails())
        return nullptr;
    // A zero-byte request still yields a distinct block that CoTaskMemFree accepts.
    void* block = std::malloc(cb == 0 ? 1 : cb);
    if (block != nullptr)
        host::ResourceLedger::Instance().Acquire(host::ResourceKind::CoTaskMem);
    return block;
}

extern "C" void CoTaskMemFree(void* pv)
{
    if (pv == nullptr)
        return;
    std::free(pv);
    host::ResourceLedger::Instance().Release(host::ResourceKind::CoTaskMem);
}
