// Limits the report-descriptor parser enforces. Each one keeps a hostile or
// broken descriptor from costing unbounded memory or time; real devices stay
// far below all of them.
#pragma once

#include <cstddef>
#include <cstdint>

namespace host::hid::limits {

// A report, report-ID byte included, never exceeds what one read can carry.
inline constexpr std::uint32_t kMaxReportBytes = 4096;
inline constexpr std::uint32_t kMaxReportBits = (kMaxReportBytes - 1) * 8;

// Report Size and Report Count can never be larger than a whole report in bits.
inline constexpr std::uint32_t kMaxReportSize = kMaxReportBits;
inline constexpr std::uint32_t kMaxReportCount = kMaxReportBits;

inline constexpr std::size_t kMaxCollectionDepth = 32;
inline constexpr std::size_t kMaxPushDepth = 8;

// Local items collected before one main item: usages (single or range),
// string and designator indices (single or range).
inline constexpr std::size_t kMaxUsagesPerMainItem = 1024;
inline constexpr std::size_t kMaxStringsPerMainItem = 256;

// Whole descriptor: capabilities of every report type of every top-level
// collection, and link-collection nodes. Keeps the preparsed data of a 64 KiB
// descriptor within a few MiB.
inline constexpr std::size_t kMaxCapabilities = 16384;
inline constexpr std::size_t kMaxLinkCollectionNodes = 16384;

// Data indices of one report type of one collection (HIDP_CAPS counts them in
// a USHORT).
inline constexpr std::uint32_t kMaxDataIndices = 0xFFFF;

}  // namespace host::hid::limits
