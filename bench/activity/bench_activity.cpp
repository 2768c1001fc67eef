// The activity sensor's recording path, per sample: an input report decoded
// into a sample that is filtered and captured for the history, then the
// history's tick that stores it in the ring (samples alternate, so every tick
// stores one and the ring wraps).
//
// Counters:
//   allocs_per_sample  HeapAlloc, CoTaskMemAlloc and WdfMemoryCreate calls of
//                      the driver in the timed loop, per sample. Must be 0; a
//                      non-zero count fails the run.
#include <benchmark/benchmark.h>

#include <vector>

#include "activity/activity_sensor.h"
#include "bench/driver/bench_support.h"
#include "hid/hid_device.h"
#include "host/hidparser/sensor_descriptor.h"

namespace {

namespace hs = host::hid::sensor;

constexpr ULONG kSampleIntervalMs = 1000;
constexpr ULONG kRingRecords = 1000;

// ID 1, state and event selectors, then two activities (code, confidence field) and five empty words.
std::vector<BYTE> Report(ULONG length, std::uint32_t code, std::uint32_t confidence)
{
    std::vector<BYTE> report(length, 0);
    report[0] = 1;
    report[1] = 1;
    report[2] = 3;
    const std::uint32_t words[2] = {(code << 4) | (confidence << 12), (5u << 4) | (200u << 12)};
    for (int w = 0; w < 2; ++w) {
        for (int b = 0; b < 4; ++b)
            report[3 + 4 * w + b] = static_cast<BYTE>(words[w] >> (8 * b));
    }
    return report;
}

hs::SensorShape ActivityShape()
{
    std::vector<hs::ValueField> values;
    for (int k = 1; k <= 7; ++k)
        values.push_back(hs::CustomValue(k, 32, 0, 0x7FFFFFFF, 0));
    return hs::CustomSensor(16, values);
}

// An activity sensor with a 1000-record history, started and recording.
struct LoadedActivity : LoadedDriver {
    ActivitySensor* sensor = nullptr;

    LoadedActivity()
        : LoadedDriver(host::hidsim::HidDeviceConfig{}
                           .WithDescriptor(hs::BuildSensorContainer({ActivityShape()}))
                           .WithFeature(1, DescriptionFeatureReport(1, u"0x232")),
                       [](host::framework::DriverHost& driverHost) {
                           driverHost.Registry().Preload("KPX_ActivitySensor", "HistorySampleReportInterval",
                                                         kSampleIntervalMs);
                           driverHost.Registry().Preload("KPX_ActivitySensor", "HistoryMaxEntries", kRingRecords);
                       }),
          sensor(Registered<ActivitySensor>(0))
    {
        if (sensor == nullptr)
            return;
        const SENSOROBJECT handle = sensor->Record()->SensorObject;
        if (!NT_SUCCESS(sensor->Start(handle)) || !NT_SUCCESS(sensor->StartHistory(handle)))
            sensor = nullptr;
    }
};

void BM_ActivityRecordingPath(benchmark::State& state)
{
    LoadedActivity device;
    if (device.sensor == nullptr) {
        state.SkipWithError("the activity device did not load");
        return;
    }
    const ULONG length = device.hid->Caps().InputReportByteLength;
    std::vector<BYTE> walking = Report(length, 1, 870);
    std::vector<BYTE> running = Report(length, 2, 640);
    const HidCollectionRecord& record = *device.sensor->Record();

    StartCountingDriverAllocations();
    std::uint64_t samples = 0;
    for (auto _ : state) {
        std::vector<BYTE>& report = (samples++ % 2 == 0) ? walking : running;
        benchmark::DoNotOptimize(HidDevice::DispatchInputReports(report.data(), length, device.hid));
        device.host->Advance(kSampleIntervalMs);  // one tick
    }
    const auto allocations = static_cast<double>(DriverAllocations());
    state.SetItemsProcessed(state.iterations());
    state.counters["allocs_per_sample"] = allocations / static_cast<double>(samples);
    state.counters["ring_records"] = static_cast<double>(record.historyCount);
    if (allocations != 0)
        state.SkipWithError("the recording path allocated");
    if (samples > 1 && record.historyCount == 0)
        state.SkipWithError("no record was stored");
}
BENCHMARK(BM_ActivityRecordingPath);

}  // namespace

BENCHMARK_MAIN();
