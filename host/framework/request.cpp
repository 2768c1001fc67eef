// The request object: formatting, completion by the driver, delivery of an
// asynchronous completion, and deletion while in flight.
#include "host/framework/request.h"
#include "host/common/fault_injection.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <mutex>

#include "host/framework/handle_check.h"
#include "host/framework/io_target.h"
#include "host/framework/memory.h"
#include "host/framework/pending_io.h"
#include "host/framework/violations.h"

namespace host::framework {
namespace {

BufferRef MakeRef(WDFMEMORY memory, const WDFMEMORY_OFFSET* offset)
{
    BufferRef ref;
    ref.memory = memory;
    if (offset != nullptr) {
        ref.offset = offset->BufferOffset;
        ref.length = offset->BufferLength;
    }
    return ref;
}

// Checks a window at format time, so a bad offset fails where it is given.
NTSTATUS CheckRef(const BufferRef& ref, const char* function)
{
    if (ref.memory == nullptr)
        return STATUS_SUCCESS;
    BYTE* data = nullptr;
    SIZE_T length = 0;
    return ResolveBuffer(ref, &data, &length, function);
}

}  // namespace

NTSTATUS ResolveBuffer(const BufferRef& ref, BYTE** data, SIZE_T* length, const char* function)
{
    *data = nullptr;
    *length = 0;
    MemoryObject* memory = Resolve<MemoryObject>(ref.memory, function);
    if (memory == nullptr)
        return STATUS_INVALID_PARAMETER;
    const SIZE_T size = memory->Size();
    if (ref.offset > size || ref.length > size - ref.offset) {
        ReportViolation(std::string(function) + ": memory offset/length outside the buffer");
        return STATUS_INVALID_PARAMETER;
    }
    *data = static_cast<BYTE*>(memory->Buffer()) + ref.offset;
    *length = ref.length != 0 ? ref.length : size - ref.offset;
    return STATUS_SUCCESS;
}

bool RequestCompleted(WDFREQUEST request)
{
    Object* object = Object::FromHandle(request);
    if (object == nullptr || object->Kind() != ObjectKind::Request)
        return false;
    return static_cast<RequestObject*>(object)->CurrentState() == RequestObject::State::Completed;
}

NTSTATUS RequestObject::CheckFormattable(const char* function) const
{
    if (CurrentState() == State::Outstanding) {
        ReportViolation(std::string(function) + ": request is outstanding");
        return STATUS_INVALID_DEVICE_STATE;
    }
    return STATUS_SUCCESS;
}

NTSTATUS RequestObject::FormatRead(IoTargetObject& target, WDFMEMORY output, const WDFMEMORY_OFFSET* offset)
{
    NTSTATUS status = CheckFormattable("WdfIoTargetFormatRequestForRead");
    if (!NT_SUCCESS(status))
        return status;
    const BufferRef ref = MakeRef(output, offset);
    if (output == nullptr)
        return STATUS_INVALID_PARAMETER;
    status = CheckRef(ref, "WdfIoTargetFormatRequestForRead");
    if (!NT_SUCCESS(status))
        return status;
    type_ = WdfRequestTypeRead;
    ioctlCode_ = 0;
    input_ = BufferRef{};
    output_ = ref;
    formattedFor_ = target.TargetHandle();
    return STATUS_SUCCESS;
}

NTSTATUS RequestObject::FormatIoctl(IoTargetObject& target, ULONG ioctlCode, WDFMEMORY input,
                                    const WDFMEMORY_OFFSET* inputOffset, WDFMEMORY output,
                                    const WDFMEMORY_OFFSET* outputOffset)
{
    NTSTATUS status = CheckFormattable("WdfIoTargetFormatRequestForIoctl");
    if (!NT_SUCCESS(status))
        return status;
    const BufferRef in = MakeRef(input, inputOffset);
    const BufferRef out = MakeRef(output, outputOffset);
    status = CheckRef(in, "WdfIoTargetFormatRequestForIoctl");
    if (NT_SUCCESS(status))
        status = CheckRef(out, "WdfIoTargetFormatRequestForIoctl");
    if (!NT_SUCCESS(status))
        return status;
    type_ = WdfRequestTypeDeviceControl;
    ioctlCode_ = ioctlCode;
    input_ = in;
    output_ = out;
    formattedFor_ = target.TargetHandle();
    return STATUS_SUCCESS;
}

void RequestObject::SetCompletionRoutine(PFN_WDF_REQUEST_COMPLETION_ROUTINE routine, WDFCONTEXT context)
{
    routine_ = routine;
    routineContext_ = context;
}

void RequestObject::CompleteByDriver(NTSTATUS status)
{
    if (!createdByClient_) {
        ReportViolation("WdfRequestComplete: the driver's own requests are deleted, not completed");
        return;
    }
    if (CurrentState() != State::Idle) {
        ReportViolation("WdfRequestComplete: request already completed or in flight");
        return;
    }
    status_.store(status, std::memory_order_release);
    state_.store(State::Completed, std::memory_order_release);
}

void RequestObject::DetachIoLocked()
{
    io_.reset();
}

void RequestObject::AbandonLocked()
{
    io_.reset();
    information_.store(0, std::memory_order_release);
    status_.store(STATUS_CANCELLED, std::memory_order_release);
    state_.store(State::Completed, std::memory_order_release);
}

void RequestObject::FinishAsync(WDFIOTARGET target, NTSTATUS status, ULONG_PTR information,
                                const std::vector<BYTE>& data)
{
    if (type_ == WdfRequestTypeRead) {
        BYTE* buffer = nullptr;
        SIZE_T capacity = 0;
        information = 0;
        if (NT_SUCCESS(ResolveBuffer(output_, &buffer, &capacity, "read completion"))) {
            if (data.size() > capacity)
                ReportViolation("read completion: the device returned more bytes than the read asked for");
            information = std::min<SIZE_T>(data.size(), capacity);
            if (information > 0)
                std::memcpy(buffer, data.data(), information);
        }
    }
    params_ = WDF_REQUEST_COMPLETION_PARAMS{};
    params_.Size = sizeof(WDF_REQUEST_COMPLETION_PARAMS);
    params_.Type = type_;
    params_.IoStatus.Status = status;
    params_.IoStatus.Information = information;
    if (type_ == WdfRequestTypeRead) {
        params_.Parameters.Read.Buffer = output_.memory;
        params_.Parameters.Read.Length = information;
        params_.Parameters.Read.Offset = output_.offset;
    } else {
        params_.Parameters.Ioctl.IoControlCode = ioctlCode_;
        params_.Parameters.Ioctl.Input.Buffer = input_.memory;
        params_.Parameters.Ioctl.Input.Offset = input_.offset;
        params_.Parameters.Ioctl.Output.Buffer = output_.memory;
        params_.Parameters.Ioctl.Output.Offset = output_.offset;
        params_.Parameters.Ioctl.Output.Length = information;
    }
    information_.store(information, std::memory_order_release);
    status_.store(status, std::memory_order_release);
    state_.store(State::Completed, std::memory_order_release);
    if (routine_ != nullptr) {
        DriverCodeScope driverCode;
        routine_(static_cast<WDFREQUEST>(Handle()), target, &params_, routineContext_);
    }
}

void RequestObject::OnDeleting()
{
    TargetCore* core = sentCore_.load(std::memory_order_acquire);
    if (core == nullptr)
        return;
    std::shared_ptr<PendingIo> io;
    HidCollectionEndpoint* endpoint = nullptr;
    bool atDevice = false;
    {
        std::lock_guard lock(core->mutex);
        io = std::move(io_);
        io_.reset();
        if (io == nullptr)
            return;
        io->OrphanLocked();
        atDevice = io->AtDeviceLocked();
        endpoint = core->endpoint;
    }
    ReportViolation("WdfObjectDelete: request deleted while outstanding; its completion is dropped");
    if (!atDevice)
        return;
    if (io->Type() == WdfRequestTypeRead) {
        if (endpoint != nullptr)
            endpoint->CancelRead(io.get());
    } else {
        io->CompleteHeld(STATUS_CANCELLED);
    }
}

}  // namespace host::framework
