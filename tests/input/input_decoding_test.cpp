// Input reports of real descriptor bytes through the reader, the decoder and
// the custom sensor's sample assembly, as the class extension's client sees
// the samples.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "host/common/fault_injection.h"
#include "platform/hidpi.h"
#include "sensors/sensor_keys.h"
#include "tests/sensors/custom_sensor_test_support.h"

namespace testdriver {
namespace {

constexpr ULONGLONG kStartTicks = ULONGLONG{0x01DA0000} << 32;
constexpr ULONGLONG kTicksPerMs = 10'000;

// One custom sensor in a container (report ID 1) whose input holds `values`.
HidDeviceConfig OneCustomSensor(std::vector<hs::ValueField> values, std::u16string description = u"0x210")
{
    return HidDeviceConfig{}
        .WithDescriptor(hs::BuildSensorContainer({hs::CustomSensor(16, std::move(values))}))
        .WithFeature(1, FeatureReport(1, 100, {description}));
}

hs::ValueField Field(int k, std::uint8_t bits, std::int64_t min, std::int64_t max, int exponent,
                     std::uint32_t unit = 0, std::uint16_t count = 1)
{
    hs::ValueField field = hs::CustomValue(k, bits, min, max, exponent);
    field.unit = unit;
    field.count = count;
    return field;
}

TEST(InputDecoding, ValuesAreScaledBySignExponentAndUnitAsDeclared)
{
    struct Case {
        const char* what;
        hs::ValueField field;
        std::uint32_t raw;
        int bytes;
        std::string expected;  // the field's line in the sample
    };
    const Case cases[] = {
        {"signed, exponent -1", Field(3, 8, -128, 127, -1), 0xCE, 1, Custom(9, "R4 -5")},
        {"unsigned, exponent -1", Field(3, 8, 0, 255, -1), 0xCE, 1, Custom(9, "R4 20.6")},
        {"signed, exponent 0: the raw value", Field(3, 8, -128, 127, 0), 0xFF, 1, Custom(9, "UI4 255")},
        {"16 bits, exponent -2", Field(1, 16, -32767, 32767, -2), 0xFB2E, 2, Custom(7, "R4 -12.34")},
        {"12 bits are never negative", Field(2, 12, -1, 2047, -1), 0x0FFF, 2, Custom(8, "R4 409.5")},
        {"positive minimum counts as signed", Field(5, 8, 1, 255, -1), 200, 1, Custom(11, "R4 -5.6")},
        {"32 bits unsigned", Field(6, 32, 0, 0x7FFFFFFF, 3), 7, 4, Custom(12, "R4 7000")},
        {"with a unit: not decoded", Field(3, 8, -128, 127, -1, 0x1001), 0xCE, 1, Custom(9, "UI4 0")},
        {"custom value 4 with a unit", Field(4, 8, -128, 127, -1, 0x1001), 0xCE, 1, Custom(10, "R4 0")},
        {"two elements: not interpreted", Field(3, 8, -128, 127, 0, 0, 2), 0x0505, 2, Custom(9, "UI4 0")},
        {"two elements with an exponent", Field(3, 8, -128, 127, -1, 0, 2), 0x0505, 2, Custom(9, "R4 0")},
        {"beyond the logical maximum: passed unchanged", Field(3, 16, 0, 10, 0), 60000, 2, Custom(9, "UI4 60000")},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        ClientBed t(OneCustomSensor({c.field}));
        const std::vector<cx::Sample> samples = t.Feed(InputReport(t.Hid(), 1, {c.raw}, {c.bytes}));
        ASSERT_EQ(samples.size(), 1u);
        EXPECT_EQ(Lines(samples[0].values), (std::vector<std::string>{TimestampLine(kStartTicks), c.expected}));
    }
}

TEST(InputDecoding, ValueBeyondTheCachedMaximumIsPassedUnchangedWithOneWarning)
{
    // The feature report gives custom value 1 a maximum of 10.
    hs::SensorShape sensor = hs::CustomSensor(16, {Field(1, 16, -32767, 32767, 0)});
    sensor.features.push_back(
        hs::Property(hs::Modified(hs::CustomValueUsage(1), hs::kModMaximum), 16, -32767, 32767));
    Bytes feature = FeatureReport(1, 100, {u"0x210"});
    feature.push_back(10);
    feature.push_back(0);
    ClientBed t(HidDeviceConfig{}.WithDescriptor(hs::BuildSensorContainer({sensor})).WithFeature(1, feature));
    ASSERT_EQ(t.Sensor(0)->PropertyCache()->FieldMaximum[1].Get(), 10.0f);

    auto linesOfOneRead = [&](std::uint32_t raw, std::string* passed) {
        t.bed.Trace().Clear();
        const std::vector<cx::Sample> samples = t.Feed(InputReport(t.Hid(), 1, {raw}, {2}));
        EXPECT_EQ(samples.size(), 1u);
        if (!samples.empty())
            *passed = Lines(samples[0].values)[1];
        return t.bed.Trace().Lines().size();
    };
    std::string passed;
    const std::size_t inRange = linesOfOneRead(5, &passed);
    EXPECT_EQ(passed, Custom(7, "UI4 5"));
    const std::size_t above = linesOfOneRead(600, &passed);
    EXPECT_EQ(passed, Custom(7, "UI4 600"));
    EXPECT_EQ(above, inRange + 1);
}

TEST(InputDecoding, CustomUsageIsAnnouncedOnceAndCountsTwiceInTheFirstReport)
{
    ClientBed t(OneCustomSensor({hs::Property(hs::kCustomUsage, 16, 0, 0xFFFF), Field(1, 16, -32767, 32767, 0)}));
    // First report: the announcement (VT_EMPTY) and the value complete the
    // sample before custom value 1 is decoded.
    std::vector<cx::Sample> samples = t.Feed(InputReport(t.Hid(), 1, {0x210, 7}, {2, 2}));
    ASSERT_EQ(samples.size(), 1u);
    EXPECT_EQ(Lines(samples[0].values),
              (std::vector<std::string>{TimestampLine(kStartTicks), Custom(5, "UI4 528"), Custom(7, "R4 0")}));
    EXPECT_EQ(t.Sensor(0)->PropertyCache()->PendingFieldCount, 1u);

    // Later reports pass it once.
    t.bed.Host().Advance(5);
    samples = t.Feed(InputReport(t.Hid(), 1, {0x211, 8}, {2, 2}));
    ASSERT_EQ(samples.size(), 1u);
    EXPECT_EQ(Lines(samples[0].values), (std::vector<std::string>{TimestampLine(kStartTicks + 5 * kTicksPerMs),
                                                                   Custom(5, "UI4 529"), Custom(7, "UI4 8")}));
}

TEST(InputDecoding, SamplesCompleteAcrossReportsOfOneReadAndRestartWithEachRead)
{
    const std::vector<hs::ValueField> fields = {hs::Property(hs::kCustomUsage, 16, 0, 0xFFFF),
                                                Field(1, 16, -32767, 32767, 0), Field(2, 16, -32767, 32767, 0)};
    auto report = [](ClientBed& t, std::uint32_t a, std::uint32_t b) {
        return InputReport(t.Hid(), 1, {0x541, a, b}, {2, 2, 2});
    };
    {
        SCOPED_TRACE("two reports in one read");
        ClientBed t(OneCustomSensor(fields));
        Bytes read = report(t, 1, 2);
        const Bytes second = report(t, 3, 4);
        read.insert(read.end(), second.begin(), second.end());
        const std::vector<cx::Sample> samples = t.Feed(read);
        ASSERT_EQ(samples.size(), 2u);
        // The first completes on the announcement; the second is custom value 2
        // of the first report and the custom usage and value 1 of the second.
        EXPECT_EQ(Lines(samples[0].values)[2], Custom(7, "UI4 1"));
        EXPECT_EQ(Lines(samples[0].values)[3], Custom(8, "R4 0"));
        EXPECT_EQ(Lines(samples[1].values)[2], Custom(7, "UI4 3"));
        EXPECT_EQ(Lines(samples[1].values)[3], Custom(8, "UI4 2"));
    }
    {
        SCOPED_TRACE("the same reports in two reads");
        ClientBed t(OneCustomSensor(fields));
        ASSERT_EQ(t.Feed(report(t, 1, 2)).size(), 1u);
        EXPECT_EQ(t.Sensor(0)->PropertyCache()->PendingFieldCount, 1u);
        // The half sample of the first read is dropped; its value stays in the list.
        const std::vector<cx::Sample> samples = t.Feed(report(t, 3, 4));
        ASSERT_EQ(samples.size(), 1u);
        EXPECT_EQ(Lines(samples[0].values)[2], Custom(7, "UI4 3"));
        EXPECT_EQ(Lines(samples[0].values)[3], Custom(8, "UI4 4"));
        EXPECT_EQ(t.Sensor(0)->PropertyCache()->PendingFieldCount, 0u);
    }
}

// A failed read stays the report's status through a custom usage decoded
// after it, so the reader drops the rest of the read.
TEST(InputDecoding, ACustomUsageAfterAFailedReadKeepsTheFailure)
{
    // Custom value 2 is 65 elements of 16 bits: 130 bytes, more than the
    // 128-byte array buffer, so reading it fails on every report.
    ClientBed t(OneCustomSensor({Field(1, 16, -32767, 32767, 0), Field(2, 16, -32767, 32767, 0, 0, 65),
                                 hs::Property(hs::kCustomUsage, 16, 0, 0xFFFF)}));
    auto report = [&](std::uint8_t value1) {
        Bytes bytes = InputReport(t.Hid(), 1, {value1}, {2});
        bytes[3 + 2 + 130] = 0x41;  // custom usage 0x541
        bytes[3 + 2 + 131] = 0x05;
        return bytes;
    };
    Bytes single = report(5);
    EXPECT_EQ(t.Sensor(0)->ProcessInputReport(single.data(), static_cast<ULONG>(single.size()), 1),
              HIDP_STATUS_BUFFER_TOO_SMALL);

    Bytes read = report(6);
    const Bytes second = report(9);
    read.insert(read.end(), second.begin(), second.end());
    t.Feed(read);
    const std::vector<std::string> data = Lines(*t.Sensor(0)->Record()->Data);
    EXPECT_NE(std::find(data.begin(), data.end(), Custom(7, "UI4 6")), data.end());
    EXPECT_EQ(std::find(data.begin(), data.end(), Custom(7, "UI4 9")), data.end());
}

TEST(InputDecoding, ReportsThatCannotBeDecodedChangeNothingButTheCount)
{
    ClientBed t(OneCustomSensor({hs::Property(hs::kCustomUsage, 16, 0, 0xFFFF), Field(1, 16, -32767, 32767, 0),
                                 Field(2, 16, -32767, 32767, 0)}));
    ASSERT_EQ(t.Feed(InputReport(t.Hid(), 1, {0x541, 1, 2}, {2, 2, 2})).size(), 1u);
    ASSERT_EQ(t.Sensor(0)->PropertyCache()->PendingFieldCount, 1u);
    const HidCollectionRecord& record = *t.Sensor(0)->Record();
    const std::vector<std::string> before = Lines(*record.Data);

    // One byte too long: routed whole, refused by length, after the reset.
    t.bed.Host().Advance(5);
    Bytes tooLong = InputReport(t.Hid(), 1, {0x541, 9, 9}, {2, 2, 2});
    tooLong.push_back(0);
    EXPECT_TRUE(t.Feed(tooLong).empty());
    EXPECT_EQ(t.Sensor(0)->PropertyCache()->PendingFieldCount, 0u);
    EXPECT_EQ(Lines(*record.Data), before);  // not even the timestamp

    // A sensor that is not initialized accepts reports and ignores them.
    t.Sensor(0)->Record()->IsInitialized.store(0);
    EXPECT_TRUE(t.Feed(InputReport(t.Hid(), 1, {0x541, 9, 9}, {2, 2, 2})).empty());
    EXPECT_EQ(Lines(*record.Data), before);
    EXPECT_TRUE(t.bed.ReadPending());
    t.Sensor(0)->Record()->IsInitialized.store(1);
}

TEST(InputDecoding, SensorWhoseRegistrationFailedIgnoresItsReports)
{
    // The last framework memory of prepare-hardware is the threshold list.
    std::uint64_t memoryCalls = 0;
    {
        DriverTestBed bed(OneCustomSensor({Field(1, 16, -32767, 32767, 0)}), &SensorFactory::Default());
        ASSERT_EQ(bed.Load(), STATUS_SUCCESS);
        host::FaultInjector::Instance().FailNth(host::FaultPoint::FrameworkMemory, 0, 0);
        ASSERT_EQ(bed.Host().PrepareHardware(), STATUS_SUCCESS);
        memoryCalls = host::FaultInjector::Instance().Calls(host::FaultPoint::FrameworkMemory);
    }
    for (host::FaultPoint point : {host::FaultPoint::SensorsCxSensorInitialize, host::FaultPoint::FrameworkMemory}) {
        SCOPED_TRACE(host::FaultPointName(point));
        DriverTestBed bed(OneCustomSensor({Field(1, 16, -32767, 32767, 0)}), &SensorFactory::Default());
        ASSERT_EQ(bed.Load(), STATUS_SUCCESS);
        const std::uint64_t nth = point == host::FaultPoint::FrameworkMemory ? memoryCalls : 1;
        host::FaultInjector::Instance().FailNth(point, nth, STATUS_DEVICE_NOT_CONNECTED);
        ASSERT_EQ(bed.Host().PrepareHardware(), STATUS_SUCCESS);
        // A failed threshold list reads as no resources, whatever the framework said.
        EXPECT_EQ(Module().enumerateStatus, point == host::FaultPoint::FrameworkMemory ? STATUS_INSUFFICIENT_RESOURCES
                                                                                        : STATUS_DEVICE_NOT_CONNECTED);
        ASSERT_EQ(bed.Start(), STATUS_SUCCESS);
        cx::Client client(bed.Host().Device());
        cx::SampleQueue samples(client);
        EXPECT_EQ(client.SensorCount(), 0u);
        bed.Feed(InputReport(*bed.Hid(), 1, {5}, {2}));
        EXPECT_EQ(samples.Size(), 0u);
        EXPECT_TRUE(bed.ReadPending());
    }
}

TEST(InputDecoding, UpdatesOutsideTheListChangeNothingAndATimestampOnlySensorNeverDelivers)
{
    {
        ClientBed t(OneCustomSensor({Field(1, 16, -32767, 32767, 0), Field(2, 16, -32767, 32767, 0)}));
        CustomSensor& sensor = *t.Sensor(0);
        const std::vector<std::string> before = Lines(*sensor.Record()->Data);
        PROPVARIANT value = {};
        value.vt = VT_UI4;
        value.ulVal = 9;
        // Custom value 3 and the timestamp are not among the counted entries.
        const PROPERTYKEY foreign[] = {kCustomValueKeys[2], kTimestampKey, {kSensorDataFmtid, 7}};
        for (const PROPERTYKEY& key : foreign)
            EXPECT_EQ(sensor.UpdateDataField(&key, &value), STATUS_SUCCESS);
        EXPECT_EQ(sensor.PropertyCache()->PendingFieldCount, 0u);
        EXPECT_EQ(Lines(*sensor.Record()->Data), before);
        EXPECT_EQ(t.samples->Size(), 0u);
    }
    {
        hs::ValueField all = Field(1, 16, -32767, 32767, 0);
        all.usage = hs::kCustomValueAll;
        ClientBed t(OneCustomSensor({all}));
        ASSERT_EQ(t.Sensor(0)->Record()->Data->Count, 1u);
        EXPECT_TRUE(t.Feed(InputReport(t.Hid(), 1, {5}, {2})).empty());
    }
}

TEST(InputDecoding, EachSensorReadsOnlyItsOwnReport)
{
    // Two custom sensors with the same usages: report 2 updates only the second.
    const hs::SensorShape sensor = hs::CustomSensor(16, {Field(1, 16, -32767, 32767, 0)});
    ClientBed t(HidDeviceConfig{}
                    .WithDescriptor(hs::BuildSensorContainer({sensor, sensor}))
                    .WithFeature(1, FeatureReport(1, 100, {u"0x210"}))
                    .WithFeature(2, FeatureReport(2, 100, {u"0x211"})));
    ASSERT_EQ(t.client->SensorCount(), 2u);
    const std::vector<cx::Sample> samples = t.Feed(InputReport(t.Hid(), 2, {42}, {2}));
    ASSERT_EQ(samples.size(), 1u);
    EXPECT_EQ(samples[0].sensorIndex, 1u);
    EXPECT_EQ(Lines(samples[0].values)[1], Custom(7, "UI4 42"));
    EXPECT_EQ(Lines(*t.Sensor(0)->Record()->Data)[1], Custom(7, "R4 0"));
}

TEST(InputDecoding, StateAndEventSelectorsAndModifiedUsagesPassNothing)
{
    hs::ValueField maximum = Field(1, 16, -32767, 32767, 0);
    maximum.usage = hs::Modified(hs::CustomValueUsage(1), hs::kModMaximum);
    hs::ValueField all = Field(1, 16, -32767, 32767, 0);
    all.usage = hs::kCustomValueAll;
    ClientBed t(OneCustomSensor({maximum, all, Field(2, 16, -32767, 32767, 0)}));
    // Data fields: timestamp and custom value 2 only.
    EXPECT_EQ(t.Sensor(0)->Record()->Data->Count, 2u);
    // Sensor state Error (selector 6) and event Data Updated change nothing else.
    const std::vector<cx::Sample> samples = t.Feed(InputReport(t.Hid(), 1, {100, 200, 3}, {2, 2, 2}, 6, 3));
    ASSERT_EQ(samples.size(), 1u);
    EXPECT_EQ(Lines(samples[0].values), (std::vector<std::string>{TimestampLine(kStartTicks), Custom(8, "UI4 3")}));
}

// Reports of a real descriptor, built through the parser from the descriptor itself.
class RealDescriptorReport {
public:
    explicit RealDescriptorReport(HidDevice& device, UCHAR reportId)
        : device_(device), bytes_(device.Caps().InputReportByteLength, 0)
    {
        bytes_[0] = reportId;
    }
    RealDescriptorReport& Set(USAGE usage, ULONG value)
    {
        EXPECT_EQ(HidP_SetUsageValue(HidP_Input, hs::kUsagePageSensor, 0, usage, value, device_.PreparsedData(),
                                     reinterpret_cast<CHAR*>(bytes_.data()), static_cast<ULONG>(bytes_.size())),
                  HIDP_STATUS_SUCCESS)
            << std::hex << usage;
        return *this;
    }
    const testdriver::Bytes& Get() const { return bytes_; }

private:
    HidDevice& device_;
    testdriver::Bytes bytes_;
};

TEST(InputDecoding, RealDescriptorWithTwentyEightValuesDeliversThemAllScaled)
{
    // hutrr39-cus4: top-level custom collection, no report ID, custom usage,
    // boolean array and custom values 1..28 of 16 bits, exponent -2.
    Bytes feature(15, 0);
    feature[1] = 1;
    feature[4] = 100;
    ClientBed t(HidDeviceConfig{}.WithDescriptor(LoadDescriptor("hutrr39-cus4")).WithFeature(0, feature));
    ASSERT_EQ(t.client->SensorCount(), 1u);
    ASSERT_EQ(t.Sensor(0)->Record()->Data->Count, 31u);
    // Timestamp, custom usage, boolean array and 28 values: 8 + 20 x 31 and 8 + 48 x 31 bytes.
    EXPECT_EQ(t.client->GetSupportedDataFields(0).size, 628u);
    EXPECT_EQ(t.Sensor(0)->Record()->Data->AllocatedSizeInBytes, 1496u);
    EXPECT_EQ(Lines(*t.client->GetProperties(0).list)[5], Prop(22, "UI4 1496"));
    RealDescriptorReport report(t.Hid(), 0);
    report.Set(0x541, 0x1234).Set(0x542, 0x00FF);
    for (int k = 1; k <= 28; ++k)
        report.Set(static_cast<USAGE>(0x543 + k), static_cast<ULONG>(k * 100 - 1400) & 0xFFFF);

    // First report: the announcement completes a sample one field early.
    std::vector<cx::Sample> samples = t.Feed(report.Get());
    ASSERT_EQ(samples.size(), 1u);
    EXPECT_EQ(Lines(samples[0].values).back(), Custom(34, "R4 0"));
    samples = t.Feed(report.Get());
    ASSERT_EQ(samples.size(), 1u);
    const std::vector<std::string> lines = Lines(samples[0].values);
    ASSERT_EQ(lines.size(), 31u);
    EXPECT_EQ(lines[1], Custom(5, "UI4 4660"));
    EXPECT_EQ(lines[2], Custom(6, "UI4 255"));
    EXPECT_EQ(lines[3], Custom(7, "R4 -13"));
    EXPECT_EQ(lines[16], Custom(20, "R4 0"));
    EXPECT_EQ(lines[30], Custom(34, "R4 14"));
}

TEST(InputDecoding, RealDescriptorWithUnitsAndArraysPassesHoldingValues)
{
    // android-headtracker-v2-le: report 1 holds custom values 1 and 2 as
    // three-element arrays with a unit, and custom value 3 as 8 bits with a unit.
    ClientBed t(HidDeviceConfig{}
                    .WithDescriptor(LoadDescriptor("android-headtracker-v2-le"))
                    .WithFeature(1, Bytes{1, 1, 1, 5})
                    .WithFeature(2, Bytes{2, 0x30, 0x78, 0x32, 0x31, 0x30}));
    ASSERT_EQ(t.client->SensorCount(), 1u);
    Bytes report(t.Hid().Caps().InputReportByteLength, 0x11);
    report[0] = 1;
    const std::vector<cx::Sample> samples = t.Feed(report);
    ASSERT_EQ(samples.size(), 1u);
    EXPECT_EQ(Lines(samples[0].values),
              (std::vector<std::string>{TimestampLine(kStartTicks), Custom(7, "UI4 0"), Custom(8, "UI4 0"),
                                        Custom(9, "UI4 0")}));
}

}  // namespace
}  // namespace testdriver
