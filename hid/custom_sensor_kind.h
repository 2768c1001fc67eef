// What a HID custom-sensor collection (usage 0xE1) is, as its feature report's
// sensor-description string says.
#pragma once

#include "platform/basetypes.h"

class HidDevice;

enum class CustomSensorKind : ULONG {
    Activity = 0,
    Pedometer = 1,
    GestureTap = 2,
    GestureLift = 3,
    ZoomPan = 4,
    RelativeOrientation = 5,
    SimpleDeviceOrientation = 6,
    Other = 7,
};

// "HID Sensor Collection V2: ..." text of a kind, the base of its friendly name.
PCWSTR CustomSensorKindFriendlyText(CustomSensorKind kind) noexcept;

// Reads the feature report of sensor `sensorIndex` (report ID: the first input
// value capability's plus the index, modulo 256) and looks for a sensor
// description (usage 0x308) that names a kind. Never fails: anything that goes
// wrong, or no matching description, gives Other.
CustomSensorKind ClassifyCustomCollection(HidDevice* device, UCHAR sensorIndex,
                                          USHORT linkCollection) noexcept;
