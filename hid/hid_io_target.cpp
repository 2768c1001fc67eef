#include "hid/hid_io_target.h"

#include <cstring>

#include "tracing/trace.h"

namespace {
constexpr GUID kTraceMessageGuid = {
    0x2BC57A89, 0x2B35, 0x4253, {0xB8, 0xEF, 0xCA, 0x40, 0x93, 0x5F, 0x40, 0xD2}};

WDF_OBJECT_ATTRIBUTES ChildOf(WDFOBJECT parent)
{
    WDF_OBJECT_ATTRIBUTES attributes;
    WDF_OBJECT_ATTRIBUTES_INIT(&attributes);
    attributes.ParentObject = parent;
    return attributes;
}
}  // namespace

HidIoTarget::~HidIoTarget()
{
    Stop();
    Close();
}

NTSTATUS HidIoTarget::Open(WDFDEVICE device, HidReadCallback callback, void* context)
{
    TRACE_ENTRY();
    Callback = callback;
    CallbackContext = context;
    IsReading.store(1, std::memory_order_relaxed);
    Device = device;

    WDFIOTARGET target = nullptr;
    NTSTATUS status = WdfIoTargetCreate(Device, nullptr, &target);
    if (!NT_SUCCESS(status)) {
        TRACE_ERROR(status);
        TRACE_EXIT(status);
        return status;
    }

    WDF_IO_TARGET_OPEN_PARAMS params = {};
    params.Size = sizeof(WDF_IO_TARGET_OPEN_PARAMS);
    params.Type = WdfIoTargetOpenLocalTargetByFile;
    status = WdfIoTargetOpen(target, &params);
    if (!NT_SUCCESS(status)) {
        TRACE_ERROR(status);
        WdfObjectDelete(target);
        TRACE_EXIT(status);
        return status;
    }

    Target = target;
    TRACE_EXIT(STATUS_SUCCESS);
    return STATUS_SUCCESS;
}

NTSTATUS HidIoTarget::SendIoctlSynchronously(void* outputBuffer, ULONG outputLength, ULONG ioctlCode,
                                             void* inputBuffer)
{
    TRACE_ENTRY();
    if (Device == nullptr || Target == nullptr) {
        TRACE_EXIT(STATUS_SUCCESS);
        return STATUS_SUCCESS;
    }

    WDF_OBJECT_ATTRIBUTES requestAttributes = ChildOf(Target);
    WDFREQUEST request = nullptr;
    NTSTATUS status = WdfRequestCreate(&requestAttributes, Target, &request);
    if (!NT_SUCCESS(status)) {
        TRACE_ERROR(status, ioctlCode);
        TRACE_EXIT(status);
        return status;
    }

    WDF_OBJECT_ATTRIBUTES memoryAttributes = ChildOf(request);
    WDFMEMORY inputMemory = nullptr;
    WDFMEMORY outputMemory = nullptr;
    if (inputBuffer != nullptr)
        status = WdfMemoryCreatePreallocated(&memoryAttributes, inputBuffer, outputLength, &inputMemory);
    if (NT_SUCCESS(status))
        status = WdfMemoryCreatePreallocated(&memoryAttributes, outputBuffer, outputLength, &outputMemory);
    if (NT_SUCCESS(status))
        status = WdfIoTargetFormatRequestForIoctl(Target, request, ioctlCode, inputMemory, nullptr,
                                                  outputMemory, nullptr);
    if (NT_SUCCESS(status)) {
        WDF_REQUEST_SEND_OPTIONS options = {};
        options.Size = sizeof(WDF_REQUEST_SEND_OPTIONS);
        options.Flags = WDF_REQUEST_SEND_OPTION_TIMEOUT | WDF_REQUEST_SEND_OPTION_SYNCHRONOUS;
        options.Timeout = kIoctlTimeout;
        if (WdfRequestSend(request, Target, &options))
            status = STATUS_SUCCESS;
        else
            status = WdfRequestGetStatus(request);
    }
    if (!NT_SUCCESS(status))
        TRACE_ERROR(status, ioctlCode);

    WdfObjectDelete(request);
    TRACE_EXIT(status);
    return status;
}

NTSTATUS HidIoTarget::SubmitRead()
{
    return PostRead(false);
}

NTSTATUS HidIoTarget::PostRead(bool rearm)
{
    TRACE_ENTRY();
    if (Device == nullptr || Target == nullptr) {
        TRACE_ERROR(STATUS_UNSUCCESSFUL);
        TRACE_EXIT(STATUS_UNSUCCESSFUL);
        return STATUS_UNSUCCESSFUL;
    }

    BytesRead.store(0, std::memory_order_relaxed);
    std::memset(ReadBuffer, 0, sizeof(ReadBuffer));

    WDF_OBJECT_ATTRIBUTES requestAttributes = ChildOf(Target);
    WDFREQUEST request = nullptr;
    NTSTATUS status = WdfRequestCreate(&requestAttributes, Target, &request);
    if (!NT_SUCCESS(status)) {
        TRACE_ERROR(status);
        TRACE_EXIT(status);
        return status;
    }

    WDF_OBJECT_ATTRIBUTES memoryAttributes = ChildOf(request);
    WDFMEMORY memory = nullptr;
    status = WdfMemoryCreatePreallocated(&memoryAttributes, ReadBuffer, sizeof(ReadBuffer), &memory);
    if (NT_SUCCESS(status))
        status = WdfIoTargetFormatRequestForRead(Target, request, memory, nullptr, nullptr);
    if (NT_SUCCESS(status)) {
        WdfRequestSetCompletionRoutine(request, OnReadComplete, this);
        {
            std::lock_guard lock(ReadRequestLock);
            // A Stop that came while the completion was dispatching wins.
            if (rearm && IsReading.load(std::memory_order_relaxed) == 0) {
                WdfObjectDelete(request);
                TRACE_EXIT(STATUS_SUCCESS);
                return STATUS_SUCCESS;
            }
            IsReading.store(1, std::memory_order_relaxed);
            ReadRequest = request;
        }
        // The completion may already have run (and re-armed) when this returns.
        if (WdfRequestSend(request, Target, nullptr)) {
            // A Stop between taking the field and sending found nothing to cancel.
            std::lock_guard lock(ReadRequestLock);
            if (IsReading.load(std::memory_order_relaxed) == 0 && ReadRequest == request)
                WdfRequestCancelSentRequest(request);
            TRACE_EXIT(STATUS_SUCCESS);
            return STATUS_SUCCESS;
        }
        status = WdfRequestGetStatus(request);
    }

    TRACE_ERROR(status);
    DeleteReadRequest(request);
    TRACE_EXIT(status);
    return status;
}

void HidIoTarget::DeleteReadRequest(WDFREQUEST request) noexcept
{
    {
        std::lock_guard lock(ReadRequestLock);
        if (ReadRequest == request)
            ReadRequest = nullptr;
    }
    WdfObjectDelete(request);
}

void HidIoTarget::OnReadComplete(WDFREQUEST request, WDFIOTARGET /*target*/,
                                 PWDF_REQUEST_COMPLETION_PARAMS params, WDFCONTEXT context)
{
    TRACE_ENTRY();
    auto* self = static_cast<HidIoTarget*>(context);
    if (params == nullptr || self == nullptr) {
        TRACE_ERROR(STATUS_UNSUCCESSFUL);
        TRACE_EXIT(STATUS_UNSUCCESSFUL);
        return;
    }

    switch (params->Type) {
    case WdfRequestTypeRead: {
        // The status is not examined: data is dispatched whatever it says, and a
        // cancelled read carries none and ends the reading.
        const ULONG_PTR information = params->IoStatus.Information;
        const ULONG bytes = information > kMaxReadBytes ? 0 : static_cast<ULONG>(information);
        self->BytesRead.store(bytes, std::memory_order_relaxed);
        TRACE_DATA(params->IoStatus.Status, static_cast<ULONG>(information));
        if (bytes == 0) {
            self->DeleteReadRequest(request);
            break;
        }
        // The read buffer is reused by the next read; dispatch from a copy.
        BYTE reports[kMaxReadBytes];
        std::memcpy(reports, self->ReadBuffer, bytes);
        self->DeleteReadRequest(request);
        TRACE_DATA(TraceBytes{reports, bytes});
        if (self->Callback != nullptr)
            self->Callback(reports, bytes, self->CallbackContext);
        if (self->IsReading.load(std::memory_order_relaxed) == 1)
            self->PostRead(true);
        break;
    }
    case WdfRequestTypeWrite:
    case WdfRequestTypeDeviceControl:
    case WdfRequestTypeDeviceControlInternal:
        TRACE_INFO(static_cast<ULONG>(params->Type), params->IoStatus.Status);
        break;
    default:
        break;
    }
    TRACE_EXIT(STATUS_SUCCESS);
}

NTSTATUS HidIoTarget::Stop()
{
    TRACE_ENTRY();
    {
        // Held across the cancel so that the completion cannot delete the
        // request under it. The framework runs completions on its own thread.
        std::lock_guard lock(ReadRequestLock);
        IsReading.store(0, std::memory_order_relaxed);
        if (ReadRequest != nullptr)
            WdfRequestCancelSentRequest(ReadRequest);
    }
    TRACE_EXIT(STATUS_SUCCESS);
    return STATUS_SUCCESS;
}

NTSTATUS HidIoTarget::Close()
{
    TRACE_ENTRY();
    // Closing waits for a cancelled read to complete; only then is the read
    // buffer no longer the completion's to touch.
    if (Target != nullptr)
        WdfIoTargetClose(Target);
    BytesRead.store(0, std::memory_order_relaxed);
    std::memset(ReadBuffer, 0, sizeof(ReadBuffer));
    if (Target != nullptr) {
        WdfObjectDelete(Target);
        Target = nullptr;
    }
    TRACE_EXIT(STATUS_SUCCESS);
    return STATUS_SUCCESS;
}
