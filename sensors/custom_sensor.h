// The sensor object of a HID custom-sensor collection (usage 0xE1). It names
// itself after the kind its description string gives it.
//
// Not there yet: the feature-report property cache, registration with the
// class extension and the class-extension operations. Until they are,
// RegisterSensor answers STATUS_NOT_IMPLEMENTED, so Initialize of a custom
// sensor reads the collection's capabilities and then reports that status;
// every other operation is HidSensor's.
#pragma once

#include "hid/custom_sensor_kind.h"
#include "sensors/hid_sensor.h"

inline constexpr ULONG kDefaultReportIntervalMs = 100;
inline constexpr ULONG kMinimumReportIntervalMs = 50;

class CustomSensor : public HidSensor {
public:
    CustomSensor(WDFDEVICE device, HidDevice* owner, ULONG sensorObjectKind, ULONG usage,
                 USHORT linkCollection, ULONG sensorIndex, PCWSTR manufacturer, PCWSTR product,
                 PCWSTR serialNumber, PCWSTR instanceName) noexcept;

    NTSTATUS Initialize() override;
    // The base destruction frees what is left; nothing to do here.
    NTSTATUS Uninitialize() override;
    ~CustomSensor() override;

    // Creates the platform sensor, binds it to this object and publishes its lists.
    virtual NTSTATUS RegisterSensor();
};
