#include "hid/sensor_factory.h"

#include "activity/activity_sensor.h"
#include "orientation/relative_orientation_sensor.h"
#include "orientation/simple_device_orientation_sensor.h"
#include "pedometer/pedometer_sensor.h"
#include "sensors/custom_sensor.h"
#include "sensors/hid_sensor.h"

SensorClass SensorClassForKind(CustomSensorKind kind) noexcept
{
    switch (kind) {
    case CustomSensorKind::Activity:
        return SensorClass::Activity;
    case CustomSensorKind::Pedometer:
        return SensorClass::Pedometer;
    case CustomSensorKind::RelativeOrientation:
        return SensorClass::RelativeOrientation;
    case CustomSensorKind::SimpleDeviceOrientation:
        return SensorClass::SimpleDeviceOrientation;
    case CustomSensorKind::GestureTap:
    case CustomSensorKind::GestureLift:
    case CustomSensorKind::ZoomPan:
    case CustomSensorKind::Other:
        break;
    }
    return SensorClass::Custom;
}

NTSTATUS SensorFactory::Create(SensorClass sensorClass, const SensorConstructionArgs& args,
                               HidSensor** sensor) const noexcept
{
    switch (sensorClass) {
    case SensorClass::Placeholder:
        return CreateSensorObject<HidSensor>(args, sensor);
    case SensorClass::Custom:
        return CreateSensorObject<CustomSensor>(args, sensor);
    case SensorClass::Activity:
        return CreateSensorObject<ActivitySensor>(args, sensor);
    case SensorClass::Pedometer:
        return CreateSensorObject<PedometerSensor>(args, sensor);
    case SensorClass::RelativeOrientation:
        return CreateSensorObject<RelativeOrientationSensor>(args, sensor);
    case SensorClass::SimpleDeviceOrientation:
        return CreateSensorObject<SimpleDeviceOrientationSensor>(args, sensor);
    }
    *sensor = nullptr;
    return STATUS_INVALID_PARAMETER;
}

const SensorFactory& SensorFactory::Default() noexcept
{
    static const SensorFactory factory;
    return factory;
}
