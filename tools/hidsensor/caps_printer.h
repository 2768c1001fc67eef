// Renders the parse of top-level collections: one JSON object whose field names
// are the parser structures' own, or a readable tree.
#pragma once

#include <string>
#include <vector>

#include "tools/hidsensor/collection_caps.h"

namespace hidsensor {

struct NumberedCollection {
    std::size_t index;  // position among the descriptor's top-level collections
    CollectionCaps caps;
};

std::string CapsToJson(const std::vector<NumberedCollection>& collections, bool pretty);
std::string CapsToTree(const std::vector<NumberedCollection>& collections);

}  // namespace hidsensor
