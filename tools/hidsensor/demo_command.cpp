#include "tools/hidsensor/demo_command.h"

#include "tools/hidsensor/demo_device.h"
#include "tools/hidsensor/inspect_command.h"

namespace hidsensor {

// For now the demo shows what the HID parser makes of the demo device; running
// the driver on it comes with the driver's lifecycle.
int RunDemo(const std::vector<std::string>& args, std::string& out, std::string& err)
{
    InspectOptions options;
    for (const std::string& arg : args) {
        if (arg == "--json") {
            options.json = true;
        } else {
            err = "demo: unknown argument " + arg + "\nusage: hidsensor demo [--json]\n";
            return 2;
        }
    }
    return InspectDescriptor(DemoDescriptor(), options, "demo device", out, err);
}

}  // namespace hidsensor
