#include "host/framework/pending_io.h"

#include <algorithm>
#include <mutex>
#include <new>

#include "host/framework/request.h"
#include "host/framework/runtime.h"
#include "host/framework/violations.h"

namespace host::framework {

void KeepOrphan(std::shared_ptr<PendingIo> io)
{
    static std::mutex lock;
    static std::vector<std::shared_ptr<PendingIo>> orphans;
    std::lock_guard guard(lock);
    try {
        orphans.push_back(std::move(io));
    } catch (const std::bad_alloc&) {
        // Nothing better to do: the device must not complete it after this.
    }
}

PendingIo::PendingIo(std::shared_ptr<TargetCore> core, RequestObject* request, WDF_REQUEST_TYPE type)
    : core_(std::move(core)), request_(request), type_(type)
{
}

void PendingIo::Complete(NTSTATUS status, const BYTE* data, ULONG length)
{
    Finish(status, data, length, true);
}

void PendingIo::CompleteHeld(NTSTATUS status)
{
    Finish(status, nullptr, 0, false);
}

void PendingIo::Finish(NTSTATUS status, const BYTE* data, ULONG length, bool fromDevice)
{
    std::shared_ptr<PendingIo> self;
    {
        std::lock_guard lock(core_->mutex);
        if (!atDevice_) {
            if (fromDevice)
                ReportViolation("ReadCompletion::Complete: a read completed twice or never submitted");
            return;
        }
        atDevice_ = false;
        auto& list = core_->atDevice;
        auto it = std::find_if(list.begin(), list.end(), [this](const auto& io) { return io.get() == this; });
        if (it == list.end())
            return;  // abandoned by a close; nobody waits for it any more
        self = std::move(*it);
        list.erase(it);
        status_ = status;
        if (data != nullptr && length > 0) {
            try {
                data_.assign(data, data + length);
            } catch (const std::bad_alloc&) {
                status_ = STATUS_INSUFFICIENT_RESOURCES;
                data_.clear();
            }
        }
        information_ = data_.size();
    }
    Post(std::move(self));
}

void PendingIo::PostAnswered(const std::shared_ptr<PendingIo>& io, NTSTATUS status, ULONG_PTR information)
{
    {
        std::lock_guard lock(io->core_->mutex);
        io->status_ = status;
        io->information_ = information;
    }
    io->Post(io);
}

void PendingIo::Post(std::shared_ptr<PendingIo> self)
{
    const void* tag = core_.get();
    Runtime::Get().Dispatch().Post(tag, [io = std::move(self)] { io->Deliver(); });
}

void PendingIo::OrphanLocked()
{
    if (request_ != nullptr)
        request_ = nullptr;
}

void PendingIo::Deliver()
{
    RequestObject* request = nullptr;
    const std::thread::id self = std::this_thread::get_id();
    {
        std::lock_guard lock(core_->mutex);
        // The read is over: the routine may submit the next one.
        if (type_ == WdfRequestTypeRead)
            --core_->readsInFlight;
        request = request_;
        if (request != nullptr) {
            request_ = nullptr;
            request->DetachIoLocked();
            try {
                core_->delivering.push_back(self);
            } catch (const std::bad_alloc&) {
                // A close from this routine would then wait for it; acceptable under memory exhaustion.
            }
        }
    }
    if (request != nullptr)
        request->FinishAsync(core_->handle, status_, information_, data_);
    {
        std::lock_guard lock(core_->mutex);
        if (request != nullptr) {
            auto& threads = core_->delivering;
            auto it = std::find(threads.begin(), threads.end(), self);
            if (it != threads.end())
                threads.erase(it);
        }
        --core_->outstanding;
    }
    core_->changed.notify_all();
}

}  // namespace host::framework
