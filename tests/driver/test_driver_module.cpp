#include "tests/driver/test_driver_module.h"

#include "tracing/trace_provider.h"

namespace {

struct TestDeviceContext {
    HidDevice* hidDevice;
    ULONG isPrepared;
};
WDF_DECLARE_CONTEXT_TYPE_WITH_NAME(TestDeviceContext, GetTestDeviceContext)

constexpr char16_t kFriendlyName[] = u"HID Sensor Class Device";
constexpr char16_t kDevicePath[] = u"HID\\VID_5A3C&PID_0002\\6&1AA1B311&0&0000";

NTSTATUS PrepareHardware(WDFDEVICE device, WDFCMRESLIST, WDFCMRESLIST)
{
    TestDeviceContext* context = GetTestDeviceContext(device);
    if (context == nullptr)
        return STATUS_UNSUCCESSFUL;
    testdriver::ModuleState& module = testdriver::Module();
    module.hidDeviceCreationFailed = false;
    auto* hidDevice = new (std::nothrow) HidDevice(device, module.factory);
    if (hidDevice == nullptr || !hidDevice->IsValid()) {
        delete hidDevice;
        module.hidDeviceCreationFailed = true;
        return STATUS_SUCCESS;
    }
    context->hidDevice = hidDevice;
    module.openStatus = hidDevice->Open(kFriendlyName, kDevicePath);
    module.enumerateStatus = hidDevice->EnumerateSensors();
    context->isPrepared = 1;
    return STATUS_SUCCESS;
}

// The HidDevice of a prepared device, or null.
HidDevice* Prepared(WDFDEVICE device)
{
    TestDeviceContext* context = GetTestDeviceContext(device);
    return context != nullptr && context->isPrepared == 1 ? context->hidDevice : nullptr;
}

NTSTATUS ReleaseHardware(WDFDEVICE device, WDFCMRESLIST)
{
    if (HidDevice* hidDevice = Prepared(device)) {
        hidDevice->Close();
        delete hidDevice;
    }
    if (TestDeviceContext* context = GetTestDeviceContext(device))
        *context = {nullptr, 0};
    return STATUS_SUCCESS;
}

NTSTATUS D0Entry(WDFDEVICE device, WDF_POWER_DEVICE_STATE)
{
    if (HidDevice* hidDevice = Prepared(device))
        testdriver::Module().startReaderStatus = hidDevice->StartReader();
    return STATUS_SUCCESS;
}

NTSTATUS D0Exit(WDFDEVICE device, WDF_POWER_DEVICE_STATE)
{
    if (HidDevice* hidDevice = Prepared(device))
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

    WDFDEVICE device = nullptr;
    return WdfDeviceCreate(&deviceInit, &attributes, &device);
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
