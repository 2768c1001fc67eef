// hidsensor: inspects HID sensor report descriptors and runs the driver on a
// simulated device.
#include <cstdio>
#include <iostream>
#include <string>
#include <vector>

#include "tools/hidsensor/demo_command.h"
#include "tools/hidsensor/inspect_command.h"

namespace {

constexpr const char* kUsage =
    "usage: hidsensor COMMAND [ARGS]\n"
    "\n"
    "commands:\n"
    "  inspect [--json] [--binary] [--collection N] FILE\n"
    "          print the HID parser's view of every top-level collection of a report\n"
    "          descriptor (hex text, raw bytes with --binary, or a hid-recorder capture;\n"
    "          FILE '-' reads standard input)\n"
    "  demo [--json]\n"
    "          the same for the built-in demo device: a sensor collection with an\n"
    "          activity, a pedometer and a plain custom sensor\n";

}  // namespace

int main(int argc, char** argv)
{
    std::vector<std::string> args(argv + 1, argv + argc);
    if (args.empty() || args[0] == "--help" || args[0] == "-h" || args[0] == "help") {
        std::fputs(kUsage, args.empty() ? stderr : stdout);
        return args.empty() ? 2 : 0;
    }
    const std::string command = args[0];
    args.erase(args.begin());

    std::string out;
    std::string err;
    int status = 2;
    if (command == "inspect") {
        status = hidsensor::RunInspect(args, out, err);
    } else if (command == "demo") {
        status = hidsensor::RunDemo(args, out, err);
    } else {
        err = "hidsensor: unknown command '" + command + "'\n" + kUsage;
    }
    std::cout << out << std::flush;
    if (!std::cout) {
        std::cerr << "hidsensor: cannot write to standard output\n";
        return 1;
    }
    std::cerr << err << std::flush;
    return status;
}
