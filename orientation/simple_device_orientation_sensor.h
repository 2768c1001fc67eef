// The sensor object of a simple-device-orientation collection (description "0x205").
//
// For now only its class exists, so that discovery creates the right object
// for the collection. Its own registration, lists and data path are not
// written yet: it behaves as a CustomSensor.
#pragma once

#include "sensors/custom_sensor.h"

class SimpleDeviceOrientationSensor : public CustomSensor {
public:
    using CustomSensor::CustomSensor;
};
