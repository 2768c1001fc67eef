// The sensor object of an activity collection (description "0x232"): the
// platform's activity-detection sensor with a sample history.
//
// Each input report carries up to seven activity words (custom values 1..7);
// a complete sample holds the timestamp and one state/confidence pair per word
// with a non-zero confidence. Clients choose through thresholds between
// filtered delivery (the platform's activity-threshold evaluation decides) and
// every sample; either way every sample reaches the history.
//
// Threads: the callbacks write the delivery fields (mode bits, forceDelivery,
// the threshold values, the stream flag) as relaxed atomics; the reader reads
// them once per completed sample and evaluates thresholds against its own copy
// of the threshold list, so the published lists are never written while the
// reader reads them. The data list and the last-delivered copy are the
// reader's alone.
#pragma once

#include <atomic>

#include "history/sensor_history.h"
#include "sensors/custom_sensor.h"

// Activity word: code in bits 4..11, confidence in tenths of a percent in bits 12..22.
ULONG ActivityStateFromCode(ULONG word) noexcept;
// Percent, 0..100; `clamped` tells whether the device's value was above 100.
USHORT ActivityConfidence(ULONG word, bool* clamped) noexcept;

class ActivitySensor : public CustomSensor {
public:
    ActivitySensor(WDFDEVICE device, HidDevice* owner, ULONG sensorObjectKind, ULONG usage,
                   USHORT linkCollection, ULONG sensorIndex, PCWSTR manufacturer, PCWSTR product,
                   PCWSTR serialNumber, PCWSTR instanceName) noexcept;
    ~ActivitySensor() override;

    NTSTATUS Start(SENSOROBJECT sensor) override;
    NTSTATUS Stop(SENSOROBJECT sensor) override;
    NTSTATUS GetDataFieldProperties(SENSOROBJECT sensor, const PROPERTYKEY* dataField,
                                    PSENSOR_COLLECTION_LIST properties, ULONG* size) override;
    NTSTATUS GetDataInterval(SENSOROBJECT sensor, ULONG* dataRateMs) override;
    NTSTATUS SetDataInterval(SENSOROBJECT sensor, ULONG dataRateMs) override;
    NTSTATUS GetDataThresholds(SENSOROBJECT sensor, PSENSOR_COLLECTION_LIST thresholds,
                               ULONG* size) override;
    NTSTATUS SetDataThresholds(SENSOROBJECT sensor, PSENSOR_COLLECTION_LIST thresholds) override;
    NTSTATUS StartHistory(SENSOROBJECT sensor) override;
    NTSTATUS StopHistory(SENSOROBJECT sensor) override;
    NTSTATUS ClearHistory(SENSOROBJECT sensor) override;
    NTSTATUS StartHistoryRetrieval(SENSOROBJECT sensor, PSENSOR_COLLECTION_LIST historyBuffer,
                                   ULONG historySizeInBytes) override;
    NTSTATUS CancelHistoryRetrieval(SENSOROBJECT sensor, ULONG* bytesWritten) override;
    NTSTATUS UpdateDataField(const PROPERTYKEY* key, const PROPVARIANT* value) override;
    NTSTATUS RegisterSensor() override;

    SensorHistory* History() const noexcept { return history_; }

private:
    // Fills a three-entry threshold list from the current threshold values.
    void FillThresholds(PSENSOR_COLLECTION_LIST list) const noexcept;
    NTSTATUS BuildLists(ULONG* failedStep);
    NTSTATUS CompleteSample();

    SensorHistory* history_ = nullptr;
    // Threshold values; the published list is rebuilt from them when asked for.
    std::atomic<USHORT> streamEntry_{0xFFFF};  // VARIANT_BOOL of the stream entry
    std::atomic<ULONG> subscribedActivities_{0};
    std::atomic<USHORT> confidenceThreshold_{0};
    // The reader's own threshold list for the sort and the evaluation.
    PSENSOR_COLLECTION_LIST readerThresholds_ = nullptr;
};
