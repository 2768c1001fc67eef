// What the parser knows about one top-level collection once the descriptor has
// been read: the link-collection tree and, per report type, the capabilities
// in descriptor order with the field record each one reads. The blob writer
// turns it into preparsed data.
#pragma once

#include <array>
#include <bit>
#include <cstdint>
#include <vector>

#include "host/hidparser/preparsed_layout.h"
#include "platform/hidpi.h"

namespace host::hid {

// A set of report IDs that is cheap to walk.
class ReportIdSet {
public:
    void Insert(std::uint8_t id) { words_[id / 64] |= std::uint64_t{1} << (id % 64); }

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
    std::vector<HIDP_VALUE_CAPS> valueCaps;
    std::vector<preparsed::FieldRecord> valueFields;  // one per value cap
    std::vector<HIDP_BUTTON_CAPS> buttonCaps;
    std::vector<preparsed::FieldRecord> buttonFields;  // one per button cap
    std::uint32_t dataIndexCount = 0;
    ReportIdSet reportIds;               // reports of this type the collection has items in
    std::uint16_t reportByteLength = 0;  // filled once the whole descriptor is read
};

struct CollectionModel {
    USAGE usage = 0;
    USAGE usagePage = 0;
    std::vector<HIDP_LINK_COLLECTION_NODE> nodes;  // node 0 is the collection itself
    std::array<ReportTypeModel, preparsed::kReportTypeCount> reports;
};

}  // namespace host::hid
