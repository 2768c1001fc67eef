#include "tests/driver/test_driver_module.h"

#include "platform/sensorscx.h"
#include "sensors/hid_sensor.h"
#include "sensors/sensor_instance_extension.h"
#include "tracing/trace_provider.h"

namespace {

// The fifteen sensor callbacks: each finds the sensor object through the
// SENSOROBJECT's SENSOR_INSTANCE_EXTENSION context and calls the matching
// operation, as the driver's trampolines do.
template <class Call>
NTSTATUS Dispatch(SENSOROBJECT handle, Call call)
{
    SENSOR_INSTANCE_EXTENSION* context = GetSensorInstanceExtension(handle);
    if (context == nullptr || context->Sensor == nullptr)
        return STATUS_UNSUCCESSFUL;
    return call(*context->Sensor);
}

SENSOR_CONTROLLER_CONFIG TestSensorCallbacks()
{
    SENSOR_CONTROLLER_CONFIG config = {};
    config.Size = sizeof(config);
    config.DriverIsPowerPolicyOwner = WdfTrue;
    config.EvtSensorStart = [](SENSOROBJECT h) { return Dispatch(h, [&](HidSensor& s) { return s.Start(h); }); };
    config.EvtSensorStop = [](SENSOROBJECT h) { return Dispatch(h, [&](HidSensor& s) { return s.Stop(h); }); };
    config.EvtSensorGetSupportedDataFields = [](SENSOROBJECT h, PSENSOR_PROPERTY_LIST l, ULONG* n) {
        return Dispatch(h, [&](HidSensor& s) { return s.GetSupportedDataFields(h, l, n); });
    };
    config.EvtSensorGetDataFieldProperties = [](SENSOROBJECT h, const PROPERTYKEY* k, PSENSOR_COLLECTION_LIST l,
                                                ULONG* n) {
        return Dispatch(h, [&](HidSensor& s) { return s.GetDataFieldProperties(h, k, l, n); });
    };
    config.EvtSensorGetDataInterval = [](SENSOROBJECT h, ULONG* ms) {
        return Dispatch(h, [&](HidSensor& s) { return s.GetDataInterval(h, ms); });
    };
    config.EvtSensorSetDataInterval = [](SENSOROBJECT h, ULONG ms) {
        return Dispatch(h, [&](HidSensor& s) { return s.SetDataInterval(h, ms); });
    };
    config.EvtSensorGetDataThresholds = [](SENSOROBJECT h, PSENSOR_COLLECTION_LIST l, ULONG* n) {
        return Dispatch(h, [&](HidSensor& s) { return s.GetDataThresholds(h, l, n); });
    };
    config.EvtSensorSetDataThresholds = [](SENSOROBJECT h, PSENSOR_COLLECTION_LIST l) {
        return Dispatch(h, [&](HidSensor& s) { return s.SetDataThresholds(h, l); });
    };
    config.EvtSensorGetProperties = [](SENSOROBJECT h, PSENSOR_COLLECTION_LIST l, ULONG* n) {
        return Dispatch(h, [&](HidSensor& s) { return s.GetProperties(h, l, n); });
    };
    config.EvtSensorDeviceIoControl = [](SENSOROBJECT h, WDFREQUEST r, SIZE_T out, SIZE_T in, ULONG code) {
        return Dispatch(h, [&](HidSensor& s) { return s.DeviceIoControl(h, r, out, in, code); });
    };
    config.EvtSensorStartHistory = [](SENSOROBJECT h) {
        return Dispatch(h, [&](HidSensor& s) { return s.StartHistory(h); });
    };
    config.EvtSensorStopHistory = [](SENSOROBJECT h) {
        return Dispatch(h, [&](HidSensor& s) { return s.StopHistory(h); });
    };
    config.EvtSensorClearHistory = [](SENSOROBJECT h) {
        return Dispatch(h, [&](HidSensor& s) { return s.ClearHistory(h); });
    };
    config.EvtSensorStartHistoryRetrieval = [](SENSOROBJECT h, PSENSOR_COLLECTION_LIST l, ULONG n) {
        return Dispatch(h, [&](HidSensor& s) { return s.StartHistoryRetrieval(h, l, n); });
    };
    config.EvtSensorCancelHistoryRetrieval = [](SENSOROBJECT h, ULONG* n) {
        return Dispatch(h, [&](HidSensor& s) { return s.CancelHistoryRetrieval(h, n); });
    };
    return config;
}

struct TestDeviceContext {
    HidDevice* hidDevice;
};
WDF_DECLARE_CONTEXT_TYPE_WITH_NAME(TestDeviceContext, GetTestDeviceContext)

NTSTATUS PrepareHardware(WDFDEVICE device, WDFCMRESLIST, WDFCMRESLIST)
{
    TestDeviceContext* context = GetTestDeviceContext(device);
    if (context == nullptr)
        return STATUS_UNSUCCESSFUL;
    testdriver::ModuleState& module = testdriver::Module();
    auto* hidDevice = new (std::nothrow) HidDevice(device, module.factory);
    if (hidDevice == nullptr || !hidDevice->IsValid()) {
        delete hidDevice;  // no device: the tests see no HidDevice
        return STATUS_SUCCESS;
    }
    module.openStatus = hidDevice->Open(u"HID Sensor Class Device", testdriver::kDevicePath);
    module.enumerateStatus = hidDevice->EnumerateSensors();
    context->hidDevice = hidDevice;
    return STATUS_SUCCESS;
}

NTSTATUS ReleaseHardware(WDFDEVICE device, WDFCMRESLIST)
{
    if (HidDevice* hidDevice = testdriver::HidDeviceOf(device)) {
        hidDevice->Close();
        delete hidDevice;
        GetTestDeviceContext(device)->hidDevice = nullptr;
    }
    return STATUS_SUCCESS;
}

NTSTATUS D0Entry(WDFDEVICE device, WDF_POWER_DEVICE_STATE)
{
    if (HidDevice* hidDevice = testdriver::HidDeviceOf(device))
        testdriver::Module().startReaderStatus = hidDevice->StartReader();
    return STATUS_SUCCESS;
}

NTSTATUS D0Exit(WDFDEVICE device, WDF_POWER_DEVICE_STATE)
{
    if (HidDevice* hidDevice = testdriver::HidDeviceOf(device))
        hidDevice->StopReader();
    return STATUS_SUCCESS;
}

NTSTATUS DeviceAdd(WDFDRIVER, PWDFDEVICE_INIT deviceInit)
{
    WDF_OBJECT_ATTRIBUTES attributes;
    WDF_OBJECT_ATTRIBUTES_INIT(&attributes);
    WDF_OBJECT_ATTRIBUTES_SET_CONTEXT_TYPE(&attributes, WDF_GET_CONTEXT_TYPE_INFO(TestDeviceContext));

    WDF_PNPPOWER_EVENT_CALLBACKS callbacks = {};
    callbacks.Size = sizeof(callbacks);
    callbacks.EvtDeviceD0Entry = D0Entry;
    callbacks.EvtDeviceD0Exit = D0Exit;
    callbacks.EvtDevicePrepareHardware = PrepareHardware;
    callbacks.EvtDeviceReleaseHardware = ReleaseHardware;
    WdfDeviceInitSetPnpPowerEventCallbacks(deviceInit, &callbacks);

    NTSTATUS status = SensorsCxDeviceInitConfig(deviceInit, &attributes, 0);
    if (!NT_SUCCESS(status))
        return status;
    WDFDEVICE device = nullptr;
    status = WdfDeviceCreate(&deviceInit, &attributes, &device);
    if (!NT_SUCCESS(status))
        return status;
    SENSOR_CONTROLLER_CONFIG sensorCallbacks = TestSensorCallbacks();
    return SensorsCxDeviceInitialize(device, &sensorCallbacks);
}

void DriverUnload(WDFDRIVER)
{
    StopTracing();
}

}  // namespace

NTSTATUS DriverEntry(PDRIVER_OBJECT driverObject, PUNICODE_STRING registryPath)
{
    StartTracing(u"UMDF Driver");
    WDF_DRIVER_CONFIG config = {};
    config.Size = sizeof(config);
    config.EvtDriverDeviceAdd = DeviceAdd;
    config.EvtDriverUnload = DriverUnload;
    const NTSTATUS status = WdfDriverCreate(driverObject, registryPath, nullptr, &config, nullptr);
    if (!NT_SUCCESS(status))
        StopTracing();
    return status;
}

namespace testdriver {

ModuleState& Module()
{
    static ModuleState state;
    return state;
}

HidDevice* HidDeviceOf(WDFDEVICE device)
{
    TestDeviceContext* context = device != nullptr ? GetTestDeviceContext(device) : nullptr;
    return context != nullptr ? context->hidDevice : nullptr;
}

}  // namespace testdriver
