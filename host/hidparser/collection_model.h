// What the parser knows about one top-level collection once the descriptor has
// been read: the link-collection tree and, per report type, the capabilities
// in descriptor order with the field record each one reads. The blob writer
// turns it into preparsed data.
#pragma once

#include <array>
#include <bit>
#include <cstdint>
#include <memory_resource>
#include <vector>

#include "host/hidparser/preparsed_layout.h"
#include "platform/hidpi.h"

namespace host::hid {

// A set of report IDs that is cheap to walk.
class ReportIdSet {
public:
    void Insert(std::uint8_t id) { words_[id / 64] |= std::uint64_t{1} << (id % 64); }
    bool Contains(std::uint8_t id) const { return (words_[id / 64] >> (id % 64)) & 1; }

    template <typename Visit>
    void ForEach(Visit visit) const
    {
        for (std::size_t w = 0; w < 4; ++w) {
            for (std::uint64_t bits = words_[w]; bits != 0; bits &= bits - 1)
                visit(static_cast<std::uint8_t>(64 * w + static_cast<std::size_t>(std::countr_zero(bits))));
        }
    }

private:
    std::uint64_t words_[4] = {};
};

struct ReportTypeModel {
    explicit ReportTypeModel(std::pmr::memory_resource* memory)
        : valueCaps(memory), valueFields(memory), buttonCaps(memory), buttonFields(memory)
    {
    }

    std::pmr::vector<HIDP_VALUE_CAPS> valueCaps;
    std::pmr::vector<preparsed::FieldRecord> valueFields;  // one per value cap
    std::pmr::vector<HIDP_BUTTON_CAPS> buttonCaps;
    std::pmr::vector<preparsed::FieldRecord> buttonFields;  // one per button cap
    std::uint32_t dataIndexCount = 0;
    ReportIdSet reportIds;               // reports of this type the collection has items in
    std::uint16_t reportByteLength = 0;  // filled once the whole descriptor is read
};

struct CollectionModel {
    USAGE usage = 0;
    USAGE usagePage = 0;
    explicit CollectionModel(std::pmr::memory_resource* memory)
        : nodes(memory), reports{ReportTypeModel(memory), ReportTypeModel(memory), ReportTypeModel(memory)}
    {
    }

    std::pmr::vector<HIDP_LINK_COLLECTION_NODE> nodes;  // node 0 is the collection itself
    std::array<ReportTypeModel, preparsed::kReportTypeCount> reports;
};

}  // namespace host::hid
