// The driver's entry points and the framework callbacks it registers.
#pragma once

#include "platform/wdf.h"

inline constexpr char16_t kSensorFriendlyName[] = u"HID Sensor Class Device";
inline constexpr char16_t kSensorDevicePath[] = u"HID\\VID_5A3C&PID_0002\\6&1AA1B311&0&0000";

void DriverUnload(WDFDRIVER driver);
NTSTATUS DeviceAdd(WDFDRIVER driver, PWDFDEVICE_INIT deviceInit);

// Plug-and-play and power. Each returns STATUS_UNSUCCESSFUL when the device
// has no SensorDevice context and STATUS_SUCCESS otherwise: what the HID
// collection does is traced, never reported to the framework, so a device
// that cannot be opened or holds no sensor still starts, without sensors.
NTSTATUS PrepareHardware(WDFDEVICE device, WDFCMRESLIST resourcesRaw, WDFCMRESLIST resourcesTranslated);
NTSTATUS ReleaseHardware(WDFDEVICE device, WDFCMRESLIST resourcesTranslated);
NTSTATUS D0Entry(WDFDEVICE device, WDF_POWER_DEVICE_STATE previousState);
NTSTATUS D0Exit(WDFDEVICE device, WDF_POWER_DEVICE_STATE targetState);
