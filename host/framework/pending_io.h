// One asynchronous request in flight. The device completes it (as a
// ReadCompletion, on any thread, possibly inside SubmitRead); the dispatcher
// later delivers it to the request's completion routine on a framework thread.
//
// If the request is deleted while in flight (a driver bug, reported) the
// PendingIo is orphaned: the device may still complete it, and the completion
// is then dropped. Fields are guarded by the target core's mutex.
#pragma once

#include <memory>
#include <vector>

#include "host/common/hid_collection_endpoint.h"
#include "host/framework/io_target.h"

namespace host::framework {

class RequestObject;

class PendingIo final : public HidCollectionEndpoint::ReadCompletion {
public:
    PendingIo(std::shared_ptr<TargetCore> core, RequestObject* request, WDF_REQUEST_TYPE type);

    // Device side.
    void Complete(NTSTATUS status, const BYTE* data, ULONG length) override;
    // Completes a request the device holds without a way to cancel it (an
    // asynchronous IOCTL that was never answered).
    void CompleteHeld(NTSTATUS status);
    // Posts the completion of a request the device already answered.
    static void PostAnswered(const std::shared_ptr<PendingIo>& io, NTSTATUS status, ULONG_PTR information);

    // Dispatcher side: runs the completion routine.
    void Deliver();

    // Under core->mutex: the request is gone (or given up on); drop the completion.
    void OrphanLocked();

    WDF_REQUEST_TYPE Type() const { return type_; }
    bool AtDeviceLocked() const { return atDevice_; }
    void SetAtDeviceLocked() { atDevice_ = true; }
    RequestObject* RequestLocked() const { return request_; }

private:
    void Finish(NTSTATUS status, const BYTE* data, ULONG length, bool fromDevice);
    void Post(std::shared_ptr<PendingIo> self);

    std::shared_ptr<TargetCore> core_;
    RequestObject* request_;
    const WDF_REQUEST_TYPE type_;
    bool atDevice_ = false;
    NTSTATUS status_ = STATUS_PENDING;
    ULONG_PTR information_ = 0;
    std::vector<BYTE> data_;
};

// Keeps an abandoned PendingIo alive for as long as its device might still
// complete it.
void KeepOrphan(std::shared_ptr<PendingIo> io);

}  // namespace host::framework
