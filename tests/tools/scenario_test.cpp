// hidsensor run: the examples against their golden outputs, the same runs with
// tracing on, and the scenario checks that must stop a bad file before anything
// runs.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <set>
#include <sstream>

#include "host/sensorscx/tracing.h"
#include "tests/tools/tool_test_files.h"
#include "tools/hidsensor/command_line.h"
#include "tools/hidsensor/scenario.h"
#include "tools/hidsensor/scenario_runner.h"

namespace hidsensor {
namespace {

std::vector<std::filesystem::path> Examples()
{
    std::vector<std::filesystem::path> examples;
    for (const auto& entry : std::filesystem::directory_iterator(EXAMPLES_DIR)) {
        if (entry.path().extension() == ".json")
            examples.push_back(entry.path());
    }
    std::sort(examples.begin(), examples.end());
    return examples;
}

struct Played {
    int status = -1;
    std::string out;
};

Played Play(const Scenario& scenario, const RunOptions& options = {})
{
    std::ostringstream out;
    EventPrinter printer(out, EventPrinter::Style::Json);
    std::string error;
    Played played;
    played.status = RunScenario(scenario, printer, options, error);
    played.out = out.str();
    return played;
}

TEST(Examples, EachPlaysItsGoldenOutputByteForByte)
{
    const auto examples = Examples();
    ASSERT_GE(examples.size(), 4u);
    for (const auto& path : examples) {
        SCOPED_TRACE(path.filename().string());
        std::ostringstream out, err;
        const int status = RunCommandLine({"run", path.string()}, out, err);
        EXPECT_EQ(status, 0) << err.str();
        EXPECT_EQ(err.str(), "");
        auto golden = path;
        golden.replace_extension(".out");
        ASSERT_TRUE(std::filesystem::exists(golden)) << "no golden output; run scripts/update-goldens.sh";
        EXPECT_EQ(out.str(), ReadText(golden));
    }
}

TEST(Examples, TracingAtEveryLevelAndFlagChangesNoEvent)
{
    for (const auto& path : Examples()) {
        SCOPED_TRACE(path.filename().string());
        std::string error;
        const std::optional<Scenario> scenario = ParseScenario(ReadText(path), error);
        ASSERT_TRUE(scenario) << error;
        const Played quiet = Play(*scenario);

        auto sink = std::make_shared<host::tracing::MemoryTraceSink>();
        RunOptions traced;
        traced.traceSink = sink;
        traced.traceFromStart = std::make_pair(UCHAR{5}, ULONG{0xFFFFFFFF});
        const Played loud = Play(*scenario, traced);

        EXPECT_EQ(loud.status, quiet.status);
        EXPECT_EQ(loud.out, quiet.out);
        EXPECT_GT(sink->Lines().size(), 10u);  // the driver did trace
    }
}

TEST(Examples, HumanRenderingShowsTheSameEvents)
{
    for (const auto& path : Examples()) {
        SCOPED_TRACE(path.filename().string());
        std::ostringstream json, human, err;
        ASSERT_EQ(RunCommandLine({"run", path.string()}, json, err), 0);
        ASSERT_EQ(RunCommandLine({"run", "--human", path.string()}, human, err), 0);
        // One headline per event, each starting with the time in seconds.
        std::istringstream jsonLines(json.str()), humanLines(human.str());
        std::size_t events = 0, headlines = 0;
        for (std::string line; std::getline(jsonLines, line);)
            ++events;
        for (std::string line; std::getline(humanLines, line);)
            headlines += line.size() > 11 && line.compare(9, 2, " s") == 0;
        EXPECT_EQ(headlines, events);
    }
}

// A minimal valid device: a custom sensor without report IDs.
constexpr const char* kDevice =
    R"("device":{"descriptor":"05 20 09 E1 A1 01 0A 44 05 15 00 26 FF 00 75 08 95 01 81 02 C0"})";

std::string With(const std::string& rest)
{
    std::string text = "{";
    text += kDevice;
    if (!rest.empty()) {
        text += ',';
        text += rest;
    }
    text += '}';
    return text;
}

TEST(ScenarioFile, MalformedFilesNameThePathAndTheReason)
{
    struct Case {
        std::string text;
        std::string error;
    } cases[] = {
        {"", "(document): not JSON"},
        {"[]", "(document): expected an object"},
        {"{}", "device: missing"},
        {With(R"("extra":1)"), "extra: unknown key"},
        {With(R"("ex\ntra":1)"), "ex\\x0atra: unknown key"},
        {With("\"" + std::string(50, 'k') + "\":1"), std::string(40, 'k') + "...: unknown key"},
        {R"({"device":{"descriptor":"05 2G"}})", "device.descriptor: bad hex"},
        {R"({"device":{"descriptor":5}})", "device.descriptor: expected a string"},
        {With(R"("options":{"clock":"yesterday"})"), "options.clock: expected an ISO 8601 time"},
        {With(R"("options":{"seed":-1})"), "options.seed: expected an integer"},
        {With(R"("options":{"traffic":"yes"})"), "options.traffic: expected true or false"},
        {With(R"("steps":{})"), "steps: expected an array"},
        {With(R"("steps":[{}])"), "steps[0]: a step needs one verb"},
        {With(R"("steps":[{"advance":1,"input":"00"}])"), "steps[0]: a step has exactly one verb"},
        {With(R"("steps":[{"advance":-5}])"), "steps[0].advance: expected an integer"},
        {With(R"("steps":[{"input":"0x1"}])"), "steps[0].input: bad hex"},
        {With(R"("steps":[{"call":"Launch","sensor":0}])"), "steps[0].call: unknown callback"},
        {With(R"("steps":[{"call":"St\nart"}])"), "steps[0].call: unknown callback \"St\\x0aart\""},
        {With(R"("steps":[{"call":"Start","sensor":0,"ms":5}])"), "steps[0].ms: unknown key for call Start"},
        {With(R"("steps":[{"call":"SetDataInterval","sensor":0}])"), "steps[0].ms: missing"},
        {With(R"("steps":[{"call":"GetProperties","buffer":"big"}])"), "steps[0].buffer: expected"},
        {With(R"("steps":[{"call":"GetDataFieldProperties","key":"{1} 2"}])"), "steps[0].key: expected"},
        {With(R"("steps":[{"call":"Start","handle":"mine"}])"), "steps[0].handle: expected \"other\""},
        {With(R"("steps":[{"call":"SetDataThresholds","list":[{"key":"{B14C764F-07CF-41E8-9D82-EBE3D0776A6F} 7","vt":"R5","value":1}]}])"),
         "steps[0].list[0].vt: expected EMPTY"},
        {With(R"("steps":[{"call":"SetDataThresholds","list":[{"key":"{B14C764F-07CF-41E8-9D82-EBE3D0776A6F} 7","vt":"UI2","value":70000}]}])"),
         "steps[0].list[0].value: expected an integer from 0 to 65535"},
        {With(R"("steps":[{"pnp":"Reboot"}])"), "steps[0].pnp: expected DeviceAdd"},
        {With(R"("steps":[{"wait":"history"}])"), "steps[0].wait: expected \"historyRetrieval\""},
        {With(R"("steps":[{"device":{"features":{"300":"00"}}}])"), "steps[0].device.features.300: a feature report"},
        {With(R"("steps":[{"device":{"rules":[{"on":"read"}]}}])"), "steps[0].device.rules[0]: a rule has exactly one action"},
        {With(R"("steps":[{"device":{"rules":[{"on":"getFeature","fail":"0x0"}]}}])"), "steps[0].device.rules"},
        {With(R"("steps":[{"device":{"rules":[{"on":"read","field":{"usage":"0x030E","clamp":[1,2]}}]}}])"),
         "steps[0].device.rules[0].field: a field rule applies to setFeature only"},
        {With(R"("steps":[{"trace":{"flags":1}}])"), "steps[0].trace.level: missing"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.text);
        std::string error;
        EXPECT_FALSE(ParseScenario(c.text, error));
        EXPECT_EQ(error.rfind(c.error, 0), 0u) << error;
        EXPECT_EQ(error.find('\n'), std::string::npos);
    }
}

TEST(ScenarioFile, ValuesOfEveryTypeAreRead)
{
    const std::string text = With(R"("steps":[{"call":"SetDataThresholds","sensor":0,"list":[
        {"key":"{B14C764F-07CF-41E8-9D82-EBE3D0776A6F} 7","vt":"EMPTY"},
        {"key":"{B14C764F-07CF-41E8-9D82-EBE3D0776A6F} 7","vt":"BOOL","value":true},
        {"key":"{B14C764F-07CF-41E8-9D82-EBE3D0776A6F} 7","vt":"BOOL","value":7},
        {"key":"{B14C764F-07CF-41E8-9D82-EBE3D0776A6F} 7","vt":"I8","value":-9000000000},
        {"key":"{B14C764F-07CF-41E8-9D82-EBE3D0776A6F} 7","vt":"UI8","value":18446744073709551615},
        {"key":"{B14C764F-07CF-41E8-9D82-EBE3D0776A6F} 7","vt":"R4","value":12.34},
        {"key":"{B14C764F-07CF-41E8-9D82-EBE3D0776A6F} 7","vt":"FILETIME","value":134116992000000000},
        {"key":"{B14C764F-07CF-41E8-9D82-EBE3D0776A6F} 7","vt":"CLSID","value":"{E83AF229-8640-4D18-A213-E22675EBB2C3}"},
        {"key":"{B14C764F-07CF-41E8-9D82-EBE3D0776A6F} 7","vt":"LPWSTR","value":"Gr\u00fc\u00dfe \ud83d\ude00"}]}])");
    std::string error;
    const std::optional<Scenario> scenario = ParseScenario(text, error);
    ASSERT_TRUE(scenario) << error;
    const auto& call = std::get<CallStep>(scenario->steps.at(0));
    ASSERT_EQ(call.list.size(), 9u);
    EXPECT_EQ(call.list[0].vt, VT_EMPTY);
    EXPECT_EQ(call.list[1].integer, -1);  // VARIANT_TRUE
    EXPECT_EQ(call.list[2].integer, 7);
    EXPECT_EQ(call.list[3].integer, -9000000000);
    EXPECT_EQ(call.list[4].unsignedInteger, UINT64_MAX);
    EXPECT_EQ(static_cast<float>(call.list[5].real), 12.34f);
    EXPECT_EQ(call.list[6].unsignedInteger, 134116992000000000u);
    EXPECT_EQ(call.list[8].text, u"Grüße \U0001F600");
    EXPECT_EQ(call.list[0].key.pid, 7u);
}

// nullOutput nulls a size, interval or bytes-written output; the calls that
// have none take their list or buffer as given.
TEST(ScenarioFile, NullOutputOnlyReachesCallsWithSuchAnOutput)
{
    const std::pair<const char*, bool> cases[] = {
        {R"("call":"GetProperties")", true},           {R"("call":"GetDataInterval")", true},
        {R"("call":"CancelHistoryRetrieval")", true},  {R"("call":"SetDataThresholds","list":[])", false},
        {R"("call":"StartHistoryRetrieval","bytes":64)", false}, {R"("call":"Start")", false},
    };
    for (const auto& [call, nulled] : cases) {
        SCOPED_TRACE(call);
        std::string error;
        const std::optional<Scenario> scenario =
            ParseScenario(With(std::string(R"("steps":[{)") + call + R"(,"nullOutput":true}])"), error);
        ASSERT_TRUE(scenario) << error;
        EXPECT_EQ(std::get<CallStep>(scenario->steps.at(0)).options.nullOutput, nulled);
    }
}

TEST(ScenarioFile, ClockStartsAtTheGivenIsoTimeTakenToUtc)
{
    struct Case {
        const char* text;
        std::uint64_t ticks;
    } cases[] = {
        {"2026-01-01T00:00:00Z", 134116992000000000ull},
        {"1601-01-01T00:00:00Z", 0},
        {"2024-02-29T12:30:15.25Z", 133536834152500000ull},
        {"2026-01-01T01:00:00+01:00", 134116992000000000ull},
        {"2025-12-31T19:00-05:00", 134116992000000000ull},
        {"2026-01-01T05:30:00+0530", 134116992000000000ull},
        {"2026-01-01T00:00Z", 134116992000000000ull},
    };
    for (const Case& c : cases) {
        const std::optional<FILETIME> time = ParseUtcTime(c.text);
        ASSERT_TRUE(time) << c.text;
        EXPECT_EQ((std::uint64_t{time->dwHighDateTime} << 32) | time->dwLowDateTime, c.ticks) << c.text;
    }
    for (const char* bad : {"2025-02-29T00:00:00Z", "2026-01-01T24:00:00Z", "2026-01-01 00:00:00Z",
                            "2026-01-01T00:00:00", "1600-12-31T23:59:59Z", "1601-01-01T00:30:00+01:00",
                            "2026-01-01T00:00:00+01:", "2026-01-01T00:00:00+24:00", "2026-01-01T00:00.5Z",
                            "2026-01-01T00:00:00Z "})
        EXPECT_FALSE(ParseUtcTime(bad)) << bad;
}

// A sensor without a history answers the history calls with success and
// never completes a retrieval: that is its contract, not a broken one.
TEST(Scenario, HistoryCallsOnASensorWithoutHistoryBreakNoContract)
{
    std::string error;
    const std::optional<Scenario> scenario = ParseScenario(
        With(R"("steps":[{"call":"StartHistoryRetrieval","sensor":0,"bytes":64},)"
             R"({"call":"StartHistoryRetrieval","sensor":0,"bytes":64},)"
             R"({"call":"CancelHistoryRetrieval","sensor":0}])"),
        error);
    ASSERT_TRUE(scenario) << error;
    const Played played = Play(*scenario);
    EXPECT_EQ(played.status, 0) << played.out;
    EXPECT_EQ(played.out.find("violation"), std::string::npos) << played.out;
    EXPECT_NE(played.out.find(R"("call":"CancelHistoryRetrieval","sensor":0,"status":"0x00000000","bytesWritten":0)"),
              std::string::npos)
        << played.out;
}

// A custom sensor answers an I/O control with success and leaves the request
// open, whatever handle it is given.
TEST(Scenario, DeviceIoControlShowsTheStatusAndTheRequestLeftOpen)
{
    std::string error;
    const std::optional<Scenario> scenario = ParseScenario(
        With(R"("steps":[{"call":"DeviceIoControl","sensor":0,"code":"0x00220003","inputLength":4,"outputLength":8},)"
             R"({"call":"DeviceIoControl","sensor":0,"code":"0x00220003","handle":"other"}])"),
        error);
    ASSERT_TRUE(scenario) << error;
    const Played played = Play(*scenario);
    EXPECT_EQ(played.status, 0) << played.out;
    const std::string answer = R"("call":"DeviceIoControl","sensor":0,"status":"0x00000000","requestStatus":"0x00000103")";
    const std::size_t first = played.out.find(answer);
    ASSERT_NE(first, std::string::npos) << played.out;
    EXPECT_NE(played.out.find(answer, first + 1), std::string::npos) << played.out;
    std::string codeError;
    EXPECT_FALSE(ParseScenario(With(R"("steps":[{"call":"DeviceIoControl","code":"220003"}])"), codeError));
    EXPECT_EQ(codeError.rfind("steps[0].code: expected an IOCTL code", 0), 0u) << codeError;
}

TEST(CommandLine, UsageErrorsNameTheArgumentAndExitWithTwo)
{
    struct Case {
        std::vector<std::string> args;
        int status;
        std::string err;  // start of the one line on standard error
    } cases[] = {
        {{}, 2, "hidsensor: A subcommand is required"},
        {{"frobnicate"}, 2, "hidsensor: unknown command 'frobnicate'"},
        {{"run"}, 2, "hidsensor run: SCENARIO is required"},
        {{"run", "a.json", "b.json"}, 2, "hidsensor run: The following argument was not expected: b.json"},
        {{"run", "--fast", "a.json"}, 2, "hidsensor run: The following argument was not expected: --fast"},
        {{"run", "/nonexistent/scenario.json"}, 2, "hidsensor run: /nonexistent/scenario.json: cannot open file"},
        {{"demo", "--bogus"}, 2, "hidsensor demo: The following argument was not expected: --bogus"},
        {{"inspect", "--collection", "-1", "x.hex"}, 2, "hidsensor inspect: --collection"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::PrintToString(c.args));
        std::ostringstream out, err;
        EXPECT_EQ(RunCommandLine(c.args, out, err), c.status);
        const std::string errors = err.str();
        EXPECT_EQ(errors.rfind(c.err, 0), 0u) << errors;
        EXPECT_EQ(std::count(errors.begin(), errors.end(), '\n'), 1) << errors;
        EXPECT_EQ(out.str(), "");
    }
    for (const std::string command : {"run", "demo", "inspect"}) {
        std::ostringstream out, err;
        EXPECT_EQ(RunCommandLine({command, "--help"}, out, err), 0);
        EXPECT_NE(out.str().find("Usage:"), std::string::npos) << command;
        EXPECT_EQ(err.str(), "");
    }
}

TEST(CommandLine, AMalformedScenarioPrintsOneLineAndRunsNothing)
{
    const std::string path = testing::TempDir() + "bad-scenario.json";
    std::ofstream(path) << With(R"("steps":[{"advance":1},{"call":"Start","sensor":"zero"}])");
    std::ostringstream out, err;
    EXPECT_EQ(RunCommandLine({"run", path}, out, err), 2);
    EXPECT_EQ(out.str(), "");  // not even driver entry
    EXPECT_EQ(err.str(), "hidsensor run: " + path + ": steps[1].sensor: expected an integer from 0 to 65535\n");
}

TEST(Demo, EveryPublishedSensorDeliversAndTheRunIsQuick)
{
    std::ostringstream out, err;
    ASSERT_EQ(RunCommandLine({"demo", "--json"}, out, err), 0) << err.str();
    std::set<std::string> sampled;
    std::istringstream lines(out.str());
    int sensors = 0;
    for (std::string line; std::getline(lines, line);) {
        sensors += line.rfind("{\"event\":\"sensor\"", 0) == 0;
        const auto at = line.find("\"event\":\"sample\"");
        if (at != std::string::npos)
            sampled.insert(line.substr(line.find("\"sensor\":"), 11));
        EXPECT_EQ(line.find("violation"), std::string::npos) << line;
    }
    EXPECT_EQ(sensors, 6);  // six custom sensors; the accelerometer is never published
    EXPECT_EQ(sampled.size(), 6u);

    std::ostringstream summary;
    ASSERT_EQ(RunCommandLine({"demo"}, summary, err), 0);
    EXPECT_NE(summary.str().find("Totals: 6 sensors published"), std::string::npos) << summary.str();
    // The activity history samples every 5 s for the minute and is retrieved whole.
    EXPECT_NE(summary.str().find("Activity history retrieved: 12 records, status \"0x00000000\""), std::string::npos)
        << summary.str();
    // The pedometer history samples every 10 s, each sample a change.
    EXPECT_NE(summary.str().find("Pedometer history retrieved: 6 records, status \"0x00000000\""), std::string::npos)
        << summary.str();
    // The minute's steps: 40 walking in 20 s, then 60 running in 20 s.
    EXPECT_NE(summary.str().find("59.000 s  Pedometer: after reset false, step type 1, steps 0, step ms 0, step type 2, "
                                 "steps 40, step ms 20000, step type 4, steps 60, step ms 20000"),
              std::string::npos)
        << summary.str();
    // The device picked up, turned, laid down again.
    for (const char* orientation :
         {"20.000 s  Device orientation: orientation 5", "35.000 s  Device orientation: orientation 3",
          "50.000 s  Device orientation: orientation 1"})
        EXPECT_NE(summary.str().find(orientation), std::string::npos) << orientation;
}

}  // namespace
}  // namespace hidsensor
