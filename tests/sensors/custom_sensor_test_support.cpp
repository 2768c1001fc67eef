#include "tests/sensors/custom_sensor_test_support.h"

#include <gtest/gtest.h>

namespace testdriver {
namespace {

std::string Line(const char* fmtid, int pid, const std::string& vtAndValue)
{
    return std::string(fmtid) + " " + std::to_string(pid) + (vtAndValue.empty() ? "" : " " + vtAndValue);
}

constexpr GUID kDataFmtid = {0xC458F8A7, 0x4AE8, 0x4777, {0x96, 0x07, 0x2E, 0x9B, 0xDD, 0x65, 0x11, 0x0A}};
constexpr GUID kCustomFmtid = {0xB14C764F, 0x07CF, 0x41E8, {0x9D, 0x82, 0xEB, 0xE3, 0xD0, 0x77, 0x6A, 0x6F}};

}  // namespace


std::vector<std::string> Lines(const cx::CollectionListCopy& list)
{
    std::vector<std::string> lines;
    for (const SENSOR_VALUE_PAIR& entry : list)
        lines.push_back(cx::EntryText(entry.Key, entry.Value));
    return lines;
}

std::vector<std::string> Lines(const SENSOR_COLLECTION_LIST& list)
{
    std::vector<std::string> lines;
    for (ULONG i = 0; i < list.Count; ++i)
        lines.push_back(cx::EntryText(list.List[i].Key, list.List[i].Value));
    return lines;
}

std::vector<std::string> KeyLines(const std::vector<PROPERTYKEY>& keys)
{
    std::vector<std::string> lines;
    for (const PROPERTYKEY& key : keys)
        lines.push_back(cx::FormatPropertyKey(key));
    return lines;
}

std::string Custom(int pid, const std::string& v) { return Line("{B14C764F-07CF-41E8-9D82-EBE3D0776A6F}", pid, v); }
std::string Data(int pid, const std::string& v) { return Line("{C458F8A7-4AE8-4777-9607-2E9BDD65110A}", pid, v); }
std::string Prop(int pid, const std::string& v) { return Line("{D4247382-969D-4F24-BB14-FB9671870BBF}", pid, v); }
std::string Dev(int pid, const std::string& v) { return Line("{7F8383EC-D3EC-495C-A8CF-B8BBE85C2920}", pid, v); }
std::string TimestampLine(ULONGLONG ticks) { return Data(2, "FILETIME " + std::to_string(ticks)); }
std::string Clsid(const std::string& guid) { return "CLSID \"" + guid + "\""; }
std::string Str(const std::string& text) { return "LPWSTR \"" + text + "\""; }

PROPERTYKEY DataKey(DWORD pid) { return {kDataFmtid, pid}; }
PROPERTYKEY CustomKey(DWORD pid) { return {kCustomFmtid, pid}; }

PROPVARIANT UInt(ULONG value)
{
    PROPVARIANT v{};
    v.vt = VT_UI4;
    v.ulVal = value;
    return v;
}

PROPVARIANT Float(float value)
{
    PROPVARIANT v{};
    v.vt = VT_R4;
    v.fltVal = value;
    return v;
}

cx::CollectionListCopy ValueList(std::initializer_list<std::pair<PROPERTYKEY, PROPVARIANT>> entries)
{
    std::vector<SENSOR_VALUE_PAIR> pairs;
    for (const auto& [key, value] : entries)
        pairs.push_back({key, value});
    return cx::CollectionListCopy::FromEntries(pairs.data(), static_cast<ULONG>(pairs.size()));
}

Bytes InputReport(HidDevice& device, std::uint8_t reportId, const std::vector<std::uint32_t>& fields,
                  const std::vector<int>& widths, std::uint8_t stateSelector, std::uint8_t eventSelector)
{
    Bytes report = {reportId, stateSelector, eventSelector};
    for (std::size_t i = 0; i < fields.size(); ++i)
        PutLittleEndian(report, fields[i], widths[i]);
    const std::size_t length = device.Caps().InputReportByteLength;
    EXPECT_LE(report.size(), length);
    report.resize(length, 0);
    return report;
}

hs::SensorShape CustomWithStrings(std::vector<hs::ValueField> values, bool withName)
{
    hs::SensorShape sensor = hs::CustomSensor(16, std::move(values));
    if (withName)
        sensor.features.push_back(hs::StringProperty(hs::kFriendlyName, 16));
    return sensor;
}

ClientBed::ClientBed(const HidDeviceConfig& config, host::framework::ClockMode mode,
                     const std::function<void(DriverTestBed&)>& beforePrepare)
    : bed(config, &SensorFactory::Default(), mode)
{
    if (beforePrepare)
        beforePrepare(bed);
    EXPECT_EQ(bed.Prepare(), STATUS_SUCCESS);
    EXPECT_EQ(bed.Start(), STATUS_SUCCESS);
    client = std::make_unique<cx::Client>(bed.Host().Device());
    samples = std::make_unique<cx::SampleQueue>(*client);
}

std::vector<cx::Sample> ClientBed::Feed(const Bytes& read)
{
    bed.Feed(read);
    return samples->Drain();
}

void ExpectStatuses(ClientBed& t, const std::vector<ExpectedCall>& calls)
{
    const std::size_t before = t.bed.Traffic().size();
    for (const ExpectedCall& c : calls) {
        SCOPED_TRACE(c.what);
        const cx::CallResult result = c.call();
        EXPECT_EQ(result.status, c.status);
        if (result.size.has_value() && !NT_SUCCESS(result.status)) {
            EXPECT_EQ(*result.size, 0u);
        }
    }
    EXPECT_EQ(t.bed.Traffic().size(), before);
}

ReportStream::ReportStream(DriverTestBed& bed, std::function<Bytes(std::uint32_t)> read)
    : thread_([this, &bed, read = std::move(read)] {
          for (std::uint32_t i = 0; feeding_.load(); ++i) {
              bed.Sim().FeedInput(read(i));
              fed_.fetch_add(1);
              std::this_thread::yield();
          }
      })
{
    while (fed_.load() == 0)
        std::this_thread::yield();
}

void ReportStream::Stop()
{
    feeding_ = false;
    if (thread_.joinable())
        thread_.join();
}

}  // namespace testdriver
