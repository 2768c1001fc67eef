// The whole driver on a fuzzed device. Input: a 2-byte little-endian
// descriptor length L and L descriptor bytes (the HID parser corpus layout),
// then a count of feature reports with (report ID, length, bytes) each, then
// commands of one opcode byte each: a read carrying the next bytes, a sensor
// callback, the clock moving, a device rule, a plug-and-play step or new
// feature contents. The run must end without a crash, a leak or a broken
// contract.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <iostream>
#include <span>
#include <sstream>

#include "tools/hidsensor/scenario.h"
#include "tools/hidsensor/scenario_runner.h"

namespace {

using namespace hidsensor;
using host::hidsim::DeviceRule;
using host::hidsim::RuleTrigger;

constexpr std::size_t kMaxSteps = 64;
constexpr std::size_t kMaxDescriptor = 4096;

class Input {
public:
    explicit Input(std::span<const std::uint8_t> bytes) : bytes_(bytes) {}
    bool Empty() const { return position_ >= bytes_.size(); }
    std::uint8_t Byte() { return Empty() ? 0 : bytes_[position_++]; }
    std::uint16_t Word() { return static_cast<std::uint16_t>(Byte() | (Byte() << 8)); }
    std::vector<std::uint8_t> Bytes(std::size_t count)
    {
        const std::size_t take = std::min(count, bytes_.size() - std::min(position_, bytes_.size()));
        std::vector<std::uint8_t> out(bytes_.begin() + static_cast<std::ptrdiff_t>(position_),
                                      bytes_.begin() + static_cast<std::ptrdiff_t>(position_ + take));
        position_ += take;
        return out;
    }

private:
    std::span<const std::uint8_t> bytes_;
    std::size_t position_ = 0;
};

DeviceRule Rule(Input& in)
{
    const std::uint8_t kind = in.Byte();
    const auto on = static_cast<RuleTrigger>(kind % 3);
    DeviceRule rule;
    switch ((kind / 3) % 4) {
    case 0:
        rule = DeviceRule::Fail(on, static_cast<NTSTATUS>(0xC0000185));
        break;
    case 1:
        rule = DeviceRule::Zeros(on);
        break;
    case 2:
        rule = DeviceRule::AnswerReportId(on, in.Byte());
        break;
    default:
        rule = DeviceRule::Timeout(on);
        break;
    }
    rule.on = on;
    rule.Times(1 + in.Byte() % 3);
    return rule;
}

CallStep Call(Input& in)
{
    CallStep call;
    call.name = CallNames()[in.Byte() % CallNames().size()];
    call.sensor = in.Byte() % 4;
    const std::uint16_t argument = in.Word();
    call.ms = argument;
    call.bytes = argument;
    switch (argument % 3) {
    case 0:
        call.buffer = host::sensorscx::ListBuffer::Exact();
        break;
    case 1:
        call.buffer = host::sensorscx::ListBuffer::SizeQuery();
        break;
    default:
        call.buffer = host::sensorscx::ListBuffer::OfBytes(argument % 512);
        break;
    }
    call.options.otherHandle = (argument & 0x100) != 0;
    call.options.nullOutput = (argument & 0x200) != 0;
    if (call.name == "SetDataThresholds") {
        ScenarioValue value;
        value.key = {{0xC458F8A7, 0x4AE8, 0x4777, {0x96, 0x07, 0x2E, 0x9B, 0xDD, 0x65, 0x11, 0x0A}}, 161};
        value.vt = VT_R4;
        value.real = argument / 100.0;
        call.list.push_back(value);
    }
    return call;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Input in(std::span<const std::uint8_t>(data, size));
    Scenario scenario;
    scenario.clock = *ParseUtcTime("2026-01-01T00:00:00Z");
    scenario.device.descriptor = in.Bytes(std::min<std::size_t>(in.Word(), kMaxDescriptor));
    const std::uint8_t features = in.Byte() % 8;
    for (std::uint8_t i = 0; i < features; ++i) {
        const std::uint8_t id = in.Byte();
        scenario.device.features[id] = in.Bytes(in.Byte());
    }
    static constexpr const char* kPnp[] = {"D0Exit", "D0Entry", "ReleaseHardware", "PrepareHardware", "Unload",
                                           "DeviceAdd"};
    while (!in.Empty() && scenario.steps.size() < kMaxSteps) {
        switch (in.Byte() % 6) {
        case 0:
            scenario.steps.push_back(InputStep{in.Bytes(in.Byte())});
            break;
        case 1:
            scenario.steps.push_back(Call(in));
            break;
        case 2:
            scenario.steps.push_back(AdvanceStep{in.Byte() * 10u});
            break;
        case 3: {
            DeviceStep step;
            step.rules = std::vector<DeviceRule>{Rule(in)};
            scenario.steps.push_back(step);
            break;
        }
        case 4:
            scenario.steps.push_back(PnpStep{kPnp[in.Byte() % 6]});
            break;
        default: {
            DeviceStep step;
            const std::uint8_t id = in.Byte();
            step.features = host::hidsim::FeatureMap{{id, in.Bytes(in.Byte())}};
            scenario.steps.push_back(step);
            break;
        }
        }
    }

    std::ostringstream out;
    EventPrinter printer(out, EventPrinter::Style::Json);
    std::string error;
    const int status = RunScenario(scenario, printer, RunOptions{}, error);
    if (status == 1) {
        // A broken contract or a leak: show the run and fail.
        std::cerr << out.str();
        std::abort();
    }
    return 0;
}
