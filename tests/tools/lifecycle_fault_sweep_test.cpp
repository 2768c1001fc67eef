// A whole lifecycle played from a scenario (driver entry, device add, prepare,
// start, reads, interval and threshold calls, stop, D0 exit, release, unload)
// with each allocation and platform call made to fail in turn. Every run must
// end without a leak and with the statuses the driver documents: driver entry
// and device add pass the failure on, the plug-and-play and power callbacks
// always succeed.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include <set>
#include <sstream>

#include "host/common/fault_injection.h"
#include "tools/hidsensor/scenario.h"
#include "tools/hidsensor/scenario_runner.h"

namespace hidsensor {
namespace {

using host::FaultInjector;
using host::FaultPoint;

// The usage document's custom sensor, taken through every stage.
constexpr const char* kLifecycle = R"({
  "device": {
    "descriptor": "05 20 09 e1 a1 00 05 20 0a 09 03 15 00 25 02 75 08 95 01 a1 02 0a 30 08 0a 31 08 0a 32 08 b1 00 c0 0a 16 03 15 00 25 05 75 08 95 01 a1 02 0a 40 08 0a 41 08 0a 42 08 0a 43 08 0a 44 08 0a 45 08 b1 00 c0 0a 19 03 15 00 25 05 75 08 95 01 a1 02 0a 50 08 0a 51 08 0a 52 08 0a 53 08 0a 54 08 0a 55 08 b1 00 c0 0a 01 02 15 00 25 06 75 08 95 01 a1 02 0a 00 08 0a 01 08 0a 02 08 0a 03 08 0a 04 08 0a 05 08 0a 06 08 b1 00 c0 0a 0e 03 15 00 27 ff ff ff ff 75 20 95 01 55 00 b1 02 0a 40 15 15 00 26 ff ff 75 10 95 01 55 0e b1 02 0a 40 25 16 01 80 26 ff 7f 75 10 95 01 55 0e b1 02 0a 40 35 16 01 80 26 ff 7f 75 10 95 01 55 0e b1 02 05 20 0a 01 02 15 00 25 06 75 08 95 01 a1 02 0a 00 08 0a 01 08 0a 02 08 0a 03 08 0a 04 08 0a 05 08 0a 06 08 81 00 c0 0a 02 02 15 00 25 05 75 08 95 01 a1 02 0a 10 08 0a 11 08 0a 12 08 0a 13 08 0a 14 08 0a 15 08 81 00 c0 0a 41 05 15 00 26 ff ff 75 10 95 01 81 02 0a 44 05 16 01 80 26 ff 7f 75 10 95 01 55 0e 81 02 c0",
    "strings": {"manufacturer": "Contoso", "product": "Probe", "serialNumber": "7"},
    "features": {"0": "00 00 01 01 02 64 00 00 00 0A 00 E8 03 18 FC"}
  },
  "options": {"start": false},
  "steps": [
    {"pnp": "DeviceAdd"}, {"pnp": "PrepareHardware"}, {"pnp": "D0Entry"},
    {"call": "GetProperties", "sensor": 0},
    {"call": "GetSupportedDataFields", "sensor": 0},
    {"call": "Start", "sensor": 0},
    {"input": "00 02 02 05 00 E8 03"},
    {"call": "SetDataInterval", "sensor": 0, "ms": 200},
    {"call": "GetDataInterval", "sensor": 0},
    {"call": "SetDataThresholds", "sensor": 0, "list": [
      {"key": "{C458F8A7-4AE8-4777-9607-2E9BDD65110A} 161", "vt": "R4", "value": 0.5}]},
    {"call": "GetDataThresholds", "sensor": 0},
    {"input": "00 02 02 05 00 18 FC 00 02 02 05 00 00 00"},
    {"advance": 1000},
    {"call": "Stop", "sensor": 0},
    {"pnp": "D0Exit"}, {"pnp": "D0Entry"}, {"pnp": "D0Exit"},
    {"pnp": "ReleaseHardware"}, {"pnp": "PrepareHardware"}, {"pnp": "D0Entry"},
    {"pnp": "D0Exit"}, {"pnp": "ReleaseHardware"}, {"pnp": "Unload"}
  ]
})";

constexpr NTSTATUS kInjected = static_cast<NTSTATUS>(0xC000009A);  // STATUS_INSUFFICIENT_RESOURCES
constexpr const char* kInvalidDeviceState = "0xC0000184";  // the host refusing a callback out of order

struct Outcome {
    int status = 0;
    std::vector<nlohmann::json> events;
};

// Plays the scenario with the n-th driver call to a fault point failing (0:
// none); returns the events and, in `calls`, how many such calls the run made.
Outcome Play(const Scenario& scenario, std::uint64_t failCall, std::uint64_t* calls = nullptr,
             std::optional<FaultPoint>* injectedAt = nullptr)
{
    std::ostringstream out;
    EventPrinter printer(out, EventPrinter::Style::Json);
    std::string error;
    Outcome outcome;
    RunOptions options;
    options.beforeDriverEntry = [failCall] { FaultInjector::Instance().FailNthCall(failCall, kInjected); };
    options.afterUnload = [calls, injectedAt] {
        if (calls != nullptr)
            *calls = FaultInjector::Instance().TotalCalls();
        if (injectedAt != nullptr)
            *injectedAt = FaultInjector::Instance().LastInjected();
    };
    outcome.status = RunScenario(scenario, printer, options, error);
    std::istringstream lines(out.str());
    for (std::string line; std::getline(lines, line);)
        outcome.events.push_back(nlohmann::json::parse(line));
    return outcome;
}

// Checks one run against the documented statuses; counts its violations
// (anything but a leak is the host refusing a call the failure made
// impossible, reported and survived).
void Check(const Outcome& outcome, std::uint64_t& otherViolations)
{
    bool deviceGone = false;
    for (const nlohmann::json& event : outcome.events) {
        const std::string name = event["event"];
        if (name == "violation") {
            const std::string what = event["what"];
            EXPECT_EQ(what.find("left behind"), std::string::npos) << what;
            ++otherViolations;
            continue;
        }
        if (name != "pnp")
            continue;
        const std::string callback = event["callback"];
        const std::string status = event["status"];
        if (callback == "DriverEntry" || callback == "DeviceAdd") {
            // A failure is passed on as the platform reported it.
            EXPECT_TRUE(status == "0x00000000" || status.rfind("0xC", 0) == 0) 
                << callback << " " << status;
            deviceGone = deviceGone || status != "0x00000000";
        } else if (callback != "Unload") {
            EXPECT_TRUE(status == "0x00000000" || (deviceGone && status == kInvalidDeviceState))
                << callback << " " << status;
        }
    }
}

TEST(LifecycleFaultSweep, EveryFailurePointEndsCleanWithTheDocumentedStatus)
{
    std::string error;
    const std::optional<Scenario> scenario = ParseScenario(kLifecycle, error);
    ASSERT_TRUE(scenario) << error;

    // The clean run first: it counts the calls the sweep goes through.
    std::uint64_t calls = 0;
    const Outcome clean = Play(*scenario, 0, &calls);
    std::uint64_t cleanViolations = 0;
    Check(clean, cleanViolations);
    ASSERT_EQ(clean.status, 0);
    ASSERT_EQ(cleanViolations, 0u);
    ASSERT_GT(calls, 100u);

    std::uint64_t covered = 0;
    std::uint64_t violations = 0;
    std::set<std::string> pointsHit;
    for (std::uint64_t n = 1; n <= calls; ++n) {
        SCOPED_TRACE(testing::Message() << "driver call " << n << " of " << calls);
        std::optional<FaultPoint> point;
        const Outcome outcome = Play(*scenario, n, nullptr, &point);
        Check(outcome, violations);
        if (point)
            pointsHit.insert(host::FaultPointName(*point));
        ++covered;
    }
    RecordProperty("injection_points", static_cast<int>(covered));
    std::printf("lifecycle fault sweep: %llu injection points over %zu kinds of platform call, %llu contract "
                "violations reported\n",
                static_cast<unsigned long long>(covered), pointsHit.size(), static_cast<unsigned long long>(violations));
    EXPECT_GE(pointsHit.size(), 8u);
}

}  // namespace
}  // namespace hidsensor
