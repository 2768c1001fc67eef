// Shared helpers of the simulated-device tests: descriptors from the test data
// directory, IOCTL shorthands and a read completion that records what it got.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "host/hidsim/simulated_hid_device.h"
#include "platform/hidclass.h"

namespace hidsim_test {

using host::HidCollectionEndpoint;
using host::hidsim::HidDeviceConfig;
using host::hidsim::SimulatedHidDevice;
using Bytes = std::vector<std::uint8_t>;

// The bytes of tests/data/<name>.hex; adds a test failure when unreadable.
Bytes LoadDescriptor(const std::string& name);

// Creates the device; adds a test failure (and returns null) when it cannot.
std::unique_ptr<SimulatedHidDevice> MakeDevice(const HidDeviceConfig& config);

struct Answer {
    HidCollectionEndpoint::IoctlResult result;
    Bytes bytes;  // the output buffer after the call, `information` bytes of it
};

// GET_FEATURE with a zeroed `length`-byte buffer whose byte 0 is `reportId`.
Answer GetFeature(HidCollectionEndpoint& endpoint, std::uint8_t reportId, ULONG length);
// SET_FEATURE with `report` as input and an output buffer of the same length.
HidCollectionEndpoint::IoctlResult SetFeature(HidCollectionEndpoint& endpoint, const Bytes& report);
// Any IOCTL without input, into a zeroed `length`-byte buffer.
Answer Query(HidCollectionEndpoint& endpoint, ULONG ioctlCode, ULONG length);

// A read that records its completions; `onComplete` runs inside Complete().
class RecordingRead final : public HidCollectionEndpoint::ReadCompletion {
public:
    struct Completed {
        NTSTATUS status;
        Bytes data;
    };

    void Complete(NTSTATUS status, const BYTE* data, ULONG length) override;

    std::vector<Completed> completions;
    std::function<void(RecordingRead&)> onComplete;
};

}  // namespace hidsim_test
