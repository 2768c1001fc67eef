// Names of the usage pages and sensor usages a reader of a sensor descriptor
// meets most; everything else prints as hex.
#pragma once

#include <string>

#include "platform/hidpi.h"

namespace hidsensor {

std::string UsagePageName(USAGE page);
// "Custom Value 1 [maximum]" for 0x2544 on the sensor page; "" when unknown.
std::string UsageName(USAGE page, USAGE usage);
const char* CollectionTypeName(unsigned type);

}  // namespace hidsensor
