// Renders the parse of top-level collections: one JSON object whose field names
// are the parser structures' own, or a readable tree with the byte layout of
// every report.
#pragma once

#include <string>
#include <vector>

#include "tools/hidsensor/collection_caps.h"
#include "tools/hidsensor/report_layout.h"

namespace hidsensor {

struct NumberedCollection {
    std::size_t index;  // position among the descriptor's top-level collections
    CollectionCaps caps;
    std::vector<ReportLayout> reports;  // the collection's reports, read from the items
};

std::string CapsToJson(const std::vector<NumberedCollection>& collections, bool pretty);
std::string CapsToTree(const std::vector<NumberedCollection>& collections);

}  // namespace hidsensor
