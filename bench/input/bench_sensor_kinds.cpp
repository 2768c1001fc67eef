// The input-report path of the pedometer and the orientation sensors, per
// report, on one device carrying all three: DispatchInputReports ->
// ProcessInputReport -> UpdateDataField -> the sensor's sample (for the
// pedometer also the history capture, under the history's sample lock) ->
// SensorsCxSensorDataReady. Every report completes and delivers one sample.
//
// Counters:
//   allocs_per_report    HeapAlloc, CoTaskMemAlloc and WdfMemoryCreate calls of
//                        the timed loop per report. Must be 0; a non-zero
//                        count fails the run.
//   host_new_per_report  global operator new calls per report: the class
//                        extension's own copy of each delivered sample.
#include <benchmark/benchmark.h>

#include <vector>

#include "bench/driver/allocation_counter.h"
#include "bench/driver/bench_support.h"
#include "hid/hid_device.h"
#include "host/hidparser/sensor_descriptor.h"
#include "sensors/custom_sensor.h"

namespace {

namespace hs = host::hid::sensor;

enum Kind : std::uint8_t { kPedometer = 1, kRelativeOrientation, kSimpleOrientation };

std::vector<hs::ValueField> Values(int count, std::uint8_t bits, std::int64_t min, std::int64_t max, int exponent)
{
    std::vector<hs::ValueField> values;
    for (int k = 1; k <= count; ++k)
        values.push_back(hs::CustomValue(k, bits, min, max, exponent));
    return values;
}

// A report of sensor `id`: state ready, event data updated, then `values`.
std::vector<BYTE> Report(ULONG length, std::uint8_t id, const std::vector<std::uint32_t>& values, int width)
{
    std::vector<BYTE> report = {id, 1, 3};
    for (std::uint32_t value : values)
        for (int b = 0; b < width; ++b)
            report.push_back(static_cast<BYTE>(value >> (8 * b)));
    report.resize(length, 0);
    return report;
}

struct LoadedDevice : LoadedDriver {
    LoadedDevice()
        : LoadedDriver(
              host::hidsim::HidDeviceConfig{}
                  .WithDescriptor(hs::BuildSensorContainer({hs::CustomSensor(16, Values(5, 32, 0, 0x7FFFFFFF, 0)),
                                                            hs::CustomSensor(16, Values(4, 16, -1000, 1000, -3)),
                                                            hs::CustomSensor(16, Values(1, 32, 0, 5, 0))}))
                  .WithFeature(kPedometer, DescriptionFeatureReport(kPedometer, u"0x230"))
                  .WithFeature(kRelativeOrientation, DescriptionFeatureReport(kRelativeOrientation, u"0x200"))
                  .WithFeature(kSimpleOrientation, DescriptionFeatureReport(kSimpleOrientation, u"0x205")))
    {
    }
    CustomSensor* Sensor(Kind kind) const { return Registered<CustomSensor>(kind - 1u); }
};

void BM_KindInputPath(benchmark::State& state)
{
    const auto kind = static_cast<Kind>(state.range(0));
    LoadedDevice device;
    CustomSensor* sensor = device.Sensor(kind);
    if (sensor == nullptr) {
        state.SkipWithError("the device did not load");
        return;
    }
    const ULONG length = device.hid->Caps().InputReportByteLength;
    std::vector<BYTE> report;
    switch (kind) {
    case kPedometer: {
        // Every sample delivered: the step threshold 0.
        SENSOR_VALUE_PAIR pair = {};
        pair.Key = {{0xC458F8A7, 0x4AE8, 0x4777, {0x96, 0x07, 0x2E, 0x9B, 0xDD, 0x65, 0x11, 0x0A}}, 141};
        pair.Value.vt = VT_UI4;
        std::vector<std::uint64_t> storage((SENSOR_COLLECTION_LIST_SIZE(1) + 7) / 8, 0);
        auto* list = reinterpret_cast<PSENSOR_COLLECTION_LIST>(storage.data());
        list->AllocatedSizeInBytes = SENSOR_COLLECTION_LIST_SIZE(1);
        list->Count = 1;
        list->List[0] = pair;
        sensor->SetDataThresholds(sensor->Record()->SensorObject, list);
        report = Report(length, kPedometer, {0, 1200, 600000, 300, 120000}, 4);
        break;
    }
    case kRelativeOrientation:
        report = Report(length, kRelativeOrientation, {250, 500, 750, 1000}, 2);
        break;
    case kSimpleOrientation:
        report = Report(length, kSimpleOrientation, {3}, 4);
        break;
    }
    if (!NT_SUCCESS(HidDevice::DispatchInputReports(report.data(), static_cast<ULONG>(report.size()), device.hid)) ||
        sensor->PropertyCache()->PendingFieldCount != 0) {
        state.SkipWithError("a report did not give one complete sample");
        return;
    }

    StartCountingDriverAllocations();
    StartCountingNew();
    for (auto _ : state) {
        NTSTATUS status = HidDevice::DispatchInputReports(report.data(), static_cast<ULONG>(report.size()), device.hid);
        benchmark::DoNotOptimize(status);
    }
    const auto hostNew = static_cast<double>(StopCountingNew());
    const auto driverAllocs = static_cast<double>(DriverAllocations());
    const auto reports = static_cast<double>(state.iterations());
    state.SetItemsProcessed(state.iterations());
    state.counters["allocs_per_report"] = driverAllocs / reports;
    state.counters["host_new_per_report"] = hostNew / reports;
    if (driverAllocs != 0)
        state.SkipWithError("the input path allocated");
}

BENCHMARK(BM_KindInputPath)->ArgName("kind")->Arg(kPedometer)->Arg(kRelativeOrientation)->Arg(kSimpleOrientation);

}  // namespace

BENCHMARK_MAIN();
