#include "tests/framework/fake_endpoint.h"

#include <algorithm>
#include <cstring>

namespace host::framework::testing {

void FakeEndpoint::SetIoctl(ULONG ioctlCode, IoctlAnswer answer)
{
    std::lock_guard lock(mutex_);
    answers_[ioctlCode] = std::move(answer);
}

void FakeEndpoint::IgnoreCancels(bool ignore)
{
    std::lock_guard lock(mutex_);
    ignoreCancels_ = ignore;
}

void FakeEndpoint::Feed(std::vector<BYTE> bytes)
{
    std::lock_guard lock(mutex_);
    if (pending_.empty()) {
        queuedInput_.push_back(std::move(bytes));
        return;
    }
    ReadCompletion* read = pending_.front();
    pending_.pop_front();
    read->Complete(STATUS_SUCCESS, bytes.data(), static_cast<ULONG>(bytes.size()));
}

bool FakeEndpoint::FailRead(NTSTATUS status)
{
    std::lock_guard lock(mutex_);
    if (pending_.empty())
        return false;
    ReadCompletion* read = pending_.front();
    pending_.pop_front();
    read->Complete(status, nullptr, 0);
    return true;
}

FakeEndpoint::Seen FakeEndpoint::Counts() const
{
    std::lock_guard lock(mutex_);
    Seen seen = seen_;
    seen.pendingReads = static_cast<int>(pending_.size());
    return seen;
}

HidCollectionEndpoint::IoctlResult FakeEndpoint::DeviceControl(ULONG ioctlCode, const BYTE* input, ULONG inputLength,
                                                               BYTE* output, ULONG outputLength)
{
    std::lock_guard lock(mutex_);
    ++seen_.ioctls;
    seen_.lastIoctlInput.assign(input, input + (input != nullptr ? inputLength : 0));
    auto it = answers_.find(ioctlCode);
    if (it == answers_.end())
        return IoctlResult{STATUS_INVALID_DEVICE_REQUEST, 0, true};
    const IoctlAnswer& answer = it->second;
    if (!answer.answered)
        return IoctlResult{STATUS_PENDING, 0, false};
    const ULONG count = std::min<ULONG>(outputLength, static_cast<ULONG>(answer.output.size()));
    if (count > 0)
        std::memcpy(output, answer.output.data(), count);
    return IoctlResult{answer.status, count, true};
}

void FakeEndpoint::SubmitRead(ReadCompletion* read, ULONG capacity)
{
    std::lock_guard lock(mutex_);
    ++seen_.submits;
    seen_.lastReadCapacity = capacity;
    if (queuedInput_.empty()) {
        pending_.push_back(read);
        return;
    }
    const std::vector<BYTE> bytes = std::move(queuedInput_.front());
    queuedInput_.pop_front();
    read->Complete(STATUS_SUCCESS, bytes.data(), static_cast<ULONG>(bytes.size()));
}

bool FakeEndpoint::CancelRead(ReadCompletion* read)
{
    std::lock_guard lock(mutex_);
    auto it = std::find(pending_.begin(), pending_.end(), read);
    if (it == pending_.end())
        return false;
    ++seen_.cancels;
    if (ignoreCancels_)
        return true;
    pending_.erase(it);
    read->Complete(STATUS_CANCELLED, nullptr, 0);
    return true;
}

}  // namespace host::framework::testing
