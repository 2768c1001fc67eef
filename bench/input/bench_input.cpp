// The input-report path of a custom sensor, per report: DispatchInputReports
// -> ProcessInputReport -> UpdateDataField -> SensorsCxSensorDataReady, on a
// sensor with N custom values of 16 bits (exponent -2, so every value is
// scaled), and a hand-written decoder of the same 28-value report as the floor.
//
// Counters:
//   allocs_per_report    HeapAlloc, CoTaskMemAlloc and WdfMemoryCreate calls of
//                        the timed loop per report: what the driver asks of
//                        the platform. Must be 0; a non-zero count fails the run.
//   host_new_per_report  global operator new calls per report: the class
//                        extension's own copy of each delivered sample.
//   host_dataready_ns    SensorsCxSensorDataReady alone on the same list, timed
//                        apart (CPU time): the host's share of each report.
//   driver_ns            CPU time per report minus host_dataready_ns: the
//                        driver's share, to hold against BM_HandDecoder.
#include <benchmark/benchmark.h>

#include <cmath>
#include <cstring>
#include <ctime>
#include <vector>

#include "bench/driver/allocation_counter.h"
#include "bench/driver/bench_support.h"
#include "hid/hid_device.h"
#include "host/hidparser/sensor_descriptor.h"
#include "platform/sensorsutils.h"
#include "platform/system.h"
#include "sensors/custom_sensor.h"
#include "sensors/sensor_keys.h"

namespace {

namespace hs = host::hid::sensor;

constexpr int kExponent = -2;
constexpr std::size_t kValueOffset = 3;  // after the report ID and the two selectors

std::vector<std::uint8_t> Descriptor(int values)
{
    std::vector<hs::ValueField> fields;
    for (int k = 1; k <= values; ++k)
        fields.push_back(hs::CustomValue(k, 16, -32767, 32767, kExponent));
    return hs::BuildSensorContainer({hs::CustomSensor(16, fields)});
}

// One report: ID 1, sensor state ready, event data updated, value k = 37 k - 500.
std::vector<BYTE> Report(ULONG length, int values)
{
    std::vector<BYTE> report(length, 0);
    report[0] = 1;
    report[1] = 1;
    report[2] = 3;
    for (int k = 1; k <= values; ++k) {
        const auto value = static_cast<std::uint16_t>(37 * k - 500);
        report[kValueOffset + 2 * (k - 1)] = static_cast<BYTE>(value & 0xFF);
        report[kValueOffset + 2 * (k - 1) + 1] = static_cast<BYTE>(value >> 8);
    }
    return report;
}

// A loaded device with one custom sensor of `values` custom values.
struct LoadedDevice : LoadedDriver {
    CustomSensor* sensor = nullptr;

    explicit LoadedDevice(int values)
        : LoadedDriver(host::hidsim::HidDeviceConfig{}
                           .WithDescriptor(Descriptor(values))
                           .WithFeature(1, DescriptionFeatureReport(1, u"0x210"))),
          sensor(Registered<CustomSensor>(0))
    {
    }
};

// CPU time of this thread in nanoseconds: the machine is shared, so wall time
// would charge other processes to whichever loop ran beside them.
double ThreadCpuNs()
{
    timespec now = {};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e9 + static_cast<double>(now.tv_nsec);
}

// CPU nanoseconds of one SensorsCxSensorDataReady of `list`.
double HostDataReadyNs(SENSOROBJECT sensor, PSENSOR_COLLECTION_LIST list)
{
    constexpr int kCalls = 20000;
    const double start = ThreadCpuNs();
    for (int i = 0; i < kCalls; ++i)
        benchmark::DoNotOptimize(SensorsCxSensorDataReady(sensor, list));
    return (ThreadCpuNs() - start) / kCalls;
}

void BM_InputPath(benchmark::State& state)
{
    const int values = static_cast<int>(state.range(0));
    LoadedDevice device(values);
    if (device.sensor == nullptr) {
        state.SkipWithError("the device did not load");
        return;
    }
    HidCollectionRecord& record = *device.sensor->Record();
    std::vector<BYTE> report = Report(device.hid->Caps().InputReportByteLength, values);
    // Every report completes one sample: check it once before timing.
    const ULONG pendingBefore = device.sensor->PropertyCache()->PendingFieldCount;
    if (!NT_SUCCESS(HidDevice::DispatchInputReports(report.data(), static_cast<ULONG>(report.size()), device.hid)) ||
        pendingBefore != 0 || device.sensor->PropertyCache()->PendingFieldCount != 0 ||
        record.Data->List[1].Value.vt != VT_R4) {
        state.SkipWithError("a report did not give one complete sample");
        return;
    }

    StartCountingDriverAllocations();
    StartCountingNew();
    const double start = ThreadCpuNs();
    for (auto _ : state) {
        NTSTATUS status = HidDevice::DispatchInputReports(report.data(), static_cast<ULONG>(report.size()), device.hid);
        benchmark::DoNotOptimize(status);
    }
    const double elapsedNs = ThreadCpuNs() - start;
    const auto hostNew = static_cast<double>(StopCountingNew());
    const auto driverAllocs = static_cast<double>(DriverAllocations());
    const double hostNs = HostDataReadyNs(record.SensorObject, record.Data);

    const auto reports = static_cast<double>(state.iterations());
    state.SetItemsProcessed(state.iterations());
    state.counters["allocs_per_report"] = driverAllocs / reports;
    state.counters["host_new_per_report"] = hostNew / reports;
    state.counters["host_dataready_ns"] = hostNs;
    state.counters["driver_ns"] = elapsedNs / reports - hostNs;
    if (driverAllocs != 0)
        state.SkipWithError("the input path allocated");
}

// What the path owes the parser alone: the HidP_GetUsages call per child
// collection and the HidP_GetUsageValue call per value capability that one
// report costs ProcessInputReport, on the same preparsed data and report,
// nothing else. Shows how much of BM_InputPath no driver change can remove.
void BM_ParserCalls(benchmark::State& state)
{
    const int values = static_cast<int>(state.range(0));
    LoadedDevice device(values);
    if (device.sensor == nullptr) {
        state.SkipWithError("the device did not load");
        return;
    }
    const HidCollectionRecord& record = *device.sensor->Record();
    std::vector<BYTE> bytes = Report(device.hid->Caps().InputReportByteLength, values);
    auto* report = reinterpret_cast<CHAR*>(bytes.data());
    const auto length = static_cast<ULONG>(bytes.size());
    PHIDP_PREPARSED_DATA preparsed = device.hid->PreparsedData();
    const USHORT link = record.LinkCollection;
    const USHORT children = device.hid->LinkCollectionNodes()[link].NumberOfChildren;

    for (auto _ : state) {
        for (USHORT c = 1; c <= children; ++c) {
            USAGE usages[6];
            ULONG count = 6;
            benchmark::DoNotOptimize(HidP_GetUsages(HidP_Input, 0x20, static_cast<USHORT>(link + c), usages, &count,
                                                    preparsed, report, length));
        }
        for (std::size_t i = 0; i < record.InputValueCaps.Count(); ++i) {
            const HIDP_VALUE_CAPS& cap = record.InputValueCaps[i];
            ULONG raw = 0;
            benchmark::DoNotOptimize(HidP_GetUsageValue(HidP_Input, cap.UsagePage, link, cap.NotRange.Usage, &raw,
                                                        preparsed, report, length));
            benchmark::DoNotOptimize(raw);
        }
    }
    state.SetItemsProcessed(state.iterations());
}

// The floor: the same 28 fields at their fixed bit offsets, sign-extended,
// scaled by the single-precision power of ten and written into a list of the
// same layout, with the host time in entry 0.
void BM_HandDecoder(benchmark::State& state)
{
    const int values = static_cast<int>(state.range(0));
    const std::size_t bytes = SENSOR_COLLECTION_LIST_SIZE(static_cast<ULONG>(values + 1));
    std::vector<std::uint64_t> storage((bytes + 7) / 8, 0);
    auto* list = reinterpret_cast<PSENSOR_COLLECTION_LIST>(storage.data());
    list->AllocatedSizeInBytes = static_cast<ULONG>(bytes);
    list->Count = static_cast<ULONG>(values + 1);
    list->List[0].Key = kTimestampKey;
    for (int k = 1; k <= values; ++k)
        list->List[k].Key = kCustomValueKeys[k - 1];
    const std::vector<BYTE> report = Report(static_cast<ULONG>(kValueOffset + 2 * values), values);
    const double factor = static_cast<double>(static_cast<float>(std::pow(10.0, kExponent)));

    for (auto _ : state) {
        const BYTE* in = report.data();
        benchmark::DoNotOptimize(in);
        FILETIME now;
        GetSystemTimeAsFileTime(&now);
        list->List[0].Value.vt = VT_FILETIME;
        list->List[0].Value.filetime = now;
        for (int k = 0; k < values; ++k) {
            const std::size_t offset = kValueOffset + 2 * static_cast<std::size_t>(k);
            const auto raw = static_cast<std::int16_t>(in[offset] | (in[offset + 1] << 8));
            PROPVARIANT& value = list->List[k + 1].Value;
            value.vt = VT_R4;
            value.fltVal = static_cast<float>(raw * factor);
        }
        benchmark::ClobberMemory();
    }
    state.SetItemsProcessed(state.iterations());
}

BENCHMARK(BM_InputPath)->Arg(28)->Arg(4);
BENCHMARK(BM_ParserCalls)->Arg(28);
BENCHMARK(BM_HandDecoder)->Arg(28);

}  // namespace

BENCHMARK_MAIN();
