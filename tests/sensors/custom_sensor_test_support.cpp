#include "tests/sensors/custom_sensor_test_support.h"

#include <gtest/gtest.h>

namespace testdriver {
namespace {

std::string Line(const char* fmtid, int pid, const std::string& vtAndValue)
{
    return std::string(fmtid) + " " + std::to_string(pid) + (vtAndValue.empty() ? "" : " " + vtAndValue);
}

void PutLittleEndian(Bytes& bytes, std::uint32_t value, int width)
{
    for (int i = 0; i < width; ++i)
        bytes.push_back(static_cast<std::uint8_t>(value >> (8 * i)));
}

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

Bytes FeatureReport(std::uint8_t reportId, std::uint32_t intervalMs, const std::vector<std::u16string>& strings,
                    std::uint16_t chars, std::uint8_t reportingSelector, std::uint8_t powerSelector)
{
    Bytes report = {reportId, reportingSelector, powerSelector};
    PutLittleEndian(report, intervalMs, 4);
    for (std::u16string text : strings) {
        text.resize(chars, u'\0');
        for (char16_t c : text)
            PutLittleEndian(report, c, 2);
    }
    return report;
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

ClientBed::ClientBed(const HidDeviceConfig& config) : bed(config, &SensorFactory::Default())
{
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

}  // namespace testdriver
