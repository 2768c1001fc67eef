#include "pedometer/pedometer_sensor.h"

#include <cmath>

#include "history/history_keys.h"
#include "history/history_lifetime.h"
#include "history/history_pace.h"
#include "history/history_properties.h"
#include "platform/propsys.h"
#include "platform/sensorsutils.h"
#include "platform/system.h"
#include "sensors/common_list_entries.h"
#include "sensors/sensor_lists.h"
#include "tracing/trace.h"

namespace {
constexpr GUID kTraceMessageGuid = {
    0x08387920, 0x5C28, 0x4CA0, {0xB7, 0x55, 0xA6, 0x4B, 0xB0, 0x67, 0x0E, 0x1F}};

constexpr GUID kPedometerSensorType = {
    0xB19F89AF, 0xE3EB, 0x444B, {0x8D, 0xEA, 0x20, 0x25, 0x75, 0xA7, 0x15, 0x99}};
constexpr PROPERTYKEY kSupportedStepTypesKey = {kSensorPropertyFmtid, 70};

constexpr ULONG kSupportedStepTypes = kStepTypeUnknown | kStepTypeWalking | kStepTypeRunning;

// Data-list entries: timestamp, reset flag, then type, count and duration per step type.
constexpr ULONG kResetEntry = 1;
constexpr ULONG kUnknownTypeEntry = 2;
constexpr ULONG kWalkingTypeEntry = 5;
constexpr ULONG kRunningTypeEntry = 8;
constexpr ULONG kDataEntries = 11;
constexpr ULONG kSupportedFields = 5;
constexpr ULONG kEnumerationEntries = 9;
constexpr ULONG kPropertyEntries = 11;
constexpr ULONG kDataFieldPropertyEntries = 3;
constexpr ULONG kThresholdEntries = 1;
constexpr ULONG kFieldsPerSample = 5;  // custom values 1..5
constexpr ULONG kInitialStepThresholdEntry = 1;

// Custom value k (1..5) of `key`, or 0.
ULONG StepField(const PROPERTYKEY& key) noexcept
{
    if (!IsEqualGUID(key.fmtid, kCustomDataFmtid))
        return 0;
    const ULONG k = key.pid - kCustomValueKeys[0].pid + 1;
    return k >= 1 && k <= kFieldsPerSample ? k : 0;
}

// Walking plus running steps; false when the 32-bit sum overflows.
bool StepTotal(const PedometerRecord& record, ULONG* total) noexcept
{
    *total = record.walkingStepCount + record.runningStepCount;
    return *total >= record.walkingStepCount;
}

// A float threshold truncated toward zero, kept to 32 bits as a 64-bit
// conversion keeps it; NaN and values beyond 64 bits give 0.
ULONG TruncatedThreshold(float value) noexcept
{
    if (!(std::fabs(value) < 9.2e18f))
        return 0;
    return static_cast<ULONG>(static_cast<LONGLONG>(value));
}
}  // namespace

PedometerSensor::PedometerSensor(WDFDEVICE device, HidDevice* owner, ULONG sensorObjectKind, ULONG usage,
                                 USHORT linkCollection, ULONG sensorIndex, PCWSTR manufacturer, PCWSTR product,
                                 PCWSTR serialNumber, PCWSTR instanceName) noexcept
    : CustomSensor(device, owner, sensorObjectKind, usage, linkCollection, sensorIndex, manufacturer, product,
                   serialNumber, instanceName)
{
    if (!IsValid())
        return;
    SetSensorStateEntry(kBaseSensorStateEntry);
    // Without its history the sensor is not created: discovery skips the collection.
    history_ = CreateSensorHistory(*this, HistoryKind::Pedometer);
    if (history_ == nullptr) {
        TRACE_ERROR(STATUS_NO_MEMORY, sensorIndex);
        MarkConstructionFailed();
    }
}

PedometerSensor::~PedometerSensor()
{
    DestroySensorHistory(*this, history_);
}

NTSTATUS PedometerSensor::RegisterSensor()
{
    TRACE_ENTRY();
    const NTSTATUS status = RegisterWithLists([this] {
        const NTSTATUS initialized = history_->Initialize(*this);
        if (!NT_SUCCESS(initialized)) {
            DeleteSensorObject();
            return initialized;
        }
        // From here a failure keeps the platform sensor and its lists until the object goes.
        return CreateLists();
    });
    if (!NT_SUCCESS(status))
        TRACE_ERROR(status, GetFriendlyName());
    TRACE_EXIT(status);
    return status;
}

NTSTATUS PedometerSensor::CreateLists()
{
    HidCollectionRecord& record = *Record();
    const SENSOROBJECT sensor = record.SensorObject;

    PSENSOR_PROPERTY_LIST fields = nullptr;
    if (!NT_SUCCESS(CreatePropertyList(sensor, kSupportedFields, &fields)))
        return STATUS_INSUFFICIENT_RESOURCES;
    record.SupportedDataFields = fields;
    fields->List[0] = kTimestampKey;
    fields->List[1] = kFirstAfterResetKey;
    fields->List[2] = kStepTypeKey;
    fields->List[3] = kStepCountKey;
    fields->List[4] = kStepDurationKey;

    PSENSOR_COLLECTION_LIST data = nullptr;
    if (!NT_SUCCESS(CreateCollectionList(sensor, kDataEntries, &data)))
        return STATUS_INSUFFICIENT_RESOURCES;
    record.Data = data;
    SetTimestampEntry(data);
    SetEntryBool(data, kResetEntry, kFirstAfterResetKey, VARIANT_FALSE);
    const ULONG types[] = {kStepTypeUnknown, kStepTypeWalking, kStepTypeRunning};
    for (ULONG i = 0; i < 3; ++i) {
        const ULONG entry = kUnknownTypeEntry + 3 * i;
        SetEntryUInt32(data, entry, kStepTypeKey, types[i]);
        SetEntryUInt32(data, entry + 1, kStepCountKey, 0);
        SetEntryInt64(data, entry + 2, kStepDurationKey, 0);
    }
    // One record takes exactly the entries of this list.
    record.minRetrievalSize = CollectionsListGetMarshalledSizeWithoutSerialization(data);
    const ULONG historySize = HistorySizeInBytes(record, *history_);

    PSENSOR_COLLECTION_LIST enumeration = nullptr;
    if (!NT_SUCCESS(CreateCollectionList(sensor, kEnumerationEntries, &enumeration)))
        return STATUS_INSUFFICIENT_RESOURCES;
    record.EnumerationProperties = enumeration;
    SetIdentityEntries(enumeration, *this, kPedometerSensorType, kMotionSensorCategory);
    SetEntryFloat(enumeration, 6, kSensorProperty23Key, kProperty23Value);
    SetEntryUInt32(enumeration, 7, kHistorySizeKey, historySize);
    SetEntryUInt32(enumeration, 8, kSupportedStepTypesKey, kSupportedStepTypes);

    PSENSOR_COLLECTION_LIST properties = nullptr;
    if (!NT_SUCCESS(CreateCollectionList(sensor, kPropertyEntries, &properties)))
        return STATUS_INSUFFICIENT_RESOURCES;
    record.SensorProperties = properties;
    SetBasePropertyEntries(properties, *this, kPedometerSensorType);
    SetEntryFloat(properties, 6, kSensorProperty23Key, kProperty23Value);
    SetHistoryPropertyEntries(properties, 7, record, *history_);
    SetEntryUInt32(properties, 10, kSupportedStepTypesKey, kSupportedStepTypes);

    // They describe the step count.
    PSENSOR_COLLECTION_LIST fieldProperties = nullptr;
    if (!NT_SUCCESS(CreateCollectionList(sensor, kDataFieldPropertyEntries, &fieldProperties)))
        return STATUS_INSUFFICIENT_RESOURCES;
    record.DataFieldProperties = fieldProperties;
    SetEntryInt64(fieldProperties, 0, kResolutionKey, 1);
    SetEntryUInt32(fieldProperties, 1, kRangeMinimumKey, 0);
    SetEntryUInt32(fieldProperties, 2, kRangeMaximumKey, 0xFFFFFFFF);

    PSENSOR_COLLECTION_LIST thresholds = nullptr;
    if (!NT_SUCCESS(CreateCollectionList(sensor, kThresholdEntries, &thresholds)))
        return STATUS_INSUFFICIENT_RESOURCES;
    record.Thresholds = thresholds;
    SetEntryUInt32(thresholds, 0, kStepCountKey, kInitialStepThresholdEntry);
    return STATUS_SUCCESS;
}

NTSTATUS PedometerSensor::Start(SENSOROBJECT sensor)
{
    TRACE_ENTRY();
    const NTSTATUS status = CheckHandle(sensor);
    if (NT_SUCCESS(status)) {
        HidCollectionRecord& record = *Record();
        record.forceDelivery.store(1, std::memory_order_relaxed);
        RequestReporting(record, true);
        if (history_->stepThreshold.load(std::memory_order_relaxed) == 0) {
            SetDeliveryMode(record.modeFlags, kModeEverySample);
            ApplyStreamingPace(record, history_->requestedInterval.load(std::memory_order_relaxed), 0.0f);
        } else if ((SetDeliveryMode(record.modeFlags, kModeFiltered) & kModeHistory) == 0) {
            // The device counts for itself and reports when the threshold is near.
            ApplyStreamingPace(record, record.MinimumReportInterval.load(std::memory_order_relaxed),
                               FilteredStepSensitivity(*history_));
        } else {
            ApplyStreamingPace(record, kFilteredHistoryReportIntervalMs, 0.0f);
        }
        ReadFeatureReport(1);
        SetSensorStateProperty(kSensorStateStarted);
    }
    TRACE_EXIT(status);
    return status;
}

NTSTATUS PedometerSensor::Stop(SENSOROBJECT sensor)
{
    TRACE_ENTRY();
    const NTSTATUS status = CheckHandle(sensor);
    if (NT_SUCCESS(status)) {
        StopHistorySensorDelivery(*this, *history_);
        SetSensorStateProperty(kSensorStateStopped);
    }
    TRACE_EXIT(status);
    return status;
}

NTSTATUS PedometerSensor::GetDataInterval(SENSOROBJECT sensor, ULONG* dataRateMs)
{
    return GetRequestedInterval(sensor, dataRateMs, history_->requestedInterval);
}

NTSTATUS PedometerSensor::SetDataInterval(SENSOROBJECT sensor, ULONG dataRateMs)
{
    return SetRequestedInterval(sensor, dataRateMs, history_->requestedInterval);
}

NTSTATUS PedometerSensor::GetDataThresholds(SENSOROBJECT sensor, PSENSOR_COLLECTION_LIST thresholds, ULONG* size)
{
    TRACE_ENTRY();
    const ULONG threshold = history_->stepThreshold.load(std::memory_order_relaxed);
    const NTSTATUS status =
        AnswerGuardedList(sensor, Record()->Thresholds, thresholds, size,
                          [threshold](PSENSOR_COLLECTION_LIST own) {
                              TypedValue(own->List[0].Value, VT_UI4).ulVal = threshold;
                          });
    if (!NT_SUCCESS(status))
        TRACE_ERROR(status, GetFriendlyName());
    TRACE_EXIT(status);
    return status;
}

NTSTATUS PedometerSensor::SetDataThresholds(SENSOROBJECT sensor, PSENSOR_COLLECTION_LIST thresholds)
{
    TRACE_ENTRY();
    NTSTATUS status = CheckHandle(sensor);
    if (NT_SUCCESS(status) && thresholds == nullptr)
        status = STATUS_INVALID_PARAMETER;
    if (!NT_SUCCESS(status)) {
        TRACE_ERROR(status, GetFriendlyName());
        TRACE_EXIT(status);
        return status;
    }
    HidCollectionRecord& record = *Record();
    for (ULONG i = 0; i < thresholds->Count; ++i) {
        const SENSOR_VALUE_PAIR& entry = thresholds->List[i];
        if (!IsEqualPropertyKey(entry.Key, kStepCountKey))
            continue;
        if (entry.Value.vt == VT_UI4)
            history_->stepThreshold.store(entry.Value.ulVal, std::memory_order_relaxed);
        else if (entry.Value.vt == VT_R4)
            history_->stepThreshold.store(TruncatedThreshold(entry.Value.fltVal), std::memory_order_relaxed);
        else
            TRACE_WARNING(GetFriendlyName(), static_cast<ULONG>(entry.Value.vt));
        // The mode follows the threshold now, whatever the entry's type.
        SetDeliveryMode(record.modeFlags,
                        history_->stepThreshold.load(std::memory_order_relaxed) != 0 ? kModeFiltered
                                                                                      : kModeEverySample);
        TRACE_INFO(GetFriendlyName(), history_->stepThreshold.load(std::memory_order_relaxed));
    }
    TRACE_EXIT(STATUS_SUCCESS);
    return STATUS_SUCCESS;
}

NTSTATUS PedometerSensor::GetDataFieldProperties(SENSOROBJECT sensor, const PROPERTYKEY* dataField,
                                                 PSENSOR_COLLECTION_LIST properties, ULONG* size)
{
    return AnswerDataFieldProperties(sensor, dataField, kStepCountKey, properties, size);
}

NTSTATUS PedometerSensor::StartHistory(SENSOROBJECT sensor)
{
    return history_->StartHistory(sensor);
}

NTSTATUS PedometerSensor::StopHistory(SENSOROBJECT sensor)
{
    return history_->StopHistory(sensor);
}

NTSTATUS PedometerSensor::ClearHistory(SENSOROBJECT sensor)
{
    return history_->ClearHistory(sensor);
}

NTSTATUS PedometerSensor::StartHistoryRetrieval(SENSOROBJECT sensor, PSENSOR_COLLECTION_LIST historyBuffer,
                                                ULONG historySizeInBytes)
{
    return history_->StartHistoryRetrieval(sensor, historyBuffer, historySizeInBytes);
}

NTSTATUS PedometerSensor::CancelHistoryRetrieval(SENSOROBJECT sensor, ULONG* bytesWritten)
{
    return history_->CancelHistoryRetrieval(sensor, bytesWritten);
}

NTSTATUS PedometerSensor::UpdateDataField(const PROPERTYKEY* key, const PROPVARIANT* value)
{
    PSENSOR_COLLECTION_LIST data = Record()->Data;
    if (data == nullptr || data->Count != kDataEntries || key == nullptr || value == nullptr ||
        value->vt != VT_UI4)
        return STATUS_SUCCESS;
    const ULONG k = StepField(*key);
    if (k == 0)
        return STATUS_SUCCESS;
    const ULONG v = value->ulVal;
    // Durations are the device's 32 bits, sign-extended: 0xFFFFFFFF is -1.
    const LONGLONG duration = static_cast<LONG>(v);
    SENSOR_VALUE_PAIR* entries = data->List;
    switch (k) {
    case 1:
        TypedValue(entries[kResetEntry].Value, VT_BOOL).boolVal = v != 0 ? VARIANT_TRUE : VARIANT_FALSE;
        break;
    case 2:
        TypedValue(entries[kWalkingTypeEntry].Value, VT_UI4).ulVal = kStepTypeWalking;
        TypedValue(entries[kWalkingTypeEntry + 1].Value, VT_UI4).ulVal = v;
        break;
    case 3:
        TypedValue(entries[kWalkingTypeEntry].Value, VT_UI4).ulVal = kStepTypeWalking;
        TypedValue(entries[kWalkingTypeEntry + 2].Value, VT_I8).hVal = duration;
        break;
    case 4:
        TypedValue(entries[kRunningTypeEntry].Value, VT_UI4).ulVal = kStepTypeRunning;
        TypedValue(entries[kRunningTypeEntry + 1].Value, VT_UI4).ulVal = v;
        break;
    default:
        TypedValue(entries[kRunningTypeEntry].Value, VT_UI4).ulVal = kStepTypeRunning;
        TypedValue(entries[kRunningTypeEntry + 2].Value, VT_I8).hVal = duration;
        break;
    }
    ULONG& pending = PropertyCache()->PendingFieldCount;
    if (++pending == kFieldsPerSample)
        CompleteSample();
    return STATUS_SUCCESS;
}

void PedometerSensor::CompleteSample()
{
    HidCollectionRecord& record = *Record();
    PSENSOR_COLLECTION_LIST data = record.Data;
    SENSOR_VALUE_PAIR* entries = data->List;
    PropertyCache()->PendingFieldCount = 0;
    // The device has no unknown-type steps.
    TypedValue(entries[kUnknownTypeEntry].Value, VT_UI4).ulVal = kStepTypeUnknown;
    TypedValue(entries[kUnknownTypeEntry + 1].Value, VT_UI4).ulVal = 0;
    TypedValue(entries[kUnknownTypeEntry + 2].Value, VT_I8).hVal = 0;

    HistoryRecord sample{};
    PedometerRecord& steps = sample.Pedometer;
    PropVariantToFileTime(entries[0].Value, PSTF_UTC, &steps.timestamp);
    BOOL reset = FALSE;
    PropVariantToBoolean(entries[kResetEntry].Value, &reset);
    steps.resetFlag = reset != FALSE ? 1 : 0;
    PropVariantToUInt32(entries[kUnknownTypeEntry + 1].Value, &steps.unknownStepCount);
    PropVariantToInt64(entries[kUnknownTypeEntry + 2].Value, &steps.unknownStepDuration);
    PropVariantToUInt32(entries[kWalkingTypeEntry + 1].Value, &steps.walkingStepCount);
    PropVariantToInt64(entries[kWalkingTypeEntry + 2].Value, &steps.walkingStepDuration);
    PropVariantToUInt32(entries[kRunningTypeEntry + 1].Value, &steps.runningStepCount);
    PropVariantToInt64(entries[kRunningTypeEntry + 2].Value, &steps.runningStepDuration);
    // The reader is the only writer of the latest sample: what it holds now
    // becomes the previous sample of the capture.
    const HistoryRecord previous = history_->LatestSample();
    history_->CaptureSample(sample);

    bool deliver = false;
    const ULONG mode = record.modeFlags.load(std::memory_order_relaxed);
    if ((mode & kModeFiltered) == 0) {
        deliver = (mode & kModeEverySample) != 0;
    } else if (record.forceDelivery.load(std::memory_order_relaxed) != 0 || steps.resetFlag == 1) {
        deliver = true;
    } else {
        const ULONG threshold = history_->stepThreshold.load(std::memory_order_relaxed);
        ULONG total = 0;
        ULONG previousTotal = 0;
        const bool fits = StepTotal(steps, &total);
        const bool previousFits = StepTotal(previous.Pedometer, &previousTotal);
        deliver = !fits || !previousFits || (previousTotal < threshold && threshold <= total);
    }
    if (deliver) {
        SensorsCxSensorDataReady(record.SensorObject, data);
        record.forceDelivery.store(0, std::memory_order_relaxed);
    }
    history_->MarkNewSample();
}
