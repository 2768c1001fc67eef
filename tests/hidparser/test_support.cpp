#include "test_support.h"

#include <gtest/gtest.h>

#include "host/hidparser/descriptor_text.h"

namespace host::hid::test {

std::vector<std::uint8_t> Hex(const std::string& text)
{
    std::vector<std::uint8_t> bytes;
    std::string error;
    EXPECT_TRUE(ParseHexDescriptor(text, bytes, error)) << error;
    return bytes;
}

std::vector<PreparsedBlob> ParseOk(const std::vector<std::uint8_t>& descriptor)
{
    std::vector<PreparsedBlob> blobs;
    ParseError error;
    EXPECT_TRUE(ParseReportDescriptor(descriptor, blobs, error)) << FormatParseError(error);
    return blobs;
}

PreparsedBlob ParseSingle(const std::vector<std::uint8_t>& descriptor)
{
    std::vector<PreparsedBlob> blobs = ParseOk(descriptor);
    EXPECT_EQ(blobs.size(), 1u);
    return blobs.empty() ? PreparsedBlob{} : blobs.front();
}

ParseError ParseFails(const std::vector<std::uint8_t>& descriptor)
{
    std::vector<PreparsedBlob> blobs;
    ParseError error;
    EXPECT_FALSE(ParseReportDescriptor(descriptor, blobs, error));
    EXPECT_TRUE(blobs.empty());
    return error;
}

HIDP_CAPS Caps(PreparsedBlob& blob)
{
    HIDP_CAPS caps{};
    EXPECT_EQ(HidP_GetCaps(Preparsed(blob), &caps), HIDP_STATUS_SUCCESS);
    return caps;
}

std::vector<HIDP_LINK_COLLECTION_NODE> Nodes(PreparsedBlob& blob)
{
    std::vector<HIDP_LINK_COLLECTION_NODE> nodes(Caps(blob).NumberLinkCollectionNodes);
    ULONG length = static_cast<ULONG>(nodes.size());
    EXPECT_EQ(HidP_GetLinkCollectionNodes(nodes.data(), &length, Preparsed(blob)), HIDP_STATUS_SUCCESS);
    EXPECT_EQ(length, nodes.size());
    return nodes;
}

namespace {

// A size query first: a null list of length 0 gives the count.
template <typename Cap>
std::vector<Cap> CapList(PreparsedBlob& blob, HIDP_REPORT_TYPE type,
                         NTSTATUS (*get)(HIDP_REPORT_TYPE, Cap*, USHORT*, PHIDP_PREPARSED_DATA))
{
    USHORT length = 0;
    get(type, nullptr, &length, Preparsed(blob));
    std::vector<Cap> caps(length);
    EXPECT_EQ(get(type, caps.data(), &length, Preparsed(blob)), HIDP_STATUS_SUCCESS);
    EXPECT_EQ(length, caps.size());
    return caps;
}

NTSTATUS ChangeUsages(decltype(&HidP_SetUsages) change, PreparsedBlob& blob, HIDP_REPORT_TYPE type, USAGE page,
                      USHORT link, std::vector<USAGE>& usages, std::vector<CHAR>& report, ULONG* done)
{
    ULONG length = static_cast<ULONG>(usages.size());
    const NTSTATUS status = change(type, page, link, usages.data(), &length, Preparsed(blob), report.data(),
                                   static_cast<ULONG>(report.size()));
    if (done != nullptr) *done = length;
    return status;
}

}  // namespace

std::vector<HIDP_VALUE_CAPS> ValueCaps(PreparsedBlob& blob, HIDP_REPORT_TYPE type)
{
    return CapList<HIDP_VALUE_CAPS>(blob, type, HidP_GetValueCaps);
}

std::vector<HIDP_BUTTON_CAPS> ButtonCaps(PreparsedBlob& blob, HIDP_REPORT_TYPE type)
{
    return CapList<HIDP_BUTTON_CAPS>(blob, type, HidP_GetButtonCaps);
}

std::vector<CHAR> EmptyReport(PreparsedBlob& blob, HIDP_REPORT_TYPE type, std::uint8_t reportId)
{
    const HIDP_CAPS caps = Caps(blob);
    const USHORT length = type == HidP_Input    ? caps.InputReportByteLength
                          : type == HidP_Output ? caps.OutputReportByteLength
                                                : caps.FeatureReportByteLength;
    std::vector<CHAR> report(length, 0);
    if (!report.empty()) report[0] = static_cast<CHAR>(reportId);
    return report;
}

NTSTATUS GetValue(PreparsedBlob& blob, HIDP_REPORT_TYPE type, USAGE page, USHORT link, USAGE usage,
                  std::vector<CHAR>& report, ULONG& value)
{
    return HidP_GetUsageValue(type, page, link, usage, &value, Preparsed(blob), report.data(),
                              static_cast<ULONG>(report.size()));
}

NTSTATUS SetValue(PreparsedBlob& blob, HIDP_REPORT_TYPE type, USAGE page, USHORT link, USAGE usage, ULONG value,
                  std::vector<CHAR>& report)
{
    return HidP_SetUsageValue(type, page, link, usage, value, Preparsed(blob), report.data(),
                              static_cast<ULONG>(report.size()));
}

std::vector<USAGE> GetUsages(PreparsedBlob& blob, HIDP_REPORT_TYPE type, USAGE page, USHORT link,
                             std::vector<CHAR>& report, NTSTATUS expected)
{
    std::vector<USAGE> usages(16, 0);
    ULONG length = static_cast<ULONG>(usages.size());
    EXPECT_EQ(HidP_GetUsages(type, page, link, usages.data(), &length, Preparsed(blob), report.data(),
                             static_cast<ULONG>(report.size())),
              expected);
    usages.resize(expected == HIDP_STATUS_SUCCESS ? length : 0);
    return usages;
}

NTSTATUS SetUsages(PreparsedBlob& blob, HIDP_REPORT_TYPE type, USAGE page, USHORT link, std::vector<USAGE> usages,
                   std::vector<CHAR>& report, ULONG* done)
{
    return ChangeUsages(HidP_SetUsages, blob, type, page, link, usages, report, done);
}

NTSTATUS UnsetUsages(PreparsedBlob& blob, HIDP_REPORT_TYPE type, USAGE page, USHORT link, std::vector<USAGE> usages,
                     std::vector<CHAR>& report, ULONG* done)
{
    return ChangeUsages(HidP_UnsetUsages, blob, type, page, link, usages, report, done);
}

}  // namespace host::hid::test
