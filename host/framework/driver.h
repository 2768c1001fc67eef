// The driver object: what WdfDriverCreate makes from the driver's config.
#pragma once

#include "host/framework/object.h"
#include "platform/wdf.h"

namespace host::framework {
class DriverObject;
}

// What the host passes to the module's entry as PDRIVER_OBJECT. WdfDriverCreate
// records the framework driver object in it.
struct DRIVER_OBJECT {
    host::framework::DriverObject* wdfDriver = nullptr;
};

namespace host::framework {

class DriverObject final : public Object {
public:
    static constexpr ObjectKind kKind = ObjectKind::Driver;

    explicit DriverObject(const WDF_DRIVER_CONFIG& config) : Object(kKind), config_(config) {}

    const WDF_DRIVER_CONFIG& Config() const { return config_; }
    WDFDRIVER DriverHandle() { return static_cast<WDFDRIVER>(Handle()); }

private:
    WDF_DRIVER_CONFIG config_;
};

}  // namespace host::framework
