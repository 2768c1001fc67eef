// One descriptor, several top-level collections: each gets its own preparsed
// data, capabilities, nodes and report lengths.
#include <gtest/gtest.h>

#include <tuple>

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
    EXPECT_EQ(std::tuple(keyboard.UsagePage, keyboard.Usage, keyboard.InputReportByteLength,
                         keyboard.NumberInputDataIndices, keyboard.NumberLinkCollectionNodes),
              std::tuple(0x01, 0x06, 1 + 1 + 10, 8 + 0x92, 1));

    // Sensor collection: two sensors, report IDs 2 and 3, no fields.
    const HIDP_CAPS sensors = Caps(blobs[1]);
    EXPECT_EQ(std::tuple(sensors.UsagePage, sensors.Usage), std::tuple(0x20, 0x01));
    EXPECT_EQ(std::tuple(sensors.InputReportByteLength, sensors.FeatureReportByteLength), std::tuple(0, 0));
    const auto nodes = Nodes(blobs[1]);
    ASSERT_EQ(nodes.size(), 3u);
    EXPECT_EQ(std::tuple(nodes[1].LinkUsage, nodes[2].LinkUsage, nodes[2].CollectionType),
              std::tuple(USAGE{0x73}, USAGE{0x76}, UCHAR{HIDP_COLLECTION_PHYSICAL}));

    // Mouse, report 4: 5 buttons, 3 bits padding, X and Y.
    EXPECT_EQ(std::tuple(Caps(blobs[2]).Usage, Caps(blobs[2]).InputReportByteLength), std::tuple(0x02, 1 + 1 + 2));
    std::vector<CHAR> report = {4, 0x15, static_cast<CHAR>(-3), 7};
    ULONG value = 0;
    ASSERT_EQ(GetValue(blobs[2], HidP_Input, 0x01, 0, 0x30, report, value), HIDP_STATUS_SUCCESS);
    EXPECT_EQ(value, 0xFDu);
    EXPECT_EQ(GetUsages(blobs[2], HidP_Input, 0x09, 0, report), (std::vector<USAGE>{1, 3, 5}));
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
    for (auto [blob, feature] : {std::pair(&blobs[0], 0), std::pair(&blobs[1], 2)}) {
        EXPECT_EQ(Caps(*blob).InputReportByteLength, 1 + 2 + 2);
        EXPECT_EQ(Caps(*blob).FeatureReportByteLength, feature);
    }
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
