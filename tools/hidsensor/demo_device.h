// The built-in demo device: one sensor collection holding an activity, a
// pedometer and a gesture-tap custom sensor, with the feature contents that
// classify them.
#pragma once

#include <cstdint>
#include <vector>

namespace hidsensor {

std::vector<std::uint8_t> DemoDescriptor();

}  // namespace hidsensor
