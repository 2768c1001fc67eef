#include "tests/driver/test_sensor_callbacks.h"

#include "sensors/hid_sensor.h"
#include "sensors/sensor_instance_extension.h"

namespace testdriver {
namespace {

template <class Call>
NTSTATUS Dispatch(SENSOROBJECT handle, Call call)
{
    SENSOR_INSTANCE_EXTENSION* context = GetSensorInstanceExtension(handle);
    if (context == nullptr || context->Sensor == nullptr)
        return STATUS_UNSUCCESSFUL;
    return call(*context->Sensor);
}

}  // namespace

SENSOR_CONTROLLER_CONFIG TestSensorCallbacks()
{
    SENSOR_CONTROLLER_CONFIG config = {};
    config.Size = sizeof(config);
    config.DriverIsPowerPolicyOwner = WdfTrue;
    config.EvtSensorStart = [](SENSOROBJECT h) { return Dispatch(h, [&](HidSensor& s) { return s.Start(h); }); };
    config.EvtSensorStop = [](SENSOROBJECT h) { return Dispatch(h, [&](HidSensor& s) { return s.Stop(h); }); };
    config.EvtSensorGetSupportedDataFields = [](SENSOROBJECT h, PSENSOR_PROPERTY_LIST l, ULONG* n) {
        return Dispatch(h, [&](HidSensor& s) { return s.GetSupportedDataFields(h, l, n); });
    };
    config.EvtSensorGetDataFieldProperties = [](SENSOROBJECT h, const PROPERTYKEY* k, PSENSOR_COLLECTION_LIST l,
                                                ULONG* n) {
        return Dispatch(h, [&](HidSensor& s) { return s.GetDataFieldProperties(h, k, l, n); });
    };
    config.EvtSensorGetDataInterval = [](SENSOROBJECT h, ULONG* ms) {
        return Dispatch(h, [&](HidSensor& s) { return s.GetDataInterval(h, ms); });
    };
    config.EvtSensorSetDataInterval = [](SENSOROBJECT h, ULONG ms) {
        return Dispatch(h, [&](HidSensor& s) { return s.SetDataInterval(h, ms); });
    };
    config.EvtSensorGetDataThresholds = [](SENSOROBJECT h, PSENSOR_COLLECTION_LIST l, ULONG* n) {
        return Dispatch(h, [&](HidSensor& s) { return s.GetDataThresholds(h, l, n); });
    };
    config.EvtSensorSetDataThresholds = [](SENSOROBJECT h, PSENSOR_COLLECTION_LIST l) {
        return Dispatch(h, [&](HidSensor& s) { return s.SetDataThresholds(h, l); });
    };
    config.EvtSensorGetProperties = [](SENSOROBJECT h, PSENSOR_COLLECTION_LIST l, ULONG* n) {
        return Dispatch(h, [&](HidSensor& s) { return s.GetProperties(h, l, n); });
    };
    config.EvtSensorDeviceIoControl = [](SENSOROBJECT h, WDFREQUEST r, SIZE_T out, SIZE_T in, ULONG code) {
        return Dispatch(h, [&](HidSensor& s) { return s.DeviceIoControl(h, r, out, in, code); });
    };
    config.EvtSensorStartHistory = [](SENSOROBJECT h) {
        return Dispatch(h, [&](HidSensor& s) { return s.StartHistory(h); });
    };
    config.EvtSensorStopHistory = [](SENSOROBJECT h) {
        return Dispatch(h, [&](HidSensor& s) { return s.StopHistory(h); });
    };
    config.EvtSensorClearHistory = [](SENSOROBJECT h) {
        return Dispatch(h, [&](HidSensor& s) { return s.ClearHistory(h); });
    };
    config.EvtSensorStartHistoryRetrieval = [](SENSOROBJECT h, PSENSOR_COLLECTION_LIST l, ULONG n) {
        return Dispatch(h, [&](HidSensor& s) { return s.StartHistoryRetrieval(h, l, n); });
    };
    config.EvtSensorCancelHistoryRetrieval = [](SENSOROBJECT h, ULONG* n) {
        return Dispatch(h, [&](HidSensor& s) { return s.CancelHistoryRetrieval(h, n); });
    };
    return config;
}

}  // namespace testdriver
