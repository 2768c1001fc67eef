#include "hid/hid_io_target.h"

#include <atomic>
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

// Context of a read request: how many parties still use it.
struct ReadRequestClaims {
    ULONG Count;
};
WDF_DECLARE_CONTEXT_TYPE_WITH_NAME(ReadRequestClaims, GetReadRequestClaims)

constexpr ULONG kClaimsOfASentRead = 3;  // its completion, the read-request field, its poster
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
    ReaderState.store(kReading);
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
    TRACE_ENTRY();
    if (Device == nullptr || Target == nullptr) {
        TRACE_ERROR(STATUS_UNSUCCESSFUL);
        TRACE_EXIT(STATUS_UNSUCCESSFUL);
        return STATUS_UNSUCCESSFUL;
    }
    // Take the read slot, or, when a read or its dispatch still holds it
    // (a D0 exit and entry during a dispatch), leave the re-arm to it.
    ULONG state = ReaderState.load();
    ULONG next = 0;
    do {
        next = (state & kBusy) != 0 ? state | kReading | kRestart : state | kReading | kBusy;
    } while (!ReaderState.compare_exchange_weak(state, next));
    const NTSTATUS status = (state & kBusy) != 0 ? STATUS_SUCCESS : PostRead();
    TRACE_EXIT(status);
    return status;
}

NTSTATUS HidIoTarget::PostRead()
{
    TRACE_ENTRY();
    BytesRead.store(0, std::memory_order_relaxed);
    std::memset(ReadBuffer, 0, sizeof(ReadBuffer));

    WDF_OBJECT_ATTRIBUTES requestAttributes = ChildOf(Target);
    WDF_OBJECT_ATTRIBUTES_SET_CONTEXT_TYPE(&requestAttributes, WDF_GET_CONTEXT_TYPE_INFO(ReadRequestClaims));
    WDFREQUEST request = nullptr;
    NTSTATUS status = WdfRequestCreate(&requestAttributes, Target, &request);
    if (!NT_SUCCESS(status)) {
        TRACE_ERROR(status);
        ReaderState.fetch_and(~(kBusy | kRestart));
        TRACE_EXIT(status);
        return status;
    }

    WDF_OBJECT_ATTRIBUTES memoryAttributes = ChildOf(request);
    WDFMEMORY memory = nullptr;
    status = WdfMemoryCreatePreallocated(&memoryAttributes, ReadBuffer, sizeof(ReadBuffer), &memory);
    if (NT_SUCCESS(status))
        status = WdfIoTargetFormatRequestForRead(Target, request, memory, nullptr, nullptr);
    if (!NT_SUCCESS(status)) {
        TRACE_ERROR(status);
        WdfObjectDelete(request);
        ReaderState.fetch_and(~(kBusy | kRestart));
        TRACE_EXIT(status);
        return status;
    }

    WdfRequestSetCompletionRoutine(request, OnReadComplete, this);
    std::atomic_ref<ULONG>(GetReadRequestClaims(request)->Count).store(kClaimsOfASentRead);
    ReadRequest.store(request);
    // The completion may already have run (and re-armed) when this returns.
    if (WdfRequestSend(request, Target, nullptr)) {
        // A Stop that emptied the field before the read was sent could not
        // cancel it: cancel it here.
        if ((ReaderState.load() & kReading) == 0)
            WdfRequestCancelSentRequest(request);
        ReleaseClaim(request);
        TRACE_EXIT(STATUS_SUCCESS);
        return STATUS_SUCCESS;
    }

    status = WdfRequestGetStatus(request);
    TRACE_ERROR(status);
    // No completion will come: release its claim, the field's and ours.
    if (TakeReadRequest(request))
        ReleaseClaim(request);
    ReleaseClaim(request);
    ReleaseClaim(request);
    ReaderState.fetch_and(~(kBusy | kRestart));
    TRACE_EXIT(status);
    return status;
}

bool HidIoTarget::TakeReadRequest(WDFREQUEST request) noexcept
{
    WDFREQUEST expected = request;
    return ReadRequest.compare_exchange_strong(expected, nullptr);
}

void HidIoTarget::ReleaseClaim(WDFREQUEST request) noexcept
{
    if (std::atomic_ref<ULONG>(GetReadRequestClaims(request)->Count).fetch_sub(1, std::memory_order_acq_rel) == 1)
        WdfObjectDelete(request);
}

void HidIoTarget::FinishDispatch(bool hadData)
{
    ULONG state = ReaderState.load();
    bool rearm = false;
    ULONG next = 0;
    do {
        rearm = (state & kReading) != 0 && (hadData || (state & kRestart) != 0);
        next = rearm ? state & ~kRestart : state & ~(kBusy | kRestart);
    } while (!ReaderState.compare_exchange_weak(state, next));
    if (rearm)
        PostRead();
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
        // The read buffer is reused by the next read; dispatch from a copy.
        BYTE reports[kMaxReadBytes];
        if (bytes != 0)
            std::memcpy(reports, self->ReadBuffer, bytes);
        if (self->TakeReadRequest(request))
            self->ReleaseClaim(request);
        self->ReleaseClaim(request);
        if (bytes != 0) {
            TRACE_DATA(TraceBytes{reports, bytes});
            if (self->Callback != nullptr)
                self->Callback(reports, bytes, self->CallbackContext);
        }
        self->FinishDispatch(bytes != 0);
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
    ReaderState.fetch_and(~(kReading | kRestart));
    // Emptying the field takes its claim: the request stays alive through the
    // cancel even if it completes meanwhile, on this thread or another.
    if (WDFREQUEST request = ReadRequest.exchange(nullptr)) {
        WdfRequestCancelSentRequest(request);
        ReleaseClaim(request);
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
