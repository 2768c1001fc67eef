// Parse cost per descriptor byte (every descriptor in tests/data, and
// synthetic 16/32/64 KiB descriptors to show it stays linear), and the cost of
// the per-report HidP_* calls the driver makes on sensor reports.
// Targets: parsing <= 10 ns per descriptor byte; HidP_GetUsageValue < 15 ns.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "host/hidparser/descriptor_builder.h"
#include "host/hidparser/descriptor_text.h"
#include "host/hidparser/report_bits.h"
#include "host/hidparser/report_descriptor_parser.h"
#include "host/hidparser/sensor_descriptor.h"
#include "platform/hidpi.h"

namespace {

using namespace host::hid;

std::vector<std::uint8_t> LoadDescriptor(const std::filesystem::path& path)
{
    std::ifstream file(path);
    std::stringstream text;
    text << file.rdbuf();
    std::vector<std::uint8_t> bytes;
    std::string error;
    if (!ParseHexDescriptor(text.str(), bytes, error)) bytes.clear();
    return bytes;
}

void ReportPerByte(benchmark::State& state, std::size_t bytes)
{
    state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * bytes));
    // Seconds per (iteration x 1e-9 x bytes) = nanoseconds per descriptor byte.
    state.counters["ns_per_byte"] = benchmark::Counter(
        static_cast<double>(bytes) * 1e-9, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

void Parse(benchmark::State& state, const std::vector<std::uint8_t>& descriptor)
{
    std::vector<PreparsedBlob> blobs;
    ParseError error;
    for (auto _ : state) {
        const bool ok = ParseReportDescriptor(descriptor, blobs, error);
        benchmark::DoNotOptimize(ok);
        benchmark::DoNotOptimize(blobs.data());
    }
    if (!ParseReportDescriptor(descriptor, blobs, error)) state.SkipWithError(FormatParseError(error).c_str());
    ReportPerByte(state, descriptor.size());
}

// Value fields across report IDs, like a large vendor device.
std::vector<std::uint8_t> Synthetic(std::size_t bytes)
{
    DescriptorBuilder b;
    b.UsagePage(0x20).Usage(0xE1).Collection(CollectionType::Application);
    b.LogicalMinimum(-32767).LogicalMaximum(32767).ReportSize(16).ReportCount(1).ReportId(1);
    std::uint32_t id = 1;
    std::size_t inReport = 0;
    while (b.Bytes().size() + 8 < bytes) {
        if (++inReport == 2000) {
            b.ReportId(++id);
            inReport = 0;
        }
        b.Usage(static_cast<std::uint16_t>(0x400 + inReport % 0x160)).UnitExponent(-2).Input(main_item::kDataVarAbs);
    }
    b.EndCollection();
    return b.Build();
}

void BM_ParseSynthetic(benchmark::State& state)
{
    Parse(state, Synthetic(static_cast<std::size_t>(state.range(0)) * 1024));
}
BENCHMARK(BM_ParseSynthetic)->Arg(16)->Arg(32)->Arg(64)->Unit(benchmark::kMicrosecond);

// A sensor container with as many custom sensors as fit in the size (at most
// 252: one report ID each), as a large real device would state them.
std::vector<std::uint8_t> SensorContainer(std::size_t bytes)
{
    std::vector<sensor::ValueField> values;
    for (int k = 1; k <= 8; ++k) values.push_back(sensor::CustomValue(k, 16, -32767, 32767, -2));
    const sensor::SensorShape sensorShape = sensor::CustomSensor(32, values);
    const std::size_t perSensor = sensor::BuildSensorContainer({sensorShape, sensorShape}).size() -
                                  sensor::BuildSensorContainer({sensorShape}).size();
    const std::size_t count = std::min<std::size_t>(bytes / perSensor, 252);
    return sensor::BuildSensorContainer(std::vector<sensor::SensorShape>(count, sensorShape));
}

void BM_ParseSensorContainer(benchmark::State& state)
{
    Parse(state, SensorContainer(static_cast<std::size_t>(state.range(0)) * 1024));
}
BENCHMARK(BM_ParseSensorContainer)->Arg(16)->Arg(32)->Arg(64)->Unit(benchmark::kMicrosecond);

// Two custom sensors in a container: the driver reads sensor 2's values with
// its link collection and report ID 2.
struct SensorFixture {
    PreparsedBlob blob;
    std::vector<CHAR> input;
    std::vector<CHAR> feature;
    USHORT link = 0;

    SensorFixture()
    {
        std::vector<sensor::ValueField> values;
        for (int k = 1; k <= 8; ++k) values.push_back(sensor::CustomValue(k, 16, -32767, 32767, -2));
        const sensor::SensorShape sensorShape = sensor::CustomSensor(32, values);
        std::vector<PreparsedBlob> blobs;
        ParseError error;
        ParseReportDescriptor(sensor::BuildSensorContainer({sensorShape, sensorShape}), blobs, error);
        blob = blobs.at(0);
        HIDP_CAPS caps{};
        HidP_GetCaps(Preparsed(), &caps);
        input.assign(caps.InputReportByteLength, 0x11);
        input[0] = 2;
        feature.assign(caps.FeatureReportByteLength, 0x22);
        feature[0] = 2;
        link = 6;  // the second sensor's node
    }
    PHIDP_PREPARSED_DATA Preparsed() { return reinterpret_cast<PHIDP_PREPARSED_DATA>(blob.data()); }
};

SensorFixture& Sensor()
{
    static SensorFixture fixture;
    return fixture;
}

void BM_GetUsageValue(benchmark::State& state)
{
    SensorFixture& s = Sensor();
    const auto length = static_cast<ULONG>(s.input.size());
    USAGE usage = sensor::CustomValueUsage(1);
    for (auto _ : state) {
        ULONG value = 0;
        const NTSTATUS status =
            HidP_GetUsageValue(HidP_Input, 0x20, s.link, usage, &value, s.Preparsed(), s.input.data(), length);
        benchmark::DoNotOptimize(status);
        benchmark::DoNotOptimize(value);
        usage = static_cast<USAGE>(usage == sensor::CustomValueUsage(8) ? sensor::CustomValueUsage(1) : usage + 1);
    }
    if (ULONG v = 0; HidP_GetUsageValue(HidP_Input, 0x20, s.link, usage, &v, s.Preparsed(), s.input.data(), length) !=
                     HIDP_STATUS_SUCCESS)
        state.SkipWithError("lookup failed");
}
BENCHMARK(BM_GetUsageValue);

// Calibration: the bit extraction alone, without validation or lookup.
void BM_ExtractBitsOnly(benchmark::State& state)
{
    SensorFixture& s = Sensor();
    const auto* report = reinterpret_cast<const std::uint8_t*>(s.input.data());
    std::uint32_t offset = 24;
    for (auto _ : state) {
        benchmark::DoNotOptimize(ExtractBits(report, s.input.size(), offset, 16));
        offset = offset == 24 + 7 * 16 ? 24 : offset + 16;
    }
}
BENCHMARK(BM_ExtractBitsOnly);

void BM_GetUsageValueAnyLinkCollection(benchmark::State& state)
{
    SensorFixture& s = Sensor();
    const auto length = static_cast<ULONG>(s.input.size());
    for (auto _ : state) {
        ULONG value = 0;
        const NTSTATUS status = HidP_GetUsageValue(HidP_Input, 0x20, 0, sensor::CustomValueUsage(4), &value,
                                                   s.Preparsed(), s.input.data(), length);
        benchmark::DoNotOptimize(status);
        benchmark::DoNotOptimize(value);
    }
}
BENCHMARK(BM_GetUsageValueAnyLinkCollection);

void BM_SetUsageValue(benchmark::State& state)
{
    SensorFixture& s = Sensor();
    const auto length = static_cast<ULONG>(s.feature.size());
    ULONG value = 0;
    for (auto _ : state) {
        const NTSTATUS status = HidP_SetUsageValue(HidP_Feature, 0x20, s.link, sensor::kReportInterval, ++value,
                                                   s.Preparsed(), s.feature.data(), length);
        benchmark::DoNotOptimize(status);
    }
    benchmark::ClobberMemory();
}
BENCHMARK(BM_SetUsageValue);

void BM_GetUsageValueArray(benchmark::State& state)
{
    SensorFixture& s = Sensor();
    const auto length = static_cast<ULONG>(s.feature.size());
    char description[128];
    for (auto _ : state) {
        const NTSTATUS status = HidP_GetUsageValueArray(HidP_Feature, 0x20, s.link, sensor::kDescription, description,
                                                        sizeof description, s.Preparsed(), s.feature.data(), length);
        benchmark::DoNotOptimize(status);
        benchmark::DoNotOptimize(description);
    }
}
BENCHMARK(BM_GetUsageValueArray);

void BM_GetUsagesSelector(benchmark::State& state)
{
    SensorFixture& s = Sensor();
    const auto length = static_cast<ULONG>(s.input.size());
    for (auto _ : state) {
        USAGE usages[6];
        ULONG count = 6;
        const NTSTATUS status = HidP_GetUsages(HidP_Input, 0x20, static_cast<USHORT>(s.link + 3), usages, &count,
                                               s.Preparsed(), s.input.data(), length);
        benchmark::DoNotOptimize(status);
        benchmark::DoNotOptimize(usages);
    }
}
BENCHMARK(BM_GetUsagesSelector);

void BM_GetValueCaps(benchmark::State& state)
{
    SensorFixture& s = Sensor();
    std::vector<HIDP_VALUE_CAPS> caps(64);
    for (auto _ : state) {
        USHORT length = 64;
        const NTSTATUS status = HidP_GetValueCaps(HidP_Input, caps.data(), &length, s.Preparsed());
        benchmark::DoNotOptimize(status);
        benchmark::DoNotOptimize(caps.data());
    }
}
BENCHMARK(BM_GetValueCaps);

}  // namespace

int main(int argc, char** argv)
{
    std::vector<std::filesystem::path> files;
    for (const auto& entry : std::filesystem::directory_iterator(HIDPARSER_TEST_DATA_DIR))
        if (entry.path().extension() == ".hex") files.push_back(entry.path());
    std::sort(files.begin(), files.end());
    for (const auto& path : files) {
        benchmark::RegisterBenchmark(
            ("BM_Parse/" + path.stem().string()).c_str(),
            [descriptor = LoadDescriptor(path)](benchmark::State& state) { Parse(state, descriptor); });
    }
    benchmark::Initialize(&argc, argv);
    if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
