// A history retrieval runs on a driver worker thread. The host lets that
// thread run only at a wait, so a scenario that starts, cancels and restarts a
// retrieval while input arrives prints the same bytes on every run; under
// ThreadSanitizer this also shows the worker and the reader share nothing
// unguarded.
#include <gtest/gtest.h>

#include <filesystem>
#include <sstream>

#include "tests/tools/tool_test_files.h"
#include "tools/hidsensor/scenario.h"
#include "tools/hidsensor/scenario_runner.h"

namespace hidsensor {
namespace {

std::string Play(const Scenario& scenario)
{
    std::ostringstream out;
    EventPrinter printer(out, EventPrinter::Style::Json);
    std::string error;
    EXPECT_EQ(RunScenario(scenario, printer, RunOptions{}, error), 0) << error;
    return out.str();
}

class HistoryScenarioRepeat : public testing::TestWithParam<const char*> {};

TEST_P(HistoryScenarioRepeat, HundredRunsPrintTheGoldenBytes)
{
    const std::filesystem::path file = std::filesystem::path(EXAMPLES_DIR) / GetParam();
    std::string error;
    const std::optional<Scenario> scenario = ParseScenario(ReadText(file), error);
    ASSERT_TRUE(scenario) << error;
    const std::string golden = ReadText(std::filesystem::path(file).replace_extension(".out"));
    ASSERT_FALSE(golden.empty());
    for (int run = 0; run < 100; ++run)
        ASSERT_EQ(Play(*scenario), golden) << "run " << run;
}

INSTANTIATE_TEST_SUITE_P(Examples, HistoryScenarioRepeat,
                         testing::Values("activity-filtered-cancel.json", "activity-history.json",
                                         "pedometer-history.json"));

}  // namespace
}  // namespace hidsensor
