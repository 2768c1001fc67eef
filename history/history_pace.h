// The device settings a history sensor asks for on behalf of its history:
// shared by the sensors' Start and Stop and the history's own start and stop.
#pragma once

#include "platform/sensorscx.h"

struct HidCollectionRecord;
class CustomSensor;
class SensorHistory;

// The report interval while the history records and a client takes filtered delivery.
inline constexpr ULONG kFilteredHistoryReportIntervalMs = 100;

// The change sensitivity a pedometer's filtered delivery asks for: the step
// threshold times 4, OR 2.
float FilteredStepSensitivity(const SensorHistory& history) noexcept;

// Keeps the device reporting for a client: each sample as it comes (batch
// interval 0), at this report interval and change sensitivity.
void ApplyStreamingPace(HidCollectionRecord& record, ULONG reportIntervalMs, float changeSensitivity) noexcept;

// Keeps the device reporting for the history alone: one batch of maxEntries
// samples at the sampling interval, with the kind's idle change sensitivity.
void ApplyRecordingPace(HidCollectionRecord& record, const SensorHistory& history) noexcept;

// Stop of a history sensor once its handle is checked: both delivery modes
// end and a filtered sensor's report interval returns to the client's. While
// the history records, the device keeps its pace (written back); otherwise
// reporting goes off at low power (read without write-back).
void StopHistorySensorDelivery(CustomSensor& sensor, const SensorHistory& history);
