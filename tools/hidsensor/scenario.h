// A scenario file in memory: the device, the options and the steps, checked
// completely before anything runs. The file format is docs/scenario-format.md.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "host/hidsim/hid_device_config.h"
#include "host/sensorscx/client.h"
#include "platform/propsys.h"

namespace hidsensor {

// One list entry of a SetDataThresholds step, typed as the file says.
struct ScenarioValue {
    PROPERTYKEY key{};
    VARTYPE vt = VT_EMPTY;
    std::int64_t integer = 0;    // signed types, BOOL
    std::uint64_t unsignedInteger = 0;  // unsigned types, FILETIME
    double real = 0;             // R4, R8
    GUID guid{};                 // CLSID
    std::u16string text;         // LPWSTR
};

struct InputStep {
    std::vector<std::uint8_t> bytes;
};
struct AdvanceStep {
    std::uint64_t ms = 0;
};
struct CallStep {
    std::string name;            // without the EvtSensor prefix
    std::size_t sensor = 0;
    host::sensorscx::ListBuffer buffer;
    std::optional<PROPERTYKEY> key;
    std::uint32_t ms = 0;
    std::vector<ScenarioValue> list;
    std::uint32_t bytes = 0;
    std::uint32_t ioControlCode = 0;  // DeviceIoControl
    std::uint32_t inputLength = 0;
    std::uint32_t outputLength = 0;
    host::sensorscx::CallOptions options;
};
struct PnpStep {
    std::string name;
};
struct WaitStep {
    std::size_t sensor = 0;
    std::uint32_t timeoutMs = 1000;
};
struct DeviceStep {
    std::optional<host::hidsim::FeatureMap> features;
    std::optional<std::vector<host::hidsim::DeviceRule>> rules;
};
struct TraceStep {
    UCHAR level = 0;
    ULONG flags = 0;
};

using ScenarioStep = std::variant<InputStep, AdvanceStep, CallStep, PnpStep, WaitStep, DeviceStep, TraceStep>;

struct RegistryValue {
    std::string subkey;
    std::string name;
    ULONG data = 0;
};

struct Scenario {
    host::hidsim::HidDeviceConfig device;
    std::vector<RegistryValue> registry;
    FILETIME clock{};            // start of the host clock
    std::uint64_t seed = 1;
    bool traffic = false;
    bool start = true;
    std::vector<ScenarioStep> steps;
};

// Parses and checks a scenario. On failure returns nothing and sets `error` to
// "PATH: reason", PATH being the JSON path of the offending value
// ("steps[2].call", "device.features.3"; "" for the document itself).
std::optional<Scenario> ParseScenario(std::string_view text, std::string& error);

// "2026-01-01T00:00:00Z" (fractions of a second allowed) as a FILETIME.
std::optional<FILETIME> ParseUtcTime(std::string_view text);

// "{GUID} pid".
std::optional<PROPERTYKEY> ParsePropertyKey(std::string_view text);

// The names a call step may carry, in the callback table's order.
const std::vector<std::string>& CallNames();

}  // namespace hidsensor
