// HidP_Get/SetUsageValue and the array forms: every bit size at several bit
// offsets, signed values, multi-byte arrays, and the choice of field by the
// report ID in byte 0.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <tuple>

#include "host/hidparser/descriptor_builder.h"
#include "host/hidparser/sensor_descriptor.h"
#include "test_support.h"

namespace host::hid {
namespace {

using namespace test;

// Reference bit writer, one bit at a time: HID puts bit 0 of a field at the
// lowest free bit of the lowest byte.
void PutBits(std::vector<CHAR>& report, std::size_t bitOffset, unsigned bitSize, std::uint64_t value)
{
    for (std::size_t bit = bitOffset; bit < bitOffset + bitSize; ++bit) {
        const unsigned mask = 1u << (bit % 8);
        const unsigned byte = static_cast<std::uint8_t>(report[bit / 8]);
        report[bit / 8] = static_cast<CHAR>(((value >> (bit - bitOffset)) & 1) ? byte | mask : byte & ~mask);
    }
}

// Padding of `padBits`, the field under test (usage 0x10, bitSize bits,
// signed range), then an 8-bit neighbour (usage 0x11).
std::vector<std::uint8_t> FieldAt(unsigned padBits, unsigned bitSize)
{
    DescriptorBuilder b;
    b.UsagePage(0xFF00).Usage(0x01).Collection(CollectionType::Application).ReportId(9);
    if (padBits != 0) b.ReportSize(padBits).ReportCount(1).Input(main_item::kConstant);
    const std::int64_t half = std::int64_t{1} << (bitSize - 1);
    b.Usage(0x10).LogicalMinimum(-half).LogicalMaximum(half - 1).ReportSize(bitSize).ReportCount(1);
    b.Input(main_item::kDataVarAbs);
    b.Usage(0x11).LogicalMinimum(0).LogicalMaximum(255).ReportSize(8).Input(main_item::kDataVarAbs);
    b.EndCollection();
    return b.Build();
}

TEST(ValueAccess, RoundTripsEveryBitSizeAtSeveralOffsets)
{
    for (unsigned bitSize = 1; bitSize <= 32; ++bitSize) {
        for (unsigned pad : {0u, 1u, 3u, 7u, 9u, 13u}) {
            SCOPED_TRACE("bit size " + std::to_string(bitSize) + ", offset " + std::to_string(pad));
            PreparsedBlob blob = ParseSingle(FieldAt(pad, bitSize));
            std::vector<CHAR> report = EmptyReport(blob, HidP_Input, 9);
            const auto length = static_cast<ULONG>(report.size());
            ASSERT_EQ(length, 1 + (pad + bitSize + 8 + 7) / 8);

            // The field is signed: a negative value goes in and comes back raw, cut
            // to the field; the caller sign-extends by LogicalMin.
            const std::uint64_t mask = (std::uint64_t{1} << bitSize) - 1;
            for (std::uint64_t pattern : {0xFFFFFFFFull, 0xFFFFFFFBull, 0xA5C3E187ull, 0x12345678ull, 1ull, 0ull}) {
                const auto value = static_cast<ULONG>(pattern & mask);
                ASSERT_EQ(SetValue(blob, HidP_Input, 0xFF00, 0, 0x11, 0x5A, report), HIDP_STATUS_SUCCESS);
                ASSERT_EQ(SetValue(blob, HidP_Input, 0xFF00, 0, 0x10, static_cast<ULONG>(pattern), report),
                          HIDP_STATUS_SUCCESS);

                std::vector<CHAR> expected(length, 0);
                expected[0] = 9;
                PutBits(expected, 8 + pad, bitSize, value);
                PutBits(expected, 8 + pad + bitSize, 8, 0x5A);
                EXPECT_EQ(report, expected);

                ULONG read = ~value;
                ASSERT_EQ(GetValue(blob, HidP_Input, 0xFF00, 0, 0x10, report, read), HIDP_STATUS_SUCCESS);
                EXPECT_EQ(read, value);
                ASSERT_EQ(GetValue(blob, HidP_Input, 0xFF00, 0, 0x11, report, read), HIDP_STATUS_SUCCESS);
                EXPECT_EQ(read, 0x5Au);
            }
        }
    }
}

TEST(ValueAccess, Utf16StringProperty)
{
    sensor::SensorShape sensorShape = sensor::CustomSensor(32, {sensor::CustomValue(1)});
    sensorShape.reportId = 2;
    PreparsedBlob blob = ParseSingle(sensor::BuildSingleSensor(sensorShape));
    const auto features = ValueCaps(blob, HidP_Feature);
    ASSERT_EQ(features.size(), 2u);
    EXPECT_EQ(std::tuple(features[1].NotRange.Usage, features[1].BitSize, features[1].ReportCount),
              std::tuple(sensor::kDescription, 16, 32));

    std::vector<CHAR> report = EmptyReport(blob, HidP_Feature, 2);
    const auto length = static_cast<ULONG>(report.size());
    std::u16string text = u"0x232";
    text.resize(32);
    ASSERT_EQ(HidP_SetUsageValueArray(HidP_Feature, 0x20, 0, sensor::kDescription, reinterpret_cast<CHAR*>(text.data()),
                                      64, Preparsed(blob), report.data(), length),
              HIDP_STATUS_SUCCESS);
    // Feature report: ID, reporting and power selectors, 32-bit interval, then the string.
    EXPECT_EQ(std::tuple(report[7], report[8], report[9]), std::tuple('0', 0, 'x'));

    char buffer[128];
    std::memset(buffer, 0x7E, sizeof buffer);
    ASSERT_EQ(HidP_GetUsageValueArray(HidP_Feature, 0x20, 0, sensor::kDescription, buffer, sizeof buffer,
                                      Preparsed(blob), report.data(), length),
              HIDP_STATUS_SUCCESS);
    EXPECT_EQ(std::memcmp(buffer, text.data(), 64), 0);
    EXPECT_EQ(buffer[64], 0x7E);  // nothing written past the array
    EXPECT_EQ(HidP_GetUsageValueArray(HidP_Feature, 0x20, 0, sensor::kDescription, buffer, 63, Preparsed(blob),
                                      report.data(), length),
              HIDP_STATUS_BUFFER_TOO_SMALL);

    ULONG single = 0;
    EXPECT_EQ(GetValue(blob, HidP_Feature, 0x20, 0, sensor::kDescription, report, single), HIDP_STATUS_IS_VALUE_ARRAY);
    EXPECT_EQ(SetValue(blob, HidP_Feature, 0x20, 0, sensor::kDescription, 1, report), HIDP_STATUS_IS_VALUE_ARRAY);
    EXPECT_EQ(HidP_GetUsageValueArray(HidP_Feature, 0x20, 0, sensor::kReportInterval, buffer, sizeof buffer,
                                      Preparsed(blob), report.data(), length),
              HIDP_STATUS_NOT_VALUE_ARRAY);
}

TEST(ValueAccess, ArraysOfUnalignedElements)
{
    // Three 5-bit elements starting at bit 3 of the data.
    DescriptorBuilder b;
    b.UsagePage(0xFF00).Usage(0x01).Collection(CollectionType::Application);
    b.ReportSize(3).ReportCount(1).Input(main_item::kConstant);
    b.Usage(0x20).LogicalMinimum(0).LogicalMaximum(31).ReportSize(5).ReportCount(3).Input(main_item::kDataVarAbs);
    b.EndCollection();
    PreparsedBlob blob = ParseSingle(b.Build());
    std::vector<CHAR> report = EmptyReport(blob, HidP_Input, 0);
    ASSERT_EQ(report.size(), 1u + 3u);
    const auto length = static_cast<ULONG>(report.size());

    // Packed source: 0x11, 0x0A, 0x1F at bits 0, 5, 10; in the report from bit 8 + 3.
    std::vector<CHAR> packed(2, 0), expected(4, 0);
    const unsigned elements[] = {0x11, 0x0A, 0x1F};
    for (unsigned i = 0; i < 3; ++i) {
        PutBits(packed, 5 * i, 5, elements[i]);
        PutBits(expected, 11 + 5 * i, 5, elements[i]);
    }
    ASSERT_EQ(
        HidP_SetUsageValueArray(HidP_Input, 0xFF00, 0, 0x20, packed.data(), 2, Preparsed(blob), report.data(), length),
        HIDP_STATUS_SUCCESS);
    EXPECT_EQ(report, expected);

    std::vector<CHAR> back(2, 0x55);
    ASSERT_EQ(
        HidP_GetUsageValueArray(HidP_Input, 0xFF00, 0, 0x20, back.data(), 2, Preparsed(blob), report.data(), length),
        HIDP_STATUS_SUCCESS);
    EXPECT_EQ(back, packed);  // the spare top bit of the last byte is cleared
}

// Feature: two usages, Report Count 5: one element for the first, four for the
// last. Input: a usage range of three gives one element per usage.
TEST(ValueAccess, HowUsagesShareTheReportCount)
{
    DescriptorBuilder b;
    b.UsagePage(0xFF00).Usage(0x01).Collection(CollectionType::Application);
    b.Usage(0x30).Usage(0x31).LogicalMinimum(0).LogicalMaximum(255).ReportSize(8).ReportCount(5);
    b.Feature(main_item::kDataVarAbs);
    b.UsageMinimum(0x40).UsageMaximum(0x42).LogicalMaximum(1000).ReportSize(16).ReportCount(3);
    b.Input(main_item::kDataVarAbs).EndCollection();
    PreparsedBlob blob = ParseSingle(b.Build());
    const auto feature = ValueCaps(blob, HidP_Feature);
    ASSERT_EQ(feature.size(), 2u);
    EXPECT_EQ(std::tuple(feature[0].ReportCount, feature[1].ReportCount, feature[1].NotRange.DataIndex),
              std::tuple(1, 4, 1));
    const auto input = ValueCaps(blob, HidP_Input);
    ASSERT_EQ(input.size(), 1u);
    EXPECT_EQ(std::tuple(input[0].IsRange, input[0].Range.UsageMin, input[0].Range.UsageMax,
                         input[0].Range.DataIndexMin, input[0].Range.DataIndexMax, input[0].ReportCount),
              std::tuple(1, 0x40, 0x42, 0, 2, 3));

    std::vector<CHAR> report = {0, 1, 2, 3, 4, 5};
    ULONG value = 0;
    ASSERT_EQ(GetValue(blob, HidP_Feature, 0xFF00, 0, 0x30, report, value), HIDP_STATUS_SUCCESS);
    EXPECT_EQ(value, 1u);
    char rest[4] = {};
    ASSERT_EQ(HidP_GetUsageValueArray(HidP_Feature, 0xFF00, 0, 0x31, rest, 4, Preparsed(blob), report.data(), 6),
              HIDP_STATUS_SUCCESS);
    EXPECT_EQ(std::tuple(rest[0], rest[3]), std::tuple(2, 5));

    report = EmptyReport(blob, HidP_Input, 0);
    for (USAGE usage = 0x40; usage <= 0x42; ++usage)
        ASSERT_EQ(SetValue(blob, HidP_Input, 0xFF00, 0, usage, 100u + usage, report), HIDP_STATUS_SUCCESS);
    EXPECT_EQ(std::tuple(std::uint8_t(report[1]), std::uint8_t(report[5])), std::tuple(100 + 0x40, 100 + 0x42));
    ASSERT_EQ(GetValue(blob, HidP_Input, 0xFF00, 0, 0x41, report, value), HIDP_STATUS_SUCCESS);
    EXPECT_EQ(value, 100u + 0x41);
    EXPECT_EQ(HidP_GetUsageValueArray(HidP_Input, 0xFF00, 0, 0x41, rest, 4, Preparsed(blob), report.data(),
                                      static_cast<ULONG>(report.size())),
              HIDP_STATUS_NOT_VALUE_ARRAY);
    EXPECT_EQ(GetValue(blob, HidP_Input, 0xFF00, 0, 0x43, report, value), HIDP_STATUS_USAGE_NOT_FOUND);
}

// Two custom sensors in one container use the same usages in reports 1 and 2
// and in link collections of their own (nodes 1 and 6).
TEST(ValueAccess, SameUsageInSeveralReportsOfSeveralSensors)
{
    const sensor::SensorShape first = sensor::CustomSensor(16, {sensor::CustomValue(1), sensor::CustomValue(2)});
    const sensor::SensorShape second = sensor::CustomSensor(16, {sensor::CustomValue(1, 8, -100, 100)});
    PreparsedBlob blob = ParseSingle(sensor::BuildSensorContainer({first, second}));
    const USHORT firstSensor = 1, secondSensor = 6;
    ASSERT_EQ(std::tuple(Nodes(blob)[firstSensor].LinkUsage, Nodes(blob)[secondSensor].LinkUsage),
              std::tuple(sensor::kCustomSensor, sensor::kCustomSensor));
    const USAGE value1 = sensor::CustomValueUsage(1);
    const std::size_t length = Caps(blob).InputReportByteLength;

    // Input report: ID, state, event, then the custom values. Byte 0 picks the field.
    auto get = [&](USHORT link, std::uint8_t reportId, ULONG& value) {
        std::vector<CHAR> report = {static_cast<CHAR>(reportId), 0, 0, 0x34, 0x12};
        report.resize(length);
        return GetValue(blob, HidP_Input, 0x20, link, value1, report, value);
    };
    ULONG value = 0;
    ASSERT_EQ(get(HIDP_LINK_COLLECTION_UNSPECIFIED, 1, value), HIDP_STATUS_SUCCESS);
    EXPECT_EQ(value, 0x1234u);
    ASSERT_EQ(get(HIDP_LINK_COLLECTION_UNSPECIFIED, 2, value), HIDP_STATUS_SUCCESS);
    EXPECT_EQ(value, 0x34u);  // the second sensor's value is 8 bits
    ASSERT_EQ(get(secondSensor, 2, value), HIDP_STATUS_SUCCESS);
    EXPECT_EQ(value, 0x34u);

    // Link collection and report ID must agree.
    EXPECT_EQ(get(firstSensor, 2, value), HIDP_STATUS_INCOMPATIBLE_REPORT_ID);
    EXPECT_EQ(get(secondSensor, 1, value), HIDP_STATUS_INCOMPATIBLE_REPORT_ID);
    EXPECT_EQ(get(HIDP_LINK_COLLECTION_UNSPECIFIED, 3, value), HIDP_STATUS_INCOMPATIBLE_REPORT_ID);
    EXPECT_EQ(get(HIDP_LINK_COLLECTION_ROOT, 1, value), HIDP_STATUS_USAGE_NOT_FOUND);  // not in node 0
    EXPECT_EQ(get(firstSensor + 1, 1, value), HIDP_STATUS_USAGE_NOT_FOUND);           // a selector's node

    // Set on a zeroed report writes the field's report ID.
    std::vector<CHAR> report(length, 0);
    ASSERT_EQ(SetValue(blob, HidP_Input, 0x20, secondSensor, value1, 0x7F, report), HIDP_STATUS_SUCCESS);
    EXPECT_EQ(std::tuple(report[0], report[3]), std::tuple(2, 0x7F));
    std::fill(report.begin(), report.end(), 0);  // unspecified link: the first field in descriptor order
    ASSERT_EQ(SetValue(blob, HidP_Input, 0x20, 0, value1, 0x7F, report), HIDP_STATUS_SUCCESS);
    EXPECT_EQ(report[0], 1);
    report[0] = 2;  // byte 0 already names another report
    EXPECT_EQ(SetValue(blob, HidP_Input, 0x20, 0, sensor::CustomValueUsage(2), 1, report),
              HIDP_STATUS_INCOMPATIBLE_REPORT_ID);
}

TEST(ValueAccess, SameUsageAndReportInTwoLinkCollections)
{
    // Both fields have the same lookup key; the link collection tells them
    // apart, and "any" takes the first in descriptor order.
    DescriptorBuilder b;
    b.UsagePage(0xFF00).Usage(0x01).Collection(CollectionType::Application).ReportId(1);
    b.LogicalMinimum(0).LogicalMaximum(255).ReportSize(8).ReportCount(1);
    b.Usage(0x02).Collection(CollectionType::Physical).Usage(0x10).Input(main_item::kDataVarAbs).EndCollection();
    b.Usage(0x03).Collection(CollectionType::Physical).Usage(0x10).Input(main_item::kDataVarAbs).EndCollection();
    b.EndCollection();
    PreparsedBlob blob = ParseSingle(b.Build());
    std::vector<CHAR> report = {1, 11, 22};
    ULONG value = 0;
    const std::pair<USHORT, ULONG> reads[] = {{1, 11}, {2, 22}, {HIDP_LINK_COLLECTION_UNSPECIFIED, 11}};
    for (const auto& [link, expected] : reads) {
        ASSERT_EQ(GetValue(blob, HidP_Input, 0xFF00, link, 0x10, report, value), HIDP_STATUS_SUCCESS) << link;
        EXPECT_EQ(value, expected) << link;
    }
    EXPECT_EQ(GetValue(blob, HidP_Input, 0xFF00, HIDP_LINK_COLLECTION_ROOT, 0x10, report, value),
              HIDP_STATUS_USAGE_NOT_FOUND);
    std::vector<CHAR> zeroed(3, 0);
    ASSERT_EQ(SetValue(blob, HidP_Input, 0xFF00, 2, 0x10, 0x33, zeroed), HIDP_STATUS_SUCCESS);
    EXPECT_EQ(zeroed, (std::vector<CHAR>{1, 0, 0x33}));
}

}  // namespace
}  // namespace host::hid
