// I/O targets: creation, open by file on the device's HID collection, close,
// and formatting requests for them.
#include "host/framework/io_target.h"

#include <algorithm>
#include <chrono>

#include "host/common/fault_injection.h"
#include "host/framework/device.h"
#include "host/framework/handle_check.h"
#include "host/framework/pending_io.h"
#include "host/framework/request.h"
#include "host/framework/runtime.h"
#include "host/framework/violations.h"

namespace host::framework {
namespace {

// How long a real-time close waits for a device to complete a cancelled read.
constexpr auto kCloseGiveUp = std::chrono::seconds(10);

}  // namespace

IoTargetObject::IoTargetObject(WDFDEVICE device)
    : Object(kKind), device_(device), core_(std::make_shared<TargetCore>())
{
    core_->handle = TargetHandle();
}

NTSTATUS IoTargetObject::Open(const WDF_IO_TARGET_OPEN_PARAMS& params)
{
    if (params.Size != sizeof(WDF_IO_TARGET_OPEN_PARAMS))
        return STATUS_INFO_LENGTH_MISMATCH;
    if (params.Type != WdfIoTargetOpenLocalTargetByFile)
        return STATUS_NOT_SUPPORTED;
    NTSTATUS status = STATUS_SUCCESS;
    host::DriverCall driverCall(host::FaultPoint::IoTargetOpen);
    if (driverCall.Fails(&status))
        return status;
    HidCollectionEndpoint* endpoint = DeviceEndpoint(device_);
    if (endpoint == nullptr)
        return STATUS_INVALID_DEVICE_STATE;
    std::lock_guard lock(core_->mutex);
    if (core_->open) {
        ReportViolation("WdfIoTargetOpen: target is already open");
        return STATUS_INVALID_DEVICE_STATE;
    }
    core_->endpoint = endpoint;
    core_->open = true;
    return STATUS_SUCCESS;
}

void IoTargetObject::Close()
{
    std::vector<std::shared_ptr<PendingIo>> atDevice;
    HidCollectionEndpoint* endpoint = nullptr;
    {
        std::lock_guard lock(core_->mutex);
        if (!core_->open && core_->outstanding == 0)
            return;
        core_->open = false;
        try {
            atDevice = core_->atDevice;
        } catch (const std::bad_alloc&) {
            ReportViolation("WdfIoTargetClose: out of memory; outstanding reads are not cancelled");
        }
        endpoint = core_->endpoint;
    }
    for (const std::shared_ptr<PendingIo>& io : atDevice) {
        if (io->Type() != WdfRequestTypeRead)
            io->CompleteHeld(STATUS_CANCELLED);
        else if (endpoint != nullptr)
            endpoint->CancelRead(io.get());
    }
    WaitForCompletions();
    std::lock_guard lock(core_->mutex);
    core_->endpoint = nullptr;
}

void IoTargetObject::WaitForCompletions()
{
    Dispatcher& dispatcher = Runtime::Get().Dispatch();
    const bool runHere =
        Runtime::Get().Clock().Mode() == ClockMode::Deterministic || dispatcher.OnIoThread();
    if (runHere)
        dispatcher.RunPendingFor(core_.get());

    const std::thread::id self = std::this_thread::get_id();
    std::unique_lock lock(core_->mutex);
    const auto done = [&] {
        const auto mine = std::count(core_->delivering.begin(), core_->delivering.end(), self);
        return core_->outstanding <= mine;
    };
    if (!runHere)
        core_->changed.wait_for(lock, kCloseGiveUp, done);
    if (done())
        return;
    ReportViolation("WdfIoTargetClose: the device did not complete a cancelled request; it is abandoned");
    for (const std::shared_ptr<PendingIo>& io : core_->atDevice) {
        if (RequestObject* request = io->RequestLocked())
            request->AbandonLocked();
        io->OrphanLocked();
        --core_->outstanding;
        if (io->Type() == WdfRequestTypeRead)
            --core_->readsInFlight;
        KeepOrphan(io);
    }
    core_->atDevice.clear();
}

}  // namespace host::framework

using namespace host::framework;

extern "C" NTSTATUS WdfIoTargetCreate(WDFDEVICE Device, PWDF_OBJECT_ATTRIBUTES IoTargetAttributes,
                                      WDFIOTARGET* IoTarget)
{
    if (IoTarget == nullptr)
        return STATUS_INVALID_PARAMETER;
    *IoTarget = nullptr;
    DeviceObject* device = Resolve<DeviceObject>(Device, "WdfIoTargetCreate");
    if (device == nullptr)
        return STATUS_INVALID_HANDLE;
    NTSTATUS status = STATUS_SUCCESS;
    host::DriverCall driverCall(host::FaultPoint::IoTargetCreate);
    if (driverCall.Fails(&status))
        return status;
    IoTargetObject* target = nullptr;
    status = Object::Create(device, IoTargetAttributes, &target, Device);
    if (!NT_SUCCESS(status))
        return status;
    *IoTarget = target->TargetHandle();
    return STATUS_SUCCESS;
}

extern "C" NTSTATUS WdfIoTargetOpen(WDFIOTARGET IoTarget, PWDF_IO_TARGET_OPEN_PARAMS OpenParams)
{
    IoTargetObject* target = Resolve<IoTargetObject>(IoTarget, "WdfIoTargetOpen");
    if (target == nullptr)
        return STATUS_INVALID_HANDLE;
    if (OpenParams == nullptr)
        return STATUS_INVALID_PARAMETER;
    return target->Open(*OpenParams);
}

extern "C" void WdfIoTargetClose(WDFIOTARGET IoTarget)
{
    if (IoTargetObject* target = Resolve<IoTargetObject>(IoTarget, "WdfIoTargetClose"))
        target->Close();
}

extern "C" NTSTATUS WdfIoTargetFormatRequestForIoctl(WDFIOTARGET IoTarget, WDFREQUEST Request, ULONG IoctlCode,
                                                     WDFMEMORY InputBuffer, PWDFMEMORY_OFFSET InputBufferOffset,
                                                     WDFMEMORY OutputBuffer, PWDFMEMORY_OFFSET OutputBufferOffset)
{
    IoTargetObject* target = Resolve<IoTargetObject>(IoTarget, "WdfIoTargetFormatRequestForIoctl");
    RequestObject* request = Resolve<RequestObject>(Request, "WdfIoTargetFormatRequestForIoctl");
    if (target == nullptr || request == nullptr)
        return STATUS_INVALID_HANDLE;
    return request->FormatIoctl(*target, IoctlCode, InputBuffer, InputBufferOffset, OutputBuffer,
                                OutputBufferOffset);
}

extern "C" NTSTATUS WdfIoTargetFormatRequestForRead(WDFIOTARGET IoTarget, WDFREQUEST Request,
                                                    WDFMEMORY OutputBuffer, PWDFMEMORY_OFFSET OutputBufferOffset,
                                                    LONGLONG* /*DeviceOffset*/)
{
    IoTargetObject* target = Resolve<IoTargetObject>(IoTarget, "WdfIoTargetFormatRequestForRead");
    RequestObject* request = Resolve<RequestObject>(Request, "WdfIoTargetFormatRequestForRead");
    if (target == nullptr || request == nullptr)
        return STATUS_INVALID_HANDLE;
    return request->FormatRead(*target, OutputBuffer, OutputBufferOffset);
}
