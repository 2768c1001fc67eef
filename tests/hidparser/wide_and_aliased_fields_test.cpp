// Fields wider than a ULONG, usages aliased by a delimiter set, and the
// descriptor mistakes the parser takes from shipped devices instead of
// refusing them.
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <tuple>

#include "host/hidparser/descriptor_builder.h"
#include "test_support.h"

namespace host::hid {
namespace {

using namespace test;

constexpr USAGE kVendorPage = 0xFF00;

// The shape of a USB ambient-light sensor: a sensor collection whose light
// sensor nests a vendor collection that holds 48, 64 and 192-bit feature
// fields next to ordinary ones. The 192-bit usage is declared twice (two
// elements); one 48-bit field starts at an odd bit.
std::vector<std::uint8_t> AmbientLightWithWideFields()
{
    DescriptorBuilder b;
    b.UsagePage(0x20).Usage(0x01).Collection(CollectionType::Application);
    b.Usage(0x41).Collection(CollectionType::Physical).ReportId(1);
    b.Usage(0x30E).LogicalMinimum(0).LogicalMaximum(0xFFFF, ItemSize::Four).ReportSize(32).ReportCount(1);
    b.Feature(main_item::kDataVarAbs);
    b.UsagePage(kVendorPage).Usage(0x01).Collection(CollectionType::Logical);
    b.Usage(0x10).ReportSize(48).ReportCount(1).Feature(main_item::kDataVarAbs);
    b.Usage(0x11).ReportSize(64).Feature(main_item::kDataVarAbs);
    b.Usage(0x12).ReportSize(192).ReportCount(2).Feature(main_item::kDataVarAbs);
    b.ReportSize(3).ReportCount(1).Feature(main_item::kConstant);
    b.Usage(0x13).ReportSize(48).Feature(main_item::kDataVarAbs);
    b.ReportSize(5).Feature(main_item::kConstant);
    b.EndCollection();
    b.EndCollection().EndCollection();
    return b.Build();
}

// Report bytes: ID, 4 (0x30E), 6 (0x10), 8 (0x11), 48 (0x12), 7 (pad, 0x13, pad).
constexpr ULONG kWideReportLength = 1 + 4 + 6 + 8 + 48 + 7;

NTSTATUS GetArray(PreparsedBlob& blob, USAGE usage, std::vector<CHAR>& report, std::span<std::uint8_t> out)
{
    return HidP_GetUsageValueArray(HidP_Feature, kVendorPage, 0, usage, reinterpret_cast<CHAR*>(out.data()),
                                   static_cast<USHORT>(out.size()), Preparsed(blob), report.data(),
                                   static_cast<ULONG>(report.size()));
}

NTSTATUS SetArray(PreparsedBlob& blob, USAGE usage, std::vector<CHAR>& report, std::span<std::uint8_t> in)
{
    return HidP_SetUsageValueArray(HidP_Feature, kVendorPage, 0, usage, reinterpret_cast<CHAR*>(in.data()),
                                   static_cast<USHORT>(in.size()), Preparsed(blob), report.data(),
                                   static_cast<ULONG>(report.size()));
}

TEST(WideFields, AreValueCapabilitiesWithTheirDeclaredSize)
{
    PreparsedBlob blob = ParseSingle(AmbientLightWithWideFields());
    EXPECT_EQ(Caps(blob).FeatureReportByteLength, kWideReportLength);
    const auto values = ValueCaps(blob, HidP_Feature);
    ASSERT_EQ(values.size(), 5u);
    const std::tuple<USAGE, USHORT, USHORT> expected[] = {
        {0x30E, 32, 1}, {0x10, 48, 1}, {0x11, 64, 1}, {0x12, 192, 2}, {0x13, 48, 1}};
    for (std::size_t i = 0; i < values.size(); ++i)
        EXPECT_EQ(std::tuple(values[i].NotRange.Usage, values[i].BitSize, values[i].ReportCount), expected[i]) << i;
    EXPECT_EQ(values[1].LinkCollection, 2);
}

TEST(WideFields, BytesRoundTripThroughTheArrayCalls)
{
    PreparsedBlob blob = ParseSingle(AmbientLightWithWideFields());
    // usage, bytes, first bit in the report
    const std::tuple<USAGE, std::size_t, std::size_t> fields[] = {
        {0x10, 6, 40}, {0x11, 8, 88}, {0x12, 48, 152}, {0x13, 6, 539}};
    for (const auto& [usage, bytes, bitOffset] : fields) {
        SCOPED_TRACE(usage);
        std::vector<CHAR> report = EmptyReport(blob, HidP_Feature, 1);
        std::vector<std::uint8_t> written(bytes);
        for (std::size_t i = 0; i < bytes; ++i) written[i] = static_cast<std::uint8_t>(0xA1 + 7 * i + usage);
        ASSERT_EQ(SetArray(blob, usage, report, written), HIDP_STATUS_SUCCESS);
        // The bytes sit at the field's bits and nowhere else.
        for (std::size_t bit = 8; bit < report.size() * 8; ++bit) {
            const bool inField = bit >= bitOffset && bit < bitOffset + bytes * 8;
            const unsigned actual = (static_cast<std::uint8_t>(report[bit / 8]) >> (bit % 8)) & 1;
            const std::size_t at = bit - bitOffset;
            const unsigned want = inField ? (written[at / 8] >> (at % 8)) & 1 : 0;
            ASSERT_EQ(actual, want) << "bit " << bit;
        }
        std::vector<std::uint8_t> read(bytes + 3, 0xEE);
        ASSERT_EQ(GetArray(blob, usage, report, read), HIDP_STATUS_SUCCESS);
        EXPECT_TRUE(std::equal(written.begin(), written.end(), read.begin()));
        EXPECT_EQ(read[bytes], 0xEE);  // nothing past the field's bytes

        std::vector<std::uint8_t> small(bytes - 1);
        EXPECT_EQ(GetArray(blob, usage, report, small), HIDP_STATUS_BUFFER_TOO_SMALL);
        EXPECT_EQ(SetArray(blob, usage, report, small), HIDP_STATUS_BUFFER_TOO_SMALL);
    }
}

TEST(WideFields, SingleValueCallsUseTheLow32Bits)
{
    PreparsedBlob blob = ParseSingle(AmbientLightWithWideFields());
    for (const USAGE usage : {USAGE{0x10}, USAGE{0x11}, USAGE{0x13}}) {
        SCOPED_TRACE(usage);
        std::vector<CHAR> report = EmptyReport(blob, HidP_Feature, 1);
        std::array<std::uint8_t, 8> ones;
        ones.fill(0xFF);
        ASSERT_EQ(SetArray(blob, usage, report, std::span(ones).first(usage == 0x11 ? 8 : 6)), HIDP_STATUS_SUCCESS);
        ULONG value = 0;
        ASSERT_EQ(GetValue(blob, HidP_Feature, kVendorPage, 0, usage, report, value), HIDP_STATUS_SUCCESS);
        EXPECT_EQ(value, 0xFFFFFFFFu);
        // A set value is zero-extended over the whole field.
        ASSERT_EQ(SetValue(blob, HidP_Feature, kVendorPage, 0, usage, 0x12345678, report), HIDP_STATUS_SUCCESS);
        std::array<std::uint8_t, 8> read{};
        ASSERT_EQ(GetArray(blob, usage, report, read), HIDP_STATUS_SUCCESS);
        const std::array<std::uint8_t, 8> expected = {0x78, 0x56, 0x34, 0x12, 0, 0, 0, 0};
        EXPECT_EQ(read, expected);
    }
    std::vector<CHAR> report = EmptyReport(blob, HidP_Feature, 1);
    ULONG value = 0;
    EXPECT_EQ(GetValue(blob, HidP_Feature, kVendorPage, 0, 0x12, report, value), HIDP_STATUS_IS_VALUE_ARRAY);
    std::array<std::uint8_t, 4> small{};
    EXPECT_EQ(HidP_GetUsageValueArray(HidP_Feature, 0x20, 0, 0x30E, reinterpret_cast<CHAR*>(small.data()), 4,
                                      Preparsed(blob), report.data(), kWideReportLength),
              HIDP_STATUS_NOT_VALUE_ARRAY);
}

// One usage in one report, once 48 bits wide in the first link collection
// and once 16 bits wide in the second: the first in descriptor order answers
// an unspecified link collection, whatever its width.
TEST(WideFields, DescriptorOrderDecidesBetweenAWideAndANarrowFieldOfOneUsage)
{
    DescriptorBuilder b;
    b.UsagePage(kVendorPage).Usage(0x01).Collection(CollectionType::Application).ReportId(4);
    b.Usage(0x02).Collection(CollectionType::Logical);
    b.Usage(0x20).LogicalMinimum(0).LogicalMaximum(255).ReportSize(48).ReportCount(1).Input(main_item::kDataVarAbs);
    b.EndCollection().Usage(0x03).Collection(CollectionType::Logical);
    b.Usage(0x20).ReportSize(16).Input(main_item::kDataVarAbs);
    b.EndCollection().EndCollection();
    PreparsedBlob blob = ParseSingle(b.Build());
    std::vector<CHAR> report = EmptyReport(blob, HidP_Input, 4);
    ASSERT_EQ(report.size(), 1u + 6 + 2);
    report[1] = 0x11;
    report[7] = 0x22;
    const std::tuple<USHORT, ULONG> cases[] = {{HIDP_LINK_COLLECTION_UNSPECIFIED, 0x11}, {1, 0x11}, {2, 0x22}};
    for (const auto& [link, expected] : cases) {
        ULONG value = 0;
        EXPECT_EQ(GetValue(blob, HidP_Input, kVendorPage, link, 0x20, report, value), HIDP_STATUS_SUCCESS);
        EXPECT_EQ(value, expected) << link;
    }
}

// An array of 40-bit slots: the index sits in the low 32 bits, and a set or
// cleared slot is written whole.
TEST(WideFields, SelectorArraySlotsWiderThan32Bits)
{
    DescriptorBuilder b;
    b.UsagePage(0x20).Usage(0xE1).Collection(CollectionType::Application).ReportId(3);
    b.LogicalMinimum(0).LogicalMaximum(5).ReportSize(40).ReportCount(2);
    b.UsageMinimum(0x840).UsageMaximum(0x845).Feature(main_item::kDataArrayAbs);
    b.EndCollection();
    PreparsedBlob blob = ParseSingle(b.Build());
    std::vector<CHAR> report = EmptyReport(blob, HidP_Feature, 3);
    ASSERT_EQ(report.size(), 1u + 10);
    std::fill(report.begin() + 1, report.end(), static_cast<CHAR>(0xFF));  // out of range: free slots
    ASSERT_EQ(SetUsages(blob, HidP_Feature, 0x20, 0, {0x842}, report), HIDP_STATUS_SUCCESS);
    const std::vector<std::uint8_t> set = {3, 2, 0, 0, 0, 0, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};
    EXPECT_EQ(std::vector<std::uint8_t>(report.begin(), report.end()), set);
    EXPECT_EQ(GetUsages(blob, HidP_Feature, 0x20, 0, report), std::vector<USAGE>{0x842});
    ASSERT_EQ(UnsetUsages(blob, HidP_Feature, 0x20, 0, {0x842}, report), HIDP_STATUS_SUCCESS);
    EXPECT_EQ(std::count(report.begin() + 1, report.begin() + 6, 0), 5);
}

// Usage 0x20, a delimiter set {0x30, 0x31, 0x32}, usage 0x40: three
// controls of one byte each, five capabilities.
TEST(AliasedUsages, EveryUsageOfADelimiterSetIsACapabilityOnTheSameBits)
{
    DescriptorBuilder b;
    b.UsagePage(kVendorPage).Usage(0x01).Collection(CollectionType::Application).ReportId(2);
    b.LogicalMinimum(0).LogicalMaximum(255).ReportSize(8).ReportCount(3);
    b.Usage(0x20).Delimiter(true).Usage(0x30).Usage(0x31).Usage(0x32).Delimiter(false).Usage(0x40);
    b.Feature(main_item::kDataVarAbs);
    b.EndCollection();
    PreparsedBlob blob = ParseSingle(b.Build());

    const auto values = ValueCaps(blob, HidP_Feature);
    ASSERT_EQ(values.size(), 5u);
    EXPECT_EQ(Caps(blob).NumberFeatureDataIndices, 3);
    // usage, IsAlias, data index
    const std::tuple<USAGE, BOOLEAN, USHORT> expected[] = {
        {0x20, 0, 0}, {0x30, 0, 1}, {0x31, 1, 1}, {0x32, 1, 1}, {0x40, 0, 2}};
    for (std::size_t i = 0; i < values.size(); ++i)
        EXPECT_EQ(std::tuple(values[i].NotRange.Usage, values[i].IsAlias, values[i].NotRange.DataIndex), expected[i])
            << i;

    std::vector<CHAR> report = EmptyReport(blob, HidP_Feature, 2);
    ASSERT_EQ(SetValue(blob, HidP_Feature, kVendorPage, 0, 0x32, 0x5A, report), HIDP_STATUS_SUCCESS);
    ASSERT_EQ(SetValue(blob, HidP_Feature, kVendorPage, 0, 0x40, 0x77, report), HIDP_STATUS_SUCCESS);
    EXPECT_EQ(static_cast<std::uint8_t>(report[2]), 0x5A);
    for (const USAGE alias : {USAGE{0x30}, USAGE{0x31}, USAGE{0x32}}) {
        ULONG value = 0;
        EXPECT_EQ(GetValue(blob, HidP_Feature, kVendorPage, 0, alias, report, value), HIDP_STATUS_SUCCESS);
        EXPECT_EQ(value, 0x5Au) << alias;
    }
    ULONG last = 0;
    EXPECT_EQ(GetValue(blob, HidP_Feature, kVendorPage, 0, 0x40, report, last), HIDP_STATUS_SUCCESS);
    EXPECT_EQ(last, 0x77u);
}

// An aliased last control still takes the elements left over.
TEST(AliasedUsages, ALastDelimiterSetTakesTheRemainingElements)
{
    DescriptorBuilder b;
    b.UsagePage(kVendorPage).Usage(0x01).Collection(CollectionType::Application);
    b.LogicalMinimum(0).LogicalMaximum(255).ReportSize(8).ReportCount(4);
    b.Usage(0x20).Delimiter(true).Usage(0x30).Usage(0x31).Delimiter(false);
    b.Input(main_item::kDataVarAbs);
    b.EndCollection();
    PreparsedBlob blob = ParseSingle(b.Build());
    const auto values = ValueCaps(blob, HidP_Input);
    ASSERT_EQ(values.size(), 3u);
    EXPECT_EQ(std::tuple(values[1].ReportCount, values[2].ReportCount, values[2].IsAlias), std::tuple(3, 3, 1));
}

// Items that carry no data a parser could place, or describe data only: a
// shipped device with them still works, so they are taken as the variant
// without them.
struct Tolerated {
    const char* name;
    const char* descriptor;
    const char* sameAs;
};

constexpr const char* kPlain = "05 01 09 02 A1 01 55 00 75 08 95 01 09 30 81 02 C0";

const Tolerated kTolerated[] = {
    {"ReservedItemType", "05 01 09 02 A1 01 1C 55 00 75 08 95 01 09 30 81 02 C0", kPlain},
    {"ReservedGlobalTag", "05 01 C4 09 02 A1 01 55 00 75 08 95 01 09 30 81 02 C0", kPlain},
    {"ReservedLocalTag", "05 01 09 02 A1 01 55 00 75 08 95 01 68 09 30 81 02 C0", kPlain},
    {"ReservedMainTag", "05 01 09 02 A1 01 55 00 75 08 95 01 00 09 30 81 02 C0", kPlain},
    {"PushWithoutPop", "05 01 09 02 A4 A1 01 55 00 75 08 95 01 09 30 81 02 C0", kPlain},
    {"UnitExponentAbove15", "05 01 09 02 A1 01 55 10 75 08 95 01 09 30 81 02 C0", kPlain},
    {"UnitExponentBelowMinus8", "05 01 09 02 A1 01 55 F7 75 08 95 01 09 30 81 02 C0",
     "05 01 09 02 A1 01 55 07 75 08 95 01 09 30 81 02 C0"},
};

class ToleratedDescriptor : public testing::TestWithParam<Tolerated> {};

TEST_P(ToleratedDescriptor, ParsesAsIfTheItemWereWellFormed)
{
    EXPECT_EQ(ParseSingle(Hex(GetParam().descriptor)), ParseSingle(Hex(GetParam().sameAs)));
}

INSTANTIATE_TEST_SUITE_P(Parser, ToleratedDescriptor, testing::ValuesIn(kTolerated),
                         [](const testing::TestParamInfo<Tolerated>& param) { return param.param.name; });

}  // namespace
}  // namespace host::hid
