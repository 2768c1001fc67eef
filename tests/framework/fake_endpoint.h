// A small HID collection for framework tests: IOCTLs answered from a table (or
// never), reads completed when the test feeds input. Thread-safe.
#pragma once

#include <algorithm>
#include <cstring>
#include <deque>
#include <map>
#include <mutex>
#include <vector>

#include "host/common/hid_collection_endpoint.h"

namespace host::framework::testing {

class FakeEndpoint final : public HidCollectionEndpoint {
public:
    struct IoctlAnswer {
        NTSTATUS status = STATUS_SUCCESS;
        std::vector<BYTE> output;
        bool answered = true;
    };
    struct Seen {
        int pendingReads = 0;
        int submits = 0;
        int cancels = 0;
        int ioctls = 0;
        ULONG lastReadCapacity = 0;
        std::vector<BYTE> lastIoctlInput;
    };

    // How `ioctlCode` is answered from now on; unknown codes get STATUS_INVALID_DEVICE_REQUEST.
    void SetIoctl(ULONG ioctlCode, IoctlAnswer answer)
    {
        std::lock_guard lock(mutex_);
        answers_[ioctlCode] = std::move(answer);
    }
    void NeverAnswer(ULONG ioctlCode) { SetIoctl(ioctlCode, {STATUS_PENDING, {}, false}); }
    // Completes the oldest pending read with `bytes`; without one, queues them for the next read.
    void Feed(std::vector<BYTE> bytes)
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
    Seen Counts() const
    {
        std::lock_guard lock(mutex_);
        Seen seen = seen_;
        seen.pendingReads = static_cast<int>(pending_.size());
        return seen;
    }

    IoctlResult DeviceControl(ULONG ioctlCode, const BYTE* input, ULONG inputLength, BYTE* output,
                              ULONG outputLength) override
    {
        std::lock_guard lock(mutex_);
        ++seen_.ioctls;
        seen_.lastIoctlInput.assign(input, input + (input != nullptr ? inputLength : 0));
        auto it = answers_.find(ioctlCode);
        if (it == answers_.end())
            return IoctlResult{STATUS_INVALID_DEVICE_REQUEST, 0, true};
        if (!it->second.answered)
            return IoctlResult{STATUS_PENDING, 0, false};
        const ULONG count = std::min<ULONG>(outputLength, static_cast<ULONG>(it->second.output.size()));
        if (count > 0)
            std::memcpy(output, it->second.output.data(), count);
        return IoctlResult{it->second.status, count, true};
    }
    void SubmitRead(ReadCompletion* read, ULONG capacity) override
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
    bool CancelRead(ReadCompletion* read) override
    {
        std::lock_guard lock(mutex_);
        auto it = std::find(pending_.begin(), pending_.end(), read);
        if (it == pending_.end())
            return false;
        ++seen_.cancels;
        pending_.erase(it);
        read->Complete(STATUS_CANCELLED, nullptr, 0);
        return true;
    }

private:
    mutable std::mutex mutex_;
    std::map<ULONG, IoctlAnswer> answers_;
    std::deque<ReadCompletion*> pending_;
    std::deque<std::vector<BYTE>> queuedInput_;
    Seen seen_;
};

}  // namespace host::framework::testing
