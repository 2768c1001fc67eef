#include "tools/hidsensor/demo_command.h"

#include "tools/hidsensor/demo_device.h"
#include "tools/hidsensor/scenario_runner.h"

namespace hidsensor {

int RunDemo(bool json, std::ostream& out, std::ostream& err)
{
    const Scenario scenario = DemoScenario();
    EventPrinter printer(out, json ? EventPrinter::Style::Json : EventPrinter::Style::Human);
    std::string error;
    const int status = RunScenario(scenario, printer, RunOptions{}, error);
    if (status == 2)
        err << "hidsensor demo: " << error << "\n";
    return status;
}

}  // namespace hidsensor
