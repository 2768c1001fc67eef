// Device initialization and WdfDeviceCreate.
#include "host/framework/device.h"

#include <atomic>

#include "host/common/fault_injection.h"
#include "host/framework/driver.h"
#include "host/framework/handle_check.h"
#include "host/framework/violations.h"

namespace host::framework {
namespace {

std::atomic<WDFDEVICE_INIT*> activeInit{nullptr};

// The init record if it is the one the host handed out, else null (reported).
WDFDEVICE_INIT* CheckInit(PWDFDEVICE_INIT init, const char* function)
{
    if (init == nullptr || init != activeInit.load(std::memory_order_acquire)) {
        ReportViolation(std::string(function) + ": device-init record that is not the current one");
        return nullptr;
    }
    return init;
}

DeviceObject* LiveDevice(WDFDEVICE device)
{
    Object* object = Object::FromHandle(device);
    return object != nullptr && object->Kind() == ObjectKind::Device ? static_cast<DeviceObject*>(object) : nullptr;
}

}  // namespace

void BeginDeviceInit(WDFDEVICE_INIT* init)
{
    activeInit.store(init, std::memory_order_release);
}

void EndDeviceInit()
{
    activeInit.store(nullptr, std::memory_order_release);
}

HidCollectionEndpoint* DeviceEndpoint(WDFDEVICE device)
{
    DeviceObject* object = LiveDevice(device);
    return object != nullptr ? object->Endpoint() : nullptr;
}

RegistryStore* DeviceRegistry(WDFDEVICE device)
{
    DeviceObject* object = LiveDevice(device);
    return object != nullptr ? object->Registry() : nullptr;
}

bool DeviceClassExtensionConfigured(WDFDEVICE device)
{
    DeviceObject* object = LiveDevice(device);
    return object != nullptr && object->ClassExtensionConfigured();
}

}  // namespace host::framework

using namespace host::framework;

extern "C" void WdfDeviceInitSetPowerPolicyOwnership(PWDFDEVICE_INIT DeviceInit, BOOLEAN IsPowerPolicyOwner)
{
    WDFDEVICE_INIT* init = CheckInit(DeviceInit, "WdfDeviceInitSetPowerPolicyOwnership");
    if (init == nullptr)
        return;
    init->powerPolicyOwnershipSet = true;
    init->powerPolicyOwner = IsPowerPolicyOwner != FALSE;
}

extern "C" void WdfDeviceInitSetPnpPowerEventCallbacks(PWDFDEVICE_INIT DeviceInit,
                                                       PWDF_PNPPOWER_EVENT_CALLBACKS PnpPowerEventCallbacks)
{
    WDFDEVICE_INIT* init = CheckInit(DeviceInit, "WdfDeviceInitSetPnpPowerEventCallbacks");
    if (init == nullptr)
        return;
    if (PnpPowerEventCallbacks == nullptr || PnpPowerEventCallbacks->Size != sizeof(WDF_PNPPOWER_EVENT_CALLBACKS)) {
        ReportViolation("WdfDeviceInitSetPnpPowerEventCallbacks: absent callbacks or wrong Size; ignored");
        return;
    }
    init->pnpPowerCallbacks = *PnpPowerEventCallbacks;
    init->pnpPowerCallbacksSet = true;
}

extern "C" NTSTATUS WdfDeviceCreate(PWDFDEVICE_INIT* DeviceInit, PWDF_OBJECT_ATTRIBUTES DeviceAttributes,
                                    WDFDEVICE* Device)
{
    if (Device == nullptr || DeviceInit == nullptr)
        return STATUS_INVALID_PARAMETER;
    *Device = nullptr;
    WDFDEVICE_INIT* init = CheckInit(*DeviceInit, "WdfDeviceCreate");
    if (init == nullptr)
        return STATUS_INVALID_PARAMETER;
    if (init->createdDevice != nullptr) {
        ReportViolation("WdfDeviceCreate: the device-init record was already consumed");
        return STATUS_INVALID_DEVICE_STATE;
    }
    NTSTATUS status = STATUS_SUCCESS;
    host::DriverCall driverCall(host::FaultPoint::DeviceCreate);
    if (driverCall.Fails(&status))
        return status;
    DeviceObject* device = nullptr;
    status = Object::Create(init->driver, DeviceAttributes, &device, *init);
    if (!NT_SUCCESS(status))
        return status;
    init->createdDevice = device->DeviceHandle();
    *DeviceInit = nullptr;
    *Device = device->DeviceHandle();
    return STATUS_SUCCESS;
}
