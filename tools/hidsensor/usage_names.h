// Names of usage pages and usages from the HID Usage Tables (usage_tables.cpp),
// the patterned ones (Button n, keyboard letters, Custom Value n, sensor
// modifiers) computed here. Unknown usages give "".
#pragma once

#include <string>

#include "platform/hidpi.h"

namespace hidsensor {

// "Sensors"; "Vendor-defined 0xFF01" for 0xFF00..0xFFFF; "" when unknown.
std::string UsagePageName(USAGE page);
// "Custom Value 1 [Maximum]" for 0x2544 on the Sensors page; "" when unknown.
std::string UsageName(USAGE page, USAGE usage);
// A usage as output shows it: its name, or the page:usage numbers when it has none.
std::string UsageLabel(USAGE page, USAGE usage);
const char* CollectionTypeName(unsigned type);

}  // namespace hidsensor
