#include "hid/hid_device.h"

#include <cstring>

#include "hid/hid_io_target.h"
#include "platform/hidclass.h"
#include "sensors/hid_sensor.h"
#include "tracing/trace.h"

namespace {
constexpr GUID kTraceMessageGuid = {
    0xE526F3C3, 0x1367, 0x42E3, {0xBD, 0x46, 0x16, 0x07, 0xD3, 0x5D, 0xA6, 0x63}};

constexpr int kFeatureReportAttempts = 2;

bool AllZero(const BYTE* bytes, ULONG length)
{
    for (ULONG i = 0; i < length; ++i) {
        if (bytes[i] != 0)
            return false;
    }
    return true;
}
}  // namespace

HidDevice::HidDevice(WDFDEVICE device, const SensorFactory* factory) noexcept
{
    state_ = new (std::nothrow) HidDeviceState;
    if (state_ == nullptr)
        return;
    state_->Device = device;
    state_->Factory = factory != nullptr ? factory : &SensorFactory::Default();
}

HidDevice::~HidDevice()
{
    if (state_ == nullptr)
        return;
    // The reader goes first: closing its target waits for a read still
    // completing, which may be dispatching to the sensors.
    delete state_->ReaderTarget;
    state_->ReaderTarget = nullptr;
    state_->Sensors.Clear();
    state_->SensorCount = 0;
    delete state_->IoctlTarget;
    state_->IoctlTarget = nullptr;
    delete state_;
    state_ = nullptr;
}

NTSTATUS HidDevice::Open(PCWSTR friendlyName, PCWSTR devicePath)
{
    TRACE_ENTRY();
    if (IsOpen()) {
        TRACE_ERROR(STATUS_UNSUCCESSFUL, state_->FriendlyName);
        TRACE_EXIT(STATUS_UNSUCCESSFUL);
        return STATUS_UNSUCCESSFUL;
    }
    if (friendlyName != nullptr)
        WideCopy(state_->FriendlyName, friendlyName);
    if (devicePath != nullptr)
        WideCopy(state_->DevicePath, devicePath);

    if (state_->ReaderTarget == nullptr)
        state_->ReaderTarget = new (std::nothrow) HidIoTarget;
    if (state_->ReaderTarget == nullptr) {
        TRACE_ERROR(STATUS_NO_MEMORY, state_->FriendlyName);
        TRACE_EXIT(STATUS_NO_MEMORY);
        return STATUS_NO_MEMORY;
    }
    // A reader that cannot open only means no input reports; discovery goes on.
    const NTSTATUS readerStatus = state_->ReaderTarget->Open(state_->Device, DispatchInputReports, this);
    if (!NT_SUCCESS(readerStatus))
        TRACE_ERROR(readerStatus, state_->FriendlyName);

    if (state_->IoctlTarget == nullptr)
        state_->IoctlTarget = new (std::nothrow) HidIoTarget;
    if (state_->IoctlTarget == nullptr) {
        TRACE_ERROR(STATUS_NO_MEMORY, state_->FriendlyName);
        TRACE_EXIT(STATUS_NO_MEMORY);
        return STATUS_NO_MEMORY;
    }
    const NTSTATUS status = state_->IoctlTarget->Open(state_->Device, nullptr, nullptr);
    if (!NT_SUCCESS(status))
        TRACE_ERROR(status, state_->FriendlyName);

    state_->IsOpen.store(1, std::memory_order_relaxed);
    TRACE_EXIT(status);
    return status;
}

void HidDevice::Close()
{
    TRACE_ENTRY();
    StopReader();
    for (std::size_t i = 0; i < state_->Sensors.Size(); ++i) {
        HidSensor* sensor = state_->Sensors[i];
        const NTSTATUS status = sensor->Uninitialize();
        if (!NT_SUCCESS(status))
            TRACE_ERROR(status, sensor->GetFriendlyName());
    }
    state_->IsOpen.store(0, std::memory_order_relaxed);
    TRACE_EXIT(STATUS_SUCCESS);
}

NTSTATUS HidDevice::StartReader()
{
    TRACE_ENTRY();
    NTSTATUS status = STATUS_UNSUCCESSFUL;
    if (state_->ReaderTarget != nullptr)
        status = state_->ReaderTarget->SubmitRead();
    if (!NT_SUCCESS(status))
        TRACE_ERROR(status, state_->FriendlyName);
    TRACE_EXIT(status);
    return status;
}

NTSTATUS HidDevice::StopReader()
{
    TRACE_ENTRY();
    if (state_->ReaderTarget != nullptr)
        state_->ReaderTarget->Stop();
    TRACE_EXIT(STATUS_SUCCESS);
    return STATUS_SUCCESS;
}

NTSTATUS HidDevice::GetFeatureReport(UCHAR reportId, BYTE* buffer, ULONG length, PCWSTR name)
{
    TRACE_ENTRY();
    // A length of 0 (a collection without feature reports has
    // FeatureReportByteLength 0) takes the same two attempts: byte 0 of the
    // caller's buffer gets the report ID as always, and the framework's answer
    // to an empty output buffer is the result.
    if (!IsOpen() || buffer == nullptr || length > kMaxFeatureReportBytes) {
        TRACE_ERROR(STATUS_UNSUCCESSFUL, name, static_cast<ULONG>(reportId), length);
        TRACE_EXIT(STATUS_UNSUCCESSFUL);
        return STATUS_UNSUCCESSFUL;
    }

    NTSTATUS status = STATUS_UNSUCCESSFUL;
    for (int attempt = 0; attempt < kFeatureReportAttempts; ++attempt) {
        std::memset(buffer, 0, length);
        buffer[0] = reportId;  // callers' buffers hold at least one byte
        status = state_->IoctlTarget->SendIoctlSynchronously(buffer, length, IOCTL_HID_GET_FEATURE,
                                                             nullptr);
        if (!NT_SUCCESS(status)) {
            TRACE_ERROR(status, name, static_cast<ULONG>(reportId));
            continue;
        }
        if (AllZero(buffer, length)) {
            // The device had nothing yet; the second all-zero answer stands.
            TRACE_WARNING(name, static_cast<ULONG>(reportId));
            continue;
        }
        if (buffer[0] != reportId) {
            status = STATUS_UNSUCCESSFUL;
            TRACE_ERROR(status, name, static_cast<ULONG>(reportId), static_cast<ULONG>(buffer[0]));
        }
        break;
    }
    TRACE_EXIT(status);
    return status;
}

NTSTATUS HidDevice::DispatchInputReports(BYTE* reports, ULONG length, void* context)
{
    auto* device = static_cast<HidDevice*>(context);
    if (device == nullptr || reports == nullptr) {
        TRACE_ERROR(STATUS_INVALID_PARAMETER);
        return STATUS_INVALID_PARAMETER;
    }
    return device->RouteReports(reports, length);
}

NTSTATUS HidDevice::RouteReports(BYTE* reports, ULONG length)
{
    TRACE_ENTRY();
    const ULONG reportLength = state_->Caps.InputReportByteLength;
    const ULONG reportCount = reportLength == 0 ? 0 : length / reportLength;
    const ULONG sensorCount = state_->SensorCount;

    HidSensor* target = nullptr;
    NTSTATUS status = STATUS_SUCCESS;
    for (ULONG i = 0; i < reportCount; ++i) {
        // A read of one report is delivered whole; otherwise each report has
        // the collection's length and a trailing partial report is dropped.
        BYTE* report = reportCount > 1 ? reports + static_cast<std::size_t>(i) * reportLength : reports;
        const ULONG thisLength = reportCount > 1 ? reportLength : length;

        if (sensorCount == 1) {
            target = state_->Sensors[0];
        } else if (sensorCount >= 2) {
            const ULONG reportId = report[0];
            // An ID that names no sensor belongs to the previous report's sensor.
            if (reportId >= 1 && reportId <= sensorCount)
                target = state_->Sensors[reportId - 1];
        }
        if (target == nullptr) {
            status = STATUS_UNSUCCESSFUL;
            TRACE_ERROR(status, static_cast<ULONG>(report[0]), i);
            break;
        }
        status = target->ProcessInputReport(report, thisLength, i == 0 ? 1u : 0u);
        if (!NT_SUCCESS(status)) {
            // The rest of this read is dropped; the next read starts afresh.
            TRACE_ERROR(status, target->GetFriendlyName(), i);
            break;
        }
    }
    TRACE_EXIT(status);
    return status;
}
