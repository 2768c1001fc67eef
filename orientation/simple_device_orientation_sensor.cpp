#include "orientation/simple_device_orientation_sensor.h"

#include "orientation/orientation_lists.h"
#include "sensors/common_list_entries.h"
#include "sensors/sensor_keys.h"
#include "tracing/trace.h"

namespace {
constexpr GUID kTraceMessageGuid = {
    0x19B23ECF, 0x261D, 0x4242, {0xA1, 0x9F, 0x31, 0xD2, 0xB7, 0xCE, 0x28, 0xA2}};

constexpr PROPERTYKEY kOrientationKeys[] = {kSimpleDeviceOrientationKey};
constexpr ULONG kOrientationEntry = 1;
constexpr ULONG kOrientationPid = 7;  // custom value 1

constexpr float kOrientationResolution = 1.0f;
constexpr float kOrientationMinimum = 0.0f;
constexpr float kOrientationMaximum = 10000.0f;

constexpr OrientationListShape kListShape = {kSimpleDeviceOrientationSensorType,
                                             kSensorCategoryOther,
                                             true,
                                             kOrientationKeys,
                                             VT_UI4,
                                             kOrientationResolution,
                                             kOrientationMinimum,
                                             kOrientationMaximum,
                                             {},
                                             0.0f};
}  // namespace

SimpleDeviceOrientationSensor::SimpleDeviceOrientationSensor(WDFDEVICE device, HidDevice* owner,
                                                             ULONG sensorObjectKind, ULONG usage,
                                                             USHORT linkCollection, ULONG sensorIndex,
                                                             PCWSTR manufacturer, PCWSTR product,
                                                             PCWSTR serialNumber, PCWSTR instanceName) noexcept
    : CustomSensor(device, owner, sensorObjectKind, usage, linkCollection, sensorIndex, manufacturer, product,
                   serialNumber, instanceName)
{
    SetSensorStateEntry(kBaseSensorStateEntry);
}

NTSTATUS SimpleDeviceOrientationSensor::RegisterSensor()
{
    TRACE_ENTRY();
    const NTSTATUS status = RegisterWithLists([this] { return CreateOrientationLists(*this, kListShape); });
    if (!NT_SUCCESS(status))
        TRACE_ERROR(status, GetFriendlyName());
    TRACE_EXIT(status);
    return status;
}

NTSTATUS SimpleDeviceOrientationSensor::GetDataThresholds(SENSOROBJECT sensor, PSENSOR_COLLECTION_LIST thresholds,
                                                          ULONG* size)
{
    return AnswerPublishedThresholds(sensor, thresholds, size);
}

NTSTATUS SimpleDeviceOrientationSensor::SetDataThresholds(SENSOROBJECT /*sensor*/,
                                                          PSENSOR_COLLECTION_LIST /*thresholds*/)
{
    TRACE_ENTRY();
    TRACE_ERROR(STATUS_NOT_SUPPORTED, GetFriendlyName());
    TRACE_EXIT(STATUS_NOT_SUPPORTED);
    return STATUS_NOT_SUPPORTED;
}

NTSTATUS SimpleDeviceOrientationSensor::UpdateDataField(const PROPERTYKEY* key, const PROPVARIANT* value)
{
    PSENSOR_COLLECTION_LIST data = Record()->Data;
    if (data == nullptr || data->Count <= kOrientationEntry || key == nullptr || value == nullptr ||
        value->vt != VT_UI4 || key->pid != kOrientationPid || !IsEqualGUID(key->fmtid, kCustomDataFmtid))
        return STATUS_SUCCESS;
    PROPVARIANT& orientation = data->List[kOrientationEntry].Value;
    orientation.vt = VT_UI4;
    orientation.ulVal = value->ulVal;
    ULONG& pending = PropertyCache()->PendingFieldCount;
    if (++pending != 1)
        return STATUS_SUCCESS;
    pending = 0;
    Record()->forceDelivery.store(0, std::memory_order_relaxed);
    SensorsCxSensorDataReady(Record()->SensorObject, data);
    return STATUS_SUCCESS;
}
