// hidsensor: inspects HID sensor report descriptors and runs the driver on a
// simulated device.
#include <iostream>
#include <string>
#include <vector>

#include "tools/hidsensor/command_line.h"

int main(int argc, char** argv)
{
    const std::vector<std::string> args(argv + 1, argv + argc);
    const int status = hidsensor::RunCommandLine(args, std::cout, std::cerr);
    std::cout << std::flush;
    if (!std::cout) {
        std::cerr << "hidsensor: cannot write to standard output\n";
        return 1;
    }
    return status;
}
