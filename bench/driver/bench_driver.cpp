// Routing of input reports: DispatchInputReports over one full 4096-byte read
// of 64-byte reports, to sensors whose ProcessInputReport does nothing. This is
// the routing share of the per-report cost; decoding is measured elsewhere.
//
// Counters heap_allocs and new_calls count HeapAlloc and operator new calls
// made during the timed loop. The dispatch path allocates nothing: a non-zero
// count fails the benchmark.
#include <benchmark/benchmark.h>

#include <memory>
#include <vector>

#include "bench/driver/allocation_counter.h"
#include "bench/driver/bench_support.h"
#include "host/common/fault_injection.h"
#include "host/hidparser/sensor_descriptor.h"

namespace {

namespace hs = host::hid::sensor;

constexpr std::size_t kReadBytes = 4096;
constexpr std::size_t kReportBytes = 64;

// `sensors` custom sensors in a container, each with 64-byte input reports.
std::vector<std::uint8_t> Descriptor(int sensors)
{
    hs::ValueField values = hs::CustomValue(1, 8, 0, 255);
    values.count = kReportBytes - 3;  // after the ID and the two selectors
    // Not custom sensors: discovery makes placeholders, whose ProcessInputReport does nothing.
    hs::SensorShape shape = hs::CustomSensor(8, {values});
    shape.usage = hs::kAccelerometer3D;
    std::vector<hs::SensorShape> children(static_cast<std::size_t>(sensors), shape);
    return hs::BuildSensorContainer(children);
}

void DispatchFullRead(benchmark::State& state)
{
    const int sensors = static_cast<int>(state.range(0));
    LoadedDriver driver(host::hidsim::HidDeviceConfig{}.WithDescriptor(Descriptor(sensors)));
    HidDevice* hid = driver.hid;
    if (hid == nullptr || hid->SensorCount() != static_cast<ULONG>(sensors) ||
        hid->Caps().InputReportByteLength != kReportBytes) {
        state.SkipWithError("unexpected collection");
        return;
    }

    // Report k goes to sensor k modulo the sensor count.
    std::vector<BYTE> read(kReadBytes, 0x5A);
    for (std::size_t k = 0; k < kReadBytes / kReportBytes; ++k)
        read[k * kReportBytes] = static_cast<BYTE>(k % static_cast<std::size_t>(sensors) + 1);

    host::FaultInjector::Instance().FailNth(host::FaultPoint::DriverHeap, 0, 0);  // restarts the call count
    StartCountingNew();
    for (auto _ : state) {
        NTSTATUS status = HidDevice::DispatchInputReports(read.data(), static_cast<ULONG>(read.size()), hid);
        benchmark::DoNotOptimize(status);
    }
    const auto newCalls = static_cast<double>(StopCountingNew());
    const auto heapAllocs = static_cast<double>(host::FaultInjector::Instance().Calls(host::FaultPoint::DriverHeap));

    const auto reports = static_cast<std::int64_t>(state.iterations()) * static_cast<std::int64_t>(kReadBytes / kReportBytes);
    state.SetItemsProcessed(reports);
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations()) * static_cast<std::int64_t>(kReadBytes));
    state.counters["heap_allocs"] = heapAllocs;
    state.counters["new_calls"] = newCalls;
    state.counters["ns_per_report"] = benchmark::Counter(static_cast<double>(reports),
                                                         benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
    if (heapAllocs != 0 || newCalls != 0)
        state.SkipWithError("the dispatch path allocated");
}

BENCHMARK(DispatchFullRead)->Arg(1)->Arg(4)->Unit(benchmark::kMicrosecond);

}  // namespace

BENCHMARK_MAIN();
