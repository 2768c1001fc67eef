// One descriptor, several top-level collections: each gets its own preparsed
// data, capabilities, nodes and report lengths.
#include <gtest/gtest.h>

#include "host/hidparser/descriptor_builder.h"
#include "test_support.h"

namespace host::hid {
namespace {

using namespace test;

TEST(MultipleCollections, KeyboardSensorCollectionAndMouse)
{
    std::vector<PreparsedBlob> blobs = ParseOk(LoadDescriptor("hutrr39-col2"));
    ASSERT_EQ(blobs.size(), 3u);

    // Keyboard, report 3: 8 modifier bits and 10 key slots.
    const HIDP_CAPS keyboard = Caps(blobs[0]);
    EXPECT_EQ(keyboard.UsagePage, 0x01);
    EXPECT_EQ(keyboard.Usage, 0x06);
    EXPECT_EQ(keyboard.InputReportByteLength, 1 + 1 + 10);
    EXPECT_EQ(keyboard.NumberLinkCollectionNodes, 1);
    EXPECT_EQ(keyboard.NumberInputValueCaps, 0);
    EXPECT_EQ(keyboard.NumberInputDataIndices, 8 + 0x92);
    const auto keys = ButtonCaps(blobs[0], HidP_Input);
    ASSERT_EQ(keys.size(), 2u);
    EXPECT_EQ(keys[0].UsagePage, 0x07);
    EXPECT_TRUE(keys[0].IsRange);
    EXPECT_EQ(keys[0].Range.UsageMin, 0xE0);
    EXPECT_EQ(keys[0].Range.UsageMax, 0xE7);
    EXPECT_EQ(keys[0].Range.DataIndexMin, 0);
    EXPECT_EQ(keys[0].Range.DataIndexMax, 7);
    EXPECT_EQ(keys[0].ReportCount, 8);
    EXPECT_EQ(keys[0].BitField, 0x02);
    EXPECT_EQ(keys[1].Range.UsageMin, 0x00);
    EXPECT_EQ(keys[1].Range.UsageMax, 0x91);
    EXPECT_EQ(keys[1].Range.DataIndexMin, 8);
    EXPECT_EQ(keys[1].Range.DataIndexMax, 8 + 0x91);
    EXPECT_EQ(keys[1].ReportCount, 10);
    EXPECT_EQ(keys[1].ReportID, 3);

    // Sensor collection: two sensors, report IDs 2 and 3, no fields.
    const HIDP_CAPS sensors = Caps(blobs[1]);
    EXPECT_EQ(sensors.UsagePage, 0x20);
    EXPECT_EQ(sensors.Usage, 0x01);
    EXPECT_EQ(sensors.InputReportByteLength, 0);
    EXPECT_EQ(sensors.FeatureReportByteLength, 0);
    const auto nodes = Nodes(blobs[1]);
    ASSERT_EQ(nodes.size(), 3u);
    EXPECT_EQ(nodes[0].NumberOfChildren, 2);
    EXPECT_EQ(nodes[0].FirstChild, 2);
    EXPECT_EQ(nodes[1].LinkUsage, 0x73);
    EXPECT_EQ(nodes[1].Parent, 0);
    EXPECT_EQ(nodes[1].NextSibling, 0);
    EXPECT_EQ(nodes[2].LinkUsage, 0x76);
    EXPECT_EQ(nodes[2].NextSibling, 1);
    EXPECT_EQ(nodes[2].CollectionType, HIDP_COLLECTION_PHYSICAL);

    // Mouse, report 4: 5 buttons, 3 bits padding, X and Y.
    const HIDP_CAPS mouse = Caps(blobs[2]);
    EXPECT_EQ(mouse.Usage, 0x02);
    EXPECT_EQ(mouse.InputReportByteLength, 1 + 1 + 2);
    const auto axes = ValueCaps(blobs[2], HidP_Input);
    ASSERT_EQ(axes.size(), 2u);
    EXPECT_EQ(axes[0].NotRange.Usage, 0x30);
    EXPECT_EQ(axes[1].NotRange.Usage, 0x31);
    EXPECT_EQ(axes[0].LogicalMin, -127);
    EXPECT_EQ(axes[0].BitField, 0x06);
    EXPECT_FALSE(axes[0].IsAbsolute);
    EXPECT_EQ(axes[0].NotRange.DataIndex, 5);

    std::vector<CHAR> report = {4, 0x15, static_cast<CHAR>(-3), 7};
    ULONG value = 0;
    ASSERT_EQ(GetValue(blobs[2], HidP_Input, 0x01, 0, 0x30, report, value), HIDP_STATUS_SUCCESS);
    EXPECT_EQ(value, 0xFDu);
    EXPECT_EQ(GetUsages(blobs[2], HidP_Input, 0x09, 0, report), (std::vector<USAGE>{1, 3, 5}));
}

TEST(MultipleCollections, Col3DropsTheAccelerometer)
{
    std::vector<PreparsedBlob> blobs = ParseOk(LoadDescriptor("hutrr39-col3"));
    ASSERT_EQ(blobs.size(), 3u);
    const auto nodes = Nodes(blobs[1]);
    ASSERT_EQ(nodes.size(), 2u);
    EXPECT_EQ(nodes[1].LinkUsage, 0x76);
    EXPECT_EQ(Caps(blobs[0]).InputReportByteLength, 12);
    EXPECT_EQ(Caps(blobs[2]).InputReportByteLength, 4);
}

TEST(MultipleCollections, ReportIdSharedBetweenCollections)
{
    // Both collections put fields in input report 5; the report is one, so the
    // second collection's field follows the first one's and both see the full length.
    DescriptorBuilder b;
    b.UsagePage(0xFF00).Usage(0x01).Collection(CollectionType::Application).ReportId(5);
    b.Usage(0x10).LogicalMinimum(0).LogicalMaximum(255).ReportSize(8).ReportCount(2).Input(main_item::kDataVarAbs);
    b.EndCollection();
    b.UsagePage(0xFF00).Usage(0x02).Collection(CollectionType::Application);
    b.Usage(0x20).ReportSize(16).ReportCount(1).Input(main_item::kDataVarAbs);
    b.Usage(0x21).ReportSize(8).ReportCount(1).ReportId(6).Feature(main_item::kDataVarAbs);
    b.EndCollection();
    std::vector<PreparsedBlob> blobs = ParseOk(b.Build());
    ASSERT_EQ(blobs.size(), 2u);
    EXPECT_EQ(Caps(blobs[0]).InputReportByteLength, 1 + 2 + 2);
    EXPECT_EQ(Caps(blobs[1]).InputReportByteLength, 1 + 2 + 2);
    EXPECT_EQ(Caps(blobs[0]).FeatureReportByteLength, 0);
    EXPECT_EQ(Caps(blobs[1]).FeatureReportByteLength, 2);
    EXPECT_EQ(Caps(blobs[1]).NumberLinkCollectionNodes, 1);
    EXPECT_EQ(ValueCaps(blobs[1], HidP_Input)[0].NotRange.DataIndex, 0);  // indices restart per collection

    std::vector<CHAR> report = {5, 0x11, 0x22, 0x34, 0x12};
    ULONG value = 0;
    ASSERT_EQ(GetValue(blobs[1], HidP_Input, 0xFF00, 0, 0x20, report, value), HIDP_STATUS_SUCCESS);
    EXPECT_EQ(value, 0x1234u);
    EXPECT_EQ(GetValue(blobs[1], HidP_Input, 0xFF00, 0, 0x10, report, value), HIDP_STATUS_USAGE_NOT_FOUND);
}

}  // namespace
}  // namespace host::hid
