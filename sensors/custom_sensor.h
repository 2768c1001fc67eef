// The sensor object of a HID custom-sensor collection (usage 0xE1). It names
// itself after the kind its description string gives it.
//
// It owns the SensorPropertyCache, its view of the device's feature report,
// which ReadFeatureReport fills and writes back.
//
// Not there yet: registration with the class extension and the
// class-extension operations. Until they are, RegisterSensor answers
// STATUS_NOT_IMPLEMENTED, so Initialize of a custom sensor reads the
// collection's capabilities and feature report and then reports that status.
#pragma once

#include "feature/sensor_property_cache.h"
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
    // Fetches and parses the feature report into the cache, then writes the
    // requested settings back (thresholds and vendor values only when
    // writeSettings is 1). Serialised per sensor.
    NTSTATUS ReadFeatureReport(ULONG writeSettings) override;
    ~CustomSensor() override;

    // Creates the platform sensor, binds it to this object and publishes its lists.
    virtual NTSTATUS RegisterSensor();

    SensorPropertyCache* PropertyCache() const noexcept { return cache_; }

private:
    SensorPropertyCache* cache_ = nullptr;
};
