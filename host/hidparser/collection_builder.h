// Builds the top-level collections while the descriptor is read: the
// link-collection tree, report bit positions, and the capabilities and field
// records of every main item.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "host/hidparser/collection_model.h"
#include "host/hidparser/parse_limits.h"
#include "host/hidparser/parser_state.h"
#include "host/hidparser/report_descriptor_parser.h"

namespace host::hid {

// A usage of a main item once its page is settled (LocalUsage::page valid).
using ResolvedUsage = LocalUsage;

// Everything one Input, Output or Feature item declares.
struct MainField {
    std::size_t reportType = 0;  // HidP_Input, HidP_Output, HidP_Feature
    std::uint16_t flags = 0;     // the main item's data bits
    std::uint8_t reportId = 0;
    std::uint32_t bitSize = 0;
    std::uint32_t reportCount = 0;
    std::int32_t logicalMin = 0, logicalMax = 0;
    std::int32_t physicalMin = 0, physicalMax = 0;
    std::uint32_t unit = 0;
    std::uint8_t unitExponentCode = 0;
    std::span<const ResolvedUsage> usages;
    std::span<const LocalIndex> strings;
    std::span<const LocalIndex> designators;
};

class CollectionBuilder {
public:
    explicit CollectionBuilder(std::pmr::memory_resource* memory);

    std::size_t Depth() const { return depth_; }

    bool OpenCollection(std::uint8_t type, std::uint16_t usagePage, std::uint16_t usage, std::size_t offset,
                        ParseError& error);
    bool CloseCollection(std::size_t offset, ParseError& error);
    bool AddField(const MainField& field, std::size_t offset, ParseError& error);

    // Report lengths depend on the whole descriptor (a report ID may be shared
    // by several top-level collections): computed once at the end.
    void FinishReportLengths();

    std::pmr::vector<CollectionModel>& Collections() { return collections_; }

private:
    struct CapSource;
    bool AddVariableCaps(const MainField& field, std::uint32_t fieldBitOffset, std::size_t offset, ParseError& error);
    bool AddArrayCaps(const MainField& field, std::uint32_t fieldBitOffset, std::size_t offset, ParseError& error);
    bool AddCap(const MainField& field, const CapSource& source, std::size_t offset, ParseError& error);

    std::pmr::memory_resource* memory_;
    std::pmr::vector<CollectionModel> collections_;
    std::array<std::uint16_t, limits::kMaxCollectionDepth> openNodes_{};
    std::size_t depth_ = 0;
    std::size_t nodeCount_ = 0;
    std::size_t capabilityCount_ = 0;
    // Data indices of the last capability that was not an alias; its
    // aliases take the same.
    std::uint16_t lastDataIndex_ = 0;
    std::uint32_t lastDataIndices_ = 1;
    // Bits placed so far in each report, descriptor-wide, per report type and
    // ID. An entry is set when its report is first seen: zeroing all 3 KiB
    // up front was a tenth of the parse of a short descriptor.
    std::array<ReportIdSet, preparsed::kReportTypeCount> reportsSeen_{};
    std::array<std::array<std::uint32_t, 256>, preparsed::kReportTypeCount> reportBits_;
};

}  // namespace host::hid
