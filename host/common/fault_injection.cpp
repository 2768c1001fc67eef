#include "host/common/fault_injection.h"

#include <iterator>

namespace host {
namespace {

thread_local int t_hostCodeDepth = 0;
std::atomic<HoldHook> g_holdHook{nullptr};

}  // namespace

const char* FaultPointName(FaultPoint point)
{
    static constexpr const char* names[] = {
        "FrameworkMemory",
        "DriverHeap",
        "CoTaskMem",
        "IoTargetCreate",
        "IoTargetOpen",
        "RequestCreate",
        "RequestSend",
        "DriverCreate",
        "DeviceCreate",
        "SensorsCxDeviceInitConfig",
        "SensorsCxDeviceInitialize",
        "SensorsCxSensorCreate",
        "SensorsCxSensorInitialize",
        "SensorsCxSensorDataReady",
        "SensorsCxHistoryRetrievalComplete",
        "WaitLockCreate",
        "TimerCreate",
        "ThreadCreate",
        "EventCreate",
        "RegistryOpenKey",
        "RegistryCreateKey",
        "RegistryQueryValue",
        "RegistryAssignValue",
        "ObjectContext",
        "GuidCreate",
        "EventSet",
        "Wait",
        "TraceRegister",
    };
    static_assert(std::size(names) == static_cast<unsigned>(FaultPoint::Count));
    const auto index = static_cast<unsigned>(point);
    return index < std::size(names) ? names[index] : "?";
}

bool InHostCode() { return t_hostCodeDepth > 0; }

HostCodeScope::HostCodeScope() { ++t_hostCodeDepth; }
HostCodeScope::~HostCodeScope() { --t_hostCodeDepth; }

DriverCodeScope::DriverCodeScope() : saved_(t_hostCodeDepth) { t_hostCodeDepth = 0; }
DriverCodeScope::~DriverCodeScope() { t_hostCodeDepth = saved_; }

void SetHoldHook(HoldHook hook) { g_holdHook.store(hook, std::memory_order_release); }

FaultInjector& FaultInjector::Instance()
{
    static FaultInjector instance;
    return instance;
}

void FaultInjector::Arm::Set(std::uint64_t n, NTSTATUS failStatus, bool everyCallFromN)
{
    status.store(failStatus, std::memory_order_relaxed);
    sticky.store(everyCallFromN, std::memory_order_relaxed);
    calls.store(0, std::memory_order_relaxed);
    failAt.store(n, std::memory_order_release);
}

void FaultInjector::FailNth(FaultPoint point, std::uint64_t n, NTSTATUS status)
{
    arms_[static_cast<unsigned>(point)].Set(n, status, false);
}

void FaultInjector::FailFrom(FaultPoint point, std::uint64_t n, NTSTATUS status)
{
    arms_[static_cast<unsigned>(point)].Set(n, status, true);
}

void FaultInjector::FailNthCall(std::uint64_t n, NTSTATUS status)
{
    anyStatus_.store(status, std::memory_order_relaxed);
    totalCalls_.store(0, std::memory_order_relaxed);
    anyFailAt_.store(n, std::memory_order_release);
}

void FaultInjector::FailIoctl(ULONG ioctlCode, std::uint64_t n, NTSTATUS status)
{
    std::lock_guard lock(ioctlMutex_);
    ioctlArms_[ioctlCode] = IoctlArm{0, n, status};
    anyIoctlArmed_.store(true, std::memory_order_release);
}

void FaultInjector::RecordInjection(FaultPoint point)
{
    lastInjected_.store(static_cast<unsigned>(point), std::memory_order_relaxed);
    injected_.fetch_add(1, std::memory_order_relaxed);
}

bool FaultInjector::ShouldFail(FaultPoint point, NTSTATUS* status)
{
    if (InHostCode())
        return false;
    const std::uint64_t total = totalCalls_.fetch_add(1, std::memory_order_relaxed) + 1;
    Arm& arm = arms_[static_cast<unsigned>(point)];
    const std::uint64_t call = arm.calls.fetch_add(1, std::memory_order_relaxed) + 1;
    if (total == anyFailAt_.load(std::memory_order_acquire)) {
        if (status != nullptr)
            *status = anyStatus_.load(std::memory_order_relaxed);
        RecordInjection(point);
        return true;
    }
    const std::uint64_t failAt = arm.failAt.load(std::memory_order_acquire);
    if (failAt == 0)
        return false;
    const bool fail = arm.sticky.load(std::memory_order_relaxed) ? call >= failAt : call == failAt;
    if (!fail)
        return false;
    if (status != nullptr)
        *status = arm.status.load(std::memory_order_relaxed);
    RecordInjection(point);
    return true;
}

bool FaultInjector::ShouldFailIoctl(ULONG ioctlCode, NTSTATUS* status)
{
    if (!anyIoctlArmed_.load(std::memory_order_acquire))
        return false;
    std::lock_guard lock(ioctlMutex_);
    auto it = ioctlArms_.find(ioctlCode);
    if (it == ioctlArms_.end() || it->second.failAt == 0)
        return false;
    if (++it->second.calls != it->second.failAt)
        return false;
    if (status != nullptr)
        *status = it->second.status;
    injected_.fetch_add(1, std::memory_order_relaxed);
    return true;
}

std::uint64_t FaultInjector::Calls(FaultPoint point) const
{
    return arms_[static_cast<unsigned>(point)].calls.load(std::memory_order_relaxed);
}

std::optional<FaultPoint> FaultInjector::LastInjected() const
{
    const unsigned last = lastInjected_.load(std::memory_order_relaxed);
    if (last >= static_cast<unsigned>(FaultPoint::Count))
        return std::nullopt;
    return static_cast<FaultPoint>(last);
}

void FaultInjector::Reset()
{
    for (Arm& arm : arms_)
        arm.Set(0, 0, false);
    {
        std::lock_guard lock(ioctlMutex_);
        ioctlArms_.clear();
        anyIoctlArmed_.store(false, std::memory_order_relaxed);
    }
    anyFailAt_.store(0, std::memory_order_relaxed);
    anyStatus_.store(0, std::memory_order_relaxed);
    totalCalls_.store(0, std::memory_order_relaxed);
    injected_.store(0, std::memory_order_relaxed);
    lastInjected_.store(static_cast<unsigned>(FaultPoint::Count), std::memory_order_relaxed);
}

namespace {

// Parks a held driver thread (deterministic hosts), then tells whether the
// call is the driver's.
bool EnterDriverCall(FaultPoint point)
{
    if (InHostCode())
        return false;
    if (HoldHook hook = g_holdHook.load(std::memory_order_acquire))
        hook(point);
    return true;
}

}  // namespace

DriverCall::DriverCall(FaultPoint point) : point_(point), counted_(EnterDriverCall(point)) {}

bool DriverCall::Fails(NTSTATUS* status)
{
    if (!counted_)
        return false;
    // Counted as if from outside: the scope this call holds is the call's own.
    DriverCodeScope outside;
    return FaultInjector::Instance().ShouldFail(point_, status);
}

}  // namespace host
