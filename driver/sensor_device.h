// The framework context of the device object.
#pragma once

#include "driver/wide_string.h"
#include "platform/wdf.h"

class HidDevice;

struct SensorDevice {
    // Diagnostics only; set by PrepareHardware and copied into the HidDevice.
    WCHAR FriendlyName[kDeviceStringChars];
    // First part of every sensor's InstanceName; set by PrepareHardware.
    WCHAR DevicePath[kDeviceStringChars];
    // Owned: created by PrepareHardware, destroyed by ReleaseHardware.
    HidDevice* Device;
    // 1 between a completed PrepareHardware and ReleaseHardware.
    ULONG IsPrepared;
};
WDF_DECLARE_CONTEXT_TYPE_WITH_NAME(SensorDevice, GetSensorDevice)
