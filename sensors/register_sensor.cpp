// RegisterSensor of the custom sensor: the data-field key vector, the
// platform sensor with its context, and the six lists.
#include <cwctype>

#include "hid/hid_device.h"
#include "platform/com.h"
#include "platform/sensorsutils.h"
#include "platform/system.h"
#include "sensors/common_list_entries.h"
#include "sensors/custom_sensor.h"
#include "sensors/sensor_instance_extension.h"
#include "sensors/sensor_keys.h"
#include "sensors/sensor_lists.h"
#include "tracing/trace.h"

namespace {
constexpr GUID kTraceMessageGuid = {
    0x9B7E04A2, 0x31C5, 0x4E8F, {0xB6, 0x2D, 0x70, 0x1A, 0xE4, 0x5C, 0x93, 0x08}};

constexpr ULONG kEnumerationEntries = kIdentityEntries + 1;  // and the vendor subtype
constexpr ULONG kSensorPropertyEntries = 7;
constexpr ULONG kDataFieldPropertyEntries = 3;
constexpr ULONG kThresholdEntries = 1;
constexpr std::size_t kVendorSubtypeChars = 64;

constexpr float kDataFieldResolution = 0.1f;
constexpr float kDataFieldMinimum = 0.0f;
constexpr float kDataFieldMaximum = 10000.0f;

int HexDigit(WCHAR c)
{
    if (c >= u'0' && c <= u'9')
        return c - u'0';
    if (c >= u'a' && c <= u'f')
        return c - u'a' + 10;
    if (c >= u'A' && c <= u'F')
        return c - u'A' + 10;
    return -1;
}

// Reads `text` as scanf's "%x" does: blanks, an optional sign, an optional
// "0x" and the hexadecimal digits, kept to 32 bits. False (value untouched)
// when no digit is found.
bool ParseHexUsage(PCWSTR text, ULONG* value)
{
    std::size_t i = 0;
    while (text[i] == u' ' || (text[i] >= u'\t' && text[i] <= u'\r'))
        ++i;
    bool negative = false;
    if (text[i] == u'+' || text[i] == u'-')
        negative = text[i++] == u'-';
    if (text[i] == u'0' && (text[i + 1] == u'x' || text[i + 1] == u'X') && HexDigit(text[i + 2]) >= 0)
        i += 2;
    if (HexDigit(text[i]) < 0)
        return false;
    ULONG parsed = 0;
    for (; HexDigit(text[i]) >= 0; ++i)
        parsed = (parsed << 4) | static_cast<ULONG>(HexDigit(text[i]));
    *value = negative ? 0u - parsed : parsed;
    return true;
}
}  // namespace

NTSTATUS CustomSensor::BuildDataFieldKeys()
{
    HidCollectionRecord& record = *Record();
    SensorPropertyCache& cache = *cache_;
    const UCHAR reportId = static_cast<UCHAR>(record.InputReportId + record.SensorIndex);
    const std::size_t capCount = record.InputValueCaps.Count();

    // The key of each capability of the sensor's report that is a data field;
    // a usage listed twice is a field twice.
    auto keyOf = [](USAGE usage) -> const PROPERTYKEY* {
        if (usage == kCustomUsageUsage)
            return &kCustomUsageKey;
        if (usage == kCustomBooleanArrayUsage)
            return &kCustomBooleanArrayKey;
        if (usage >= kFirstCustomValueUsage && usage <= kLastCustomValueUsage)
            return &kCustomValueKeys[usage - kFirstCustomValueUsage];
        return nullptr;
    };
    std::size_t count = 1;
    for (std::size_t i = 0; i < capCount; ++i) {
        const HIDP_VALUE_CAPS& cap = record.InputValueCaps[i];
        if (cap.ReportID == reportId && keyOf(cap.NotRange.Usage) != nullptr)
            ++count;
    }
    if (!cache.DataFieldKeys.AllocateZeroed(count))
        return STATUS_NO_MEMORY;

    std::size_t next = 0;
    cache.DataFieldKeys[next++] = &kTimestampKey;
    for (std::size_t i = 0; i < capCount; ++i) {
        const HIDP_VALUE_CAPS& cap = record.InputValueCaps[i];
        const USAGE usage = cap.NotRange.Usage;  // UsageMin for a range
        const PROPERTYKEY* key = keyOf(usage);
        if (cap.ReportID != reportId || key == nullptr)
            continue;
        cache.DataFieldKeys[next++] = key;
        if (usage == kCustomUsageUsage) {
            cache.CustomUsagePresent = 1;
            ParseHexUsage(cache.Description.Text, &cache.CustomUsage);
        } else if (usage == kCustomBooleanArrayUsage) {
            cache.booleanArraySeen.store(1, std::memory_order_relaxed);
        } else {
            cache.dataFieldSeen[usage - kCustomValueAllUsage].store(1, std::memory_order_relaxed);
        }
    }
    return STATUS_SUCCESS;
}

NTSTATUS CustomSensor::RegisterSensor()
{
    TRACE_ENTRY();
    HidCollectionRecord& record = *Record();
    SensorPropertyCache& cache = *cache_;
    record.DefaultMaximum = FLT_MAX;
    record.DefaultMinimum = -FLT_MAX;
    record.FurtherBounds[0] = FLT_MAX;
    record.FurtherBounds[1] = FLT_MAX;

    // The data-field keys give the custom usage the vendor subtype is made from.
    NTSTATUS status = BuildKeysAndIdentity();
    GUID vendorSubtype = {};
    if (NT_SUCCESS(status)) {
        WCHAR subtypeText[kVendorSubtypeChars] = {};
        WideFormat(subtypeText, kVendorSubtypeChars, u"{%08x", {cache.CustomUsage});
        WideAppend(subtypeText, kVendorSubtypeChars, u"-766d-4333-8262-27e82dd158b1}");
        if (FAILED(CLSIDFromString(subtypeText, &vendorSubtype)))
            vendorSubtype = kFallbackVendorSubtype;
        status = CreateBoundSensorObject();
    }
    if (!NT_SUCCESS(status)) {
        TRACE_ERROR(status, GetFriendlyName());
        TRACE_EXIT(status);
        return status;
    }
    const SENSOROBJECT sensor = record.SensorObject;
    const ULONG fieldCount = static_cast<ULONG>(cache.DataFieldKeys.Count());

    PSENSOR_COLLECTION_LIST enumeration = nullptr;
    status = CreateCollectionList(sensor, kEnumerationEntries, &enumeration);
    if (!NT_SUCCESS(status)) {
        DeleteSensorObject();
        TRACE_ERROR(status, GetFriendlyName());
        TRACE_EXIT(status);
        return status;
    }
    record.EnumerationProperties = enumeration;
    SetIdentityEntries(enumeration, *this, kCustomSensorType, kSensorCategoryCustom);
    SetEntry(enumeration, 6, kVendorSubtypeKey, vendorSubtype);

    // From here a failure keeps the SENSOROBJECT; the destructor deletes it.
    PSENSOR_PROPERTY_LIST supported = nullptr;
    status = CreatePropertyList(sensor, fieldCount, &supported);
    if (NT_SUCCESS(status)) {
        record.SupportedDataFields = supported;
        for (ULONG i = 0; i < fieldCount; ++i)
            supported->List[i] = *cache.DataFieldKeys[i];

        PSENSOR_COLLECTION_LIST data = nullptr;
        status = CreateCollectionList(sensor, fieldCount, &data);
        if (NT_SUCCESS(status)) {
            record.Data = data;
            SetTimestampEntry(data);
            for (ULONG i = 1; i < fieldCount; ++i)
                SetEntryFloat(data, i, *cache.DataFieldKeys[i], 0.0f);
            IndexDataFields(data);
        }
    }
    if (NT_SUCCESS(status)) {
        PSENSOR_COLLECTION_LIST properties = nullptr;
        status = CreateCollectionList(sensor, kSensorPropertyEntries, &properties);
        if (NT_SUCCESS(status)) {
            record.SensorProperties = properties;
            SetEntry(properties, 0, kSerialNumberKey, cache.SerialNumber.Text);
            SetEntry(properties, 1, kDescriptionKey, cache.Description.Text);
            SetEntryUInt32(properties, 2, kHidUsageKey, cache.CustomUsage);
            SetEntryUInt32(properties, 3, kSensorStateKey, 0);
            SetEntryUInt32(properties, 4, kMinimumDataIntervalKey,
                           record.MinimumReportInterval.load(std::memory_order_relaxed));
            SetEntryUInt32(properties, 5, kMaximumDataSizeKey, CollectionsListGetMarshalledSize(record.Data));
            SetEntry(properties, 6, kSensorTypeKey, kCustomSensorType);
        }
    }
    if (NT_SUCCESS(status)) {
        PSENSOR_COLLECTION_LIST fieldProperties = nullptr;
        status = CreateCollectionList(sensor, kDataFieldPropertyEntries, &fieldProperties);
        if (NT_SUCCESS(status)) {
            record.DataFieldProperties = fieldProperties;
            SetEntryFloat(fieldProperties, 0, kResolutionKey, kDataFieldResolution);
            SetEntryFloat(fieldProperties, 1, kRangeMinimumKey, kDataFieldMinimum);
            SetEntryFloat(fieldProperties, 2, kRangeMaximumKey, kDataFieldMaximum);
        }
    }
    if (NT_SUCCESS(status)) {
        PSENSOR_COLLECTION_LIST thresholds = nullptr;
        if (NT_SUCCESS(CreateCollectionList(sensor, kThresholdEntries, &thresholds))) {
            record.Thresholds = thresholds;
            SetEntryFloat(thresholds, 0, kThresholdKey, cache.FieldChangeSensitivity[1].Get());
        } else {
            status = STATUS_INSUFFICIENT_RESOURCES;
        }
    }
    if (NT_SUCCESS(status))
        status = InitializeSensorObject();
    if (!NT_SUCCESS(status))
        TRACE_ERROR(status, GetFriendlyName());
    TRACE_EXIT(status);
    return status;
}

NTSTATUS CustomSensor::BuildKeysAndIdentity()
{
    const NTSTATUS status = BuildDataFieldKeys();
    if (!NT_SUCCESS(status))
        return status;
    // Discovery's instance names are not GUID strings: a new ID each time the
    // device is prepared.
    HidCollectionRecord& record = *Record();
    if (FAILED(CLSIDFromString(record.InstanceName, &record.PersistentUniqueId)))
        CoCreateGuid(&record.PersistentUniqueId);
    return STATUS_SUCCESS;
}

NTSTATUS CustomSensor::CreateBoundSensorObject()
{
    HidCollectionRecord& record = *Record();
    WDF_OBJECT_ATTRIBUTES attributes;
    WDF_OBJECT_ATTRIBUTES_INIT(&attributes);
    WDF_OBJECT_ATTRIBUTES_SET_CONTEXT_TYPE(&attributes, WDF_GET_CONTEXT_TYPE_INFO(SENSOR_INSTANCE_EXTENSION));
    SENSOROBJECT sensor = nullptr;
    const NTSTATUS status = SensorsCxSensorCreate(record.Device, &attributes, &sensor);
    if (!NT_SUCCESS(status))
        return status;
    record.SensorObject = sensor;

    SENSOR_INSTANCE_EXTENSION* context = GetSensorInstanceExtension(sensor);
    if (context == nullptr) {
        DeleteSensorObject();
        return STATUS_INSUFFICIENT_RESOURCES;
    }
    context->Sensor = this;
    return STATUS_SUCCESS;
}

NTSTATUS CustomSensor::InitializeSensorObject()
{
    HidCollectionRecord& record = *Record();
    SENSOR_CONFIG config = {sizeof(SENSOR_CONFIG), record.EnumerationProperties};
    const NTSTATUS status = SensorsCxSensorInitialize(record.SensorObject, &config);
    if (NT_SUCCESS(status))
        record.IsRegistered.store(1, std::memory_order_relaxed);
    return status;
}
