#include "orientation/relative_orientation_sensor.h"

#include <cstring>
#include <iterator>

#include "orientation/orientation_lists.h"
#include "sensors/common_list_entries.h"
#include "platform/sensorsutils.h"
#include "sensors/sensor_keys.h"
#include "tracing/trace.h"

namespace {
constexpr GUID kTraceMessageGuid = {
    0xCFF3C58E, 0x0030, 0x4E2E, {0xA2, 0xEC, 0xC7, 0x79, 0x8F, 0xA9, 0x7A, 0xF5}};

// Data-list order: custom values 1 to 4 fill entries 1 to 4.
constexpr PROPERTYKEY kComponentKeys[] = {kQuaternionXKey, kQuaternionYKey, kQuaternionZKey, kQuaternionWKey};
constexpr ULONG kComponentCount = std::size(kComponentKeys);
constexpr ULONG kFirstComponentPid = 7;  // custom value 1

constexpr float kInitialThreshold = 0.2f;
constexpr float kComponentResolution = 0.001f;
constexpr float kComponentMinimum = -1.0f;
constexpr float kComponentMaximum = 1.0f;

bool IsComponentKey(const PROPERTYKEY& key) noexcept
{
    return key.pid >= kQuaternionWKey.pid && key.pid <= kQuaternionZKey.pid && IsEqualGUID(key.fmtid, kSensorDataFmtid);
}

constexpr OrientationListShape kListShape = {kRelativeOrientationSensorType,
                                             kMotionSensorCategory,
                                             false,
                                             kComponentKeys,
                                             VT_R4,
                                             kComponentResolution,
                                             kComponentMinimum,
                                             kComponentMaximum,
                                             kComponentKeys,
                                             kInitialThreshold};
}  // namespace

RelativeOrientationSensor::RelativeOrientationSensor(WDFDEVICE device, HidDevice* owner, ULONG sensorObjectKind,
                                                     ULONG usage, USHORT linkCollection, ULONG sensorIndex,
                                                     PCWSTR manufacturer, PCWSTR product, PCWSTR serialNumber,
                                                     PCWSTR instanceName) noexcept
    : CustomSensor(device, owner, sensorObjectKind, usage, linkCollection, sensorIndex, manufacturer, product,
                   serialNumber, instanceName)
{
    SetSensorStateEntry(kBaseSensorStateEntry);
}

NTSTATUS RelativeOrientationSensor::RegisterSensor()
{
    TRACE_ENTRY();
    const NTSTATUS status = RegisterWithLists([this] { return CreateOrientationLists(*this, kListShape); });
    if (!NT_SUCCESS(status))
        TRACE_ERROR(status, GetFriendlyName());
    TRACE_EXIT(status);
    return status;
}

NTSTATUS RelativeOrientationSensor::GetDataThresholds(SENSOROBJECT sensor, PSENSOR_COLLECTION_LIST thresholds,
                                                      ULONG* size)
{
    return AnswerPublishedThresholds(sensor, thresholds, size);
}

NTSTATUS RelativeOrientationSensor::SetDataThresholds(SENSOROBJECT sensor, PSENSOR_COLLECTION_LIST thresholds)
{
    TRACE_ENTRY();
    NTSTATUS status = CheckHandle(sensor);
    if (NT_SUCCESS(status) && thresholds == nullptr)
        status = STATUS_INVALID_PARAMETER;
    PSENSOR_COLLECTION_LIST own = Record()->Thresholds;
    if (NT_SUCCESS(status) && own != nullptr) {
        std::lock_guard lock(PublishedListsLock());
        for (ULONG i = 0; i < thresholds->Count; ++i) {
            const SENSOR_VALUE_PAIR& entry = thresholds->List[i];
            if (!IsComponentKey(entry.Key))
                continue;
            // The first 32 bits of the value are the float, whatever the type says.
            float threshold = 0.0f;
            std::memcpy(&threshold, &entry.Value.ulVal, sizeof(threshold));
            for (ULONG j = 0; j < own->Count; ++j) {
                if (IsEqualPropertyKey(own->List[j].Key, entry.Key))
                    InitPropVariantFromFloat(threshold, &own->List[j].Value);
            }
            TRACE_INFO(GetFriendlyName(), entry.Key.pid, threshold);
        }
    }
    if (!NT_SUCCESS(status))
        TRACE_ERROR(status, GetFriendlyName());
    TRACE_EXIT(status);
    return status;
}

NTSTATUS RelativeOrientationSensor::UpdateDataField(const PROPERTYKEY* key, const PROPVARIANT* value)
{
    PSENSOR_COLLECTION_LIST data = Record()->Data;
    if (data == nullptr || key == nullptr || value == nullptr || value->vt != VT_R4 ||
        !IsEqualGUID(key->fmtid, kCustomDataFmtid))
        return STATUS_SUCCESS;
    const ULONG component = key->pid - kFirstComponentPid;
    if (component >= kComponentCount || component + 1 >= data->Count)
        return STATUS_SUCCESS;
    SENSOR_VALUE_PAIR& entry = data->List[component + 1];
    entry.Value.vt = VT_R4;
    entry.Value.fltVal = value->fltVal;
    ULONG& pending = PropertyCache()->PendingFieldCount;
    if (++pending < kComponentCount)
        return STATUS_SUCCESS;
    pending = 0;
    Record()->forceDelivery.store(0, std::memory_order_relaxed);
    // The class extension takes its copy during the call; the result changes nothing here.
    SensorsCxSensorDataReady(Record()->SensorObject, data);
    return STATUS_SUCCESS;
}
