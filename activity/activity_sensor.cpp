#include "activity/activity_sensor.h"

#include <cstring>

#include "history/history_keys.h"
#include "history/history_lifetime.h"
#include "history/history_pace.h"
#include "history/history_properties.h"
#include "platform/propsys.h"
#include "platform/sensorsutils.h"
#include "platform/system.h"
#include "sensors/common_list_entries.h"
#include "sensors/sensor_keys.h"
#include "sensors/sensor_lists.h"
#include "tracing/trace.h"

namespace {
constexpr GUID kTraceMessageGuid = {
    0x5B2E9D04, 0x7C1A, 0x4F63, {0x8A, 0x95, 0x1E, 0x6D, 0x30, 0xC2, 0x4B, 0x87}};

constexpr GUID kActivitySensorType = {
    0x9D9E0118, 0x1807, 0x4F2E, {0x96, 0xE4, 0x2C, 0xE5, 0x71, 0x42, 0xE1, 0x96}};
constexpr PROPERTYKEY kSupportedActivitiesKey = {kSensorPropertyFmtid, 60};

constexpr ULONG kActivitySlots = 7;  // custom values 1..7
constexpr ULONG kDataEntries = 1 + 2 * kActivitySlots;
constexpr ULONG kRecordEntries = 3;
constexpr ULONG kEnumerationEntries = 10;
constexpr ULONG kPropertyEntries = 11;
constexpr ULONG kDataFieldPropertyEntries = 3;
constexpr ULONG kThresholdEntries = 3;

constexpr ULONG kStationary = 0x02;
constexpr ULONG kUnknownActivity = 0x01;
constexpr USHORT kInitialConfidence = 100;
constexpr USHORT kDefaultConfidenceThreshold = 30;
constexpr USHORT kMaxConfidence = 100;

bool IsCustomValue(const PROPERTYKEY& key, ULONG* k)
{
    if (!IsEqualGUID(key.fmtid, kCustomDataFmtid))
        return false;
    const ULONG slot = key.pid - kCustomValueKeys[0].pid + 1;
    if (slot < 1 || slot > kActivitySlots)
        return false;
    *k = slot;
    return true;
}
}  // namespace

ULONG ActivityStateFromCode(ULONG word) noexcept
{
    switch ((word >> 4) & 0xFF) {
    case 1:
        return 0x08;  // walking
    case 2:
        return 0x10;  // running
    case 3:
        return 0x40;  // biking
    case 4:
        return 0x20;  // in vehicle
    case 5:
        return kStationary;
    case 6:
        return 0x04;  // fidgeting
    default:
        return kUnknownActivity;
    }
}

USHORT ActivityConfidence(ULONG word, bool* clamped) noexcept
{
    const ULONG percent = ((word >> 12) & 0x7FF) / 10;
    *clamped = percent > kMaxConfidence;
    return static_cast<USHORT>(*clamped ? kMaxConfidence : percent);
}

ActivitySensor::ActivitySensor(WDFDEVICE device, HidDevice* owner, ULONG sensorObjectKind, ULONG usage,
                               USHORT linkCollection, ULONG sensorIndex, PCWSTR manufacturer,
                               PCWSTR product, PCWSTR serialNumber, PCWSTR instanceName) noexcept
    : CustomSensor(device, owner, sensorObjectKind, usage, linkCollection, sensorIndex, manufacturer,
                   product, serialNumber, instanceName)
{
    if (!IsValid())
        return;
    SetSensorStateEntry(kBaseSensorStateEntry);
    subscribedActivities_.store(kAllActivities, std::memory_order_relaxed);
    confidenceThreshold_.store(kDefaultConfidenceThreshold, std::memory_order_relaxed);
    // Without its history the sensor is not created at all: every later
    // operation relies on it, so discovery skips the collection instead.
    history_ = CreateSensorHistory(*this, HistoryKind::Activity);
    if (history_ == nullptr) {
        TRACE_ERROR(STATUS_NO_MEMORY, sensorIndex);
        MarkConstructionFailed();
    }
}

ActivitySensor::~ActivitySensor()
{
    DestroySensorHistory(*this, history_);
    DriverHeapFree(readerThresholds_);
    readerThresholds_ = nullptr;
}

void ActivitySensor::FillThresholds(PSENSOR_COLLECTION_LIST list) const noexcept
{
    list->AllocatedSizeInBytes = SENSOR_COLLECTION_LIST_SIZE(kThresholdEntries);
    list->Count = kThresholdEntries;
    SetEntryBool(list, 0, kActivityStreamThresholdKey,
                 static_cast<VARIANT_BOOL>(streamEntry_.load(std::memory_order_relaxed)));
    SetEntryUInt32(list, 1, kSubscribedActivitiesThresholdKey, subscribedActivities_.load(std::memory_order_relaxed));
    SetEntryUInt16(list, 2, kActivityConfidenceThresholdKey, confidenceThreshold_.load(std::memory_order_relaxed));
}

NTSTATUS ActivitySensor::RegisterSensor()
{
    TRACE_ENTRY();
    const NTSTATUS status = RegisterWithLists([this] {
        NTSTATUS built = history_->Initialize(*this);
        ULONG failedStep = 0;
        if (NT_SUCCESS(built))
            built = BuildLists(&failedStep);
        // Up to the enumeration list a failure takes the platform sensor back;
        // later ones leave it and its lists to the destructor.
        if (!NT_SUCCESS(built) && failedStep <= 4)
            DeleteSensorObject();
        return built;
    });
    if (!NT_SUCCESS(status))
        TRACE_ERROR(status, GetFriendlyName());
    TRACE_EXIT(status);
    return status;
}

// Lists 1 to 7 in order; *failedStep names the one that failed.
NTSTATUS ActivitySensor::BuildLists(ULONG* failedStep)
{
    HidCollectionRecord& record = *Record();
    const SENSOROBJECT sensor = record.SensorObject;

    *failedStep = 1;
    PSENSOR_PROPERTY_LIST fields = nullptr;
    if (!NT_SUCCESS(CreatePropertyList(sensor, 3, &fields)))
        return STATUS_INSUFFICIENT_RESOURCES;
    record.SupportedDataFields = fields;
    fields->List[0] = kTimestampKey;
    fields->List[1] = kActivityStateKey;
    fields->List[2] = kActivityConfidenceKey;

    *failedStep = 2;
    PSENSOR_COLLECTION_LIST data = nullptr;
    if (!NT_SUCCESS(CreateCollectionList(sensor, kDataEntries, &data)))
        return STATUS_INSUFFICIENT_RESOURCES;
    record.Data = data;
    SetTimestampEntry(data);
    for (ULONG j = 1; j <= kActivitySlots; ++j) {
        SetEntryUInt32(data, 2 * j - 1, kActivityStateKey, kStationary);
        SetEntryUInt16(data, 2 * j, kActivityConfidenceKey, kInitialConfidence);
    }

    *failedStep = 3;
    auto* delivered = static_cast<PSENSOR_COLLECTION_LIST>(DriverHeapAlloc(data->AllocatedSizeInBytes));
    readerThresholds_ = static_cast<PSENSOR_COLLECTION_LIST>(
        DriverHeapAllocZeroed(SENSOR_COLLECTION_LIST_SIZE(kThresholdEntries)));
    if (delivered == nullptr || readerThresholds_ == nullptr) {
        DriverHeapFree(delivered);
        return STATUS_INSUFFICIENT_RESOURCES;
    }
    std::memcpy(delivered, data, data->AllocatedSizeInBytes);
    delivered->Count = kRecordEntries;
    DriverHeapFree(history_->lastDelivered);
    history_->lastDelivered = delivered;
    record.minRetrievalSize = CollectionsListGetMarshalledSizeWithoutSerialization(delivered);

    const ULONG historySize = HistorySizeInBytes(record, *history_);
    const ULONG minimumInterval = record.MinimumReportInterval.load(std::memory_order_relaxed);

    *failedStep = 4;
    PSENSOR_COLLECTION_LIST enumeration = nullptr;
    if (!NT_SUCCESS(CreateCollectionList(sensor, kEnumerationEntries, &enumeration)))
        return STATUS_INSUFFICIENT_RESOURCES;
    record.EnumerationProperties = enumeration;
    SetIdentityEntries(enumeration, *this, kActivitySensorType, kMotionSensorCategory);
    SetEntryUInt32(enumeration, 6, kMinimumDataIntervalKey, minimumInterval);
    SetEntryFloat(enumeration, 7, kSensorProperty23Key, kProperty23Value);
    SetEntryUInt32(enumeration, 8, kSupportedActivitiesKey, kAllActivities);
    SetEntryUInt32(enumeration, 9, kHistorySizeKey, historySize);

    *failedStep = 5;
    PSENSOR_COLLECTION_LIST properties = nullptr;
    if (!NT_SUCCESS(CreateCollectionList(sensor, kPropertyEntries, &properties)))
        return STATUS_INSUFFICIENT_RESOURCES;
    record.SensorProperties = properties;
    SetBasePropertyEntries(properties, *this, kActivitySensorType);
    SetEntryFloat(properties, 6, kSensorProperty23Key, kProperty23Value);
    SetEntryUInt32(properties, 7, kSupportedActivitiesKey, kAllActivities);
    SetHistoryPropertyEntries(properties, 8, record, *history_);

    *failedStep = 6;
    PSENSOR_COLLECTION_LIST fieldProperties = nullptr;
    if (!NT_SUCCESS(CreateCollectionList(sensor, kDataFieldPropertyEntries, &fieldProperties)))
        return STATUS_INSUFFICIENT_RESOURCES;
    record.DataFieldProperties = fieldProperties;
    SetEntryFloat(fieldProperties, 0, kResolutionKey, 1.0f);
    SetEntryFloat(fieldProperties, 1, kRangeMinimumKey, 0.0f);
    SetEntryFloat(fieldProperties, 2, kRangeMaximumKey, 100.0f);

    *failedStep = 7;
    PSENSOR_COLLECTION_LIST thresholds = nullptr;
    if (!NT_SUCCESS(CreateCollectionList(sensor, kThresholdEntries, &thresholds)))
        return STATUS_INSUFFICIENT_RESOURCES;
    record.Thresholds = thresholds;
    FillThresholds(thresholds);
    *failedStep = 0;
    return STATUS_SUCCESS;
}

NTSTATUS ActivitySensor::Start(SENSOROBJECT sensor)
{
    TRACE_ENTRY();
    const NTSTATUS status = CheckHandle(sensor);
    if (NT_SUCCESS(status)) {
        HidCollectionRecord& record = *Record();
        record.forceDelivery.store(1, std::memory_order_relaxed);
        RequestReporting(record, true);
        if (history_->streamFlag.load(std::memory_order_relaxed) != 0) {
            SetDeliveryMode(record.modeFlags, kModeEverySample);
            ApplyStreamingPace(record, history_->requestedInterval.load(std::memory_order_relaxed), 0.0f);
        } else {
            // The device reports as fast as it can; the host filters. The
            // batch interval stays as it is.
            SetDeliveryMode(record.modeFlags, kModeFiltered);
            record.CurrentReportInterval.store(record.MinimumReportInterval.load(std::memory_order_relaxed),
                                               std::memory_order_relaxed);
            record.DataThresholds[kChangeSensitivityPosition].store(0.0f, std::memory_order_relaxed);
        }
        PropertyCache()->RequestedVendorValues[static_cast<ULONG>(RequestedVendor::ActSubscribedActivities)]
            .store(kAllActivities, std::memory_order_relaxed);
        ReadFeatureReport(1);
        SetSensorStateProperty(kSensorStateStarted);
    }
    TRACE_EXIT(status);
    return status;
}

NTSTATUS ActivitySensor::Stop(SENSOROBJECT sensor)
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

NTSTATUS ActivitySensor::GetDataInterval(SENSOROBJECT sensor, ULONG* dataRateMs)
{
    return GetRequestedInterval(sensor, dataRateMs, history_->requestedInterval);
}

NTSTATUS ActivitySensor::SetDataInterval(SENSOROBJECT sensor, ULONG dataRateMs)
{
    return SetRequestedInterval(sensor, dataRateMs, history_->requestedInterval);
}

NTSTATUS ActivitySensor::GetDataThresholds(SENSOROBJECT sensor, PSENSOR_COLLECTION_LIST thresholds,
                                           ULONG* size)
{
    TRACE_ENTRY();
    NTSTATUS status = CheckHandle(sensor);
    if (NT_SUCCESS(status)) {
        // Refreshed only on the way to a copy: a size query or a refused call
        // leaves the entry that filtered delivery reads as it was.
        if (thresholds != nullptr && size != nullptr)
            streamEntry_.store(history_->streamFlag.load(std::memory_order_relaxed) != 0 ? 0xFFFF : 0,
                               std::memory_order_relaxed);
        // Answered from a list built here, so that no two callers write one list.
        alignas(SENSOR_COLLECTION_LIST) unsigned char storage[SENSOR_COLLECTION_LIST_SIZE(kThresholdEntries)];
        auto* own = reinterpret_cast<PSENSOR_COLLECTION_LIST>(storage);
        FillThresholds(own);
        status = AnswerCollectionList(own, thresholds, size);
    } else if (size != nullptr) {
        *size = 0;
    }
    if (!NT_SUCCESS(status))
        TRACE_ERROR(status, GetFriendlyName());
    TRACE_EXIT(status);
    return status;
}

NTSTATUS ActivitySensor::SetDataThresholds(SENSOROBJECT sensor, PSENSOR_COLLECTION_LIST thresholds)
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
        if (IsEqualPropertyKey(entry.Key, kActivityStreamThresholdKey)) {
            const LONG flag = entry.Value.boolVal;  // VARIANT_TRUE is -1
            history_->streamFlag.store(static_cast<ULONG>(flag), std::memory_order_relaxed);
            streamEntry_.store(flag != 0 ? 0xFFFF : 0, std::memory_order_relaxed);
            SetDeliveryMode(record.modeFlags, flag != 0 ? kModeEverySample : kModeFiltered);
        } else if (IsEqualPropertyKey(entry.Key, kSubscribedActivitiesThresholdKey)) {
            subscribedActivities_.store(entry.Value.ulVal, std::memory_order_relaxed);
        } else if (IsEqualPropertyKey(entry.Key, kActivityConfidenceThresholdKey)) {
            confidenceThreshold_.store(entry.Value.uiVal, std::memory_order_relaxed);
        }
    }
    TRACE_EXIT(STATUS_SUCCESS);
    return STATUS_SUCCESS;
}

NTSTATUS ActivitySensor::GetDataFieldProperties(SENSOROBJECT sensor, const PROPERTYKEY* dataField,
                                                PSENSOR_COLLECTION_LIST properties, ULONG* size)
{
    return AnswerDataFieldProperties(sensor, dataField, kActivityConfidenceThresholdKey, properties, size);
}

NTSTATUS ActivitySensor::StartHistory(SENSOROBJECT sensor)
{
    return history_->StartHistory(sensor);
}

NTSTATUS ActivitySensor::StopHistory(SENSOROBJECT sensor)
{
    return history_->StopHistory(sensor);
}

NTSTATUS ActivitySensor::ClearHistory(SENSOROBJECT sensor)
{
    return history_->ClearHistory(sensor);
}

NTSTATUS ActivitySensor::StartHistoryRetrieval(SENSOROBJECT sensor, PSENSOR_COLLECTION_LIST historyBuffer,
                                               ULONG historySizeInBytes)
{
    return history_->StartHistoryRetrieval(sensor, historyBuffer, historySizeInBytes);
}

NTSTATUS ActivitySensor::CancelHistoryRetrieval(SENSOROBJECT sensor, ULONG* bytesWritten)
{
    return history_->CancelHistoryRetrieval(sensor, bytesWritten);
}

NTSTATUS ActivitySensor::UpdateDataField(const PROPERTYKEY* key, const PROPVARIANT* value)
{
    PSENSOR_COLLECTION_LIST data = Record()->Data;
    ULONG k = 0;
    if (data == nullptr || key == nullptr || value == nullptr || !IsCustomValue(*key, &k))
        return STATUS_SUCCESS;
    ULONG& pending = PropertyCache()->PendingFieldCount;
    // A sample begins: the pairs of one abandoned at a read's first report go with it.
    if (pending == 0)
        history_->activityCount = 0;
    if (value->vt == VT_UI4) {
        bool clamped = false;
        const USHORT confidence = ActivityConfidence(value->ulVal, &clamped);
        if (clamped)
            TRACE_WARNING(GetFriendlyName(), k, value->ulVal);
        if (confidence != 0) {
            SetEntryUInt32(data, 2 * k - 1, kActivityStateKey, ActivityStateFromCode(value->ulVal));
            SetEntryUInt16(data, 2 * k, kActivityConfidenceKey, confidence);
            ++history_->activityCount;
        }
    }
    if (++pending != kActivitySlots)
        return STATUS_SUCCESS;
    return CompleteSample();
}

NTSTATUS ActivitySensor::CompleteSample()
{
    HidCollectionRecord& record = *Record();
    PSENSOR_COLLECTION_LIST data = record.Data;
    PropertyCache()->PendingFieldCount = 0;
    data->Count = 2 * history_->activityCount + 1;
    history_->activityCount = 0;

    // The first slot as it stands, before any sorting: it may hold an earlier sample's pair.
    HistoryRecord sample{};
    PropVariantToFileTime(data->List[0].Value, PSTF_UTC, &sample.Activity.timestamp);
    PropVariantToUInt32(data->List[1].Value, &sample.Activity.activityState);
    PropVariantToUInt16(data->List[2].Value, &sample.Activity.confidence);
    history_->CaptureSample(sample);

    NTSTATUS status = STATUS_DATA_NOT_ACCEPTED;
    bool deliver = false;
    const ULONG mode = record.modeFlags.load(std::memory_order_relaxed);
    if ((mode & kModeFiltered) != 0) {
        FillThresholds(readerThresholds_);
        status = CollectionsListSortSubscribedActivitiesByConfidence(readerThresholds_, data);
        if (NT_SUCCESS(status)) {
            deliver = record.forceDelivery.load(std::memory_order_relaxed) != 0 ||
                      (EvaluateActivityThresholds(data, history_->lastDelivered, readerThresholds_) & 0xFF) != 0;
        } else {
            TRACE_ERROR(status, GetFriendlyName());
        }
    } else if ((mode & kModeEverySample) != 0) {
        status = STATUS_SUCCESS;
        deliver = true;
    }
    if (deliver) {
        SensorsCxSensorDataReady(record.SensorObject, data);
        record.forceDelivery.store(0, std::memory_order_relaxed);
        PSENSOR_COLLECTION_LIST delivered = history_->lastDelivered;
        const ULONG bytes = data->AllocatedSizeInBytes < delivered->AllocatedSizeInBytes
                                ? data->AllocatedSizeInBytes
                                : delivered->AllocatedSizeInBytes;
        std::memmove(delivered, data, bytes);
    } else {
        status = STATUS_DATA_NOT_ACCEPTED;
    }
    history_->MarkNewSample();
    return status;
}
