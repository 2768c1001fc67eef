#include "host/framework/timer.h"

#include <limits>

#include "host/common/fault_injection.h"
#include "host/framework/handle_check.h"
#include "host/framework/runtime.h"

namespace host::framework {

TimerObject::TimerObject(const WDF_TIMER_CONFIG& config) : Object(kKind), state_(std::make_shared<TimerState>())
{
    state_->handle = static_cast<WDFTIMER>(Handle());
    state_->callback = config.EvtTimerFunc;
    state_->periodTicks = static_cast<LONGLONG>(config.Period) * kTicksPerMillisecond;
}

BOOLEAN TimerObject::Start(LONGLONG dueTime)
{
    const LONGLONG now = Runtime::Get().Clock().Now();
    LONGLONG due = now;
    if (dueTime < 0)
        due = dueTime < -(std::numeric_limits<LONGLONG>::max() - now) ? std::numeric_limits<LONGLONG>::max()
                                                                      : now - dueTime;
    else if (dueTime > 0)
        due = dueTime;
    return Runtime::Get().Dispatch().StartTimer(state_, due) ? TRUE : FALSE;
}

BOOLEAN TimerObject::Stop(bool wait)
{
    return Runtime::Get().Dispatch().StopTimer(state_, wait) ? TRUE : FALSE;
}

void TimerObject::OnDeleting()
{
    Runtime::Get().Dispatch().RetireTimer(state_);
}

}  // namespace host::framework

using namespace host::framework;

// The parent comes from the attributes and is required.
extern "C" NTSTATUS WdfTimerCreate(PWDF_TIMER_CONFIG Config, PWDF_OBJECT_ATTRIBUTES Attributes, WDFTIMER* Timer)
{
    if (Timer == nullptr)
        return STATUS_INVALID_PARAMETER;
    *Timer = nullptr;
    if (Config == nullptr || Config->EvtTimerFunc == nullptr || Attributes == nullptr ||
        Attributes->ParentObject == nullptr)
        return STATUS_INVALID_PARAMETER;
    if (Config->Size != sizeof(WDF_TIMER_CONFIG))
        return STATUS_INFO_LENGTH_MISMATCH;
    NTSTATUS status = STATUS_SUCCESS;
    host::DriverCall driverCall(host::FaultPoint::TimerCreate);
    if (driverCall.Fails(&status))
        return status;
    TimerObject* timer = nullptr;
    status = Object::Create(nullptr, Attributes, &timer, *Config);
    if (!NT_SUCCESS(status))
        return status;
    *Timer = static_cast<WDFTIMER>(timer->Handle());
    return STATUS_SUCCESS;
}

extern "C" BOOLEAN WdfTimerStart(WDFTIMER Timer, LONGLONG DueTime)
{
    TimerObject* timer = Resolve<TimerObject>(Timer, "WdfTimerStart");
    return timer != nullptr ? timer->Start(DueTime) : FALSE;
}

extern "C" BOOLEAN WdfTimerStop(WDFTIMER Timer, BOOLEAN Wait)
{
    TimerObject* timer = Resolve<TimerObject>(Timer, "WdfTimerStop");
    return timer != nullptr ? timer->Stop(Wait != FALSE) : FALSE;
}

extern "C" WDFOBJECT WdfTimerGetParentObject(WDFTIMER Timer)
{
    TimerObject* timer = Resolve<TimerObject>(Timer, "WdfTimerGetParentObject");
    if (timer == nullptr)
        return nullptr;
    Object* parent = timer->Parent();
    return parent != nullptr ? parent->Handle() : nullptr;
}
