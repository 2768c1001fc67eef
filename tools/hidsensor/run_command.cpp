#include "tools/hidsensor/run_command.h"

#include <filesystem>
#include <fstream>
#include <iterator>

#include "tools/hidsensor/descriptor_input.h"
#include "tools/hidsensor/scenario.h"
#include "tools/hidsensor/scenario_runner.h"

namespace hidsensor {
namespace {
constexpr std::size_t kMaxScenarioBytes = 64u << 20;
}  // namespace

int RunScenarioFile(const std::string& path, bool human, std::ostream& out, std::ostream& err)
{
    const std::string shown = PrintablePath(path);
    std::error_code ignored;
    if (std::filesystem::is_directory(path, ignored)) {
        err << "hidsensor run: " << shown << ": is a directory\n";
        return 2;
    }
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        err << "hidsensor run: " << shown << ": cannot open file\n";
        return 2;
    }
    std::string text;
    text.assign(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
    if (file.bad() || text.size() > kMaxScenarioBytes) {
        err << "hidsensor run: " << shown << ": " << (file.bad() ? "read error" : "file larger than 64 MiB") << "\n";
        return 2;
    }
    std::string error;
    const std::optional<Scenario> scenario = ParseScenario(text, error);
    if (!scenario) {
        err << "hidsensor run: " << shown << ": " << error << "\n";
        return 2;
    }
    EventPrinter printer(out, human ? EventPrinter::Style::Human : EventPrinter::Style::Json);
    const int status = RunScenario(*scenario, printer, RunOptions{}, error);
    if (status == 2)
        err << "hidsensor run: " << shown << ": " << error << "\n";
    return status;
}

}  // namespace hidsensor
