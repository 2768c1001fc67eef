// The device object: the PnP/power callbacks, the HID collection it sits on and
// its registry. Also the accessors other host components use to reach them.
#pragma once

#include <memory>

#include "host/common/hid_collection_endpoint.h"
#include "host/framework/device_init.h"
#include "host/framework/object.h"
#include "host/framework/registry_store.h"

namespace host::framework {

class DeviceObject final : public Object {
public:
    static constexpr ObjectKind kKind = ObjectKind::Device;

    explicit DeviceObject(const WDFDEVICE_INIT& init)
        : Object(kKind),
          endpoint_(init.endpoint),
          registry_(init.registry),
          callbacks_(init.pnpPowerCallbacks),
          powerPolicyOwner_(init.powerPolicyOwner),
          classExtensionConfigured_(init.classExtensionConfigured)
    {
    }

    HidCollectionEndpoint* Endpoint() const { return endpoint_; }
    RegistryStore* Registry() const { return registry_.get(); }
    const WDF_PNPPOWER_EVENT_CALLBACKS& Callbacks() const { return callbacks_; }
    bool PowerPolicyOwner() const { return powerPolicyOwner_; }
    bool ClassExtensionConfigured() const { return classExtensionConfigured_; }
    WDFDEVICE DeviceHandle() { return static_cast<WDFDEVICE>(Handle()); }

private:
    HidCollectionEndpoint* endpoint_;
    std::shared_ptr<RegistryStore> registry_;
    WDF_PNPPOWER_EVENT_CALLBACKS callbacks_;
    bool powerPolicyOwner_;
    bool classExtensionConfigured_;
};

// The HID collection under `device`, or null for a handle that is not a live device.
HidCollectionEndpoint* DeviceEndpoint(WDFDEVICE device);
// The registry store of `device`, or null.
RegistryStore* DeviceRegistry(WDFDEVICE device);
// Whether SensorsCxDeviceInitConfig ran on the init the device was created from.
bool DeviceClassExtensionConfigured(WDFDEVICE device);

// The host marks the record EvtDriverDeviceAdd may use; other pointers are refused.
void BeginDeviceInit(WDFDEVICE_INIT* init);
void EndDeviceInit();

}  // namespace host::framework
