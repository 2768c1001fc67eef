// The sensor object of a pedometer collection (description "0x230"): step
// counts and durations per step type (unknown, walking, running) and a reset
// flag, from five unscaled custom values per sample, with a history.
//
// Delivery: with a step-count threshold (filtered mode) a sample goes out when
// forced, when it follows a reset, or when the walking plus running count
// crosses the threshold since the previous sample; with threshold 0 every
// sample goes out; before any threshold or Start nothing does. Every complete
// sample reaches the history either way.
//
// Threads: the callbacks write the delivery fields (mode bits, forceDelivery,
// the step threshold, the requested interval) as relaxed atomics, and the
// reader reads them once per completed sample. The data list is the reader's;
// the threshold list is rewritten only under the published-lists lock.
#pragma once

#include "history/sensor_history.h"
#include "sensors/custom_sensor.h"

class PedometerSensor : public CustomSensor {
public:
    PedometerSensor(WDFDEVICE device, HidDevice* owner, ULONG sensorObjectKind, ULONG usage, USHORT linkCollection,
                    ULONG sensorIndex, PCWSTR manufacturer, PCWSTR product, PCWSTR serialNumber,
                    PCWSTR instanceName) noexcept;
    ~PedometerSensor() override;

    NTSTATUS Start(SENSOROBJECT sensor) override;
    NTSTATUS Stop(SENSOROBJECT sensor) override;
    // Served for the step-count key only.
    NTSTATUS GetDataFieldProperties(SENSOROBJECT sensor, const PROPERTYKEY* dataField,
                                    PSENSOR_COLLECTION_LIST properties, ULONG* size) override;
    NTSTATUS GetDataInterval(SENSOROBJECT sensor, ULONG* dataRateMs) override;
    NTSTATUS SetDataInterval(SENSOROBJECT sensor, ULONG dataRateMs) override;
    NTSTATUS GetDataThresholds(SENSOROBJECT sensor, PSENSOR_COLLECTION_LIST thresholds, ULONG* size) override;
    // Takes the step-count threshold and switches between filtered and
    // every-sample delivery at once; nothing is sent to the device.
    NTSTATUS SetDataThresholds(SENSOROBJECT sensor, PSENSOR_COLLECTION_LIST thresholds) override;
    NTSTATUS StartHistory(SENSOROBJECT sensor) override;
    NTSTATUS StopHistory(SENSOROBJECT sensor) override;
    // Also pulses the device's pedometer reset.
    NTSTATUS ClearHistory(SENSOROBJECT sensor) override;
    NTSTATUS StartHistoryRetrieval(SENSOROBJECT sensor, PSENSOR_COLLECTION_LIST historyBuffer,
                                   ULONG historySizeInBytes) override;
    NTSTATUS CancelHistoryRetrieval(SENSOROBJECT sensor, ULONG* bytesWritten) override;
    // Takes unscaled (VT_UI4) custom values 1 to 5; the fifth taken completes a sample.
    NTSTATUS UpdateDataField(const PROPERTYKEY* key, const PROPVARIANT* value) override;
    NTSTATUS RegisterSensor() override;

    SensorHistory* History() const noexcept { return history_; }

private:
    NTSTATUS CreateLists();
    void CompleteSample();

    SensorHistory* history_ = nullptr;
};
