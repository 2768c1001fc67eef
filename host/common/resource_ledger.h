// Counts every live resource the host hands out, so that a test can fail on a
// leak after unload. Process-wide, lock-free.
#pragma once

#include <atomic>
#include <cstdint>
#include <string>

namespace host {

enum class ResourceKind : unsigned {
    FrameworkObject,  // any WDF object other than memory (devices, targets, requests, locks, timers, keys, sensors)
    FrameworkMemory,  // WdfMemoryCreate / WdfMemoryCreatePreallocated
    DriverHeap,       // HeapAlloc blocks
    CoTaskMem,        // CoTaskMemAlloc blocks
    Handle,           // events and thread handles
    Thread,           // threads not yet finished
    TraceRegistration,
    Count
};

const char* ResourceKindName(ResourceKind kind);

class ResourceLedger {
public:
    static ResourceLedger& Instance();

    void Acquire(ResourceKind kind) { live_[Index(kind)].fetch_add(1, std::memory_order_relaxed); }
    void Release(ResourceKind kind) { live_[Index(kind)].fetch_sub(1, std::memory_order_relaxed); }
    std::int64_t Live(ResourceKind kind) const { return live_[Index(kind)].load(std::memory_order_relaxed); }

    // Empty when nothing is live; otherwise one "kind: n" entry per kind, comma separated.
    std::string Leaks() const;

private:
    static unsigned Index(ResourceKind kind) { return static_cast<unsigned>(kind); }
    std::atomic<std::int64_t> live_[static_cast<unsigned>(ResourceKind::Count)] = {};
};

}  // namespace host
