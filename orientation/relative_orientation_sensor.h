// The sensor object of a relative-orientation collection (description "0x200"):
// the device's orientation as a quaternion, custom values 1 to 4 giving the
// X, Y, Z and W components.
//
// Every sample of four scaled components is delivered, started or not. The
// thresholds a client sets are kept and reported back but filter nothing and
// never reach the device. No history: the history callbacks stay the base's
// no-ops. Start and Stop are the custom sensor's, with the sensor state as the
// third property.
#pragma once

#include "sensors/custom_sensor.h"

class RelativeOrientationSensor : public CustomSensor {
public:
    RelativeOrientationSensor(WDFDEVICE device, HidDevice* owner, ULONG sensorObjectKind, ULONG usage,
                              USHORT linkCollection, ULONG sensorIndex, PCWSTR manufacturer, PCWSTR product,
                              PCWSTR serialNumber, PCWSTR instanceName) noexcept;

    // The data-field property list is built but, as for every custom sensor,
    // not served: GetDataFieldProperties stays CustomSensor's.
    NTSTATUS GetDataThresholds(SENSOROBJECT sensor, PSENSOR_COLLECTION_LIST thresholds, ULONG* size) override;
    // Stores each component threshold's 32 bits as a float, whatever its type.
    NTSTATUS SetDataThresholds(SENSOROBJECT sensor, PSENSOR_COLLECTION_LIST thresholds) override;
    // Takes scaled (VT_R4) custom values 1 to 4; the fourth taken delivers.
    NTSTATUS UpdateDataField(const PROPERTYKEY* key, const PROPVARIANT* value) override;
    NTSTATUS RegisterSensor() override;
};
