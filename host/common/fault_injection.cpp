#include "host/common/fault_injection.h"

#include <iterator>

namespace host {

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
    };
    static_assert(std::size(names) == static_cast<unsigned>(FaultPoint::Count));
    const auto index = static_cast<unsigned>(point);
    return index < std::size(names) ? names[index] : "?";
}

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

void FaultInjector::FailIoctl(ULONG ioctlCode, std::uint64_t n, NTSTATUS status)
{
    std::lock_guard lock(ioctlMutex_);
    ioctlArms_[ioctlCode] = IoctlArm{0, n, status};
    anyIoctlArmed_.store(true, std::memory_order_release);
}

bool FaultInjector::ShouldFail(FaultPoint point, NTSTATUS* status)
{
    Arm& arm = arms_[static_cast<unsigned>(point)];
    const std::uint64_t call = arm.calls.fetch_add(1, std::memory_order_relaxed) + 1;
    const std::uint64_t failAt = arm.failAt.load(std::memory_order_acquire);
    if (failAt == 0)
        return false;
    const bool fail = arm.sticky.load(std::memory_order_relaxed) ? call >= failAt : call == failAt;
    if (!fail)
        return false;
    if (status != nullptr)
        *status = arm.status.load(std::memory_order_relaxed);
    injected_.fetch_add(1, std::memory_order_relaxed);
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

void FaultInjector::Reset()
{
    for (Arm& arm : arms_)
        arm.Set(0, 0, false);
    {
        std::lock_guard lock(ioctlMutex_);
        ioctlArms_.clear();
        anyIoctlArmed_.store(false, std::memory_order_relaxed);
    }
    injected_.store(0, std::memory_order_relaxed);
}

}  // namespace host
