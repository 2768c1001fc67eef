#include "tests/driver/recording_sensors.h"

#include <utility>

namespace testdriver {

RoutingLog& RoutingLog::Instance()
{
    static RoutingLog log;
    return log;
}

NTSTATUS RecordingSensorFactory::Create(SensorClass sensorClass, const SensorConstructionArgs& args,
                                        HidSensor** sensor) const noexcept
{
    switch (sensorClass) {
    case SensorClass::Placeholder:
        return CreateSensorObject<Recording<HidSensor>>(args, sensor);
    case SensorClass::Custom:
        return CreateSensorObject<Recording<CustomSensor>>(args, sensor);
    case SensorClass::Activity:
        return CreateSensorObject<Recording<ActivitySensor>>(args, sensor);
    case SensorClass::Pedometer:
        return CreateSensorObject<Recording<PedometerSensor>>(args, sensor);
    case SensorClass::RelativeOrientation:
        return CreateSensorObject<Recording<RelativeOrientationSensor>>(args, sensor);
    case SensorClass::SimpleDeviceOrientation:
        return CreateSensorObject<Recording<SimpleDeviceOrientationSensor>>(args, sensor);
    }
    *sensor = nullptr;
    return STATUS_INVALID_PARAMETER;
}

}  // namespace testdriver
