// One top-level collection of a simulated device, as the HID class driver
// exposes it: the endpoint the framework's I/O targets talk to.
//
// IOCTL answers:
// - collection information: 12 bytes; DescriptorSize is the preparsed blob's size.
// - collection descriptor: the blob; a shorter buffer gets STATUS_BUFFER_TOO_SMALL.
// - strings: see WriteDeviceString.
// - GET_FEATURE, SET_FEATURE: see feature_requests.h.
// - any other code: STATUS_INVALID_DEVICE_REQUEST.
// Reads: one pending read at a time (a second one fails at once with
// STATUS_INVALID_DEVICE_STATE, a zero-capacity one with STATUS_BUFFER_TOO_SMALL).
// Input longer than the pending read's capacity is cut to the capacity.
// Rules of the device apply to GET_FEATURE, SET_FEATURE and to input when it
// is handed to a read.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "host/common/hid_collection_endpoint.h"
#include "host/hidsim/device_state.h"
#include "host/hidsim/feature_requests.h"
#include "host/hidsim/read_queue.h"
#include "platform/hidpi.h"

namespace host::hidsim {

class SimulatedCollection final : public HidCollectionEndpoint {
public:
    SimulatedCollection(DeviceState& device, std::size_t index, std::vector<std::uint8_t> preparsed,
                        const HIDP_CAPS& caps, std::size_t readQueueCapacity);
    SimulatedCollection(const SimulatedCollection&) = delete;
    SimulatedCollection& operator=(const SimulatedCollection&) = delete;

    IoctlResult DeviceControl(ULONG ioctlCode, const BYTE* input, ULONG inputLength, BYTE* output,
                              ULONG outputLength) override;
    void SubmitRead(ReadCompletion* read, ULONG capacity) override;
    bool CancelRead(ReadCompletion* read) override;

    // One completed read carrying exactly these bytes: completes the pending
    // read, or waits in the queue for the next one.
    void FeedInput(std::span<const std::uint8_t> input);

    std::size_t Index() const { return index_; }
    const HIDP_CAPS& Caps() const { return caps_; }
    const std::vector<std::uint8_t>& PreparsedData() const { return preparsed_; }

    bool HasPendingRead() const;
    std::size_t QueuedInputs() const;
    // Inputs lost because the queue was full (oldest first) or memory ran out.
    std::uint64_t DroppedInputs() const;

private:
    struct Completion {
        ReadCompletion* read = nullptr;
        NTSTATUS status = STATUS_SUCCESS;
        std::vector<std::uint8_t> data;
    };

    // These run with the device lock held.
    IoctlResult Dispatch(ULONG ioctlCode, const BYTE* input, ULONG inputLength, BYTE* output, ULONG outputLength);
    FeatureTarget FeatureTargetOfThis() const;
    // Hands the oldest queued input to the pending read, if both exist.
    std::optional<Completion> ServeQueuedInput();

    void Finish(std::optional<Completion> completion);

    DeviceState& device_;
    const std::size_t index_;
    const std::vector<std::uint8_t> preparsed_;
    const HIDP_CAPS caps_;
    ReadQueue reads_;
    std::uint64_t lostInputs_ = 0;  // FeedInput copies that could not be allocated
};

}  // namespace host::hidsim
