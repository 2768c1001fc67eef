// Report-descriptor parser of the simulated HID class driver: turns a device's
// report descriptor into one preparsed-data blob per top-level collection, the
// bytes the HidP_* functions (platform/hidpi.h) work on.
//
// What the parser accepts and how it reads doubtful items:
// - Short items of 0, 1, 2 and 4 data bytes. Long items (prefix 0xFE) are
//   skipped: no long item tag is defined, so none can change the reports.
// - Delimiter sets: the first usage of a set is kept, the alternatives are
//   dropped (no aliases are reported). Nested or unbalanced delimiters are
//   errors.
// - A usage given in 4 bytes carries its own usage page in the high 16 bits;
//   a shorter usage takes the Usage Page in force at its main item.
// - Logical and physical extents are sign-extended from their item size, as
//   the platform does. A maximum that comes out negative while its minimum is
//   not negative is read unsigned instead (devices write 0..65535 as
//   `15 00 26 FF FF`); the capability keeps that value as a LONG.
// - Unit Exponent is kept as the platform's 4-bit code: a nibble 0..15
//   (0x0E = -2) or a signed value -8..-1 (0xFE = -2) both give the code.
// - Any collection type may be a top-level collection (sensors often use
//   Physical); every top-level collection yields its own blob, and a report ID
//   may be shared between top-level collections.
// - End Collection items that carry data bytes are accepted (seen on devices).
// - A main item without usages is padding: it takes bits in its report but
//   gives no capability. A main item with Report Count 0 declares no data and
//   gives nothing.
// What each top-level collection's capabilities look like (per report type,
// in descriptor order):
// - Array main items, and 1-bit variable fields with logical range 0..1, are
//   buttons (HIDP_BUTTON_CAPS); every other field is a value
//   (HIDP_VALUE_CAPS). An array gives one button capability per usage or
//   usage range, all on the same slots (a sensor selector list: one each).
// - A variable field gives one capability per usage or usage range: each
//   usage takes one element, the last takes all remaining elements (one
//   usage with Report Count 32 is a 32-element value array); usages beyond
//   the count get none.
// - Data indices run per report type in capability order: one per usage, for
//   a range one per usage of the range (in a variable field only those that
//   got an element).
// - Link collections: node 0 is the top-level collection, the others follow
//   in descriptor order. As on the platform, FirstChild names the child added
//   last and NextSibling leads back to the one added before it (0 ends).
// - Report lengths count the report-ID byte, also when the collection has no
//   report IDs (byte 0 is then 0).
// - A delimiter set names one control: its first usage takes the control's
//   place and data index, and every later usage gets its own capability on the
//   same bits with IsAlias set, so the value is found under any of them.
// - A value field may be of any width (BitSize as declared); hidp_values.cpp
//   says how the calls read one wider than 32 bits.
// Rejected, with the byte offset of the offending item: truncated items,
// unbalanced collections or delimiters, Pop without Push, main items outside
// every collection, Report Size 0, a report longer than 4096 bytes including
// its report-ID byte, Report ID 0 or above 255, a main item without Report ID
// in a descriptor that uses report IDs, an Input, Output or Feature item
// before any Report Size or Report Count, a Minimum without its Maximum,
// nesting deeper than 32 or Push deeper than 8, more usages or capabilities
// than parse_limits.h allows, and a descriptor without any collection.
// Taken from shipped devices instead (descriptor_parser.h): reserved items,
// odd unit exponents, a Push never popped.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace host::hid {

struct ParseError {
    std::size_t offset = 0;  // byte offset of the offending item (descriptor size for end-of-input errors)
    std::string reason;
};

// One preparsed-data blob per top-level collection, in descriptor order.
using PreparsedBlob = std::vector<std::uint8_t>;

// Returns false and fills error (offset + reason) when the descriptor is malformed. Never throws.
bool ParseReportDescriptor(std::span<const std::uint8_t> descriptor, std::vector<PreparsedBlob>& collections,
                           ParseError& error);

// "offset 37: Report Size 0"
std::string FormatParseError(const ParseError& error);

}  // namespace host::hid
