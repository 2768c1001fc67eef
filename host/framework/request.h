// Requests: created by the driver for its I/O targets, or by the class
// extension for a client's DeviceIoControl (no target; the driver completes it).
//
// Status (WdfRequestGetStatus): STATUS_PENDING from creation until the request
// is completed, by its target or by WdfRequestComplete. Sending:
//  - synchronous (WDF_REQUEST_SEND_OPTION_SYNCHRONOUS): IOCTLs only; the
//    endpoint's DeviceControl runs on the calling thread and WdfRequestSend
//    returns TRUE only when the request completed with a success status. A
//    device that never answers gives STATUS_IO_TIMEOUT after the timeout
//    (deterministic mode: the clock jumps by the timeout, no timer fires inside
//    the send, the overdue ones fire at the next Advance/RunPending; real time:
//    the thread really waits). Without a timeout the send would hang forever:
//    that is reported as a violation and it fails at once with STATUS_IO_TIMEOUT.
//  - asynchronous (no options, or no SYNCHRONOUS flag): reads go to the
//    endpoint's SubmitRead, IOCTLs to DeviceControl; the completion routine runs
//    later on a framework thread, never inside WdfRequestSend. A timeout is not
//    applied to asynchronous sends. At most one read may be in flight per target.
// A send that fails returns FALSE with the failure in the request's status and
// never calls the completion routine.
#pragma once

#include <atomic>
#include <memory>
#include <vector>

#include "host/framework/object.h"

namespace host::framework {

class IoTargetObject;
class PendingIo;
struct TargetCore;

// A WDFMEMORY with the window the driver gave (offset, and length 0 = to the end).
struct BufferRef {
    WDFMEMORY memory = nullptr;
    SIZE_T offset = 0;
    SIZE_T length = 0;
};

class RequestObject final : public Object {
public:
    static constexpr ObjectKind kKind = ObjectKind::Request;

    enum class State { Idle, Outstanding, Completed };

    explicit RequestObject(bool createdByClient) : Object(kKind), createdByClient_(createdByClient) {}

    NTSTATUS FormatRead(IoTargetObject& target, WDFMEMORY output, const WDFMEMORY_OFFSET* offset);
    NTSTATUS FormatIoctl(IoTargetObject& target, ULONG ioctlCode, WDFMEMORY input, const WDFMEMORY_OFFSET* inputOffset,
                         WDFMEMORY output, const WDFMEMORY_OFFSET* outputOffset);
    void SetCompletionRoutine(PFN_WDF_REQUEST_COMPLETION_ROUTINE routine, WDFCONTEXT context);

    BOOLEAN Send(IoTargetObject& target, const WDF_REQUEST_SEND_OPTIONS* options);
    // Ends a send that cannot start: FALSE, with `status` as the request's status.
    BOOLEAN FailSend(NTSTATUS status);
    BOOLEAN CancelSent();
    void CompleteByDriver(NTSTATUS status);

    NTSTATUS Status() const { return status_.load(std::memory_order_acquire); }
    ULONG_PTR Information() const { return information_.load(std::memory_order_acquire); }
    State CurrentState() const { return state_.load(std::memory_order_acquire); }

    // Called by PendingIo under the core's mutex when the device's answer is
    // about to be delivered: the request is no longer in flight.
    void DetachIoLocked();
    // Called by a close that gives up on a device that never completes: the
    // request ends as cancelled without its completion routine.
    void AbandonLocked();
    // Called by PendingIo on the delivering thread: stores the result, copies
    // read data into the output buffer and runs the completion routine.
    void FinishAsync(WDFIOTARGET target, NTSTATUS status, ULONG_PTR information, const std::vector<BYTE>& data);

protected:
    void OnDeleting() override;

private:
    BOOLEAN SendSynchronously(TargetCore& core, const WDF_REQUEST_SEND_OPTIONS& options);
    BOOLEAN SendAsynchronously(const std::shared_ptr<TargetCore>& core);
    NTSTATUS CheckFormattable(const char* function) const;

    const bool createdByClient_;
    WDF_REQUEST_TYPE type_ = WdfRequestTypeOther;  // WdfRequestTypeOther: not formatted
    ULONG ioctlCode_ = 0;
    BufferRef input_;
    BufferRef output_;
    WDFIOTARGET formattedFor_ = nullptr;
    PFN_WDF_REQUEST_COMPLETION_ROUTINE routine_ = nullptr;
    WDFCONTEXT routineContext_ = nullptr;
    WDF_REQUEST_COMPLETION_PARAMS params_{};
    std::shared_ptr<TargetCore> sentTo_;  // keeps sentCore_ alive
    // The target of the last asynchronous send. Atomic: a cancel may come from
    // another thread than the send, with nothing but the driver between them.
    std::atomic<TargetCore*> sentCore_{nullptr};
    std::shared_ptr<PendingIo> io_;  // in flight; guarded by sentCore_->mutex
    std::atomic<State> state_{State::Idle};
    std::atomic<NTSTATUS> status_{STATUS_PENDING};
    std::atomic<ULONG_PTR> information_{0};
};

// The bytes a BufferRef designates: STATUS_INVALID_PARAMETER for a dead memory
// handle or a window outside the buffer (reported as a violation).
NTSTATUS ResolveBuffer(const BufferRef& ref, BYTE** data, SIZE_T* length, const char* function);
// Whether the client's request has been completed by the driver (WdfRequestComplete).
bool RequestCompleted(WDFREQUEST request);

}  // namespace host::framework
