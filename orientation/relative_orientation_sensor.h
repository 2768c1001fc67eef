// The sensor object of a relative-orientation collection (description "0x200").
//
// For now only its class exists, so that discovery creates the right object
// for the collection. Its own registration, lists and data path are not
// written yet: it behaves as a CustomSensor.
#pragma once

#include "sensors/custom_sensor.h"

class RelativeOrientationSensor : public CustomSensor {
public:
    using CustomSensor::CustomSensor;
};
