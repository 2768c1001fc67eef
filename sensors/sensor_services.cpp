// The wait lock and one-shot timer HidSensor offers to the history code.
#include "sensors/hid_sensor.h"
#include "tracing/trace.h"

namespace {
constexpr GUID kTraceMessageGuid = {
    0xCE9299EE, 0xAD76, 0x4B50, {0xA2, 0xFD, 0xA9, 0xF1, 0x55, 0xCA, 0xDB, 0x36}};
constexpr LONGLONG kHundredNanosecondsPerMillisecond = 10'000;
}  // namespace

NTSTATUS HidSensor::CreateLock()
{
    TRACE_ENTRY();
    const NTSTATUS status = WdfWaitLockCreate(nullptr, &record_->WaitLock);
    if (!NT_SUCCESS(status))
        TRACE_ERROR(status, GetFriendlyName());
    TRACE_EXIT(status);
    return status;
}

NTSTATUS HidSensor::AcquireLock()
{
    TRACE_ENTRY();
    if (record_->WaitLock == nullptr) {
        TRACE_ERROR(STATUS_INSUFFICIENT_RESOURCES, GetFriendlyName());
        TRACE_EXIT(STATUS_INSUFFICIENT_RESOURCES);
        return STATUS_INSUFFICIENT_RESOURCES;
    }
    const NTSTATUS status = WdfWaitLockAcquire(record_->WaitLock, nullptr);
    TRACE_EXIT(status);
    return status;
}

void HidSensor::ReleaseLock()
{
    TRACE_ENTRY();
    if (record_->WaitLock == nullptr)
        TRACE_WARNING(GetFriendlyName());
    else
        WdfWaitLockRelease(record_->WaitLock);
    TRACE_EXIT(STATUS_SUCCESS);
}

void HidSensor::DeleteLock()
{
    TRACE_ENTRY();
    if (record_->WaitLock != nullptr) {
        WdfObjectDelete(record_->WaitLock);
        record_->WaitLock = nullptr;
    }
    TRACE_EXIT(STATUS_SUCCESS);
}

NTSTATUS HidSensor::CreateTimer(PWDF_TIMER_CONFIG config, PWDF_OBJECT_ATTRIBUTES attributes)
{
    TRACE_ENTRY();
    if (config == nullptr || attributes == nullptr) {
        TRACE_ERROR(STATUS_INVALID_PARAMETER, GetFriendlyName());
        TRACE_EXIT(STATUS_INVALID_PARAMETER);
        return STATUS_INVALID_PARAMETER;
    }
    const NTSTATUS status = WdfTimerCreate(config, attributes, &record_->Timer);
    if (!NT_SUCCESS(status))
        TRACE_ERROR(status, GetFriendlyName());
    TRACE_EXIT(status);
    return status;
}

bool HidSensor::StartTimer(ULONG milliseconds)
{
    TRACE_ENTRY();
    bool alreadyQueued = false;
    if (record_->Timer == nullptr) {
        TRACE_WARNING(GetFriendlyName());
    } else {
        const LONGLONG dueTime = -static_cast<LONGLONG>(milliseconds) * kHundredNanosecondsPerMillisecond;
        alreadyQueued = WdfTimerStart(record_->Timer, dueTime) != FALSE;
    }
    TRACE_EXIT(STATUS_SUCCESS);
    return alreadyQueued;
}

bool HidSensor::StopTimer()
{
    TRACE_ENTRY();
    bool cancelled = false;
    if (record_->Timer == nullptr)
        TRACE_WARNING(GetFriendlyName());
    else
        cancelled = WdfTimerStop(record_->Timer, TRUE) != FALSE;
    TRACE_EXIT(STATUS_SUCCESS);
    return cancelled;
}

void HidSensor::DeleteTimer()
{
    TRACE_ENTRY();
    if (record_->Timer != nullptr) {
        WdfObjectDelete(record_->Timer);
        record_->Timer = nullptr;
    }
    TRACE_EXIT(STATUS_SUCCESS);
}
