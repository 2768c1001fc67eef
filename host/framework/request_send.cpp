// Sending a request to its I/O target, synchronously or asynchronously, and
// cancelling it.
#include <algorithm>
#include <chrono>
#include <limits>
#include <mutex>
#include <new>
#include <thread>

#include "host/common/fault_injection.h"
#include "host/framework/io_target.h"
#include "host/framework/pending_io.h"
#include "host/framework/request.h"
#include "host/framework/runtime.h"
#include "host/framework/violations.h"

namespace host::framework {
namespace {

constexpr ULONG kMaxTransfer = std::numeric_limits<ULONG>::max();
// A real-time send never waits longer than a day for a device that never answers.
constexpr LONGLONG kLongestWait = 24LL * 3600 * 10'000'000;

// A device that never answers: the send ends when its timeout runs out.
NTSTATUS WaitOutTimeout(const WDF_REQUEST_SEND_OPTIONS& options)
{
    if ((options.Flags & WDF_REQUEST_SEND_OPTION_TIMEOUT) == 0) {
        ReportViolation("WdfRequestSend: synchronous send without a timeout to a device that never answers");
        return STATUS_IO_TIMEOUT;
    }
    HostClock& clock = Runtime::Get().Clock();
    LONGLONG ticks = 0;
    if (options.Timeout < 0)
        ticks = options.Timeout == std::numeric_limits<LONGLONG>::min() ? std::numeric_limits<LONGLONG>::max()
                                                                          : -options.Timeout;
    else
        ticks = options.Timeout - clock.Now();
    if (ticks <= 0)
        return STATUS_IO_TIMEOUT;
    if (clock.Mode() == ClockMode::Deterministic)
        clock.AdvanceTo(clock.Now() + ticks);
    else
        std::this_thread::sleep_for(std::chrono::microseconds(std::min(ticks, kLongestWait) / 10));
    return STATUS_IO_TIMEOUT;
}

struct Transfer {
    BYTE* input = nullptr;
    ULONG inputLength = 0;
    BYTE* output = nullptr;
    ULONG outputLength = 0;
};

NTSTATUS ResolveOptional(const BufferRef& ref, BYTE** data, ULONG* length)
{
    *data = nullptr;
    *length = 0;
    if (ref.memory == nullptr)
        return STATUS_SUCCESS;
    SIZE_T size = 0;
    const NTSTATUS status = ResolveBuffer(ref, data, &size, "WdfRequestSend");
    if (!NT_SUCCESS(status))
        return status;
    if (size > kMaxTransfer)
        return STATUS_INVALID_PARAMETER;
    *length = static_cast<ULONG>(size);
    return STATUS_SUCCESS;
}

}  // namespace

BOOLEAN RequestObject::FailSend(NTSTATUS status)
{
    information_.store(0, std::memory_order_release);
    status_.store(status, std::memory_order_release);
    state_.store(State::Completed, std::memory_order_release);
    return FALSE;
}

BOOLEAN RequestObject::Send(IoTargetObject& target, const WDF_REQUEST_SEND_OPTIONS* options)
{
    if (CurrentState() == State::Outstanding) {
        ReportViolation("WdfRequestSend: request sent again while outstanding");
        return FALSE;
    }
    if (options != nullptr && options->Size != sizeof(WDF_REQUEST_SEND_OPTIONS))
        return FailSend(STATUS_INFO_LENGTH_MISMATCH);
    if (type_ != WdfRequestTypeRead && type_ != WdfRequestTypeDeviceControl) {
        ReportViolation("WdfRequestSend: request was never formatted");
        return FailSend(STATUS_INVALID_DEVICE_REQUEST);
    }
    if (formattedFor_ != target.TargetHandle()) {
        ReportViolation("WdfRequestSend: request formatted for another target");
        return FailSend(STATUS_INVALID_PARAMETER);
    }
    NTSTATUS status = STATUS_SUCCESS;
    host::DriverCall driverCall(host::FaultPoint::RequestSend);
    if (driverCall.Fails(&status))
        return FailSend(status);
    const bool synchronous = options != nullptr && (options->Flags & WDF_REQUEST_SEND_OPTION_SYNCHRONOUS) != 0;
    if (!synchronous)
        return SendAsynchronously(target.Core());
    if (type_ == WdfRequestTypeRead)
        return FailSend(STATUS_NOT_SUPPORTED);
    return SendSynchronously(*target.Core(), *options);
}

BOOLEAN RequestObject::SendSynchronously(TargetCore& core, const WDF_REQUEST_SEND_OPTIONS& options)
{
    Transfer transfer;
    NTSTATUS status = ResolveOptional(input_, &transfer.input, &transfer.inputLength);
    if (NT_SUCCESS(status))
        status = ResolveOptional(output_, &transfer.output, &transfer.outputLength);
    if (!NT_SUCCESS(status))
        return FailSend(status);
    HidCollectionEndpoint* endpoint = nullptr;
    {
        std::lock_guard lock(core.mutex);
        if (!core.open)
            return FailSend(STATUS_INVALID_DEVICE_STATE);
        endpoint = core.endpoint;
        ++core.outstanding;
    }
    status_.store(STATUS_PENDING, std::memory_order_release);
    state_.store(State::Outstanding, std::memory_order_release);

    ULONG_PTR information = 0;
    if (!host::FaultInjector::Instance().ShouldFailIoctl(ioctlCode_, &status)) {
        const HidCollectionEndpoint::IoctlResult result = endpoint->DeviceControl(
            ioctlCode_, transfer.input, transfer.inputLength, transfer.output, transfer.outputLength);
        if (result.answered) {
            status = result.status;
            information = result.information;
            if (information > transfer.outputLength) {
                ReportViolation("WdfRequestSend: the device reported more bytes than the output buffer holds");
                information = transfer.outputLength;
            }
        } else {
            status = WaitOutTimeout(options);
        }
    }
    information_.store(information, std::memory_order_release);
    status_.store(status, std::memory_order_release);
    state_.store(State::Completed, std::memory_order_release);
    {
        std::lock_guard lock(core.mutex);
        --core.outstanding;
    }
    core.changed.notify_all();
    return NT_SUCCESS(status) ? TRUE : FALSE;
}

BOOLEAN RequestObject::SendAsynchronously(const std::shared_ptr<TargetCore>& core)
{
    const bool isRead = type_ == WdfRequestTypeRead;
    Transfer transfer;
    NTSTATUS status = ResolveOptional(input_, &transfer.input, &transfer.inputLength);
    if (NT_SUCCESS(status))
        status = ResolveOptional(output_, &transfer.output, &transfer.outputLength);
    if (!NT_SUCCESS(status))
        return FailSend(status);
    std::shared_ptr<PendingIo> io;
    try {
        io = std::make_shared<PendingIo>(core, this, type_);
    } catch (const std::bad_alloc&) {
        return FailSend(STATUS_INSUFFICIENT_RESOURCES);
    }
    HidCollectionEndpoint* endpoint = nullptr;
    {
        std::lock_guard lock(core->mutex);
        if (!core->open)
            return FailSend(STATUS_INVALID_DEVICE_STATE);
        if (isRead && core->readsInFlight > 0) {
            ReportViolation("WdfRequestSend: a second read while one is outstanding on the target");
            return FailSend(STATUS_INVALID_DEVICE_STATE);
        }
        if (isRead) {
            try {
                core->atDevice.push_back(io);
            } catch (const std::bad_alloc&) {
                return FailSend(STATUS_INSUFFICIENT_RESOURCES);
            }
            io->SetAtDeviceLocked();
            ++core->readsInFlight;
        }
        ++core->outstanding;
        endpoint = core->endpoint;
        io_ = io;
        if (sentTo_ != core) {
            sentTo_ = core;
            sentCore_.store(core.get(), std::memory_order_release);
        }
        information_.store(0, std::memory_order_release);
        status_.store(STATUS_PENDING, std::memory_order_release);
        state_.store(State::Outstanding, std::memory_order_release);
    }
    if (isRead) {
        // The device may complete it right here; the completion still waits for the dispatcher.
        endpoint->SubmitRead(io.get(), transfer.outputLength);
        return TRUE;
    }
    if (host::FaultInjector::Instance().ShouldFailIoctl(ioctlCode_, &status)) {
        PendingIo::PostAnswered(io, status, 0);
        return TRUE;
    }
    const HidCollectionEndpoint::IoctlResult result = endpoint->DeviceControl(
        ioctlCode_, transfer.input, transfer.inputLength, transfer.output, transfer.outputLength);
    if (result.answered) {
        PendingIo::PostAnswered(io, result.status, std::min<ULONG>(result.information, transfer.outputLength));
        return TRUE;
    }
    // Held by a device that never answers: only a cancel (or the target's close) ends it.
    std::lock_guard lock(core->mutex);
    try {
        core->atDevice.push_back(io);
        io->SetAtDeviceLocked();
    } catch (const std::bad_alloc&) {
        ReportViolation("WdfRequestSend: out of memory holding an unanswered IOCTL; it never completes");
    }
    return TRUE;
}

BOOLEAN RequestObject::CancelSent()
{
    TargetCore* core = sentCore_.load(std::memory_order_acquire);
    if (core == nullptr)
        return FALSE;
    std::shared_ptr<PendingIo> io;
    HidCollectionEndpoint* endpoint = nullptr;
    {
        std::lock_guard lock(core->mutex);
        io = io_;
        if (io == nullptr || !io->AtDeviceLocked())
            return FALSE;
        endpoint = core->endpoint;
    }
    if (io->Type() != WdfRequestTypeRead) {
        io->CompleteHeld(STATUS_CANCELLED);
        return TRUE;
    }
    return endpoint != nullptr && endpoint->CancelRead(io.get()) ? TRUE : FALSE;
}

}  // namespace host::framework
