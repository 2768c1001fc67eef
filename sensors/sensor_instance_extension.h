// The framework context of every SENSOROBJECT: the sensor object that
// registered it. Set right after SensorsCxSensorCreate and never changed; the
// context does not own the object (the HidDevice does), and the SENSOROBJECT
// is deleted before the object is destroyed.
#pragma once

#include "platform/wdf.h"

class HidSensor;

struct SENSOR_INSTANCE_EXTENSION {
    HidSensor* Sensor;
};
WDF_DECLARE_CONTEXT_TYPE_WITH_NAME(SENSOR_INSTANCE_EXTENSION, GetSensorInstanceExtension)
