// The tool's command line: `hidsensor COMMAND ...`, one --help per command,
// usage errors named on standard error with exit status 2.
#pragma once

#include <ostream>
#include <string>
#include <vector>

namespace hidsensor {

// `args` without the program name. Returns the exit status.
int RunCommandLine(const std::vector<std::string>& args, std::ostream& out, std::ostream& err);

}  // namespace hidsensor
