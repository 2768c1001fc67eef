#include "tests/framework/fake_endpoint.h"

#include <algorithm>
#include <cstring>

namespace host::framework::testing {

void FakeEndpoint::SetIoctl(ULONG ioctlCode, IoctlAnswer answer)
{
    std::lock_guard lock(mutex_);
    answers_[ioctlCode] = std::move(answer);
}

void FakeEndpoint::NeverAnswer(ULONG ioctlCode)
{
    IoctlAnswer answer;
    answer.answered = false;
    SetIoctl(ioctlCode, answer);
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
    const Pending read = pending_.front();
    pending_.pop_front();
    read.read->Complete(STATUS_SUCCESS, bytes.data(), static_cast<ULONG>(bytes.size()));
}

bool FakeEndpoint::FailRead(NTSTATUS status)
{
    std::lock_guard lock(mutex_);
    if (pending_.empty())
        return false;
    const Pending read = pending_.front();
    pending_.pop_front();
    read.read->Complete(status, nullptr, 0);
    return true;
}

int FakeEndpoint::PendingReads() const
{
    std::lock_guard lock(mutex_);
    return static_cast<int>(pending_.size());
}

int FakeEndpoint::Submits() const
{
    std::lock_guard lock(mutex_);
    return submits_;
}

int FakeEndpoint::Cancels() const
{
    std::lock_guard lock(mutex_);
    return cancels_;
}

int FakeEndpoint::Ioctls() const
{
    std::lock_guard lock(mutex_);
    return ioctls_;
}

std::vector<BYTE> FakeEndpoint::LastIoctlInput() const
{
    std::lock_guard lock(mutex_);
    return lastInput_;
}

ULONG FakeEndpoint::LastReadCapacity() const
{
    std::lock_guard lock(mutex_);
    return lastCapacity_;
}

HidCollectionEndpoint::IoctlResult FakeEndpoint::DeviceControl(ULONG ioctlCode, const BYTE* input, ULONG inputLength,
                                                               BYTE* output, ULONG outputLength)
{
    std::lock_guard lock(mutex_);
    ++ioctls_;
    lastInput_.assign(input, input + (input != nullptr ? inputLength : 0));
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
    ++submits_;
    lastCapacity_ = capacity;
    if (!queuedInput_.empty()) {
        std::vector<BYTE> bytes = std::move(queuedInput_.front());
        queuedInput_.pop_front();
        read->Complete(STATUS_SUCCESS, bytes.data(), static_cast<ULONG>(bytes.size()));
        return;
    }
    pending_.push_back(Pending{read, capacity});
}

bool FakeEndpoint::CancelRead(ReadCompletion* read)
{
    std::lock_guard lock(mutex_);
    auto it = std::find_if(pending_.begin(), pending_.end(), [read](const Pending& p) { return p.read == read; });
    if (it == pending_.end())
        return false;
    ++cancels_;
    if (ignoreCancels_)
        return true;
    pending_.erase(it);
    read->Complete(STATUS_CANCELLED, nullptr, 0);
    return true;
}

}  // namespace host::framework::testing
