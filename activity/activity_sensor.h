// The sensor object of an activity collection (description "0x232"): activity detection with a history.
//
// For now only its class exists, so that discovery creates the right object
// for the collection. Its own registration, lists and data path are not
// written yet: it behaves as a CustomSensor.
#pragma once

#include "sensors/custom_sensor.h"

class ActivitySensor : public CustomSensor {
public:
    using CustomSensor::CustomSensor;
};
