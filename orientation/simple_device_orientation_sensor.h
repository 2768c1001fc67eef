// The sensor object of a simple-device-orientation collection (description
// "0x205"): one unsigned orientation value (custom value 1), delivered as soon
// as it arrives, started or not.
//
// No thresholds (SetDataThresholds is not supported, the threshold list is
// empty) and no history. Start and Stop are the custom sensor's, with the
// sensor state as the third property.
#pragma once

#include "sensors/custom_sensor.h"

class SimpleDeviceOrientationSensor : public CustomSensor {
public:
    SimpleDeviceOrientationSensor(WDFDEVICE device, HidDevice* owner, ULONG sensorObjectKind, ULONG usage,
                                  USHORT linkCollection, ULONG sensorIndex, PCWSTR manufacturer, PCWSTR product,
                                  PCWSTR serialNumber, PCWSTR instanceName) noexcept;

    // The empty threshold list, with the usual size query.
    NTSTATUS GetDataThresholds(SENSOROBJECT sensor, PSENSOR_COLLECTION_LIST thresholds, ULONG* size) override;
    // STATUS_NOT_SUPPORTED, whatever the arguments.
    NTSTATUS SetDataThresholds(SENSOROBJECT sensor, PSENSOR_COLLECTION_LIST thresholds) override;
    // Takes an unscaled (VT_UI4) custom value 1 and delivers it.
    NTSTATUS UpdateDataField(const PROPERTYKEY* key, const PROPVARIANT* value) override;
    NTSTATUS RegisterSensor() override;
};
