// Makes platform calls fail so that tests can walk every failure path of a
// driver.
//
// Only the driver's calls count. A call counts when it reaches a fault point
// on a thread that is not inside host code: the driver's own code, or a test
// that plays the driver by calling the platform directly. The host marks its
// own code with HostCodeScope (the client acting for the class extension, the
// driver host, the simulated device) and every platform function holds one for
// its whole body (DriverCall), so nothing the host does on its own or on the
// driver's behalf takes a count: one driver call is one count. Where the host
// calls back into the driver (PnP and sensor callbacks, completion routines,
// timers, object cleanup, trace control callbacks, driver threads) it opens a
// DriverCodeScope, and the driver's calls count again.
//
// Two ways to arm:
//   - per point: FailNth(point, n) fails the n-th driver call of that point;
//   - over every point: FailNthCall(n) fails the n-th driver call that
//     reaches any fault point, whatever it is. A whole-lifecycle sweep is one
//     loop:
//         std::uint64_t total = 0;
//         {
//             DriverHost host(...);                       // dry run: counts only
//             RunLifecycle(host);
//             total = FaultInjector::Instance().TotalCalls();
//         }
//         for (std::uint64_t n = 1; n <= total; ++n) {
//             DriverHost host(...);                       // resets the arms too
//             FaultInjector::Instance().FailNthCall(n, STATUS_INSUFFICIENT_RESOURCES);
//             RunLifecycle(host);                         // must end clean
//             // FaultInjector::Instance().LastInjected() names the call failed
//         }
//     Arm after creating the DriverHost: creating a host resets every arm and
//     counter.
//
// A failed call fails the way the platform fails it: NTSTATUS functions
// return the armed status; the others their own failure form (HeapAlloc,
// CoTaskMemAlloc, CreateThread, CreateEventW return null; SetEvent FALSE;
// WaitForSingleObjectEx WAIT_FAILED; CoCreateGuid E_OUTOFMEMORY;
// RegisterTraceGuidsW ERROR_NOT_ENOUGH_MEMORY).
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <optional>
#include <unordered_map>

#include "platform/basetypes.h"

namespace host {

// Every platform call that tests can make fail. Keep in step with FaultPointName().
enum class FaultPoint : unsigned {
    FrameworkMemory,      // WdfMemoryCreate, WdfMemoryCreatePreallocated
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
    ObjectContext,        // WdfObjectAllocateContext
    GuidCreate,           // CoCreateGuid
    EventSet,             // SetEvent
    Wait,                 // WaitForSingleObjectEx
    TraceRegister,        // RegisterTraceGuidsW
    Count
};

const char* FaultPointName(FaultPoint point);

// True on this thread while host code runs (see HostCodeScope).
bool InHostCode();

// Marks host code on this thread: platform calls made inside do not count.
class HostCodeScope {
public:
    HostCodeScope();
    ~HostCodeScope();
    HostCodeScope(const HostCodeScope&) = delete;
    HostCodeScope& operator=(const HostCodeScope&) = delete;
};

// Marks a call from the host into the driver: the driver's platform calls
// inside count again, whatever host code surrounds the callback.
class DriverCodeScope {
public:
    DriverCodeScope();
    ~DriverCodeScope();
    DriverCodeScope(const DriverCodeScope&) = delete;
    DriverCodeScope& operator=(const DriverCodeScope&) = delete;

private:
    int saved_;
};

class FaultInjector {
public:
    static FaultInjector& Instance();

    // The n-th driver call (1-based, counted from now) of `point` fails with
    // `status`; n = 0 disarms. The point's call counter restarts.
    void FailNth(FaultPoint point, std::uint64_t n, NTSTATUS status);
    // Every driver call of `point` from the n-th on fails.
    void FailFrom(FaultPoint point, std::uint64_t n, NTSTATUS status);
    // The n-th driver call (1-based, counted from now) that reaches any fault
    // point fails with `status` (or the call's own failure form); n = 0
    // disarms. Restarts TotalCalls().
    void FailNthCall(std::uint64_t n, NTSTATUS status);
    // The n-th IOCTL with this code (counted from now) completes with `status`.
    void FailIoctl(ULONG ioctlCode, std::uint64_t n, NTSTATUS status);

    // Counts one driver call of `point` (nothing inside host code); true, with
    // the status to return, when it must fail. Platform functions reach this
    // through DriverCall.
    bool ShouldFail(FaultPoint point, NTSTATUS* status = nullptr);
    bool ShouldFailIoctl(ULONG ioctlCode, NTSTATUS* status);

    // Driver calls of `point` since its last arming or the last reset: a dry
    // run tells a sweep how far n has to go.
    std::uint64_t Calls(FaultPoint point) const;
    // Driver calls of every point since FailNthCall or the last reset.
    std::uint64_t TotalCalls() const { return totalCalls_.load(std::memory_order_relaxed); }
    // Number of injected failures since the last reset.
    std::uint64_t Injected() const { return injected_.load(std::memory_order_relaxed); }
    // The point of the latest injected failure.
    std::optional<FaultPoint> LastInjected() const;

    // Disarms everything and zeroes every counter. Creating a DriverHost does it.
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

    void RecordInjection(FaultPoint point);

    Arm arms_[static_cast<unsigned>(FaultPoint::Count)];
    std::atomic<std::uint64_t> totalCalls_{0};
    std::atomic<std::uint64_t> anyFailAt_{0};
    std::atomic<NTSTATUS> anyStatus_{0};
    std::atomic<std::uint64_t> injected_{0};
    std::atomic<unsigned> lastInjected_{static_cast<unsigned>(FaultPoint::Count)};
    std::atomic<bool> anyIoctlArmed_{false};
    mutable std::mutex ioctlMutex_;
    std::unordered_map<ULONG, IoctlArm> ioctlArms_;
};

// Opened first thing by a platform function with a fault point: counts the
// call when it comes from driver code, tells whether it must fail, and keeps
// the rest of the function in host code so that nested platform calls do not
// count again. Also the place where a deterministic host parks a driver
// thread held at this point (see host/framework/threads.h).
class DriverCall {
public:
    explicit DriverCall(FaultPoint point);
    DriverCall(const DriverCall&) = delete;
    DriverCall& operator=(const DriverCall&) = delete;
    ~DriverCall() = default;

    // True when the call must fail; *status (if given) gets the armed status.
    bool Fails(NTSTATUS* status = nullptr);

private:
    FaultPoint point_;
    bool counted_;
    HostCodeScope scope_;
};

// Hook a deterministic host installs to park driver threads at hold points;
// called before the call is counted, outside host code.
using HoldHook = void (*)(FaultPoint point);
void SetHoldHook(HoldHook hook);

}  // namespace host
