#include "sensors/custom_sensor.h"

#include <bit>
#include <cstring>
#include <iterator>

#include "feature/feature_report.h"
#include "platform/sensorsutils.h"
#include "sensors/sensor_keys.h"
#include "sensors/sensor_lists.h"
#include "tracing/trace.h"

namespace {
constexpr GUID kTraceMessageGuid = {
    0x65A02E6C, 0xF9CE, 0x4114, {0xAC, 0x99, 0x2B, 0xD3, 0x5B, 0x48, 0xDD, 0xFB}};

// The same GUID, as two 8-byte compares: this runs for every data-field update.
bool SameFmtid(const GUID& a, const GUID& b) noexcept
{
    return std::memcmp(&a, &b, sizeof(GUID)) == 0;
}
}  // namespace

CustomSensor::CustomSensor(WDFDEVICE device, HidDevice* owner, ULONG sensorObjectKind, ULONG usage,
                           USHORT linkCollection, ULONG sensorIndex, PCWSTR manufacturer,
                           PCWSTR product, PCWSTR serialNumber, PCWSTR instanceName) noexcept
    : HidSensor(device, owner, sensorObjectKind, usage, linkCollection, sensorIndex, manufacturer,
                product, serialNumber, instanceName)
{
    if (!IsValid())
        return;
    cache_ = new (std::nothrow) SensorPropertyCache;
    if (cache_ == nullptr) {
        TRACE_ERROR(STATUS_NO_MEMORY, sensorIndex);
        MarkConstructionFailed();
        return;
    }
    HidCollectionRecord& record = *Record();
    // Classified again, for the name only: reads the feature report once more.
    const CustomSensorKind kind =
        ClassifyCustomCollection(owner, static_cast<UCHAR>(sensorIndex), linkCollection);
    WideFormat(record.FriendlyName, u"%s-%i", {CustomSensorKindFriendlyText(kind), sensorIndex});
    record.CurrentReportInterval.store(kDefaultReportIntervalMs, std::memory_order_relaxed);
    record.FallbackReportInterval.store(kDefaultReportIntervalMs, std::memory_order_relaxed);
    record.MinimumReportInterval.store(kMinimumReportIntervalMs, std::memory_order_relaxed);
}

CustomSensor::~CustomSensor()
{
    delete cache_;
    cache_ = nullptr;
}

NTSTATUS CustomSensor::CheckHandle(SENSOROBJECT sensor) const noexcept
{
    const SENSOROBJECT own = Record()->SensorObject;
    if (sensor == nullptr || sensor != own) {
        TRACE_ERROR(STATUS_UNSUCCESSFUL, GetFriendlyName());
        return STATUS_UNSUCCESSFUL;
    }
    return STATUS_SUCCESS;
}

NTSTATUS CustomSensor::Initialize()
{
    TRACE_ENTRY();
    HidCollectionRecord& record = *Record();
    cache_->ClearFeatureValues();
    record.DefaultMaximum = FLT_MAX;
    record.DefaultMinimum = -FLT_MAX;
    record.FurtherBounds[0] = FLT_MAX;
    record.FurtherBounds[1] = FLT_MAX;

    NTSTATUS status = HidSensor::Initialize();
    if (NT_SUCCESS(status))
        status = RegisterSensor();
    if (!NT_SUCCESS(status))
        TRACE_ERROR(status, GetFriendlyName());
    TRACE_EXIT(status);
    return status;
}

NTSTATUS CustomSensor::Uninitialize()
{
    TRACE_ENTRY();
    TRACE_EXIT(STATUS_SUCCESS);
    return STATUS_SUCCESS;
}

NTSTATUS CustomSensor::ReadFeatureReport(ULONG writeSettings)
{
    return ReadSensorFeatureReport(*this, *cache_, writeSettings);
}

void CustomSensor::SetSensorStateProperty(ULONG state) noexcept
{
    PSENSOR_COLLECTION_LIST properties = Record()->SensorProperties;
    if (properties == nullptr || sensorStateEntry_ >= properties->Count)
        return;
    std::lock_guard lock(publishedListsLock_);
    PROPVARIANT& value = properties->List[sensorStateEntry_].Value;
    value.vt = VT_UI4;
    value.ulVal = state;
}

NTSTATUS CustomSensor::Start(SENSOROBJECT sensor)
{
    return SwitchReporting(sensor, true);
}

NTSTATUS CustomSensor::Stop(SENSOROBJECT sensor)
{
    return SwitchReporting(sensor, false);
}

NTSTATUS CustomSensor::SwitchReporting(SENSOROBJECT sensor, bool on)
{
    TRACE_ENTRY();
    NTSTATUS status = CheckHandle(sensor);
    if (NT_SUCCESS(status)) {
        HidCollectionRecord& record = *Record();
        if (on)
            record.forceDelivery.store(1, std::memory_order_relaxed);
        RequestReporting(record, on);
        // The write-back sends the reporting and power state; its result is not ours.
        ReadFeatureReport(0);
        SetSensorStateProperty(on ? kSensorStateStarted : kSensorStateStopped);
    }
    TRACE_EXIT(status);
    return status;
}

NTSTATUS CustomSensor::GetSupportedDataFields(SENSOROBJECT sensor, PSENSOR_PROPERTY_LIST fields,
                                              ULONG* size)
{
    TRACE_ENTRY();
    NTSTATUS status = CheckHandle(sensor);
    if (NT_SUCCESS(status))
        status = AnswerPropertyList(Record()->SupportedDataFields, fields, size);
    if (!NT_SUCCESS(status))
        TRACE_ERROR(status, GetFriendlyName());
    TRACE_EXIT(status);
    return status;
}

NTSTATUS CustomSensor::GetProperties(SENSOROBJECT sensor, PSENSOR_COLLECTION_LIST properties,
                                     ULONG* size)
{
    TRACE_ENTRY();
    NTSTATUS status = CheckHandle(sensor);
    if (NT_SUCCESS(status)) {
        std::lock_guard lock(publishedListsLock_);
        status = AnswerCollectionList(Record()->SensorProperties, properties, size);
    }
    if (!NT_SUCCESS(status))
        TRACE_ERROR(status, GetFriendlyName());
    TRACE_EXIT(status);
    return status;
}

NTSTATUS CustomSensor::GetDataFieldProperties(SENSOROBJECT /*sensor*/, const PROPERTYKEY* /*dataField*/,
                                              PSENSOR_COLLECTION_LIST /*properties*/, ULONG* size)
{
    TRACE_ENTRY();
    // The data-field property list is built for every custom sensor but never
    // served from here; the orientation sensors keep this answer too.
    if (size != nullptr)
        *size = 0;
    TRACE_ERROR(STATUS_NOT_SUPPORTED, GetFriendlyName());
    TRACE_EXIT(STATUS_NOT_SUPPORTED);
    return STATUS_NOT_SUPPORTED;
}

NTSTATUS CustomSensor::GetDataInterval(SENSOROBJECT sensor, ULONG* dataRateMs)
{
    const NTSTATUS status = GetRequestedInterval(sensor, dataRateMs, Record()->CurrentReportInterval);
    // Only the plain custom sensor reads the feature report again after answering.
    if (NT_SUCCESS(status))
        ReadFeatureReport(0);
    return status;
}

NTSTATUS CustomSensor::SetDataInterval(SENSOROBJECT sensor, ULONG dataRateMs)
{
    return SetRequestedInterval(sensor, dataRateMs, Record()->CurrentReportInterval);
}

NTSTATUS CustomSensor::GetRequestedInterval(SENSOROBJECT sensor, ULONG* dataRateMs, std::atomic<ULONG>& requested)
{
    TRACE_ENTRY();
    NTSTATUS status = CheckHandle(sensor);
    if (NT_SUCCESS(status) && dataRateMs == nullptr)
        status = STATUS_INVALID_PARAMETER;
    if (NT_SUCCESS(status)) {
        ReadFeatureReport(0);
        // A minimum the device raised above the requested interval: back to the default.
        if (requested.load(std::memory_order_relaxed) <
            Record()->MinimumReportInterval.load(std::memory_order_relaxed))
            requested.store(kDefaultReportIntervalMs, std::memory_order_relaxed);
        *dataRateMs = requested.load(std::memory_order_relaxed);
        TRACE_INFO(GetFriendlyName(), *dataRateMs);
    } else {
        TRACE_ERROR(status, GetFriendlyName());
    }
    TRACE_EXIT(status);
    return status;
}

NTSTATUS CustomSensor::SetRequestedInterval(SENSOROBJECT sensor, ULONG dataRateMs, std::atomic<ULONG>& requested)
{
    TRACE_ENTRY();
    NTSTATUS status = CheckHandle(sensor);
    HidCollectionRecord& record = *Record();
    if (NT_SUCCESS(status) && dataRateMs < record.MinimumReportInterval.load(std::memory_order_relaxed))
        status = STATUS_UNSUCCESSFUL;
    if (NT_SUCCESS(status)) {
        requested.store(dataRateMs, std::memory_order_relaxed);
        record.CurrentReportInterval.store(dataRateMs, std::memory_order_relaxed);
        ReadFeatureReport(0);
        record.forceDelivery.store(1, std::memory_order_relaxed);
    } else {
        TRACE_ERROR(status, GetFriendlyName(), dataRateMs);
    }
    TRACE_EXIT(status);
    return status;
}

NTSTATUS CustomSensor::AnswerDataFieldProperties(SENSOROBJECT sensor, const PROPERTYKEY* dataField,
                                                 const PROPERTYKEY& servedKey, PSENSOR_COLLECTION_LIST properties,
                                                 ULONG* size)
{
    TRACE_ENTRY();
    NTSTATUS status = CheckHandle(sensor);
    if (NT_SUCCESS(status) && (dataField == nullptr || size == nullptr))
        status = STATUS_INVALID_PARAMETER;
    if (NT_SUCCESS(status) && !IsEqualPropertyKey(*dataField, servedKey))
        status = STATUS_NOT_SUPPORTED;
    // Never rewritten after registration: no lock needed.
    if (NT_SUCCESS(status))
        status = AnswerCollectionList(Record()->DataFieldProperties, properties, size);
    if (!NT_SUCCESS(status)) {
        if (size != nullptr)
            *size = 0;
        TRACE_ERROR(status, GetFriendlyName());
    }
    TRACE_EXIT(status);
    return status;
}

NTSTATUS CustomSensor::GetDataThresholds(SENSOROBJECT sensor, PSENSOR_COLLECTION_LIST thresholds,
                                         ULONG* size)
{
    TRACE_ENTRY();
    NTSTATUS status = CheckHandle(sensor);
    PSENSOR_COLLECTION_LIST own = Record()->Thresholds;
    if (NT_SUCCESS(status) && size == nullptr)
        status = STATUS_INVALID_PARAMETER;
    if (NT_SUCCESS(status) && own == nullptr)
        status = STATUS_UNSUCCESSFUL;
    if (NT_SUCCESS(status)) {
        std::lock_guard lock(publishedListsLock_);
        if (thresholds != nullptr)
            InitPropVariantFromFloat(cache_->FieldChangeSensitivity[1].Get(), &own->List[0].Value);
        status = AnswerCollectionList(own, thresholds, size);
    }
    if (!NT_SUCCESS(status))
        TRACE_ERROR(status, GetFriendlyName());
    TRACE_EXIT(status);
    return status;
}

NTSTATUS CustomSensor::AnswerPublishedThresholds(SENSOROBJECT sensor, PSENSOR_COLLECTION_LIST thresholds,
                                                 ULONG* size)
{
    TRACE_ENTRY();
    const NTSTATUS status =
        AnswerGuardedList(sensor, Record()->Thresholds, thresholds, size, [](PSENSOR_COLLECTION_LIST) {});
    if (!NT_SUCCESS(status))
        TRACE_ERROR(status, GetFriendlyName());
    TRACE_EXIT(status);
    return status;
}

NTSTATUS CustomSensor::SetDataThresholds(SENSOROBJECT sensor, PSENSOR_COLLECTION_LIST thresholds)
{
    TRACE_ENTRY();
    NTSTATUS status = CheckHandle(sensor);
    if (NT_SUCCESS(status) && thresholds == nullptr)
        status = STATUS_INVALID_PARAMETER;
    if (NT_SUCCESS(status)) {
        for (ULONG i = 0; i < thresholds->Count; ++i) {
            const SENSOR_VALUE_PAIR& entry = thresholds->List[i];
            if (!IsEqualPropertyKey(entry.Key, kThresholdKey))
                continue;
            if (entry.Value.vt == VT_R4)
                Record()->DataThresholds[kChangeSensitivityPosition].store(entry.Value.fltVal,
                                                                           std::memory_order_relaxed);
            else
                TRACE_WARNING(GetFriendlyName(), static_cast<ULONG>(entry.Value.vt));
            // Written back whatever the type: the device gets the requested values.
            ReadFeatureReport(1);
        }
    } else {
        TRACE_ERROR(status, GetFriendlyName());
    }
    TRACE_EXIT(status);
    return status;
}

NTSTATUS CustomSensor::DeviceIoControl(SENSOROBJECT /*sensor*/, WDFREQUEST /*request*/,
                                       SIZE_T /*outputBufferLength*/, SIZE_T /*inputBufferLength*/,
                                       ULONG ioControlCode)
{
    TRACE_ENTRY();
    TRACE_INFO(GetFriendlyName(), ioControlCode);
    TRACE_EXIT(STATUS_SUCCESS);
    return STATUS_SUCCESS;
}

void CustomSensor::IndexDataFields(PSENSOR_COLLECTION_LIST data) noexcept
{
    indexedData_ = nullptr;
    std::memset(customFieldEntries_, 0, sizeof(customFieldEntries_));
    if (data == nullptr || data->Count > 64)
        return;
    for (ULONG i = 1; i < data->Count; ++i) {
        const PROPERTYKEY& key = data->List[i].Key;
        const ULONG slot = key.pid - kCustomUsageKey.pid;
        if (slot < std::size(customFieldEntries_) && IsEqualGUID(key.fmtid, kCustomDataFmtid))
            customFieldEntries_[slot] |= ULONGLONG{1} << i;
    }
    indexedData_ = data;
}

NTSTATUS CustomSensor::UpdateDataField(const PROPERTYKEY* key, const PROPVARIANT* value)
{
    TRACE_ENTRY();
    PSENSOR_COLLECTION_LIST data = Record()->Data;
    if (data == nullptr || key == nullptr || value == nullptr) {
        TRACE_EXIT(STATUS_SUCCESS);
        return STATUS_SUCCESS;
    }
    const ULONG fields = data->Count;
    ULONG& pending = cache_->PendingFieldCount;
    const ULONG slot = key->pid - kCustomUsageKey.pid;
    if (data == indexedData_ && slot < std::size(customFieldEntries_) && SameFmtid(key->fmtid, kCustomDataFmtid)) {
        for (ULONGLONG entries = customFieldEntries_[slot]; entries != 0; entries &= entries - 1) {
            std::memcpy(&data->List[std::countr_zero(entries)].Value, value, sizeof(PROPVARIANT));
            ++pending;
        }
    } else {
        for (ULONG i = 1; i < fields; ++i) {
            SENSOR_VALUE_PAIR& entry = data->List[i];
            if (entry.Key.pid == key->pid && SameFmtid(entry.Key.fmtid, key->fmtid)) {
                std::memcpy(&entry.Value, value, sizeof(PROPVARIANT));
                ++pending;
            }
        }
    }
    if (pending == fields - 1) {
        // The class extension takes its copy during the call; its result changes nothing here.
        const NTSTATUS delivered = SensorsCxSensorDataReady(Record()->SensorObject, data);
        if (!NT_SUCCESS(delivered))
            TRACE_ERROR(delivered, GetFriendlyName());
        pending = 0;
    }
    TRACE_EXIT(STATUS_SUCCESS);
    return STATUS_SUCCESS;
}
