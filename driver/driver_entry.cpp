#include "driver/driver.h"
#include "driver/sensor_callbacks.h"
#include "driver/sensor_device.h"
#include "platform/sensorscx.h"
#include "tracing/trace.h"

namespace {
constexpr GUID kTraceMessageGuid = {
    0x3F1C2B7A, 0x5D44, 0x4E0B, {0x9A, 0x61, 0x2C, 0x8E, 0x14, 0x73, 0xB0, 0x5D}};
}  // namespace

NTSTATUS DriverEntry(PDRIVER_OBJECT driverObject, PUNICODE_STRING registryPath)
{
    // Tracing first, so that everything after it can be seen.
    StartTracing(u"UMDF Driver");
    TRACE_ENTRY();

    WDF_DRIVER_CONFIG config = {};
    config.Size = sizeof(config);
    config.EvtDriverDeviceAdd = DeviceAdd;
    config.EvtDriverUnload = DriverUnload;
    const NTSTATUS status = WdfDriverCreate(driverObject, registryPath, nullptr, &config, nullptr);
    if (!NT_SUCCESS(status)) {
        TRACE_ERROR(status);
        TRACE_EXIT(status);
        // A driver whose entry fails is never unloaded: nothing else would
        // unregister the provider.
        StopTracing();
        return status;
    }

    TRACE_EXIT(status);
    return status;
}

void DriverUnload(WDFDRIVER /*driver*/)
{
    TRACE_ENTRY();
    TRACE_EXIT(STATUS_SUCCESS);
    StopTracing();
}

NTSTATUS DeviceAdd(WDFDRIVER /*driver*/, PWDFDEVICE_INIT deviceInit)
{
    TRACE_ENTRY();
    WdfDeviceInitSetPowerPolicyOwnership(deviceInit, FALSE);

    WDF_OBJECT_ATTRIBUTES attributes;
    WDF_OBJECT_ATTRIBUTES_INIT(&attributes);
    WDF_OBJECT_ATTRIBUTES_SET_CONTEXT_TYPE(&attributes, WDF_GET_CONTEXT_TYPE_INFO(SensorDevice));

    NTSTATUS status = SensorsCxDeviceInitConfig(deviceInit, &attributes, 0);
    if (!NT_SUCCESS(status)) {
        TRACE_ERROR(status);
        TRACE_EXIT(status);
        return status;
    }

    WDF_PNPPOWER_EVENT_CALLBACKS callbacks = {};
    callbacks.Size = sizeof(callbacks);
    callbacks.EvtDeviceD0Entry = D0Entry;
    callbacks.EvtDeviceD0Exit = D0Exit;
    callbacks.EvtDevicePrepareHardware = PrepareHardware;
    callbacks.EvtDeviceReleaseHardware = ReleaseHardware;
    WdfDeviceInitSetPnpPowerEventCallbacks(deviceInit, &callbacks);

    WDFDEVICE device = nullptr;
    status = WdfDeviceCreate(&deviceInit, &attributes, &device);
    if (!NT_SUCCESS(status)) {
        TRACE_ERROR(status);
        TRACE_EXIT(status);
        return status;
    }

    SENSOR_CONTROLLER_CONFIG controller = SensorControllerConfig();
    status = SensorsCxDeviceInitialize(device, &controller);
    if (!NT_SUCCESS(status))
        TRACE_ERROR(status);

    TRACE_EXIT(status);
    return status;
}
