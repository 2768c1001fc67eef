// One device carrying every kind of sensor the driver knows: a non-custom
// placeholder, a gesture tap, an "Other" sensor, activity, pedometer,
// relative and simple device orientation. A scripted session starts each
// published sensor, feeds one read holding a report for every sensor, and
// checks what each kind publishes, delivers and sends to the device.
#include <gtest/gtest.h>

#include <map>
#include <set>

#include "tests/sensors/custom_sensor_test_support.h"

namespace testdriver {
namespace {

enum Report : std::uint8_t { kPlaceholder = 1, kTap, kOther, kActivity, kPedometer, kRelative, kSimple };

std::vector<hs::ValueField> Values(int count, std::uint8_t bits, std::int64_t min, std::int64_t max, int exponent)
{
    std::vector<hs::ValueField> values;
    for (int k = 1; k <= count; ++k)
        values.push_back(hs::CustomValue(k, bits, min, max, exponent));
    return values;
}

HidDeviceConfig EveryKind()
{
    hs::SensorShape placeholder = Accelerometer(1);
    placeholder.features = {hs::ReportIntervalProperty()};
    HidDeviceConfig config = HidDeviceConfig{}.WithDescriptor(hs::BuildSensorContainer(
        {placeholder, hs::CustomSensor(16, Values(1, 16, 0, 3, 0)), hs::CustomSensor(16, Values(2, 16, 0, 100, 0)),
         hs::CustomSensor(16, Values(7, 32, 0, 0x7FFFFFFF, 0)), hs::CustomSensor(16, Values(5, 32, 0, 0x7FFFFFFF, 0)),
         hs::CustomSensor(16, Values(4, 16, -10000, 10000, -4)), hs::CustomSensor(16, Values(1, 32, 0, 5, 0))}));
    const std::map<std::uint8_t, std::u16string> descriptions = {
        {kTap, u"0x210"},      {kOther, u"lid angle"}, {kActivity, u"0x232"},
        {kPedometer, u"0x230"}, {kRelative, u"0x200"},  {kSimple, u"0x205"},
    };
    for (const auto& [id, description] : descriptions)
        config.WithFeature(id, FeatureReport(id, 100, {description}));
    return config;
}

// Report `id` of the read: state and event selectors, then `values`.
Bytes Report(HidDevice& hid, std::uint8_t id, const std::vector<std::uint32_t>& values, int width)
{
    return InputReport(hid, id, values, std::vector<int>(values.size(), width));
}

TEST(EveryKind, EachKindIsPublishedAndDeliversItsOwnSample)
{
    ClientBed t(EveryKind());
    const std::vector<cx::SensorInfo> sensors = t.client->Sensors();
    ASSERT_EQ(sensors.size(), 6u);
    const std::vector<std::string> types = {
        "{E83AF229-8640-4D18-A213-E22675EBB2C3}", "{E83AF229-8640-4D18-A213-E22675EBB2C3}",
        "{9D9E0118-1807-4F2E-96E4-2CE57142E196}", "{B19F89AF-E3EB-444B-8DEA-202575A71599}",
        "{40993B51-4706-44DC-98D5-C920C037FFAB}", "{86A19291-0482-402C-BF4C-ADDAC52B1C39}"};
    for (std::size_t i = 0; i < sensors.size(); ++i) {
        SCOPED_TRACE(i);
        EXPECT_EQ(Lines(sensors[i].enumeration)[0], Prop(2, Clsid(types[i])));
    }

    // Start writes each published sensor's own feature report, and no other.
    const std::size_t before = t.bed.Traffic().size();
    for (std::size_t i = 0; i < sensors.size(); ++i)
        ASSERT_EQ(t.client->Start(i).status, STATUS_SUCCESS);
    std::set<int> written;
    const std::vector<host::hidsim::TrafficEvent> traffic = t.bed.Traffic();
    for (std::size_t i = before; i < traffic.size(); ++i)
        if (traffic[i].kind == TrafficKind::SetFeature)
            written.insert(traffic[i].reportId.value_or(0));
    EXPECT_EQ(written, (std::set<int>{kTap, kOther, kActivity, kPedometer, kRelative, kSimple}));
    for (std::uint8_t id = kTap; id <= kSimple; ++id) {
        SCOPED_TRACE(static_cast<int>(id));
        EXPECT_EQ(t.bed.Sim().Feature(id).value()[1], 1u);  // reporting all events
        EXPECT_EQ(t.bed.Sim().Feature(id).value()[2], 1u);  // full power
    }

    // One read with a report for every sensor, the placeholder's first.
    HidDevice& hid = t.Hid();
    const std::vector<Bytes> reports = {
        Report(hid, kPlaceholder, {0x1234}, 2),
        Report(hid, kTap, {2}, 2),
        Report(hid, kOther, {7, 8}, 2),
        // Walking at 80 %, fidgeting at 20 %.
        Report(hid, kActivity, {(1u << 4) | (800u << 12), (6u << 4) | (200u << 12), 0, 0, 0, 0, 0}, 4),
        Report(hid, kPedometer, {0, 12, 6000, 3, 1000}, 4),
        Report(hid, kRelative, {5000, 0, 0, static_cast<std::uint16_t>(-5000)}, 2),
        Report(hid, kSimple, {3}, 4),
    };
    Bytes read;
    for (const Bytes& report : reports)
        read.insert(read.end(), report.begin(), report.end());
    const std::vector<cx::Sample> samples = t.Feed(read);
    ASSERT_EQ(samples.size(), 6u);
    std::map<std::size_t, std::vector<std::string>> values;
    for (const cx::Sample& sample : samples) {
        std::vector<std::string> lines = Lines(sample.values);
        lines.erase(lines.begin());
        values[sample.sensorIndex] = lines;
    }
    EXPECT_EQ(values[0], (std::vector<std::string>{Custom(7, "UI4 2")}));
    EXPECT_EQ(values[1], (std::vector<std::string>{Custom(7, "UI4 7"), Custom(8, "UI4 8")}));
    EXPECT_EQ(values[2], (std::vector<std::string>{Data(130, "UI4 8"), Data(131, "UI2 80"), Data(130, "UI4 4"),
                                                   Data(131, "UI2 20")}));
    EXPECT_EQ(values[3], (std::vector<std::string>{Data(143, "BOOL false"), Data(140, "UI4 1"), Data(141, "UI4 0"),
                                                   Data(142, "I8 0"), Data(140, "UI4 2"), Data(141, "UI4 12"),
                                                   Data(142, "I8 6000"), Data(140, "UI4 4"), Data(141, "UI4 3"),
                                                   Data(142, "I8 1000")}));
    EXPECT_EQ(values[4], (std::vector<std::string>{Data(71, "R4 0.5"), Data(72, "R4 0"), Data(73, "R4 0"),
                                                   Data(70, "R4 -0.5")}));
    EXPECT_EQ(values[5], (std::vector<std::string>{Data(120, "UI4 3")}));
}

}  // namespace
}  // namespace testdriver
