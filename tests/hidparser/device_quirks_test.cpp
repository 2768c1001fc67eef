// Mistakes real devices make that the parser accepts on purpose, and the
// HID features (long items, delimiters, 32-bit usages, Push/Pop, string and
// designator ranges) that devices rarely use but are valid.
#include <gtest/gtest.h>

#include <tuple>

#include "host/hidparser/descriptor_builder.h"
#include "test_support.h"

namespace host::hid {
namespace {

using namespace test;

TEST(DeviceQuirks, EndCollectionCarryingADataByte)
{
    // Vendor lid switch: `C1 00` closes the collection; 152 padding bits each way.
    PreparsedBlob blob = ParseSingle(LoadDescriptor("quirk-amd-sfh-lid-vendor"));
    const HIDP_CAPS caps = Caps(blob);
    EXPECT_EQ(std::tuple(caps.UsagePage, caps.Usage, caps.NumberLinkCollectionNodes), std::tuple(0xFF43, 0x0202, 1));
    EXPECT_EQ(std::tuple(caps.InputReportByteLength, caps.OutputReportByteLength, caps.FeatureReportByteLength),
              std::tuple(20, 20, 0));
    EXPECT_EQ(caps.NumberInputButtonCaps + caps.NumberInputValueCaps, 0);  // padding only
}

// One value field with the given global items in front of its main item:
// how the capability reads them.
TEST(DeviceQuirks, ExtentsUnitExponentsAndLateUsagePages)
{
    struct Case {
        const char* items;
        USAGE page;
        LONG min, max;
        ULONG unitsExp;
    };
    const Case cases[] = {
        // Unit Exponent as the HID nibble or as a signed value.
        {"55 0E", 0x20, 0, 0, 0x0E},      // nibble: -2
        {"55 FE", 0x20, 0, 0, 0x0E},      // signed byte: -2
        {"56 FE FF", 0x20, 0, 0, 0x0E},   // signed word: -2
        {"55 0F", 0x20, 0, 0, 0x0F},      // -1
        {"55 F8", 0x20, 0, 0, 0x08},      // -8
        // An unsigned maximum written in fewer bytes.
        {"15 00 26 FF FF", 0x20, 0, 65535, 0},  // 32-bit field, maximum in 16 bits
        {"15 00 27 FF FF FF FF", 0x20, 0, -1, 0},       // full 32 bits: LONG wraps, as on the platform
        {"16 01 80 26 FF 7F", 0x20, -32767, 32767, 0},  // signed stays signed
        {"15 FF 25 FF", 0x20, -1, -1, 0},               // a negative minimum keeps the maximum signed
        {"26 FF FF 15 00", 0x20, 0, 65535, 0},          // order of the two items does not matter
        // The Usage Page in force at the main item names the usages before it.
        {"05 21", 0x21, 0, 0, 0},
    };
    for (const Case& c : cases) {
        PreparsedBlob blob =
            ParseSingle(Hex(std::string("05 20 09 E1 A1 01 0A 44 05 75 20 95 01 ") + c.items + " 81 02 C0"));
        const auto values = ValueCaps(blob, HidP_Input);
        ASSERT_EQ(values.size(), 1u) << c.items;
        EXPECT_EQ(std::tuple(values[0].UsagePage, values[0].LogicalMin, values[0].LogicalMax, values[0].UnitsExp),
                  std::tuple(c.page, c.min, c.max, c.unitsExp))
            << c.items;
    }
}

TEST(DeviceQuirks, VendorCollectionNestedInASensor)
{
    DescriptorBuilder b;
    b.UsagePage(0x20).Usage(0x01).Collection(CollectionType::Application);
    b.Usage(0xE1).Collection(CollectionType::Physical).ReportId(1);
    b.UsagePage(0xFF00).Usage(0x10).Collection(std::uint8_t{0x80});  // vendor collection type
    b.Usage(0x11).LogicalMinimum(0).LogicalMaximum(255).ReportSize(8).ReportCount(4).Feature(main_item::kDataVarAbs);
    b.EndCollection();
    b.UsagePage(0x20).Usage(0x544).LogicalMinimum(-100).LogicalMaximum(100).ReportCount(1);
    b.Input(main_item::kDataVarAbs).EndCollection().EndCollection();

    PreparsedBlob blob = ParseSingle(b.Build());
    const auto nodes = Nodes(blob);
    ASSERT_EQ(nodes.size(), 3u);
    EXPECT_EQ(std::tuple(nodes[2].LinkUsagePage, nodes[2].LinkUsage, nodes[2].Parent, nodes[2].CollectionType),
              std::tuple(USAGE{0xFF00}, USAGE{0x10}, USHORT{1}, UCHAR{0x80}));
    EXPECT_EQ(nodes[1].NumberOfChildren, 1);

    const auto feature = ValueCaps(blob, HidP_Feature);
    ASSERT_EQ(feature.size(), 1u);
    EXPECT_EQ(std::tuple(feature[0].UsagePage, feature[0].LinkCollection, feature[0].LinkUsagePage,
                         feature[0].LinkUsage, feature[0].ReportCount),
              std::tuple(USAGE{0xFF00}, USHORT{2}, USAGE{0xFF00}, USAGE{0x10}, USHORT{4}));
    const auto input = ValueCaps(blob, HidP_Input);
    ASSERT_EQ(input.size(), 1u);
    EXPECT_EQ(std::tuple(input[0].LinkCollection, input[0].LinkUsage), std::tuple(USHORT{1}, USAGE{0xE1}));
}

TEST(DeviceQuirks, InputsFlaggedConstantStillCarryData)
{
    // Webcam presence sensor: sensor state and presence are `81 03`.
    PreparsedBlob blob = ParseSingle(LoadDescriptor("fujitsu-webcam-presence"));
    const auto inputs = ValueCaps(blob, HidP_Input);
    ASSERT_EQ(inputs.size(), 2u);
    EXPECT_EQ(std::tuple(inputs[1].Range.UsageMin, inputs[1].BitField), std::tuple(USAGE{0x04B1}, USHORT{0x03}));

    std::vector<CHAR> report = {0x00, 0x01, 0x01};  // no report ID: byte 0 is 0
    ASSERT_EQ(report.size(), Caps(blob).InputReportByteLength);
    ULONG present = 7;
    EXPECT_EQ(GetValue(blob, HidP_Input, 0x20, 0, 0x04B1, report, present), HIDP_STATUS_SUCCESS);
    EXPECT_EQ(present, 1u);
    report[2] = 0;
    EXPECT_EQ(GetValue(blob, HidP_Input, 0x20, 0, 0x04B1, report, present), HIDP_STATUS_SUCCESS);
    EXPECT_EQ(present, 0u);
}

TEST(DeviceQuirks, LongItemsAreSkipped)
{
    EXPECT_EQ(ParseSingle(Hex("05 20 09 E1 A1 01 0A 44 05 75 10 95 01 81 02 C0")),
              ParseSingle(Hex("05 20 09 E1 A1 01 FE 03 F0 01 02 03 0A 44 05 75 10 95 01 FE 00 F0 81 02 C0")));
}

TEST(DeviceQuirks, ThirtyTwoBitUsagesCarryTheirOwnPage)
{
    DescriptorBuilder b;
    b.UsagePage(0x20).Usage(0xE1).Collection(CollectionType::Application);
    b.LogicalMinimum(0).LogicalMaximum(255).ReportSize(8).ReportCount(3);
    b.Usage32(0xFF01, 0x0042).Delimiter(true).Usage(0x544).Usage(0x546).Delimiter(false).Usage32(0x0020, 0x0545);
    b.Input(main_item::kDataVarAbs);
    b.ReportSize(1).ReportCount(4).LogicalMaximum(1).UsageMinimum32(0x0009, 1).UsageMaximum32(0x0009, 4);
    b.Input(main_item::kDataVarAbs).ReportCount(4).Input(main_item::kConstant);
    b.EndCollection();
    PreparsedBlob blob = ParseSingle(b.Build());

    const auto values = ValueCaps(blob, HidP_Input);
    ASSERT_EQ(values.size(), 4u);
    EXPECT_EQ(std::tuple(values[0].UsagePage, values[0].NotRange.Usage), std::tuple(0xFF01, 0x42));
    // A 16-bit usage takes the Usage Page; the delimiter set is one control.
    EXPECT_EQ(std::tuple(values[1].UsagePage, values[1].NotRange.Usage, values[1].IsAlias), std::tuple(0x20, 0x544, 0));
    EXPECT_EQ(std::tuple(values[2].UsagePage, values[2].NotRange.Usage, values[2].IsAlias), std::tuple(0x20, 0x546, 1));
    EXPECT_EQ(std::tuple(values[3].UsagePage, values[3].NotRange.Usage), std::tuple(0x20, 0x545));
    const auto buttons = ButtonCaps(blob, HidP_Input);
    ASSERT_EQ(buttons.size(), 1u);
    const HIDP_BUTTON_CAPS& range = buttons[0];
    EXPECT_EQ(std::tuple(range.UsagePage, range.IsRange, range.Range.UsageMin, range.Range.UsageMax),
              std::tuple(0x09, 1, 1, 4));
    EXPECT_EQ(Caps(blob).InputReportByteLength, 1 + 3 + 1);

    std::vector<CHAR> report = EmptyReport(blob, HidP_Input, 0);
    EXPECT_EQ(SetValue(blob, HidP_Input, 0xFF01, 0, 0x42, 0x99, report), HIDP_STATUS_SUCCESS);
    EXPECT_EQ(static_cast<std::uint8_t>(report[1]), 0x99);
}

TEST(DeviceQuirks, PushAndPopRestoreGlobals)
{
    DescriptorBuilder b;
    b.UsagePage(0x20).Usage(0xE1).Collection(CollectionType::Application).ReportId(3);
    b.LogicalMinimum(-10).LogicalMaximum(10).ReportSize(8).ReportCount(1).UnitExponent(-2);
    b.Push().UsagePage(0xFF00).LogicalMinimum(0).LogicalMaximum(1000).ReportSize(16).UnitExponent(0);
    b.Usage(0x01).Feature(main_item::kDataVarAbs);
    b.Pop().Usage(0x544).Feature(main_item::kDataVarAbs).EndCollection();
    PreparsedBlob blob = ParseSingle(b.Build());
    // Per capability: page, bit size, logical range, exponent code, report ID.
    std::vector<std::tuple<USAGE, USHORT, LONG, LONG, ULONG, UCHAR>> rows;
    for (const auto& v : ValueCaps(blob, HidP_Feature))
        rows.emplace_back(v.UsagePage, v.BitSize, v.LogicalMin, v.LogicalMax, v.UnitsExp, v.ReportID);
    EXPECT_EQ(rows, (std::vector<std::tuple<USAGE, USHORT, LONG, LONG, ULONG, UCHAR>>{{0xFF00, 16, 0, 1000, 0x0, 3},
                                                                           {0x20, 8, -10, 10, 0xE, 3}}));
    EXPECT_EQ(Caps(blob).FeatureReportByteLength, 1 + 2 + 1);
}

TEST(DeviceQuirks, StringAndDesignatorIndicesAndRanges)
{
    DescriptorBuilder b;
    b.UsagePage(0x01).Usage(0x04).Collection(CollectionType::Application);
    b.LogicalMinimum(0).LogicalMaximum(255).ReportSize(8).ReportCount(3);
    b.Usage(0x30).Usage(0x31).Usage(0x32);
    b.StringIndex(4).StringMinimum(5).StringMaximum(7);
    b.DesignatorMinimum(1).DesignatorMaximum(2).DesignatorIndex(9);
    b.Input(main_item::kDataVarAbs).EndCollection();
    PreparsedBlob blob = ParseSingle(b.Build());
    // Per capability: string range?, string min/index, max; designator range?, min/index, max.
    // The last entry serves the capabilities after it.
    std::vector<std::tuple<BOOLEAN, USHORT, USHORT, BOOLEAN, USHORT, USHORT>> rows;
    for (const auto& v : ValueCaps(blob, HidP_Input))
        rows.emplace_back(v.IsStringRange, v.Range.StringMin, v.Range.StringMax, v.IsDesignatorRange,
                          v.Range.DesignatorMin, v.Range.DesignatorMax);
    EXPECT_EQ(rows, (std::vector<std::tuple<BOOLEAN, USHORT, USHORT, BOOLEAN, USHORT, USHORT>>{
                        {0, 4, 0, 1, 1, 2}, {1, 5, 7, 0, 9, 0}, {1, 5, 7, 0, 9, 0}}));
}

TEST(DeviceQuirks, CompositeDeviceWithPhysicalSensorCollectionBesideOthers)
{
    DescriptorBuilder b;
    b.UsagePage(0x01).Usage(0x06).Collection(CollectionType::Application).ReportId(1);
    b.UsagePage(0x07).UsageMinimum(0xE0).UsageMaximum(0xE7).LogicalMinimum(0).LogicalMaximum(1);
    b.ReportSize(1).ReportCount(8).Input(main_item::kDataVarAbs).EndCollection();
    b.UsagePage(0x0C).Usage(0x01).Collection(CollectionType::Application).ReportId(2);
    b.UsageMinimum(0).UsageMaximum(0x3FF).LogicalMaximum(0x3FF).ReportSize(16).ReportCount(1);
    b.Input(main_item::kDataArrayAbs).EndCollection();
    b.UsagePage(0x20).Usage(0x73).Collection(CollectionType::Physical).ReportId(3);
    b.Usage(0x453).LogicalMinimum(-32767).LogicalMaximum(32767).ReportCount(3).Input(main_item::kDataVarAbs);
    b.EndCollection();
    b.UsagePage(0xFF00).Usage(0x01).Collection(CollectionType::Application).ReportId(4);
    b.Usage(0x02).LogicalMinimum(0).LogicalMaximum(255).ReportSize(8).ReportCount(63).Feature(main_item::kDataVarAbs);
    b.EndCollection();

    std::vector<PreparsedBlob> blobs = ParseOk(b.Build());
    // Per collection: page, usage, input and feature report lengths.
    std::vector<std::tuple<USAGE, USAGE, USHORT, USHORT>> rows;
    for (PreparsedBlob& blob : blobs) {
        const HIDP_CAPS c = Caps(blob);
        rows.emplace_back(c.UsagePage, c.Usage, c.InputReportByteLength, c.FeatureReportByteLength);
    }
    EXPECT_EQ(rows, (std::vector<std::tuple<USAGE, USAGE, USHORT, USHORT>>{
                        {0x01, 0x06, 1 + 1, 0}, {0x0C, 0x01, 1 + 2, 0},
                        {0x20, 0x73, 1 + 6, 0}, {0xFF00, 0x01, 0, 64}}));
}

}  // namespace
}  // namespace host::hid
