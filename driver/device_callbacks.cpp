// Plug-and-play and power: build the HidDevice at prepare-hardware, run its
// reader between D0 entry and exit, tear it down at release-hardware.
#include <new>

#include "driver/driver.h"
#include "driver/sensor_device.h"
#include "hid/hid_device.h"
#include "tracing/trace.h"

namespace {
constexpr GUID kTraceMessageGuid = {
    0x8B0E5C21, 0x7A3F, 0x4C19, {0xB2, 0x4D, 0x6E, 0x90, 0x1A, 0x37, 0xC8, 0x52}};

// The shape all four callbacks share: no context, STATUS_UNSUCCESSFUL;
// otherwise the body runs and the framework hears success.
template <class Body>
NTSTATUS WithSensorDevice(WDFDEVICE device, Body body)
{
    TRACE_ENTRY();
    SensorDevice* context = GetSensorDevice(device);
    if (context == nullptr) {
        TRACE_ERROR(STATUS_UNSUCCESSFUL);
        TRACE_EXIT(STATUS_UNSUCCESSFUL);
        return STATUS_UNSUCCESSFUL;
    }
    body(*context);
    TRACE_EXIT(STATUS_SUCCESS);
    return STATUS_SUCCESS;
}

bool Running(const SensorDevice& context)
{
    return context.IsPrepared != 0 && context.Device != nullptr;
}

}  // namespace

NTSTATUS PrepareHardware(WDFDEVICE device, WDFCMRESLIST /*resourcesRaw*/, WDFCMRESLIST /*resourcesTranslated*/)
{
    return WithSensorDevice(device, [device](SensorDevice& context) {
        WideCopy(context.FriendlyName, kSensorFriendlyName);
        WideCopy(context.DevicePath, kSensorDevicePath);

        // A prepare-hardware without its release (the framework never does
        // this) must not leak the previous device.
        if (context.Device != nullptr) {
            context.Device->Close();
            delete context.Device;
            context.Device = nullptr;
        }

        auto* hidDevice = new (std::nothrow) HidDevice(device);
        if (hidDevice != nullptr && !hidDevice->IsValid()) {
            delete hidDevice;
            hidDevice = nullptr;
        }
        if (hidDevice == nullptr) {
            // Nothing to open; the device starts without sensors.
            TRACE_ERROR(STATUS_NO_MEMORY, context.FriendlyName);
        } else {
            context.Device = hidDevice;
            const NTSTATUS openStatus = hidDevice->Open(context.FriendlyName, context.DevicePath);
            if (!NT_SUCCESS(openStatus))
                TRACE_ERROR(openStatus, context.FriendlyName);
            const NTSTATUS enumerateStatus = hidDevice->EnumerateSensors();
            if (!NT_SUCCESS(enumerateStatus))
                TRACE_ERROR(enumerateStatus, context.FriendlyName);
        }
        context.IsPrepared = 1;
    });
}

NTSTATUS ReleaseHardware(WDFDEVICE device, WDFCMRESLIST /*resourcesTranslated*/)
{
    return WithSensorDevice(device, [](SensorDevice& context) {
        if (Running(context)) {
            context.Device->Close();
            delete context.Device;
            context.Device = nullptr;
        }
        context.IsPrepared = 0;
    });
}

NTSTATUS D0Entry(WDFDEVICE device, WDF_POWER_DEVICE_STATE /*previousState*/)
{
    return WithSensorDevice(device, [](SensorDevice& context) {
        if (!Running(context))
            return;
        const NTSTATUS status = context.Device->StartReader();
        if (!NT_SUCCESS(status))
            TRACE_ERROR(status, context.FriendlyName);
    });
}

NTSTATUS D0Exit(WDFDEVICE device, WDF_POWER_DEVICE_STATE /*targetState*/)
{
    return WithSensorDevice(device, [](SensorDevice& context) {
        if (!Running(context))
            return;
        const NTSTATUS status = context.Device->StopReader();
        if (!NT_SUCCESS(status))
            TRACE_ERROR(status, context.FriendlyName);
    });
}
