// ReadFeatureReport of a custom sensor: fetch the sensor's feature report,
// parse it into the SensorPropertyCache, then bring the device in line with
// what clients asked for, field by field, each write followed by the device's
// read-back so that the cache and the record hold the device's own view.
#pragma once

#include "feature/feature_report_context.h"
#include "feature/sensor_property_cache.h"
#include "platform/basetypes.h"

// The whole operation, under the cache's FeatureReportLock. writeSettings 1
// also writes thresholds and vendor values. Returns the fetch's failure, or
// the status of the parse (that of the last value field of the sensor's
// report, which also decides whether the write-back runs). The write-back's
// own status only decides whether the reporting and power state are written,
// and is traced: a device without a batch-interval field fails that write on
// every call, and its sensors must still initialize.
NTSTATUS ReadSensorFeatureReport(HidSensor& sensor, SensorPropertyCache& cache, ULONG writeSettings);

// The parts, for the operation above and for tests.
// The context of one call on `report` (kMaxFeatureReportBytes bytes).
FeatureReportContext MakeFeatureReportContext(HidSensor& sensor, SensorPropertyCache& cache, BYTE* report,
                                              ULONG writeSettings) noexcept;
// Fetches the sensor's report into the context's buffer and parses it into the
// cache. The status is the fetch's on failure, else that of the last value
// field of the sensor's report (the selectors' when there is none); only a
// success lets the write-back run.
NTSTATUS FetchAndParseFeatureReport(FeatureReportContext& context);
