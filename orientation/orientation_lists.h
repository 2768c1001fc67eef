// The lists the two orientation sensors publish. They have the same shape and
// differ in their sensor type, category, data fields and ranges.
#pragma once

#include <span>

#include "platform/sensorscx.h"

class CustomSensor;

struct OrientationListShape {
    GUID SensorType;
    GUID Category;
    bool AnnouncesPrimary;                 // enumeration ends with "is primary", VT_BOOL true
    std::span<const PROPERTYKEY> DataKeys;  // after the timestamp, in data-list order
    VARTYPE DataType;                       // VT_R4 or VT_UI4, initially 0
    float Resolution;
    float Minimum;
    float Maximum;
    std::span<const PROPERTYKEY> ThresholdKeys;
    float InitialThreshold;
};

// Marks `sensor` as having no history, then creates, in this order, the
// supported data fields, the data list, the enumeration list, the sensor
// properties (sensor state third), the data-field properties and the
// thresholds of `sensor`, whose platform sensor exists. A list that cannot be
// made gives STATUS_INSUFFICIENT_RESOURCES; the lists made before it stay with
// the platform sensor.
NTSTATUS CreateOrientationLists(CustomSensor& sensor, const OrientationListShape& shape) noexcept;
