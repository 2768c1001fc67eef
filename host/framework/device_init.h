// The device-initialization record the framework hands to EvtDriverDeviceAdd.
// The DriverHost owns it for the duration of the callback; WdfDeviceCreate
// consumes it (the driver's pointer becomes null) and copies what the device needs.
#pragma once

#include <memory>

#include "platform/wdf.h"

namespace host {
class HidCollectionEndpoint;
namespace framework {
class DriverObject;
class RegistryStore;
}  // namespace framework
}  // namespace host

struct WDFDEVICE_INIT {
    // Set by SensorsCxDeviceInitConfig; the class extension checks it later.
    bool classExtensionConfigured = false;

    bool powerPolicyOwnershipSet = false;
    bool powerPolicyOwner = true;
    bool pnpPowerCallbacksSet = false;
    WDF_PNPPOWER_EVENT_CALLBACKS pnpPowerCallbacks{};

    // Filled by the host.
    host::framework::DriverObject* driver = nullptr;
    host::HidCollectionEndpoint* endpoint = nullptr;
    std::shared_ptr<host::framework::RegistryStore> registry;
    WDFDEVICE createdDevice = nullptr;
};
