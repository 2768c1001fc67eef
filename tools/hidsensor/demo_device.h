// The built-in demo device and its script: a sensor collection with an
// accelerometer (not a custom sensor, so never published), a gesture tap, an
// "Other" sensor (a lid-angle probe), and activity, pedometer, relative
// orientation and simple device orientation sensors; the script starts every
// published sensor and feeds a minute of plausible input in virtual time.
#pragma once

#include <cstdint>
#include <vector>

#include "tools/hidsensor/scenario.h"

namespace hidsensor {

std::vector<std::uint8_t> DemoDescriptor();
Scenario DemoScenario();

}  // namespace hidsensor
