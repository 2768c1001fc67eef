// Whole descriptors of real and reference devices, with every capability
// field the driver relies on.
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <map>
#include <tuple>

#include "test_support.h"

namespace host::hid {
namespace {

using namespace test;

// Node: usage, parent, children, first child, next sibling, type. All on page 0x20.
using NodeRow = std::tuple<USAGE, USHORT, USHORT, USHORT, USHORT, UCHAR>;

void ExpectNodes(PreparsedBlob& blob, const std::vector<NodeRow>& expected)
{
    std::vector<NodeRow> rows;
    for (const auto& n : Nodes(blob)) {
        EXPECT_EQ(std::tuple(n.LinkUsagePage, n.UserContext), std::tuple(0x20, nullptr));
        rows.emplace_back(n.LinkUsage, n.Parent, n.NumberOfChildren, n.FirstChild, n.NextSibling, n.CollectionType);
    }
    EXPECT_EQ(rows, expected);
}

// Value: report ID, usage, link collection, bit size, count, logical range,
// exponent code, data index. All single usages on page 0x20.
using ValueRow = std::tuple<UCHAR, USAGE, USHORT, USHORT, USHORT, LONG, LONG, ULONG, USHORT>;

void ExpectValues(const std::vector<HIDP_VALUE_CAPS>& caps, const std::vector<ValueRow>& expected)
{
    std::vector<ValueRow> rows;
    for (const auto& c : caps) {
        EXPECT_EQ(std::tuple(c.UsagePage, c.IsRange), std::tuple(USAGE{0x20}, BOOLEAN{0}));
        rows.emplace_back(c.ReportID, c.NotRange.Usage, c.LinkCollection, c.BitSize, c.ReportCount, c.LogicalMin,
                          c.LogicalMax, c.UnitsExp, c.NotRange.DataIndex);
    }
    EXPECT_EQ(rows, expected);
}

// Selector: report ID, usage, link collection, count, data index. All single
// usages on page 0x20 in Data, Array, Absolute fields.
using ButtonRow = std::tuple<UCHAR, USAGE, USHORT, USHORT, USHORT>;

void ExpectButtons(const std::vector<HIDP_BUTTON_CAPS>& caps, const std::vector<ButtonRow>& expected)
{
    std::vector<ButtonRow> rows;
    for (const auto& c : caps) {
        EXPECT_EQ(std::tuple(c.UsagePage, c.IsRange, c.BitField), std::tuple(USAGE{0x20}, BOOLEAN{0}, USHORT{0}));
        rows.emplace_back(c.ReportID, c.NotRange.Usage, c.LinkCollection, c.ReportCount, c.NotRange.DataIndex);
    }
    EXPECT_EQ(rows, expected);
}

TEST(RealDescriptors, AndroidHeadTracker)
{
    PreparsedBlob blob = ParseSingle(LoadDescriptor("android-headtracker-v2-le"));
    // Input, ID 1: 3 x 16 + 3 x 16 + 8 bits. Feature, ID 2: 25 + 16 bytes (ID 1 needs only 3).
    EXPECT_EQ(std::tuple(Caps(blob).Usage, Caps(blob).InputReportByteLength, Caps(blob).FeatureReportByteLength),
              std::tuple(0xE1, 14, 42));
    ExpectNodes(blob, {{0x0E1, 0, 3, 3, 0, HIDP_COLLECTION_APPLICATION}, {0x316, 0, 0, 0, 0, HIDP_COLLECTION_LOGICAL},
                       {0x319, 0, 0, 0, 1, HIDP_COLLECTION_LOGICAL}, {0xF410, 0, 0, 0, 2, HIDP_COLLECTION_LOGICAL}});
    ExpectValues(ValueCaps(blob, HidP_Feature), {
                                                    {2, 0x0308, 0, 8, 25, 0, 255, 0, 0},
                                                    {2, 0x0302, 0, 8, 16, 0, 255, 0, 1},
                                                    {1, 0x030E, 0, 6, 1, 0, 63, 0xD, 6},
                                                });
    EXPECT_EQ(ValueCaps(blob, HidP_Feature)[0].BitField, 0x03);  // Constant, Variable

    const auto input = ValueCaps(blob, HidP_Input);
    ExpectValues(input, {
                            {1, 0x0544, 0, 16, 3, -32767, 32767, 0x8, 0},
                            {1, 0x0545, 0, 16, 3, -32767, 32767, 0x0, 1},
                            {1, 0x0546, 0, 8, 1, 0, 255, 0x0, 2},
                        });
    EXPECT_EQ(std::tuple(input[0].PhysicalMin, input[0].PhysicalMax), std::tuple(-314159264, 314159265));

    // 1-bit selectors are Array fields: button caps, one per selector.
    ExpectButtons(ButtonCaps(blob, HidP_Feature), {{1, 0x840, 1, 1, 2},
                                                   {1, 0x841, 1, 1, 3},
                                                   {1, 0x855, 2, 1, 4},
                                                   {1, 0x851, 2, 1, 5},
                                                   {1, 0xF800, 3, 1, 7},
                                                   {1, 0xF801, 3, 1, 8}});
}

TEST(RealDescriptors, AmdSensorFusionHubUsesReportIdOne)
{
    PreparsedBlob blob = ParseSingle(LoadDescriptor("amd-sfh-accel3d"));
    // Input: 1 + 2 selectors + 3 x 32 bits + 8 bits.
    EXPECT_EQ(std::tuple(Caps(blob).InputReportByteLength, Caps(blob).FeatureReportByteLength), std::tuple(16, 15));
    for (HIDP_REPORT_TYPE type : {HidP_Input, HidP_Feature}) {
        for (const auto& cap : ValueCaps(blob, type)) EXPECT_EQ(cap.ReportID, 1);
        for (const auto& cap : ButtonCaps(blob, type)) EXPECT_EQ(cap.ReportID, 1);
    }
    const auto input = ValueCaps(blob, HidP_Input);
    ASSERT_EQ(input.size(), 4u);
    EXPECT_EQ(std::tuple(input[0].BitSize, input[0].LogicalMin, input[2].LogicalMax, input[0].UnitsExp),
              std::tuple(32, static_cast<LONG>(0x80010000u), 0x7FFFFFFF, 0xEu));
}

TEST(RealDescriptors, CustomSensorWithTwentyEightValues)
{
    PreparsedBlob blob = ParseSingle(LoadDescriptor("hutrr39-cus4"));
    EXPECT_EQ(std::tuple(Caps(blob).Usage, Caps(blob).InputReportByteLength), std::tuple(0xE1, 1 + 2 + 30 * 2));
    const auto input = ValueCaps(blob, HidP_Input);
    ASSERT_EQ(input.size(), 30u);
    EXPECT_EQ(std::tuple(input[0].NotRange.Usage, input[1].NotRange.Usage), std::tuple(0x541, 0x542));

    // Each value sits right after the previous one: write all, read them back.
    std::vector<CHAR> report = EmptyReport(blob, HidP_Input, 0);
    for (int k = 1; k <= 28; ++k) {
        EXPECT_EQ(std::tuple(input[1 + k].NotRange.Usage, input[1 + k].NotRange.DataIndex),
                  std::tuple(0x543 + k, 14 + k));
        ASSERT_EQ(SetValue(blob, HidP_Input, 0x20, 0, static_cast<USAGE>(0x543 + k), 1000u * k, report),
                  HIDP_STATUS_SUCCESS);
    }
    for (int k = 1; k <= 28; ++k) {
        const std::size_t at = 1 + 2 + 4 + 2 * (k - 1);  // after ID, state + event, 0x541, 0x542
        std::uint16_t stored = 0;
        std::memcpy(&stored, report.data() + at, 2);  // little-endian host
        EXPECT_EQ(stored, 1000u * k) << "custom value " << k;
    }
}

// Checks that hold for every descriptor in tests/data.
TEST(RealDescriptors, ConsistentCapabilitiesForEveryDescriptor)
{
    std::size_t descriptors = 0;
    for (const auto& entry : std::filesystem::directory_iterator(HIDPARSER_TEST_DATA_DIR)) {
        if (entry.path().extension() != ".hex") continue;
        ++descriptors;
        const std::string name = entry.path().stem().string();
        SCOPED_TRACE(name);
        std::vector<PreparsedBlob> blobs = ParseOk(LoadDescriptor(name));
        ASSERT_FALSE(blobs.empty());
        for (PreparsedBlob& blob : blobs) {
            const HIDP_CAPS caps = Caps(blob);
            const auto nodes = Nodes(blob);
            EXPECT_EQ(std::tuple(nodes[0].Parent, nodes[0].LinkUsage, nodes[0].LinkUsagePage),
                      std::tuple(0, caps.Usage, caps.UsagePage));
            std::map<USHORT, USHORT> children;
            for (std::size_t i = 1; i < nodes.size(); ++i) {
                EXPECT_LT(nodes[i].Parent, i);  // descriptor order: parents come first
                ++children[nodes[i].Parent];
            }
            for (std::size_t i = 0; i < nodes.size(); ++i) {
                EXPECT_EQ(nodes[i].NumberOfChildren, children[static_cast<USHORT>(i)]);
                EXPECT_EQ(nodes[i].IsAlias, 0u);
                // Children are added to the front of the sibling chain: FirstChild is
                // the last one, NextSibling leads back, in descriptor order, to the first.
                USHORT walked = 0;
                for (USHORT c = nodes[i].FirstChild; c != 0; c = nodes[c].NextSibling, ++walked) {
                    ASSERT_LT(c, nodes.size());
                    EXPECT_EQ(nodes[c].Parent, i);
                    if (nodes[c].NextSibling != 0) {
                        ASSERT_LT(nodes[c].NextSibling, c);
                    }
                }
                EXPECT_EQ(walked, nodes[i].NumberOfChildren);
            }

            for (HIDP_REPORT_TYPE type : {HidP_Input, HidP_Output, HidP_Feature}) {
                // Data indices of a report type are 0..N-1, each used once.
                const USHORT indices = type == HidP_Input    ? caps.NumberInputDataIndices
                                       : type == HidP_Output ? caps.NumberOutputDataIndices
                                                             : caps.NumberFeatureDataIndices;
                std::vector<int> uses(indices, 0);
                // Either kind of capability: its link collection, and its data indices.
                auto check = [&](const auto& cap) {
                    ASSERT_LT(cap.LinkCollection, nodes.size());
                    EXPECT_EQ(cap.LinkUsage, nodes[cap.LinkCollection].LinkUsage);
                    EXPECT_EQ(cap.LinkUsagePage, nodes[cap.LinkCollection].LinkUsagePage);
                    const USHORT last = cap.IsRange ? cap.Range.DataIndexMax : cap.Range.DataIndexMin;
                    for (USHORT d = cap.Range.DataIndexMin; d <= last; ++d) {
                        ASSERT_LT(d, indices);
                        ++uses[d];
                    }
                };
                for (const auto& cap : ValueCaps(blob, type)) {
                    // Flags follow the main item's data bits; no aliases are reported.
                    EXPECT_EQ(cap.IsAbsolute, (cap.BitField & 0x04) == 0);
                    EXPECT_EQ(cap.HasNull, (cap.BitField & 0x40) != 0);
                    EXPECT_EQ(cap.IsAlias, 0);
                    EXPECT_GE(cap.BitSize, 1);
                    EXPECT_LE(cap.BitSize, 32);
                    EXPECT_GE(cap.ReportCount, 1);
                    check(cap);
                }
                for (const auto& cap : ButtonCaps(blob, type)) check(cap);
                for (int count : uses) EXPECT_EQ(count, 1);
            }
        }
    }
    EXPECT_EQ(descriptors, 24u);
}

}  // namespace
}  // namespace host::hid
