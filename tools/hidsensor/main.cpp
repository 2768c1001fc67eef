// hidsensor: inspects HID sensor report descriptors and runs the driver on a
// simulated device.
#include <iostream>
#include <string>
#include <vector>

#include "tools/hidsensor/command_line.h"

int main(int argc, char** argv)
{
    const std::vector<std::string> args(argv + 1, argv + argc);
    return hidsensor::RunCommandLine(args, std::cout, std::cerr);
}
