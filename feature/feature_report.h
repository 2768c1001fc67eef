// ReadFeatureReport of a custom sensor: fetch the sensor's feature report,
// parse it into the SensorPropertyCache, then bring the device in line with
// what clients asked for, field by field, each write followed by the device's
// read-back so that the cache and the record hold the device's own view.
#pragma once

#include "feature/sensor_property_cache.h"
#include "platform/basetypes.h"

class HidSensor;

// The whole operation, under the cache's FeatureReportLock. writeSettings 1
// also writes thresholds and vendor values. Returns the status of the last
// step that set one; callers usually do not act on it.
NTSTATUS ReadSensorFeatureReport(HidSensor& sensor, SensorPropertyCache& cache, ULONG writeSettings);
