// The process heap. Every block is tracked, so a double or foreign HeapFree is
// reported instead of corrupting memory, and live blocks show in the ledger.
#include <cstdlib>
#include <mutex>
#include <new>
#include <unordered_set>

#include "host/common/fault_injection.h"
#include "host/common/resource_ledger.h"
#include "host/framework/violations.h"
#include "platform/system.h"

namespace {

struct ProcessHeap {
    std::mutex mutex;
    std::unordered_set<void*> blocks;
};

ProcessHeap& Heap()
{
    static ProcessHeap heap;
    return heap;
}

}  // namespace

extern "C" HANDLE GetProcessHeap()
{
    return &Heap();
}

extern "C" void* HeapAlloc(HANDLE hHeap, DWORD dwFlags, SIZE_T dwBytes)
{
    if (hHeap != &Heap()) {
        host::framework::ReportViolation("HeapAlloc: not the process heap");
        return nullptr;
    }
    host::DriverCall driverCall(host::FaultPoint::DriverHeap);
    if (driverCall.Fails())
        return nullptr;
    const SIZE_T size = dwBytes == 0 ? 1 : dwBytes;
    void* block = (dwFlags & HEAP_ZERO_MEMORY) != 0 ? std::calloc(1, size) : std::malloc(size);
    if (block == nullptr)
        return nullptr;
    ProcessHeap& heap = Heap();
    {
        std::lock_guard lock(heap.mutex);
        try {
            heap.blocks.insert(block);
        } catch (const std::bad_alloc&) {
            std::free(block);
            return nullptr;
        }
    }
    host::ResourceLedger::Instance().Acquire(host::ResourceKind::DriverHeap);
    return block;
}

extern "C" BOOL HeapFree(HANDLE hHeap, DWORD /*dwFlags*/, void* lpMem)
{
    if (hHeap != &Heap()) {
        host::framework::ReportViolation("HeapFree: not the process heap");
        return FALSE;
    }
    if (lpMem == nullptr)
        return TRUE;
    ProcessHeap& heap = Heap();
    {
        std::lock_guard lock(heap.mutex);
        if (heap.blocks.erase(lpMem) == 0) {
            host::framework::ReportViolation("HeapFree: block not allocated from the heap, or freed twice");
            return FALSE;
        }
    }
    std::free(lpMem);
    host::ResourceLedger::Instance().Release(host::ResourceKind::DriverHeap);
    return TRUE;
}
