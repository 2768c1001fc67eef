// Every reason a descriptor is refused, with the offset it names.
#include <gtest/gtest.h>

#include "host/hidparser/descriptor_builder.h"
#include "test_support.h"

namespace host::hid {
namespace {

using test::Hex;
using test::ParseFails;

struct Rejection {
    const char* name;
    const char* descriptor;
    std::size_t offset;
    const char* reason;  // the whole reason text
};

class MalformedDescriptor : public testing::TestWithParam<Rejection> {};

TEST_P(MalformedDescriptor, IsRefusedWithOffsetAndReason)
{
    const Rejection& c = GetParam();
    const ParseError error = ParseFails(Hex(c.descriptor));
    EXPECT_EQ(error.offset, c.offset);
    EXPECT_EQ(error.reason, c.reason);
}

const Rejection kRejections[] = {
    {"TruncatedItem", "05 01 09 02 A1 01 26 FF", 6, "truncated item 0x26: needs 2 data bytes, 1 left"},
    {"TruncatedFourByteItem", "05 20 27", 2, "truncated item 0x27: needs 4 data bytes, 0 left"},
    {"TruncatedLongItem", "FE 05 10 00", 0, "long item needs 5 data bytes, 1 left"},
    {"TruncatedLongItemHeader", "09 01 FE 01", 2, "truncated long item header"},
    {"EndCollectionWithoutCollection", "05 01 C0", 2, "End Collection without Collection"},
    {"MissingEndCollection", "05 01 09 02 A1 01 A1 00 C0", 9,
     "1 collection(s) without End Collection at end of descriptor"},
    {"MainItemOutsideCollection", "75 08 95 01 09 30 81 02", 6, "Input item outside any collection"},
    {"MainItemAfterLastCollection", "05 01 09 02 A1 01 C0 75 08 95 01 B1 02", 11,
     "Feature item outside any collection"},
    {"ReportSizeZero", "05 01 09 02 A1 01 75 00", 6, "Report Size 0"},
    {"ReportSizeLongerThanReport", "05 01 09 02 A1 01 76 00 80", 6, "Report Size 32768 longer than a whole report"},
    {"ReportCountLongerThanReport", "05 01 09 02 A1 01 96 00 80", 6, "Report Count 32768 longer than a whole report"},
    {"ReportOver4096Bytes", "05 01 09 02 A1 01 75 08 96 00 10 09 30 81 02 C0", 13,
     "Input report 0 would be 4097 bytes long, above 4096"},
    {"ReportOver4096BytesAcrossItems", "05 01 09 02 A1 01 85 07 75 08 96 FE 0F B1 03 95 02 B1 03 C0", 17,
     "Feature report 7 would be 4097 bytes long, above 4096"},
    {"ReportIdZero", "05 01 09 02 A1 01 85 00", 6, "Report ID 0"},
    {"ReportIdAbove255", "05 01 09 02 A1 01 86 00 01", 6, "Report ID 256 above 255"},
    {"FieldWithoutReportIdAmongIds", "05 01 09 02 A1 01 75 08 95 01 A4 85 01 09 30 81 02 B4 09 31 81 02 C0", 20,
     "Input item without Report ID in a descriptor that uses report IDs"},
    {"ReportIdAfterFieldsWithout", "05 01 09 02 A1 01 75 08 95 01 09 30 81 02 85 01 C0", 14,
     "Report ID after main items that had none"},
    {"PopWithoutPush", "05 01 B4", 2, "Pop without Push"},
    {"PushTooDeep", "A4 A4 A4 A4 A4 A4 A4 A4 A4", 8, "Push nested deeper than 8"},
    {"FieldBeforeReportSize", "05 01 09 02 A1 01 95 01 09 30 81 02", 10, "Input item before any Report Size"},
    {"FieldBeforeReportCount", "05 01 09 02 A1 01 75 01 09 30 91 02", 10, "Output item before any Report Count"},
    {"UsageMinimumWithoutMaximum", "05 01 09 02 A1 01 75 01 95 01 19 01 81 02", 12,
     "Usage Minimum without Usage Maximum"},
    {"UsageMaximumWithoutMinimum", "05 01 09 02 A1 01 29 03 A1 00", 8, "Usage Maximum without Usage Minimum"},
    {"UsageMinimumTwice", "05 01 09 02 A1 01 19 01 19 02", 8, "Usage Minimum twice without Usage Maximum"},
    {"UsageMinimumAboveMaximum", "05 01 09 02 A1 01 19 05 29 03", 8, "Usage Minimum 0x05 above Usage Maximum 0x03"},
    {"UsageRangeAcrossPages", "05 01 09 02 A1 01 1B 01 00 09 00 2B 05 00 01 00", 11,
     "Usage Minimum and Usage Maximum on different usage pages"},
    {"StringMinimumAboveMaximum", "05 01 09 02 A1 01 89 09 99 02", 8, "String Minimum 9 above String Maximum 2"},
    {"StringIndexAbove65535", "05 01 09 02 A1 01 7B 00 00 01 00", 6, "String Index 65536 above 65535"},
    {"NestedDelimiter", "05 01 09 02 A1 01 A9 01 A9 01", 8, "nested Delimiter set"},
    {"DelimiterCloseWithoutOpen", "05 01 09 02 A1 01 A9 00", 6, "Delimiter close without open"},
    {"DelimiterUnknownValue", "05 01 09 02 A1 01 A9 02", 6, "Delimiter 2 is neither open (1) nor close (0)"},
    {"DelimiterOpenAtMainItem", "05 01 09 02 A1 01 75 08 95 01 A9 01 09 30 81 02", 14, "Delimiter set not closed"},
    {"UsagePageAbove16Bits", "07 00 00 01 00", 0, "Usage Page 0x10000 above 0xFFFF"},
    {"CollectionTypeAbove8Bits", "05 01 09 02 A2 00 01", 4, "Collection type 0x100 above 0xFF"},
    {"NoCollection", "05 01 09 02", 4, "no collection in descriptor"},
    {"EmptyDescriptor", "", 0, "no collection in descriptor"},
    {"TooManyDataIndices", "05 01 09 06 A1 01 05 07 19 00 2A FF FF 75 10 95 01 81 00 C0", 17,
     "too many usages: Input reports need more than 65535 data indices"},
};

INSTANTIATE_TEST_SUITE_P(Parser, MalformedDescriptor, testing::ValuesIn(kRejections),
                         [](const testing::TestParamInfo<Rejection>& param) { return param.param.name; });

// Limits that take a long descriptor to reach; each builder returns the
// descriptor and the offset of the item that crosses the limit.
struct LimitCase {
    const char* reason;
    std::pair<std::vector<std::uint8_t>, std::size_t> (*build)(std::size_t count);
    std::size_t allowed;
};

const LimitCase kLimits[] = {
    {"collections nested deeper than 32",
     [](std::size_t depth) {
         DescriptorBuilder b;
         b.UsagePage(0x20).Usage(0x01);
         for (std::size_t i = 0; i < depth; ++i) b.Collection(CollectionType::Logical);
         const std::size_t last = b.Bytes().size() - 2;
         for (std::size_t i = 0; i < depth; ++i) b.EndCollection();
         return std::pair(b.Build(), last);
     },
     32},
    {"more than 1024 usages before one main item",
     [](std::size_t usages) {
         DescriptorBuilder b;
         b.UsagePage(0x09).Usage(0x01).Collection(CollectionType::Application).ReportSize(1).ReportCount(1);
         for (std::size_t i = 0; i < usages; ++i) b.Usage(0x01);
         const std::size_t last = b.Bytes().size() - 2;
         b.Input(main_item::kDataVarAbs).EndCollection();
         return std::pair(b.Build(), last);
     },
     1024},
    {"too many usages: more than 16384 capabilities",
     [](std::size_t fields) {
         DescriptorBuilder b;
         b.UsagePage(0x09).Usage(0x01).Collection(CollectionType::Application).ReportSize(1).ReportCount(1);
         std::size_t last = 0;
         for (std::size_t i = 0; i < fields; ++i) {
             last = b.Usage(0x01).Bytes().size();
             b.Input(main_item::kDataVarAbs);
         }
         return std::pair(b.EndCollection().Build(), last);
     },
     16384},
    {"more than 16384 collections",
     [](std::size_t collections) {
         DescriptorBuilder b;
         b.UsagePage(0x20).Usage(0x01).Collection(CollectionType::Application);
         for (std::size_t i = 1; i < collections; ++i) b.Collection(CollectionType::Logical).EndCollection();
         const std::size_t last = b.Bytes().size() - 3;
         return std::pair(b.EndCollection().Build(), last);
     },
     16384},
};

TEST(MalformedDescriptorLimits, OneMoreThanTheLimitIsRefusedWhereItIsCrossed)
{
    for (const LimitCase& c : kLimits) {
        SCOPED_TRACE(c.reason);
        test::ParseOk(c.build(c.allowed).first);
        const auto [descriptor, offset] = c.build(c.allowed + 1);
        const ParseError error = ParseFails(descriptor);
        EXPECT_EQ(error.offset, offset);
        EXPECT_EQ(error.reason, c.reason);
    }
}

TEST(MalformedDescriptorLimits, ReportOfExactly4096BytesIsAcceptedAndAFailedParseLeavesNoBlobs)
{
    // 1 report-ID byte + 4095 data bytes.
    PreparsedBlob blob = test::ParseSingle(Hex("05 01 09 02 A1 01 85 01 75 08 96 FF 0F 09 30 81 02 C0"));
    EXPECT_EQ(test::Caps(blob).InputReportByteLength, 4096);

    std::vector<PreparsedBlob> blobs(3);
    ParseError error;
    EXPECT_FALSE(ParseReportDescriptor(Hex("05 01 09 02 A1 01 C0 C0"), blobs, error));
    EXPECT_TRUE(blobs.empty());
    EXPECT_EQ(FormatParseError(error), "offset 7: End Collection without Collection");
}

}  // namespace
}  // namespace host::hid
