// The history an activity or pedometer sensor owns: made by its constructor,
// ended by its destructor.
#pragma once

#include "history/sensor_history.h"

// A history for `sensor`, whose record is in place, with the record's report
// interval as the client's requested interval; null when memory is short.
SensorHistory* CreateSensorHistory(const HidSensor& sensor, HistoryKind kind) noexcept;

// Ends the history's worker and timer before the SENSOROBJECT they use goes,
// unlinks it from the record and deletes it. Nothing to do when `history` is null.
void DestroySensorHistory(HidSensor& sensor, SensorHistory*& history) noexcept;
