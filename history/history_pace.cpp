#include "history/history_pace.h"

#include "history/sensor_history.h"
#include "sensors/custom_sensor.h"

namespace {
// A pedometer without clients still reports every few steps for its history.
constexpr float kPedometerIdleSensitivity = 5.0f;
}  // namespace

float FilteredStepSensitivity(const SensorHistory& history) noexcept
{
    return static_cast<float>((history.stepThreshold.load(std::memory_order_relaxed) * 4) | 2);
}

void ApplyStreamingPace(HidCollectionRecord& record, ULONG reportIntervalMs, float changeSensitivity) noexcept
{
    record.BatchInterval.store(0, std::memory_order_relaxed);
    record.CurrentReportInterval.store(reportIntervalMs, std::memory_order_relaxed);
    record.DataThresholds[kChangeSensitivityPosition].store(changeSensitivity, std::memory_order_relaxed);
}

void ApplyRecordingPace(HidCollectionRecord& record, const SensorHistory& history) noexcept
{
    record.BatchInterval.store(history.MaxEntries() * history.SampleReportInterval(), std::memory_order_relaxed);
    record.CurrentReportInterval.store(history.SampleReportInterval(), std::memory_order_relaxed);
    const float sensitivity = history.Kind() == HistoryKind::Pedometer ? kPedometerIdleSensitivity : 0.0f;
    record.DataThresholds[kChangeSensitivityPosition].store(sensitivity, std::memory_order_relaxed);
}

void StopHistorySensorDelivery(CustomSensor& sensor, const SensorHistory& history)
{
    HidCollectionRecord& record = *sensor.Record();
    const ULONG mode = record.modeFlags.fetch_and(~(kModeFiltered | kModeEverySample), std::memory_order_relaxed);
    if ((mode & kModeFiltered) != 0)
        record.CurrentReportInterval.store(history.requestedInterval.load(std::memory_order_relaxed),
                                           std::memory_order_relaxed);
    if ((mode & kModeHistory) != 0) {
        ApplyRecordingPace(record, history);
        sensor.ReadFeatureReport(1);
    } else {
        RequestReporting(record, false);
        sensor.ReadFeatureReport(0);
    }
}
