// The fifteen sensor callbacks of the test driver module: each finds the
// sensor object through the SENSOROBJECT's SENSOR_INSTANCE_EXTENSION context
// and calls the matching operation, as the class extension's trampolines do.
#pragma once

#include "platform/sensorscx.h"

namespace testdriver {

// SENSOR_CONTROLLER_CONFIG with every callback set.
SENSOR_CONTROLLER_CONFIG TestSensorCallbacks();

}  // namespace testdriver
