// GET_FEATURE and SET_FEATURE as the device answers them, with the device's
// rules applied and the request recorded in its traffic. Called with the
// device lock held.
#pragma once

#include <cstddef>

#include "host/common/hid_collection_endpoint.h"
#include "host/hidsim/device_state.h"
#include "platform/hidpi.h"

namespace host::hidsim {

// What the feature requests need to know of the collection they came to.
struct FeatureTarget {
    std::size_t collection = 0;        // index, for the traffic log
    USHORT featureReportLength = 0;    // HIDP_CAPS.FeatureReportByteLength
    PHIDP_PREPARSED_DATA preparsed = nullptr;
};

// Byte 0 of `output` names the report. The answer is the stored report padded
// to the feature report length, cut to outputLength. No byte of room:
// STATUS_BUFFER_TOO_SMALL.
HidCollectionEndpoint::IoctlResult AnswerGetFeature(DeviceState& device, const FeatureTarget& target, BYTE* output,
                                                    ULONG outputLength);

// `input` is the report, byte 0 its ID; the device files it under that ID.
// Nothing is written back. Empty input: STATUS_BUFFER_TOO_SMALL.
HidCollectionEndpoint::IoctlResult AnswerSetFeature(DeviceState& device, const FeatureTarget& target,
                                                    const BYTE* input, ULONG inputLength);

}  // namespace host::hidsim
