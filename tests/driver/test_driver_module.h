// A small driver module for the tests: its prepare-hardware creates a
// HidDevice, opens it and enumerates the sensors; D0 entry and exit start and
// stop the reader; release-hardware closes and destroys the HidDevice. Device
// add binds the device to the class extension with callbacks that reach the
// sensor objects through their SENSOROBJECT context.
#pragma once

#include "hid/hid_device.h"
#include "hid/sensor_factory.h"
#include "platform/wdf.h"

namespace testdriver {

inline constexpr char16_t kDevicePath[] = u"HID\\VID_5A3C&PID_0002\\6&1AA1B311&0&0000";

struct ModuleState {
    // Classes of the sensor objects; null: the driver's own.
    const SensorFactory* factory = nullptr;
    // Results of the last prepare-hardware and D0 entry.
    NTSTATUS openStatus = STATUS_SUCCESS;
    NTSTATUS enumerateStatus = STATUS_SUCCESS;
    NTSTATUS startReaderStatus = STATUS_SUCCESS;
};

ModuleState& Module();

// The HidDevice of `device`, or null outside prepare/release.
HidDevice* HidDeviceOf(WDFDEVICE device);

}  // namespace testdriver
