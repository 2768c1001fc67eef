// `hidsensor run SCENARIO`.
#pragma once

#include <ostream>
#include <string>

namespace hidsensor {

// Reads, checks and plays the scenario file. A file that cannot be read or is
// not a valid scenario prints one line on `err` and returns 2 before anything
// runs; otherwise 0, or 1 when the run saw a violation.
int RunScenarioFile(const std::string& path, bool human, std::ostream& out, std::ostream& err);

}  // namespace hidsensor
