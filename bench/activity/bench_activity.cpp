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

#include <memory>
#include <vector>

#include "activity/activity_sensor.h"
#include "hid/hid_device.h"
#include "host/common/fault_injection.h"
#include "host/framework/driver_host.h"
#include "host/hidparser/sensor_descriptor.h"
#include "host/hidsim/simulated_hid_device.h"
#include "tests/driver/test_driver_module.h"

namespace {

namespace hs = host::hid::sensor;
using host::FaultInjector;
using host::FaultPoint;

constexpr ULONG kSampleIntervalMs = 1000;
constexpr ULONG kRingRecords = 1000;

std::vector<std::uint8_t> FeatureReport()
{
    std::vector<std::uint8_t> report = {1, 1, 1, 100, 0, 0, 0};
    const char16_t description[] = u"0x232";
    for (int i = 0; i < 16; ++i) {
        const char16_t c = i < 5 ? description[i] : u'\0';
        report.push_back(static_cast<std::uint8_t>(c & 0xFF));
        report.push_back(static_cast<std::uint8_t>(c >> 8));
    }
    return report;
}

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

struct LoadedActivity {
    std::unique_ptr<host::hidsim::SimulatedHidDevice> sim;
    std::unique_ptr<host::framework::DriverHost> host;
    HidDevice* hid = nullptr;
    ActivitySensor* sensor = nullptr;

    LoadedActivity()
    {
        std::vector<hs::ValueField> values;
        for (int k = 1; k <= 7; ++k)
            values.push_back(hs::CustomValue(k, 32, 0, 0x7FFFFFFF, 0));
        host::hidsim::DeviceError error;
        sim = host::hidsim::SimulatedHidDevice::Create(
            host::hidsim::HidDeviceConfig{}
                .WithDescriptor(hs::BuildSensorContainer({hs::CustomSensor(16, values)}))
                .WithFeature(1, FeatureReport()),
            error);
        if (sim == nullptr)
            return;
        host = std::make_unique<host::framework::DriverHost>(host::framework::ClockMode::Deterministic,
                                                             FILETIME{0, 0x01DA0000});
        host->Registry().Preload("KPX_ActivitySensor", "HistorySampleReportInterval", kSampleIntervalMs);
        host->Registry().Preload("KPX_ActivitySensor", "HistoryMaxEntries", kRingRecords);
        if (!NT_SUCCESS(host->LoadDriver(FxDriverEntryUm)) || !NT_SUCCESS(host->AddDevice(sim->DriverEndpoint())) ||
            !NT_SUCCESS(host->PrepareHardware()))
            return;
        hid = testdriver::HidDeviceOf(host->Device());
        sensor = hid != nullptr ? dynamic_cast<ActivitySensor*>(hid->Sensor(0)) : nullptr;
        if (sensor == nullptr || sensor->Record()->IsRegistered.load() == 0) {
            sensor = nullptr;
            return;
        }
        const SENSOROBJECT handle = sensor->Record()->SensorObject;
        if (!NT_SUCCESS(sensor->Start(handle)) || !NT_SUCCESS(sensor->StartHistory(handle)))
            sensor = nullptr;
    }
    ~LoadedActivity()
    {
        if (host != nullptr)
            host->Unload();
    }
};

std::uint64_t DriverAllocations()
{
    std::uint64_t calls = 0;
    for (FaultPoint point : {FaultPoint::DriverHeap, FaultPoint::CoTaskMem, FaultPoint::FrameworkMemory})
        calls += FaultInjector::Instance().Calls(point);
    return calls;
}

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

    for (FaultPoint point : {FaultPoint::DriverHeap, FaultPoint::CoTaskMem, FaultPoint::FrameworkMemory})
        FaultInjector::Instance().FailNth(point, 0, 0);  // restarts the call count
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
