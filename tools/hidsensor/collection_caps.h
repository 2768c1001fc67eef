// Everything the HID parser reports about one top-level collection, read
// through the HidP_ functions exactly as a driver would read it.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "platform/hidpi.h"

namespace hidsensor {

struct CollectionCaps {
    HIDP_CAPS caps{};
    std::vector<HIDP_LINK_COLLECTION_NODE> nodes;
    // Indexed by HIDP_REPORT_TYPE: input, output, feature.
    std::array<std::vector<HIDP_VALUE_CAPS>, 3> valueCaps;
    std::array<std::vector<HIDP_BUTTON_CAPS>, 3> buttonCaps;
};

// Reads the caps of one preparsed-data blob; false with `error` naming the
// HidP_ call and its status when the parser refuses.
bool ReadCollectionCaps(const std::vector<std::uint8_t>& preparsed, CollectionCaps& out, std::string& error);

inline constexpr std::array<HIDP_REPORT_TYPE, 3> kReportTypes = {HidP_Input, HidP_Output, HidP_Feature};
inline constexpr std::array<const char*, 3> kReportTypeNames = {"input", "output", "feature"};

}  // namespace hidsensor
