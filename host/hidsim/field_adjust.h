// The device-side clamp or round of one feature field before the device
// stores a SET_FEATURE report.
#pragma once

#include <cstdint>
#include <vector>

#include "host/hidsim/device_rules.h"
#include "platform/hidpi.h"

namespace host::hidsim {

// Rounds, then clamps, the logical value of `field.usage` (usage page 0x20) in
// `report`, through the HidP_ functions over `preparsed`. Signed fields
// (logical minimum below 0) are sign-extended first; the result is limited to
// what the field's bits can hold. A report shorter than `featureReportLength`
// is padded with zeros first. Returns the parser's status: on failure (no
// such field in this report, for instance) `report` is unchanged.
NTSTATUS AdjustFeatureField(const FieldAction& field, PHIDP_PREPARSED_DATA preparsed, USHORT featureReportLength,
                            std::vector<std::uint8_t>& report);

}  // namespace host::hidsim
