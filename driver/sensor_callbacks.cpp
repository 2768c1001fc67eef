#include "driver/sensor_callbacks.h"

#include "sensors/hid_sensor.h"
#include "sensors/sensor_instance_extension.h"
#include "tracing/trace.h"

namespace {
constexpr GUID kTraceMessageGuid = {
    0xC4A9D013, 0x2E6B, 0x4F87, {0xA5, 0x1C, 0x73, 0x0D, 0x9E, 0x42, 0x6B, 0xF1}};

// Finds the sensor object of `sensor` and runs `operation` on it.
template <class Operation>
NTSTATUS Dispatch(SENSOROBJECT sensor, Operation operation)
{
    TRACE_ENTRY();
    SENSOR_INSTANCE_EXTENSION* extension = GetSensorInstanceExtension(sensor);
    if (extension == nullptr || extension->Sensor == nullptr) {
        TRACE_ERROR(STATUS_UNSUCCESSFUL);
        TRACE_EXIT(STATUS_UNSUCCESSFUL);
        return STATUS_UNSUCCESSFUL;
    }
    const NTSTATUS status = operation(*extension->Sensor);
    TRACE_EXIT(status);
    return status;
}

}  // namespace

NTSTATUS OnStart(SENSOROBJECT sensor)
{
    return Dispatch(sensor, [&](HidSensor& object) { return object.Start(sensor); });
}

NTSTATUS OnStop(SENSOROBJECT sensor)
{
    return Dispatch(sensor, [&](HidSensor& object) { return object.Stop(sensor); });
}

NTSTATUS OnGetSupportedDataFields(SENSOROBJECT sensor, PSENSOR_PROPERTY_LIST fields, ULONG* size)
{
    return Dispatch(sensor, [&](HidSensor& object) { return object.GetSupportedDataFields(sensor, fields, size); });
}

NTSTATUS OnGetDataFieldProperties(SENSOROBJECT sensor, const PROPERTYKEY* dataField,
                                  PSENSOR_COLLECTION_LIST properties, ULONG* size)
{
    return Dispatch(sensor, [&](HidSensor& object) {
        return object.GetDataFieldProperties(sensor, dataField, properties, size);
    });
}

NTSTATUS OnGetDataInterval(SENSOROBJECT sensor, ULONG* dataRateMs)
{
    return Dispatch(sensor, [&](HidSensor& object) { return object.GetDataInterval(sensor, dataRateMs); });
}

NTSTATUS OnSetDataInterval(SENSOROBJECT sensor, ULONG dataRateMs)
{
    return Dispatch(sensor, [&](HidSensor& object) { return object.SetDataInterval(sensor, dataRateMs); });
}

NTSTATUS OnGetDataThresholds(SENSOROBJECT sensor, PSENSOR_COLLECTION_LIST thresholds, ULONG* size)
{
    return Dispatch(sensor, [&](HidSensor& object) { return object.GetDataThresholds(sensor, thresholds, size); });
}

NTSTATUS OnSetDataThresholds(SENSOROBJECT sensor, PSENSOR_COLLECTION_LIST thresholds)
{
    return Dispatch(sensor, [&](HidSensor& object) { return object.SetDataThresholds(sensor, thresholds); });
}

NTSTATUS OnGetProperties(SENSOROBJECT sensor, PSENSOR_COLLECTION_LIST properties, ULONG* size)
{
    return Dispatch(sensor, [&](HidSensor& object) { return object.GetProperties(sensor, properties, size); });
}

NTSTATUS OnDeviceIoControl(SENSOROBJECT sensor, WDFREQUEST request, SIZE_T outputBufferLength,
                           SIZE_T inputBufferLength, ULONG ioControlCode)
{
    return Dispatch(sensor, [&](HidSensor& object) {
        return object.DeviceIoControl(sensor, request, outputBufferLength, inputBufferLength, ioControlCode);
    });
}

NTSTATUS OnStartHistory(SENSOROBJECT sensor)
{
    return Dispatch(sensor, [&](HidSensor& object) { return object.StartHistory(sensor); });
}

NTSTATUS OnStopHistory(SENSOROBJECT sensor)
{
    return Dispatch(sensor, [&](HidSensor& object) { return object.StopHistory(sensor); });
}

NTSTATUS OnClearHistory(SENSOROBJECT sensor)
{
    return Dispatch(sensor, [&](HidSensor& object) { return object.ClearHistory(sensor); });
}

NTSTATUS OnStartHistoryRetrieval(SENSOROBJECT sensor, PSENSOR_COLLECTION_LIST historyBuffer,
                                 ULONG historySizeInBytes)
{
    return Dispatch(sensor, [&](HidSensor& object) {
        return object.StartHistoryRetrieval(sensor, historyBuffer, historySizeInBytes);
    });
}

NTSTATUS OnCancelHistoryRetrieval(SENSOROBJECT sensor, ULONG* bytesWritten)
{
    return Dispatch(sensor, [&](HidSensor& object) { return object.CancelHistoryRetrieval(sensor, bytesWritten); });
}

SENSOR_CONTROLLER_CONFIG SensorControllerConfig() noexcept
{
    SENSOR_CONTROLLER_CONFIG config = {};
    config.Size = sizeof(config);
    config.DriverIsPowerPolicyOwner = WdfTrue;
    config.EvtSensorStart = OnStart;
    config.EvtSensorStop = OnStop;
    config.EvtSensorGetSupportedDataFields = OnGetSupportedDataFields;
    config.EvtSensorGetDataFieldProperties = OnGetDataFieldProperties;
    config.EvtSensorGetDataInterval = OnGetDataInterval;
    config.EvtSensorSetDataInterval = OnSetDataInterval;
    config.EvtSensorGetDataThresholds = OnGetDataThresholds;
    config.EvtSensorSetDataThresholds = OnSetDataThresholds;
    config.EvtSensorGetProperties = OnGetProperties;
    config.EvtSensorDeviceIoControl = OnDeviceIoControl;
    config.EvtSensorStartHistory = OnStartHistory;
    config.EvtSensorStopHistory = OnStopHistory;
    config.EvtSensorClearHistory = OnClearHistory;
    config.EvtSensorStartHistoryRetrieval = OnStartHistoryRetrieval;
    config.EvtSensorCancelHistoryRetrieval = OnCancelHistoryRetrieval;
    return config;
}
