// `hidsensor demo`: the built-in demo device.
#pragma once

#include <string>
#include <vector>

namespace hidsensor {

int RunDemo(const std::vector<std::string>& args, std::string& out, std::string& err);

}  // namespace hidsensor
