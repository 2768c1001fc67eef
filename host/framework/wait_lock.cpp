#include "host/framework/wait_lock.h"

#include <chrono>
#include <limits>

#include "host/common/fault_injection.h"
#include "host/framework/clock.h"
#include "host/framework/handle_check.h"
#include "host/framework/runtime.h"
#include "host/framework/threads.h"
#include "host/framework/violations.h"

namespace host::framework {

NTSTATUS WaitLockObject::Acquire(LONGLONG timeoutTicks)
{
    {
        std::unique_lock lock(mutex_);
        if (held_ && owner_ == std::this_thread::get_id() && timeoutTicks != 0) {
            ReportViolation("WdfWaitLockAcquire: the thread already holds this lock (deadlock)");
            return STATUS_INVALID_DEVICE_STATE;
        }
        if (!scheduling::Scheduled()) {
            const auto free = [this] { return !held_; };
            if (timeoutTicks < 0) {
                released_.wait(lock, free);
            } else if (!released_.wait_for(lock, std::chrono::microseconds(timeoutTicks / 10), free)) {
                return STATUS_TIMEOUT;
            }
            held_ = true;
            owner_ = std::this_thread::get_id();
            return STATUS_SUCCESS;
        }
    }
    const auto tryTake = [this] {
        std::lock_guard lock(mutex_);
        if (held_)
            return false;
        held_ = true;
        owner_ = std::this_thread::get_id();
        return true;
    };
    const auto free = [this] {
        std::lock_guard lock(mutex_);
        return !held_;
    };
    switch (scheduling::Wait(tryTake, free, timeoutTicks)) {
    case scheduling::WaitResult::Satisfied:
        return STATUS_SUCCESS;
    case scheduling::WaitResult::TimedOut:
        return STATUS_TIMEOUT;
    case scheduling::WaitResult::Deadlock:
        break;
    }
    ReportViolation("WdfWaitLockAcquire: the lock is held by a thread that cannot release it (deadlock)");
    return STATUS_INVALID_DEVICE_STATE;
}

void WaitLockObject::Release()
{
    {
        std::lock_guard lock(mutex_);
        if (!held_) {
            ReportViolation("WdfWaitLockRelease: the lock is not held");
            return;
        }
        held_ = false;
        owner_ = {};
    }
    released_.notify_one();
}

void WaitLockObject::OnDeleting()
{
    std::lock_guard lock(mutex_);
    if (held_)
        ReportViolation("WdfObjectDelete: wait lock deleted while held");
}

}  // namespace host::framework

using namespace host::framework;

extern "C" NTSTATUS WdfWaitLockCreate(PWDF_OBJECT_ATTRIBUTES LockAttributes, WDFWAITLOCK* Lock)
{
    if (Lock == nullptr)
        return STATUS_INVALID_PARAMETER;
    *Lock = nullptr;
    NTSTATUS status = STATUS_SUCCESS;
    host::DriverCall driverCall(host::FaultPoint::WaitLockCreate);
    if (driverCall.Fails(&status))
        return status;
    WaitLockObject* lock = nullptr;
    status = Object::Create(Runtime::Get().Driver(), LockAttributes, &lock);
    if (!NT_SUCCESS(status))
        return status;
    *Lock = static_cast<WDFWAITLOCK>(lock->Handle());
    return STATUS_SUCCESS;
}

// Timeout: null waits forever; 0 only tries; negative is relative. A positive
// (absolute) time is measured against the host clock.
extern "C" NTSTATUS WdfWaitLockAcquire(WDFWAITLOCK Lock, LONGLONG* Timeout)
{
    WaitLockObject* lock = Resolve<WaitLockObject>(Lock, "WdfWaitLockAcquire");
    if (lock == nullptr)
        return STATUS_INVALID_HANDLE;
    LONGLONG ticks = -1;
    if (Timeout != nullptr) {
        if (*Timeout < 0)
            ticks = *Timeout == std::numeric_limits<LONGLONG>::min() ? std::numeric_limits<LONGLONG>::max() : -*Timeout;
        else if (*Timeout == 0)
            ticks = 0;
        else
            ticks = *Timeout > Runtime::Get().Clock().Now() ? *Timeout - Runtime::Get().Clock().Now() : 0;
    }
    // Waits beyond a day would overflow the steady clock; treat them as forever.
    constexpr LONGLONG kDay = 24LL * 3600 * 10'000'000;
    return lock->Acquire(ticks > kDay ? -1 : ticks);
}

extern "C" void WdfWaitLockRelease(WDFWAITLOCK Lock)
{
    if (WaitLockObject* lock = Resolve<WaitLockObject>(Lock, "WdfWaitLockRelease"))
        lock->Release();
}
