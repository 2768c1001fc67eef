#include "tools/hidsensor/run_command.h"

#include <fstream>
#include <iterator>

#include "tools/hidsensor/scenario.h"
#include "tools/hidsensor/scenario_runner.h"

namespace hidsensor {
namespace {
constexpr std::size_t kMaxScenarioBytes = 64u << 20;
}  // namespace

int RunScenarioFile(const std::string& path, bool human, std::ostream& out, std::ostream& err)
{
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        err << "hidsensor run: " << path << ": cannot open file\n";
        return 2;
    }
    std::string text;
    text.assign(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
    if (file.bad() || text.size() > kMaxScenarioBytes) {
        err << "hidsensor run: " << path << ": " << (file.bad() ? "read error" : "file larger than 64 MiB") << "\n";
        return 2;
    }
    std::string error;
    const std::optional<Scenario> scenario = ParseScenario(text, error);
    if (!scenario) {
        err << "hidsensor run: " << path << ": " << error << "\n";
        return 2;
    }
    EventPrinter printer(out, human ? EventPrinter::Style::Human : EventPrinter::Style::Json);
    const int status = RunScenario(*scenario, printer, RunOptions{}, error);
    if (status == 2)
        err << "hidsensor run: " << path << ": " << error << "\n";
    return status;
}

}  // namespace hidsensor
