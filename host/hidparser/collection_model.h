// What the parser knows about one top-level collection once the descriptor has
// been read: the link-collection tree and, per report type, the capabilities
// in descriptor order with the field record each one reads. The blob writer
// turns it into preparsed data.
#pragma once

#include <array>
#include <bitset>
#include <cstdint>
#include <vector>

#include "host/hidparser/preparsed_layout.h"
#include "platform/hidpi.h"

namespace host::hid {

struct ReportTypeModel {
    std::vector<HIDP_VALUE_CAPS> valueCaps;
    std::vector<preparsed::FieldRecord> valueFields;  // one per value cap
    std::vector<HIDP_BUTTON_CAPS> buttonCaps;
    std::vector<preparsed::FieldRecord> buttonFields;  // one per button cap
    std::uint32_t dataIndexCount = 0;
    std::bitset<256> reportIds;          // reports of this type the collection has items in
    std::uint16_t reportByteLength = 0;  // filled once the whole descriptor is read
};

struct CollectionModel {
    USAGE usage = 0;
    USAGE usagePage = 0;
    std::vector<HIDP_LINK_COLLECTION_NODE> nodes;  // node 0 is the collection itself
    std::array<ReportTypeModel, preparsed::kReportTypeCount> reports;
};

}  // namespace host::hid
