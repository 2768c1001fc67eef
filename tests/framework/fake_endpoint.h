// A small HID collection for framework tests: IOCTLs answered from a table (or
// never), reads completed when the test feeds input. Thread-safe.
#pragma once

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
    void SetIoctl(ULONG ioctlCode, IoctlAnswer answer);
    void NeverAnswer(ULONG ioctlCode) { SetIoctl(ioctlCode, {STATUS_PENDING, {}, false}); }
    // Completes the oldest pending read with `bytes`; without one, queues them for the next read.
    void Feed(std::vector<BYTE> bytes);
    // Completes the oldest pending read with a failure and no data.
    bool FailRead(NTSTATUS status);
    // When set, a cancelled read is acknowledged but never completed (a broken device).
    void IgnoreCancels(bool ignore);
    Seen Counts() const;

    IoctlResult DeviceControl(ULONG ioctlCode, const BYTE* input, ULONG inputLength, BYTE* output,
                              ULONG outputLength) override;
    void SubmitRead(ReadCompletion* read, ULONG capacity) override;
    bool CancelRead(ReadCompletion* read) override;

private:
    mutable std::mutex mutex_;
    std::map<ULONG, IoctlAnswer> answers_;
    std::deque<ReadCompletion*> pending_;
    std::deque<std::vector<BYTE>> queuedInput_;
    bool ignoreCancels_ = false;
    Seen seen_;
};

}  // namespace host::framework::testing
