// `hidsensor demo`: the driver at work on a built-in device.
#pragma once

#include <ostream>

namespace hidsensor {

// Runs the demo script; a readable summary, or with `json` the run's events
// one JSON object a line. Returns 0, or 1 when the run saw a violation.
int RunDemo(bool json, std::ostream& out, std::ostream& err);

}  // namespace hidsensor
