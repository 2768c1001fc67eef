// ReadFeatureReport of a custom sensor with 28 custom values, each with its
// own change-sensitivity field, on the simulated device: with writeSettings 0
// (fetch, interval, batch interval, bounds, states) and 1 (also the 28
// sensitivities). Every call crosses the host: the framework's synchronous
// IOCTLs and the simulated device. That share is measured apart by sending the
// same number of GET_FEATURE / SET_FEATURE requests straight to the I/O target,
// and reported as host_ns; driver_ns is the rest.
//
// Then the per-call cost of each value-scaling function.
#include <benchmark/benchmark.h>

#include <array>
#include <chrono>
#include <memory>
#include <vector>

#include "bench/driver/bench_support.h"
#include "feature/value_scaling.h"
#include "hid/hid_device.h"
#include "hid/hid_io_target.h"
#include "host/framework/driver_host.h"
#include "host/hidparser/sensor_descriptor.h"
#include "host/hidsim/simulated_hid_device.h"
#include "platform/hidclass.h"
#include "sensors/custom_sensor.h"

namespace {

namespace hs = host::hid::sensor;
constexpr int kCustomValues = 28;

// Reporting and power selectors, interval, an 8-character description, batch
// interval, and a 16-bit sensitivity per custom value; inputs for all 28.
hs::SensorShape Shape()
{
    std::vector<hs::ValueField> inputs;
    for (int k = 1; k <= kCustomValues; ++k)
        inputs.push_back(hs::CustomValue(k));
    hs::SensorShape shape = hs::CustomSensor(8, inputs);
    shape.reportId = 1;
    shape.features.push_back(hs::Property(0x530E, 32, 0, 0xFFFFFFFF));
    for (int k = 1; k <= kCustomValues; ++k)
        shape.features.push_back(hs::Property(hs::Modified(hs::CustomValueUsage(k), hs::kModChangeSensitivityAbsolute),
                                             16, 0, 0xFFFF, -2));
    return shape;
}

std::vector<std::uint8_t> FeatureBytes()
{
    std::vector<std::uint8_t> report = {1, 1, 1, 100, 0, 0, 0};
    for (char16_t c : std::u16string(u"0x10\0\0\0\0", 8)) {
        report.push_back(static_cast<std::uint8_t>(c));
        report.push_back(0);
    }
    report.insert(report.end(), 4 + 2 * kCustomValues, 0);
    return report;
}

// The sensor with all 28 sensitivities seen and requested, reporting on at
// full power; `sensor` stays null when anything is not as expected.
struct Fixture : LoadedDriver {
    CustomSensor* sensor = nullptr;

    Fixture()
        : LoadedDriver(
              host::hidsim::HidDeviceConfig{}.WithDescriptor(hs::BuildSingleSensor(Shape())).WithFeature(1, FeatureBytes())),
          sensor(Registered<CustomSensor>(0))
    {
        if (sensor == nullptr || hid->Caps().FeatureReportByteLength != FeatureBytes().size()) {
            sensor = nullptr;
            return;
        }
        for (int k = 1; k <= kCustomValues; ++k) {
            sensor->PropertyCache()->dataFieldSeen[k].store(1);
            sensor->Record()->DataThresholds[k + 2].store(0.25f * static_cast<float>(k));
        }
        RequestReporting(*sensor->Record(), true);
    }
};

void ReadFeatureReport(benchmark::State& state)
{
    const auto writeSettings = static_cast<ULONG>(state.range(0));
    Fixture fixture;
    if (fixture.sensor == nullptr) {
        state.SkipWithError("the device did not load as expected");
        return;
    }
    fixture.sim->ClearTraffic();
    fixture.sensor->ReadFeatureReport(writeSettings);
    std::size_t gets = 0;
    std::size_t sets = 0;
    for (const auto& event : fixture.sim->Traffic()) {
        gets += event.kind == host::hidsim::TrafficKind::GetFeature ? 1 : 0;
        sets += event.kind == host::hidsim::TrafficKind::SetFeature ? 1 : 0;
    }

    for (auto _ : state) {
        NTSTATUS status = fixture.sensor->ReadFeatureReport(writeSettings);
        benchmark::DoNotOptimize(status);
    }

    // The host's share: the same requests, sent without the driver's work.
    const ULONG length = fixture.hid->Caps().FeatureReportByteLength;
    std::vector<BYTE> report(length, 0);
    std::vector<BYTE> output(length, 0);
    constexpr int kCalibrationCalls = 200;
    const auto start = std::chrono::steady_clock::now();
    for (int call = 0; call < kCalibrationCalls; ++call) {
        for (std::size_t i = 0; i < gets; ++i) {
            report[0] = 1;
            fixture.hid->IoctlTarget()->SendIoctlSynchronously(report.data(), length, IOCTL_HID_GET_FEATURE, nullptr);
        }
        for (std::size_t i = 0; i < sets; ++i)
            fixture.hid->IoctlTarget()->SendIoctlSynchronously(output.data(), length, IOCTL_HID_SET_FEATURE,
                                                               report.data());
    }
    const double hostNs =
        std::chrono::duration<double, std::nano>(std::chrono::steady_clock::now() - start).count() / kCalibrationCalls;

    state.counters["get_features"] = static_cast<double>(gets);
    state.counters["set_features"] = static_cast<double>(sets);
    state.counters["host_ns"] = hostNs;
    state.counters["call_ns"] = benchmark::Counter(static_cast<double>(state.iterations()),
                                                   benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
    state.SetItemsProcessed(static_cast<std::int64_t>(state.iterations()));
}
BENCHMARK(ReadFeatureReport)->Arg(0)->Arg(1)->Unit(benchmark::kMicrosecond);

// Inputs vary from call to call so that nothing folds away.
constexpr std::size_t kInputs = 256;

std::array<ULONG, kInputs> RawValues()
{
    std::array<ULONG, kInputs> values{};
    for (std::size_t i = 0; i < kInputs; ++i)
        values[i] = static_cast<ULONG>(i * 2654435761u);
    return values;
}

void DecodeUnitExponentCost(benchmark::State& state)
{
    std::size_t i = 0;
    for (auto _ : state) {
        auto exponent = static_cast<LONG>(i++ & 0x1F);
        DecodeUnitExponent(exponent);
        benchmark::DoNotOptimize(exponent);
    }
}
BENCHMARK(DecodeUnitExponentCost);

void SignExtendLogicalCost(benchmark::State& state)
{
    const auto raw = RawValues();
    std::size_t i = 0;
    for (auto _ : state) {
        const ULONG bits = (i & 1) != 0 ? 16 : 8;
        benchmark::DoNotOptimize(SignExtendLogical(-1, bits, raw[i++ % kInputs]));
    }
}
BENCHMARK(SignExtendLogicalCost);

void ScaleToFloatCost(benchmark::State& state)
{
    const auto raw = RawValues();
    std::size_t i = 0;
    for (auto _ : state) {
        const ULONG value = raw[i % kInputs] & 0xFFFF;
        benchmark::DoNotOptimize(ScaleToFloat(-1, value, static_cast<LONG>(value), -static_cast<LONG>(i++ & 7)));
    }
}
BENCHMARK(ScaleToFloatCost);

void ScaleToIntegerCost(benchmark::State& state)
{
    const auto raw = RawValues();
    std::size_t i = 0;
    for (auto _ : state) {
        const ULONG value = raw[i % kInputs] & 0xFFFF;
        benchmark::DoNotOptimize(ScaleToInteger(0, value, static_cast<LONG>(value), static_cast<LONG>(i++ & 3)));
    }
}
BENCHMARK(ScaleToIntegerCost);

void ToLogicalValueCost(benchmark::State& state)
{
    const auto raw = RawValues();
    std::size_t i = 0;
    for (auto _ : state) {
        const double value = static_cast<double>(static_cast<std::int16_t>(raw[i % kInputs])) * 0.01;
        benchmark::DoNotOptimize(ToLogicalValue(value, -2, (i++ & 1) != 0 ? 16 : 8));
    }
}
BENCHMARK(ToLogicalValueCost);

void ResolveFieldBoundCost(benchmark::State& state)
{
    std::size_t i = 0;
    for (auto _ : state) {
        const auto flags = static_cast<ULONG>(i++);
        benchmark::DoNotOptimize(
            ResolveFieldBound(3.0e38f, flags & 1, 1.0f, (flags >> 1) & 1, 2.0f, (flags >> 2) & 1, 3.0f));
    }
}
BENCHMARK(ResolveFieldBoundCost);

}  // namespace

BENCHMARK_MAIN();
