// A small HID collection for framework tests: IOCTLs answered from a table (or
// never), reads completed when the test feeds input. Thread-safe.
#pragma once

#include <cstdint>
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

    // How the endpoint answers `ioctlCode` from now on. Unknown codes get
    // STATUS_INVALID_DEVICE_REQUEST.
    void SetIoctl(ULONG ioctlCode, IoctlAnswer answer);
    void NeverAnswer(ULONG ioctlCode);

    // Completes the pending read with `bytes`; without one, queues them for the next read.
    void Feed(std::vector<BYTE> bytes);
    // Completes the pending read with a failure and no data.
    bool FailRead(NTSTATUS status);
    // When set, a cancelled read is acknowledged but never completed (a broken device).
    void IgnoreCancels(bool ignore);

    int PendingReads() const;
    int Submits() const;
    int Cancels() const;
    int Ioctls() const;
    std::vector<BYTE> LastIoctlInput() const;
    ULONG LastReadCapacity() const;

    IoctlResult DeviceControl(ULONG ioctlCode, const BYTE* input, ULONG inputLength, BYTE* output,
                              ULONG outputLength) override;
    void SubmitRead(ReadCompletion* read, ULONG capacity) override;
    bool CancelRead(ReadCompletion* read) override;

private:
    struct Pending {
        ReadCompletion* read;
        ULONG capacity;
    };

    mutable std::mutex mutex_;
    std::map<ULONG, IoctlAnswer> answers_;
    std::deque<Pending> pending_;
    std::deque<std::vector<BYTE>> queuedInput_;
    std::vector<BYTE> lastInput_;
    ULONG lastCapacity_ = 0;
    bool ignoreCancels_ = false;
    int submits_ = 0;
    int cancels_ = 0;
    int ioctls_ = 0;
};

}  // namespace host::framework::testing
