#include "tools/hidsensor/demo_device.h"

#include <cmath>
#include <string>
#include <utility>
#include <variant>

#include "host/hidparser/sensor_descriptor.h"

namespace hidsensor {

using namespace host::hid::sensor;

namespace {

constexpr std::uint16_t kDescriptionChars = 32;

// Report IDs: sensor k of the container uses k + 1 for input and feature.
enum DemoSensor : std::uint8_t {
    kAccelerometer = 1,
    kGestureTap,
    kLidAngle,
    kActivity,
    kPedometer,
    kRelativeOrientation,
    kSimpleOrientation,
};
constexpr int kPublishedSensors = 6;  // all but the accelerometer
constexpr int kPublishedActivity = 2;
// The activity history takes a sample every 5 s; a retrieval list of 8 bytes
// of header and 144 bytes per record holds the whole minute.
constexpr std::uint32_t kHistorySampleMs = 5000;
constexpr std::uint32_t kHistoryListBytes = 8 + 144 * 12;
// The pedometer's history takes a sample every 10 s, just after each of its
// reports: six records of 11 entries (528 bytes) each.
constexpr int kPublishedPedometer = 3;
constexpr std::uint32_t kPedometerHistorySampleMs = 10000;
constexpr std::uint32_t kPedometerHistoryListBytes = 8 + 528 * 6;
// Every input report of a read is as long as the longest of the collection
// (the activity sensor's: ID, two selectors, seven 32-bit words); shorter
// reports are padded with zeros, as the HID class driver delivers them.
constexpr std::size_t kInputReportLength = 3 + 7 * 4;

SensorShape Accelerometer()
{
    SensorShape accel;
    accel.usage = kAccelerometer3D;
    accel.features = {ReportIntervalProperty()};
    for (std::uint16_t axis = 0; axis < 3; ++axis)
        accel.inputs.push_back(Property(static_cast<std::uint16_t>(0x453 + axis), 16, -32767, 32767, -2));
    return accel;
}

std::vector<ValueField> Values(int count, std::uint8_t bits, std::int64_t min, std::int64_t max, int exponent)
{
    std::vector<ValueField> values;
    for (int k = 1; k <= count; ++k)
        values.push_back(CustomValue(k, bits, min, max, exponent));
    return values;
}

// A custom sensor with its friendly name among the feature properties, after
// the description.
SensorShape NamedCustomSensor(std::vector<ValueField> values)
{
    SensorShape sensor = CustomSensor(kDescriptionChars, std::move(values));
    sensor.features.push_back(StringProperty(kFriendlyName, kDescriptionChars));
    return sensor;
}

void AppendString(std::vector<std::uint8_t>& report, const std::u16string& text)
{
    for (std::size_t i = 0; i < kDescriptionChars; ++i) {
        const char16_t c = i < text.size() ? text[i] : u'\0';
        report.push_back(static_cast<std::uint8_t>(c & 0xFF));
        report.push_back(static_cast<std::uint8_t>(c >> 8));
    }
}

// Feature report of a custom sensor: all events, full power, 100 ms, the
// description string that tells the driver its kind, and the friendly name.
std::vector<std::uint8_t> CustomFeature(std::uint8_t reportId, const std::u16string& description,
                                        const std::u16string& friendlyName)
{
    std::vector<std::uint8_t> report = {reportId, 1, 1, 100, 0, 0, 0};
    AppendString(report, description);
    AppendString(report, friendlyName);
    return report;
}

class Script {
public:
    explicit Script(std::vector<ScenarioStep>& steps) : steps_(steps) {}

    CallStep& Call(const std::string& name, int sensor)
    {
        CallStep call;
        call.name = name;
        call.sensor = static_cast<std::size_t>(sensor);
        return std::get<CallStep>(steps_.emplace_back(std::in_place_type<CallStep>, std::move(call)));
    }
    void SetInterval(int sensor, std::uint32_t ms) { Call("SetDataInterval", sensor).ms = ms; }
    void Advance(std::uint64_t ms) { steps_.emplace_back(std::in_place_type<AdvanceStep>, AdvanceStep{ms}); }
    void RetrieveHistory(int sensor, std::uint32_t bytes)
    {
        Call("StartHistoryRetrieval", sensor).bytes = bytes;
        WaitStep wait;
        wait.sensor = static_cast<std::size_t>(sensor);
        steps_.emplace_back(std::in_place_type<WaitStep>, wait);
    }

    // One input report: ID, sensor state (ready), event (data updated), values.
    void Input(std::uint8_t reportId, const std::vector<std::uint32_t>& values, int bytesEach)
    {
        std::vector<std::uint8_t> report = {reportId, 2, 2};
        for (std::uint32_t value : values) {
            for (int b = 0; b < bytesEach; ++b)
                report.push_back(static_cast<std::uint8_t>(value >> (8 * b)));
        }
        report.resize(kInputReportLength, 0);
        steps_.emplace_back(std::in_place_type<InputStep>, InputStep{std::move(report)});
    }

private:
    std::vector<ScenarioStep>& steps_;
};

// An activity word: code in bits 4..11, confidence in tenths of a percent in bits 12..22.
std::uint32_t ActivityWord(std::uint32_t code, std::uint32_t confidencePercent)
{
    return (code << 4) | ((confidencePercent * 10) << 12);
}

}  // namespace

std::vector<std::uint8_t> DemoDescriptor()
{
    const SensorShape tap = NamedCustomSensor(Values(1, 16, 0, 3, 0));
    const SensorShape lidAngle = NamedCustomSensor(Values(1, 16, 0, 3600, -1));
    const SensorShape activity = NamedCustomSensor(Values(7, 32, 0, 0x7FFFFFFF, 0));
    const SensorShape pedometer = NamedCustomSensor(Values(5, 32, 0, 0x7FFFFFFF, 0));
    const SensorShape relative = NamedCustomSensor(Values(4, 16, -10000, 10000, -4));
    const SensorShape simple = NamedCustomSensor(Values(1, 32, 0, 5, 0));
    return BuildSensorContainer({Accelerometer(), tap, lidAngle, activity, pedometer, relative, simple});
}

Scenario DemoScenario()
{
    Scenario scenario;
    scenario.clock = *ParseUtcTime("2026-01-01T08:00:00Z");
    host::hidsim::HidDeviceConfig& device = scenario.device;
    device.descriptor = DemoDescriptor();
    device.information = {0x5A3C, 0x0002, 0x0100, false};
    device.strings.manufacturer = u"Contoso";
    device.strings.product = u"Contoso Sensor Hub";
    device.strings.serialNumber = u"CSH-0001";
    device.features[kAccelerometer] = {kAccelerometer, 100, 0, 0, 0};
    device.features[kGestureTap] = CustomFeature(kGestureTap, u"0x210", u"Tap");
    device.features[kLidAngle] = CustomFeature(kLidAngle, u"Contoso lid angle", u"Lid angle");
    device.features[kActivity] = CustomFeature(kActivity, u"0x232", u"Activity");
    device.features[kPedometer] = CustomFeature(kPedometer, u"0x230", u"Pedometer");
    device.features[kRelativeOrientation] = CustomFeature(kRelativeOrientation, u"0x200", u"Relative orientation");
    device.features[kSimpleOrientation] = CustomFeature(kSimpleOrientation, u"0x205", u"Device orientation");

    scenario.registry.push_back({"KPX_ActivitySensor", "HistorySampleReportInterval", kHistorySampleMs});
    scenario.registry.push_back({"KPX_PedometerSensor", "HistorySampleReportInterval", kPedometerHistorySampleMs});

    Script script(scenario.steps);
    for (int sensor = 0; sensor < kPublishedSensors; ++sensor)
        script.Call("GetSupportedDataFields", sensor);
    for (int sensor = 0; sensor < kPublishedSensors; ++sensor)
        script.Call("Start", sensor);
    script.SetInterval(4, 250);  // relative orientation, faster
    script.Call("StartHistory", kPublishedActivity);
    script.Call("StartHistory", kPublishedPedometer);

    // A minute: a walk that turns into a run, with the device on a desk at the
    // start and picked up at 20 s.
    std::uint32_t walkingSteps = 0;
    std::uint32_t walkingMs = 0;
    std::uint32_t runningSteps = 0;
    std::uint32_t runningMs = 0;
    std::uint32_t orientation = 1;  // face up
    for (int second = 0; second < 60; ++second) {
        if (second % 5 == 0) {
            const bool running = second >= 40;
            const std::uint32_t code = second < 20 ? 5 : (running ? 2 : 1);  // stationary, walking, running
            const std::uint32_t confidence = 60 + static_cast<std::uint32_t>(second % 35);
            script.Input(kActivity,
                         {ActivityWord(code, confidence), ActivityWord(6, 100 - confidence), 0, 0, 0, 0, 0}, 4);
        }
        if (second >= 40) {
            runningSteps += 3;
            runningMs += 1000;
        } else if (second >= 20) {
            walkingSteps += 2;
            walkingMs += 1000;
        }
        // The device's counts since its reset, which the first report flags.
        if (second % 10 == 9)
            script.Input(kPedometer, {second == 9 ? 1u : 0u, walkingSteps, walkingMs, runningSteps, runningMs}, 4);
        if (second % 2 == 0) {
            const double angle = 0.05 * second;
            const auto component = [](double v) { return static_cast<std::uint32_t>(static_cast<std::int32_t>(std::lround(v * 10000)) & 0xFFFF); };
            script.Input(kRelativeOrientation,
                         {component(std::sin(angle / 2) * 0.6), component(std::sin(angle / 2) * 0.8), 0,
                          component(std::cos(angle / 2))},
                         2);
            script.Input(kLidAngle, {static_cast<std::uint32_t>(1100 + 5 * second)}, 2);
        }
        if (second == 20 || second == 35 || second == 50) {
            orientation = second == 20 ? 5 : (second == 35 ? 3 : 1);
            script.Input(kSimpleOrientation, {orientation}, 4);
        }
        if (second == 12 || second == 13 || second == 44)
            script.Input(kGestureTap, {second == 13 ? 2u : 1u}, 2);
        script.Advance(1000);
    }
    script.RetrieveHistory(kPublishedActivity, kHistoryListBytes);
    script.Call("StopHistory", kPublishedActivity);
    script.RetrieveHistory(kPublishedPedometer, kPedometerHistoryListBytes);
    script.Call("StopHistory", kPublishedPedometer);
    for (int sensor = 0; sensor < kPublishedSensors; ++sensor)
        script.Call("Stop", sensor);
    return scenario;
}

}  // namespace hidsensor
