// The entries the published lists of the custom sensor and its subclasses
// share, filled from the sensor's cached strings and its record.
#pragma once

#include "platform/sensorscx.h"

class CustomSensor;

// Entry 0 of every data list: the timestamp, holding the host time now.
void SetTimestampEntry(PSENSOR_COLLECTION_LIST data) noexcept;

// Enumeration entries 0 to 5: sensor type, friendly name, manufacturer, model,
// persistent unique ID and category.
inline constexpr ULONG kIdentityEntries = 6;
void SetIdentityEntries(PSENSOR_COLLECTION_LIST enumeration, const CustomSensor& sensor, const GUID& type,
                        const GUID& category) noexcept;

// Sensor property entries 0 to 5 of the subclasses, whose lists carry no HID
// usage: serial number, description, sensor state 0, minimum data interval,
// maximum data size of the data list (built before) and sensor type.
inline constexpr ULONG kBasePropertyEntries = 6;
inline constexpr ULONG kBaseSensorStateEntry = 2;
void SetBasePropertyEntries(PSENSOR_COLLECTION_LIST properties, const CustomSensor& sensor,
                            const GUID& type) noexcept;
