// Where every field of every report sits, read from the descriptor's items:
// the byte layout a firmware engineer checks their struct packing against,
// constant padding included. Also the doubtful constructs the walk meets,
// as warnings (they parse, but are almost certainly mistakes).
//
// Offsets are the platform's: bit 0 of byte 0 is the report ID byte, so a
// report's first field starts at bit 8, also without report IDs. Fields of a
// report ID shared by two top-level collections follow each other in
// descriptor order, as the parser lays them out.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace hidsensor {

struct UsageSpan {
    std::uint32_t first;  // extended usage: page << 16 | usage
    std::uint32_t last;   // == first for a single usage
};

struct LayoutField {
    std::size_t itemOffset = 0;  // of the Input, Output or Feature item
    std::uint32_t bitOffset = 0;
    std::uint32_t bitSize = 0;
    std::uint32_t reportCount = 0;
    std::uint32_t flags = 0;  // the main item's data bits
    std::uint16_t usagePage = 0;
    std::vector<UsageSpan> usages;  // in declaration order; empty for padding
    std::int64_t logicalMin = 0;
    std::int64_t logicalMax = 0;
    // The maximum as stored when it read as negative over a non-negative
    // minimum and was taken unsigned (15 00 26 FF FF: 0..65535, stored -1).
    bool logicalMaxReinterpreted = false;
    std::int32_t storedLogicalMax = 0;
    bool hasPhysical = false;  // a physical extent other than 0..0 (read as the logical one)
    std::int64_t physicalMin = 0;
    std::int64_t physicalMax = 0;
    std::uint32_t unit = 0;
    std::uint32_t unitExponentCode = 0;

    bool Constant() const { return (flags & 0x01) != 0; }
    bool Variable() const { return (flags & 0x02) != 0; }
};

struct ReportLayout {
    std::size_t type = 0;  // index into kReportTypes: input, output, feature
    std::uint8_t reportId = 0;
    std::uint32_t byteLength = 0;  // with the report ID byte
    std::vector<LayoutField> fields;
};

struct LayoutWarning {
    std::size_t offset;
    std::string text;
};

struct DescriptorLayout {
    // Per top-level collection, its reports ordered by type and report ID.
    std::vector<std::vector<ReportLayout>> collections;
    std::vector<LayoutWarning> warnings;  // in descriptor order
};

// `descriptor` must already have parsed; items the parser refuses are not
// re-checked here, but nothing is read out of bounds whatever the bytes.
DescriptorLayout ReadDescriptorLayout(std::span<const std::uint8_t> descriptor);

}  // namespace hidsensor
