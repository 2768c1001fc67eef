#include "sensors/common_list_entries.h"

#include "platform/propsys.h"
#include "platform/sensorsutils.h"
#include "platform/system.h"
#include "sensors/custom_sensor.h"
#include "sensors/sensor_keys.h"
#include "sensors/sensor_lists.h"

void SetTimestampEntry(PSENSOR_COLLECTION_LIST data) noexcept
{
    FILETIME now = {};
    GetSystemTimeAsFileTime(&now);
    data->List[0].Key = kTimestampKey;
    InitPropVariantFromFileTime(&now, &data->List[0].Value);
}

void SetIdentityEntries(PSENSOR_COLLECTION_LIST enumeration, const CustomSensor& sensor, const GUID& type,
                        const GUID& category) noexcept
{
    const SensorPropertyCache& cache = *sensor.PropertyCache();
    SetEntry(enumeration, 0, kSensorTypeKey, type);
    SetEntry(enumeration, 1, kFriendlyNameKey, cache.FriendlyName.Text);
    SetEntry(enumeration, 2, kManufacturerKey, cache.Manufacturer.Text);
    SetEntry(enumeration, 3, kModelKey, cache.Model.Text);
    SetEntry(enumeration, 4, kPersistentUniqueIdKey, sensor.Record()->PersistentUniqueId);
    SetEntry(enumeration, 5, kSensorCategoryKey, category);
}

void SetBasePropertyEntries(PSENSOR_COLLECTION_LIST properties, const CustomSensor& sensor,
                            const GUID& type) noexcept
{
    const SensorPropertyCache& cache = *sensor.PropertyCache();
    const HidCollectionRecord& record = *sensor.Record();
    SetEntry(properties, 0, kSerialNumberKey, cache.SerialNumber.Text);
    SetEntry(properties, 1, kDescriptionKey, cache.Description.Text);
    SetEntryUInt32(properties, kBaseSensorStateEntry, kSensorStateKey, 0);
    SetEntryUInt32(properties, 3, kMinimumDataIntervalKey,
                   record.MinimumReportInterval.load(std::memory_order_relaxed));
    SetEntryUInt32(properties, 4, kMaximumDataSizeKey, CollectionsListGetMarshalledSize(record.Data));
    SetEntry(properties, 5, kSensorTypeKey, type);
}
