// Shared helpers of the HID parser tests: descriptors from tests/data, parsing
// that must succeed, and the capability lists of a blob.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "host/hidparser/report_descriptor_parser.h"
#include "platform/hidpi.h"
#include "tests/test_data.h"

namespace host::hid::test {

using testdata::LoadDescriptor;

// Parses and expects success; the blobs of all top-level collections.
std::vector<PreparsedBlob> ParseOk(const std::vector<std::uint8_t>& descriptor);
// The only top-level collection; expects exactly one.
PreparsedBlob ParseSingle(const std::vector<std::uint8_t>& descriptor);
// Parses and expects failure; the error.
ParseError ParseFails(const std::vector<std::uint8_t>& descriptor);

inline PHIDP_PREPARSED_DATA Preparsed(PreparsedBlob& blob)
{
    return reinterpret_cast<PHIDP_PREPARSED_DATA>(blob.data());
}

HIDP_CAPS Caps(PreparsedBlob& blob);
std::vector<HIDP_LINK_COLLECTION_NODE> Nodes(PreparsedBlob& blob);
std::vector<HIDP_VALUE_CAPS> ValueCaps(PreparsedBlob& blob, HIDP_REPORT_TYPE type);
std::vector<HIDP_BUTTON_CAPS> ButtonCaps(PreparsedBlob& blob, HIDP_REPORT_TYPE type);

// A zeroed report buffer of the collection's length for that type, byte 0 = reportId.
std::vector<CHAR> EmptyReport(PreparsedBlob& blob, HIDP_REPORT_TYPE type, std::uint8_t reportId);

// HidP_Get/SetUsageValue over a whole report buffer.
NTSTATUS GetValue(PreparsedBlob& blob, HIDP_REPORT_TYPE type, USAGE page, USHORT link, USAGE usage,
                  std::vector<CHAR>& report, ULONG& value);
NTSTATUS SetValue(PreparsedBlob& blob, HIDP_REPORT_TYPE type, USAGE page, USHORT link, USAGE usage, ULONG value,
                  std::vector<CHAR>& report);

// HidP_GetUsages with room for 16; the usages found (empty unless `expected` is success).
std::vector<USAGE> GetUsages(PreparsedBlob& blob, HIDP_REPORT_TYPE type, USAGE page, USHORT link,
                             std::vector<CHAR>& report, NTSTATUS expected = HIDP_STATUS_SUCCESS);
// HidP_SetUsages / HidP_UnsetUsages; `done` receives the count the call leaves in its length.
NTSTATUS SetUsages(PreparsedBlob& blob, HIDP_REPORT_TYPE type, USAGE page, USHORT link, std::vector<USAGE> usages,
                   std::vector<CHAR>& report, ULONG* done = nullptr);
NTSTATUS UnsetUsages(PreparsedBlob& blob, HIDP_REPORT_TYPE type, USAGE page, USHORT link, std::vector<USAGE> usages,
                     std::vector<CHAR>& report, ULONG* done = nullptr);

// "05 20 09 E1" -> bytes; fails the test on bad text.
std::vector<std::uint8_t> Hex(const std::string& text);

}  // namespace host::hid::test
