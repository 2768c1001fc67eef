#include "orientation/orientation_lists.h"

#include "platform/sensorsutils.h"
#include "platform/system.h"
#include "sensors/common_list_entries.h"
#include "sensors/custom_sensor.h"
#include "sensors/sensor_keys.h"
#include "sensors/sensor_lists.h"

namespace {
constexpr ULONG kDataFieldPropertyEntries = 3;

// List memory failures become STATUS_INSUFFICIENT_RESOURCES, whatever the framework said.
NTSTATUS MakeList(SENSOROBJECT sensor, ULONG count, PSENSOR_COLLECTION_LIST* list) noexcept
{
    return NT_SUCCESS(CreateCollectionList(sensor, count, list)) ? STATUS_SUCCESS : STATUS_INSUFFICIENT_RESOURCES;
}
}  // namespace

NTSTATUS CreateOrientationLists(CustomSensor& sensor, const OrientationListShape& shape) noexcept
{
    HidCollectionRecord& record = *sensor.Record();
    const SENSOROBJECT object = record.SensorObject;
    const ULONG fieldCount = static_cast<ULONG>(shape.DataKeys.size()) + 1;
    record.historySupported = 0;
    record.minRetrievalSize = 0;

    PSENSOR_PROPERTY_LIST supported = nullptr;
    if (!NT_SUCCESS(CreatePropertyList(object, fieldCount, &supported)))
        return STATUS_INSUFFICIENT_RESOURCES;
    record.SupportedDataFields = supported;
    supported->List[0] = kTimestampKey;
    for (ULONG i = 1; i < fieldCount; ++i)
        supported->List[i] = shape.DataKeys[i - 1];

    PSENSOR_COLLECTION_LIST data = nullptr;
    NTSTATUS status = MakeList(object, fieldCount, &data);
    if (!NT_SUCCESS(status))
        return status;
    record.Data = data;
    SetTimestampEntry(data);
    for (ULONG i = 1; i < fieldCount; ++i) {
        if (shape.DataType == VT_UI4)
            SetEntryUInt32(data, i, shape.DataKeys[i - 1], 0);
        else
            SetEntryFloat(data, i, shape.DataKeys[i - 1], 0.0f);
    }

    PSENSOR_COLLECTION_LIST enumeration = nullptr;
    status = MakeList(object, kIdentityEntries + (shape.AnnouncesPrimary ? 1 : 0), &enumeration);
    if (!NT_SUCCESS(status))
        return status;
    record.EnumerationProperties = enumeration;
    SetIdentityEntries(enumeration, sensor, shape.SensorType, shape.Category);
    if (shape.AnnouncesPrimary)
        SetEntryBool(enumeration, 6, kIsPrimaryKey, VARIANT_TRUE);

    PSENSOR_COLLECTION_LIST properties = nullptr;
    status = MakeList(object, kBasePropertyEntries, &properties);
    if (!NT_SUCCESS(status))
        return status;
    record.SensorProperties = properties;
    SetBasePropertyEntries(properties, sensor, shape.SensorType);

    PSENSOR_COLLECTION_LIST fieldProperties = nullptr;
    status = MakeList(object, kDataFieldPropertyEntries, &fieldProperties);
    if (!NT_SUCCESS(status))
        return status;
    record.DataFieldProperties = fieldProperties;
    SetEntryFloat(fieldProperties, 0, kResolutionKey, shape.Resolution);
    SetEntryFloat(fieldProperties, 1, kRangeMinimumKey, shape.Minimum);
    SetEntryFloat(fieldProperties, 2, kRangeMaximumKey, shape.Maximum);

    PSENSOR_COLLECTION_LIST thresholds = nullptr;
    status = MakeList(object, static_cast<ULONG>(shape.ThresholdKeys.size()), &thresholds);
    if (!NT_SUCCESS(status))
        return status;
    record.Thresholds = thresholds;
    for (ULONG i = 0; i < shape.ThresholdKeys.size(); ++i)
        SetEntryFloat(thresholds, i, shape.ThresholdKeys[i], shape.InitialThreshold);
    return STATUS_SUCCESS;
}
