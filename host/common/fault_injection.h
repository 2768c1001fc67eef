// Makes the n-th call of a kind of platform operation fail, so tests can walk
// every failure path of a driver. Process-wide; a test resets it between cases.
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <unordered_map>

#include "platform/basetypes.h"

namespace host {

// Every operation that tests can make fail. Keep in step with FaultPointName().
enum class FaultPoint : unsigned {
    FrameworkMemory,      // WdfMemoryCreate, WdfMemoryCreatePreallocated, contexts, framework objects
    DriverHeap,           // HeapAlloc: the driver's own allocations
    CoTaskMem,            // CoTaskMemAlloc
    IoTargetCreate,
    IoTargetOpen,
    RequestCreate,
    RequestSend,          // WdfRequestSend of any request (for one IOCTL code see FailIoctl)
    DriverCreate,
    DeviceCreate,
    SensorsCxDeviceInitConfig,
    SensorsCxDeviceInitialize,
    SensorsCxSensorCreate,
    SensorsCxSensorInitialize,
    SensorsCxSensorDataReady,
    SensorsCxHistoryRetrievalComplete,
    WaitLockCreate,
    TimerCreate,
    ThreadCreate,
    EventCreate,
    RegistryOpenKey,
    RegistryCreateKey,
    RegistryQueryValue,
    RegistryAssignValue,
    Count
};

const char* FaultPointName(FaultPoint point);

class FaultInjector {
public:
    static FaultInjector& Instance();

    // The n-th call (1-based, counted from now) of `point` fails with `status`;
    // n = 0 disarms. The call counter restarts.
    void FailNth(FaultPoint point, std::uint64_t n, NTSTATUS status);
    // Every call of `point` from the n-th on fails.
    void FailFrom(FaultPoint point, std::uint64_t n, NTSTATUS status);
    // The n-th IOCTL with this code (counted from now) completes with `status`.
    void FailIoctl(ULONG ioctlCode, std::uint64_t n, NTSTATUS status);

    // Counts one call; true (and the status to return) when it must fail.
    bool ShouldFail(FaultPoint point, NTSTATUS* status = nullptr);
    bool ShouldFailIoctl(ULONG ioctlCode, NTSTATUS* status);

    // Calls of `point` seen since the last arming or reset: a dry run tells a
    // sweep how far n has to go.
    std::uint64_t Calls(FaultPoint point) const;
    // Number of injected failures since the last reset.
    std::uint64_t Injected() const { return injected_.load(std::memory_order_relaxed); }

    void Reset();

private:
    struct Arm {
        std::atomic<std::uint64_t> calls{0};
        std::atomic<std::uint64_t> failAt{0};   // 0: disarmed
        std::atomic<bool> sticky{false};        // fail every call from failAt on
        std::atomic<NTSTATUS> status{0};

        void Set(std::uint64_t n, NTSTATUS failStatus, bool everyCallFromN);
    };
    struct IoctlArm {
        std::uint64_t calls = 0;
        std::uint64_t failAt = 0;
        NTSTATUS status = 0;
    };

    Arm arms_[static_cast<unsigned>(FaultPoint::Count)];
    std::atomic<std::uint64_t> injected_{0};
    std::atomic<bool> anyIoctlArmed_{false};
    mutable std::mutex ioctlMutex_;
    std::unordered_map<ULONG, IoctlArm> ioctlArms_;
};

}  // namespace host
