#include "host/hidsim/read_queue.h"

#include <utility>

namespace host::hidsim {

std::optional<ReadQueue::PendingRead> ReadQueue::TakePending()
{
    std::optional<PendingRead> read = pending_;
    pending_.reset();
    return read;
}

bool ReadQueue::RemovePending(const HidCollectionEndpoint::ReadCompletion* completion)
{
    if (!pending_ || pending_->completion != completion)
        return false;
    pending_.reset();
    return true;
}

void ReadQueue::Push(std::vector<std::uint8_t> input)
{
    if (capacity_ == 0) {
        ++dropped_;
        return;
    }
    if (queued_.size() == capacity_) {
        queued_.pop_front();
        ++dropped_;
    }
    queued_.push_back(std::move(input));
}

std::optional<std::vector<std::uint8_t>> ReadQueue::PopOldest()
{
    if (queued_.empty())
        return std::nullopt;
    std::vector<std::uint8_t> input = std::move(queued_.front());
    queued_.pop_front();
    return input;
}

}  // namespace host::hidsim
