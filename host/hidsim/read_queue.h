// The read side of one top-level collection: at most one pending read, and the
// input that arrived while none was pending. Like the platform's ring buffer of
// input reports, the queue is bounded and drops its oldest entry when full.
// Not locked: the collection that owns it holds the device lock around it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <optional>
#include <vector>

#include "host/common/hid_collection_endpoint.h"

namespace host::hidsim {

class ReadQueue {
public:
    struct PendingRead {
        HidCollectionEndpoint::ReadCompletion* completion = nullptr;
        ULONG capacity = 0;
    };

    explicit ReadQueue(std::size_t capacity) : capacity_(capacity) {}

    bool HasPending() const { return pending_.has_value(); }
    void SetPending(PendingRead read) { pending_ = read; }
    // Removes and returns the pending read.
    std::optional<PendingRead> TakePending();
    // Clears the pending read when it is `completion`; false otherwise.
    bool RemovePending(const HidCollectionEndpoint::ReadCompletion* completion);

    // Queues one read's worth of input; when full, the oldest entry goes.
    void Push(std::vector<std::uint8_t> input);
    std::optional<std::vector<std::uint8_t>> PopOldest();

    std::size_t Queued() const { return queued_.size(); }
    std::uint64_t Dropped() const { return dropped_; }

private:
    const std::size_t capacity_;
    std::optional<PendingRead> pending_;
    std::deque<std::vector<std::uint8_t>> queued_;
    std::uint64_t dropped_ = 0;
};

}  // namespace host::hidsim
