// The builder's encodings, and the sensor helper's descriptors as the parser
// reads them.
#include "host/hidparser/descriptor_builder.h"

#include <gtest/gtest.h>

#include <tuple>

#include "host/hidparser/sensor_descriptor.h"
#include "test_support.h"

namespace host::hid {
namespace {

using namespace test;

TEST(DescriptorBuilder, PicksTheShortestEncoding)
{
    DescriptorBuilder b;
    b.UsagePage(0x20).Usage(0x0308).Usage(0).ReportCount(300).ReportSize(70000);
    EXPECT_EQ(b.Bytes(), Hex("05 20 0A 08 03 08 96 2C 01 77 70 11 01 00"));

    DescriptorBuilder s;
    s.LogicalMinimum(-1).LogicalMaximum(127).LogicalMaximum(128).LogicalMinimum(-32768).LogicalMinimum(-32769);
    s.LogicalMaximum(0xFFFFFFFFLL).PhysicalMaximum(0);
    EXPECT_EQ(s.Bytes(), Hex("15 FF 25 7F 26 80 00 16 00 80 17 FF 7F FF FF 27 FF FF FF FF 44"));
}

TEST(DescriptorBuilder, ForcedSizesAndOtherItems)
{
    DescriptorBuilder b;
    b.LogicalMaximum(0xFFFF, ItemSize::Two).ReportId(1, ItemSize::Four).UnitExponent(-2).UnitExponent(7);
    b.Unit(0x1001).Usage32(0xFF00, 0x0001).UsageMinimum32(0x0009, 1).UsageMaximum32(0x0009, 3);
    b.Push().Pop().StringIndex(4).StringMinimum(5).StringMaximum(6);
    b.DesignatorIndex(1).DesignatorMinimum(2).DesignatorMaximum(3).Delimiter(true).Delimiter(false);
    EXPECT_EQ(b.Bytes(), Hex("26 FF FF 87 01 00 00 00 55 0E 55 07 66 01 10 0B 01 00 00 FF 1B 01 00 09 00 "
                             "2B 03 00 09 00 A4 B4 79 04 89 05 99 06 39 01 49 02 59 03 A9 01 A9 00"));

    DescriptorBuilder m;
    m.Collection(CollectionType::Application).Collection(CollectionType::Physical).Collection(std::uint8_t{0x80});
    m.Input(main_item::kDataVarAbs)
        .Output(main_item::kConstant)
        .Feature(main_item::kBufferedBytes | main_item::kVariable);
    m.EndCollection().Raw({0x12, 0x34});
    EXPECT_EQ(m.Bytes(), Hex("A1 01 A0 A1 80 81 02 91 01 B2 02 01 C0 12 34"));
}

TEST(SensorDescriptor, CustomSensorInAContainer)
{
    const sensor::SensorSpec activity =
        sensor::CustomSensor(32, {sensor::CustomValue(1, 8, 0, 100), sensor::CustomValue(2, 16, -1000, 1000, -2)});
    const sensor::SensorSpec pedometer = sensor::CustomSensor(16, {sensor::CustomValue(1, 32, 0, 0xFFFFFFFFLL)});
    PreparsedBlob blob = ParseSingle(sensor::BuildSensorContainer({activity, pedometer}, 7));

    const HIDP_CAPS caps = Caps(blob);
    EXPECT_EQ(caps.UsagePage, sensor::kUsagePageSensor);
    EXPECT_EQ(caps.Usage, sensor::kSensorCollection);
    EXPECT_EQ(caps.FeatureReportByteLength, 1 + 1 + 1 + 4 + 64);  // longest: the 32-char description
    EXPECT_EQ(caps.InputReportByteLength, 1 + 1 + 1 + 4);         // longest: the pedometer's 32-bit value

    // Node: usage, parent, type (Physical 0, Logical 2).
    const auto nodes = Nodes(blob);
    const std::vector<std::tuple<USAGE, USHORT, UCHAR>> expected = {
        {0x01, 0, 1},  {0xE1, 0, 0},  {0x316, 1, 2}, {0x319, 1, 2}, {0x201, 1, 2}, {0x202, 1, 2},
        {0xE1, 0, 0}, {0x316, 6, 2}, {0x319, 6, 2}, {0x201, 6, 2}, {0x202, 6, 2},
    };
    ASSERT_EQ(nodes.size(), expected.size());
    for (std::size_t i = 0; i < nodes.size(); ++i)
        EXPECT_EQ(std::tuple(nodes[i].LinkUsage, nodes[i].Parent, nodes[i].CollectionType), expected[i]) << i;

    // Value: report ID, usage, link collection, bits x count, logical range, exponent code.
    using Value = std::tuple<UCHAR, USAGE, USHORT, USHORT, USHORT, LONG, LONG, ULONG>;
    auto values = [&](HIDP_REPORT_TYPE type) {
        std::vector<Value> out;
        for (const auto& c : ValueCaps(blob, type))
            out.emplace_back(c.ReportID, c.NotRange.Usage, c.LinkCollection, c.BitSize, c.ReportCount, c.LogicalMin,
                             c.LogicalMax, c.UnitsExp);
        return out;
    };
    EXPECT_EQ(values(HidP_Input), (std::vector<Value>{
                                      {7, 0x544, 1, 8, 1, 0, 100, 0},
                                      {7, 0x545, 1, 16, 1, -1000, 1000, 0xE},
                                      {8, 0x544, 6, 32, 1, 0, -1, 0},  // 0xFFFFFFFF as LONG
                                  }));
    const auto feature = values(HidP_Feature);
    ASSERT_EQ(feature.size(), 4u);
    EXPECT_EQ(std::get<1>(feature[0]), sensor::kReportInterval);
    EXPECT_EQ(std::get<1>(feature[1]), sensor::kDescription);
    EXPECT_EQ(std::get<4>(feature[1]), 32);
    EXPECT_EQ(std::get<4>(feature[3]), 16);
    EXPECT_EQ(std::get<0>(feature[3]), 8);

    const auto selectors = ButtonCaps(blob, HidP_Feature);
    ASSERT_EQ(selectors.size(), 24u);
    EXPECT_EQ(selectors[0].NotRange.Usage, sensor::kReportingNoEvents);
    EXPECT_EQ(selectors[6].NotRange.Usage, sensor::kPowerUndefined);
    EXPECT_EQ(selectors[6].LinkUsage, sensor::kPowerState);
}

TEST(SensorDescriptor, SingleSensorWithModifiedAndVendorProperties)
{
    sensor::SensorSpec sensorSpec;
    sensorSpec.usage = sensor::kAccelerometer3D;
    sensorSpec.reportId = 4;
    sensorSpec.featureSelectors = {sensor::ReportingStateSelector(), sensor::PowerStateSelector()};
    sensorSpec.features = {
        sensor::ReportIntervalProperty(32),
        sensor::Property(sensor::Modified(0x452, sensor::kModChangeSensitivityAbsolute), 16, 0, 0xFFFF, -2),
        sensor::Property(sensor::kMinimumReportInterval, 32, 0, 0xFFFFFFFFLL),
        sensor::Property(0xF02A, 8, 0, 255),
        sensor::StringProperty(sensor::kFriendlyName, 24),
    };
    sensorSpec.inputSelectors = {sensor::SensorStateSelector(), sensor::SensorEventSelector()};
    sensorSpec.inputs = {sensor::Property(0x453, 16, -32767, 32767, -2), sensor::Property(0x454, 16, -32767, 32767, -2)};
    PreparsedBlob blob = ParseSingle(sensor::BuildSingleSensor(sensorSpec, CollectionType::Physical));

    EXPECT_EQ(Nodes(blob)[0].CollectionType, HIDP_COLLECTION_PHYSICAL);
    const auto feature = ValueCaps(blob, HidP_Feature);
    ASSERT_EQ(feature.size(), 5u);
    EXPECT_EQ(feature[1].NotRange.Usage, 0x1452);
    EXPECT_EQ(feature[1].LogicalMax, 0xFFFF);
    EXPECT_EQ(feature[1].UnitsExp, 0xEu);
    EXPECT_EQ(feature[3].NotRange.Usage, 0xF02A);
    EXPECT_EQ(feature[3].ReportID, 4);
    EXPECT_EQ(feature[4].ReportCount, 24);
    EXPECT_EQ(Caps(blob).FeatureReportByteLength, 1 + 2 + 4 + 2 + 4 + 1 + 48);
    EXPECT_EQ(Caps(blob).InputReportByteLength, 1 + 2 + 4);
}

}  // namespace
}  // namespace host::hid
