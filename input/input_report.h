// Input report decoding: the pieces of CustomSensor::ProcessInputReport that
// stand on their own. Nothing here allocates or locks: the reader calls it
// once per report.
#pragma once

#include "platform/hidpi.h"
#include "platform/sensorscx.h"

class HidDevice;

// What the Sensor State and Sensor Event selectors or values of one report
// say. Diagnostics only: no property, data field or delivery depends on it.
struct SensorStateAndEvent {
    ULONG State = 1;  // 0 ready, 1 not available, 2 no data, 3 initializing, 4 access denied, 5 error
    ULONG Event = 0;  // 0 unknown, 1 state changed, 2 property changed, 3 data updated, 4 poll, 5 sensitivity
};

// Writes the host time (VT_FILETIME) into entry 0 of `data`.
void UpdateTimestamp(PSENSOR_COLLECTION_LIST data) noexcept;

// Reads the selectors of the child link collections of `linkCollection`,
// taken to be the collections numbered linkCollection + 1 onwards. A child
// without selectors in the report is no error; another parser failure makes
// the status STATUS_UNSUCCESSFUL until a later child reads cleanly.
NTSTATUS ReadStateAndEventSelectors(const HidDevice* device, USHORT linkCollection, BYTE* report,
                                    ULONG length, SensorStateAndEvent* decoded) noexcept;

// Applies one selector usage to `decoded`; false for selectors that are not
// state or event (the caller decides what to trace).
bool ApplyStateOrEventSelector(USAGE selector, SensorStateAndEvent* decoded) noexcept;
