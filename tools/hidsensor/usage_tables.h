// The usage names of the HID Usage Tables, one table per page, sorted by usage.
// usage_names.h is the interface the rest of the tool uses.
#pragma once

#include <span>

#include "platform/hidpi.h"

namespace hidsensor {

struct UsageEntry {
    USAGE usage;
    const char* name;
};

// Usage pages with a name, sorted.
std::span<const UsageEntry> UsagePageTable();
// The named usages of `page`, sorted; empty for pages without a table.
std::span<const UsageEntry> UsageTable(USAGE page);

}  // namespace hidsensor
