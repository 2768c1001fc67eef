#include "tests/framework/test_driver.h"

#include <atomic>
#include <chrono>

#include "platform/system.h"

namespace host::framework::testing {

void TestDriverStats::Reset()
{
    std::lock_guard lock(mutex_);
    reads_ = 0;
    bytes_ = 0;
    ticks_ = 0;
    ioctlStatus_ = STATUS_PENDING;
    unloaded_ = false;
}

void TestDriverStats::AddRead(ULONG bytes)
{
    {
        std::lock_guard lock(mutex_);
        ++reads_;
        bytes_ += bytes;
    }
    changed_.notify_all();
}

void TestDriverStats::AddTick()
{
    {
        std::lock_guard lock(mutex_);
        ++ticks_;
    }
    changed_.notify_all();
}

void TestDriverStats::SetIoctlStatus(NTSTATUS status)
{
    std::lock_guard lock(mutex_);
    ioctlStatus_ = status;
}

void TestDriverStats::SetUnloaded()
{
    std::lock_guard lock(mutex_);
    unloaded_ = true;
}

int TestDriverStats::Reads() const
{
    std::lock_guard lock(mutex_);
    return reads_;
}

ULONG TestDriverStats::Bytes() const
{
    std::lock_guard lock(mutex_);
    return bytes_;
}

int TestDriverStats::Ticks() const
{
    std::lock_guard lock(mutex_);
    return ticks_;
}

NTSTATUS TestDriverStats::IoctlStatus() const
{
    std::lock_guard lock(mutex_);
    return ioctlStatus_;
}

bool TestDriverStats::Unloaded() const
{
    std::lock_guard lock(mutex_);
    return unloaded_;
}

bool TestDriverStats::WaitForReads(int count) const
{
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, std::chrono::seconds(20), [&] { return reads_ >= count; });
}

bool TestDriverStats::WaitForTicks(int count) const
{
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, std::chrono::seconds(20), [&] { return ticks_ >= count; });
}

TestDriverStats& Stats()
{
    static TestDriverStats stats;
    return stats;
}

namespace {

struct TestDevice {
    WDFIOTARGET target;
    WDFWAITLOCK lock;  // guards `read` between the completion routine and D0 exit
    WDFREQUEST read;
    WDFTIMER timer;
    WDFMEMORY scratch;
    void* heapBlock;
    std::atomic<ULONG> reading;
    std::atomic<ULONG> ticking;
    BYTE buffer[kReadBufferSize];
};
WDF_DECLARE_CONTEXT_TYPE_WITH_NAME(TestDevice, GetTestDevice)

struct DeviceExtra {
    ULONG prepareCount;
};
WDF_DECLARE_CONTEXT_TYPE_WITH_NAME(DeviceExtra, GetDeviceExtra)

NTSTATUS SubmitRead(TestDevice& context);

void OnReadComplete(WDFREQUEST request, WDFIOTARGET, PWDF_REQUEST_COMPLETION_PARAMS params, WDFCONTEXT completionContext)
{
    auto& context = *static_cast<TestDevice*>(completionContext);
    const ULONG_PTR bytes = params->Type == WdfRequestTypeRead ? params->IoStatus.Information : 0;
    if (bytes > 0)
        Stats().AddRead(static_cast<ULONG>(bytes));
    WdfWaitLockAcquire(context.lock, nullptr);
    WdfObjectDelete(request);
    context.read = nullptr;
    if (bytes > 0 && context.reading.load(std::memory_order_relaxed) == 1)
        SubmitRead(context);
    WdfWaitLockRelease(context.lock);
}

// Called with the lock held (or before anyone else can see the context).
NTSTATUS SubmitRead(TestDevice& context)
{
    WDF_OBJECT_ATTRIBUTES attributes;
    WDF_OBJECT_ATTRIBUTES_INIT(&attributes);
    attributes.ParentObject = context.target;
    WDFREQUEST request = nullptr;
    NTSTATUS status = WdfRequestCreate(&attributes, context.target, &request);
    if (!NT_SUCCESS(status))
        return status;
    attributes.ParentObject = request;
    WDFMEMORY memory = nullptr;
    status = WdfMemoryCreatePreallocated(&attributes, context.buffer, sizeof(context.buffer), &memory);
    if (NT_SUCCESS(status))
        status = WdfIoTargetFormatRequestForRead(context.target, request, memory, nullptr, nullptr);
    if (NT_SUCCESS(status)) {
        WdfRequestSetCompletionRoutine(request, OnReadComplete, &context);
        context.read = request;
        if (WdfRequestSend(request, context.target, nullptr))
            return STATUS_SUCCESS;
        status = WdfRequestGetStatus(request);
        context.read = nullptr;
    }
    WdfObjectDelete(request);
    return status;
}

void OnTick(WDFTIMER timer)
{
    TestDevice* context = GetTestDevice(WdfTimerGetParentObject(timer));
    if (context == nullptr)
        return;
    Stats().AddTick();
    if (context->ticking.load(std::memory_order_relaxed) == 1)
        WdfTimerStart(timer, WDF_REL_TIMEOUT_IN_MS(kTickMs));
}

NTSTATUS SendInfoIoctl(TestDevice& context)
{
    WDF_OBJECT_ATTRIBUTES attributes;
    WDF_OBJECT_ATTRIBUTES_INIT(&attributes);
    attributes.ParentObject = context.target;
    WDFREQUEST request = nullptr;
    NTSTATUS status = WdfRequestCreate(&attributes, context.target, &request);
    if (!NT_SUCCESS(status))
        return status;
    BYTE info[12] = {};
    attributes.ParentObject = request;
    WDFMEMORY output = nullptr;
    status = WdfMemoryCreatePreallocated(&attributes, info, sizeof(info), &output);
    if (NT_SUCCESS(status))
        status = WdfIoTargetFormatRequestForIoctl(context.target, request, kInfoIoctl, nullptr, nullptr, output, nullptr);
    if (NT_SUCCESS(status)) {
        WDF_REQUEST_SEND_OPTIONS options{sizeof(options), 3, -50'000'000};
        status = WdfRequestSend(request, context.target, &options) ? STATUS_SUCCESS : WdfRequestGetStatus(request);
    }
    WdfObjectDelete(request);
    return status;
}

NTSTATUS OnPrepareHardware(WDFDEVICE device, WDFCMRESLIST, WDFCMRESLIST)
{
    TestDevice* context = GetTestDevice(device);
    if (context == nullptr)
        return STATUS_UNSUCCESSFUL;
    if (DeviceExtra* extra = GetDeviceExtra(device))
        ++extra->prepareCount;
    NTSTATUS status = WdfWaitLockCreate(nullptr, &context->lock);
    if (!NT_SUCCESS(status))
        return status;
    context->heapBlock = HeapAlloc(GetProcessHeap(), HEAP_ZERO_MEMORY, 32);
    if (context->heapBlock == nullptr)
        return STATUS_NO_MEMORY;
    WDF_OBJECT_ATTRIBUTES attributes;
    WDF_OBJECT_ATTRIBUTES_INIT(&attributes);
    attributes.ParentObject = device;
    status = WdfMemoryCreate(&attributes, PagedPool, 0, 128, &context->scratch, nullptr);
    if (!NT_SUCCESS(status))
        return status;
    WDF_TIMER_CONFIG timerConfig;
    WDF_TIMER_CONFIG_INIT(&timerConfig, OnTick);
    attributes.ExecutionLevel = WdfExecutionLevelPassive;
    status = WdfTimerCreate(&timerConfig, &attributes, &context->timer);
    if (!NT_SUCCESS(status))
        return status;
    status = WdfIoTargetCreate(device, nullptr, &context->target);
    if (!NT_SUCCESS(status))
        return status;
    WDF_IO_TARGET_OPEN_PARAMS open{};
    open.Size = sizeof(open);
    open.Type = WdfIoTargetOpenLocalTargetByFile;
    status = WdfIoTargetOpen(context->target, &open);
    if (!NT_SUCCESS(status)) {
        WdfObjectDelete(context->target);
        context->target = nullptr;
        return status;
    }
    Stats().SetIoctlStatus(SendInfoIoctl(*context));
    return STATUS_SUCCESS;
}

NTSTATUS OnD0Entry(WDFDEVICE device, WDF_POWER_DEVICE_STATE)
{
    TestDevice* context = GetTestDevice(device);
    if (context == nullptr || context->target == nullptr)
        return STATUS_SUCCESS;
    context->reading.store(1, std::memory_order_relaxed);
    context->ticking.store(1, std::memory_order_relaxed);
    WdfWaitLockAcquire(context->lock, nullptr);
    SubmitRead(*context);
    WdfWaitLockRelease(context->lock);
    WdfTimerStart(context->timer, WDF_REL_TIMEOUT_IN_MS(kTickMs));
    return STATUS_SUCCESS;
}

NTSTATUS OnD0Exit(WDFDEVICE device, WDF_POWER_DEVICE_STATE)
{
    TestDevice* context = GetTestDevice(device);
    if (context == nullptr || context->target == nullptr)
        return STATUS_SUCCESS;
    context->reading.store(0, std::memory_order_relaxed);
    context->ticking.store(0, std::memory_order_relaxed);
    WdfWaitLockAcquire(context->lock, nullptr);
    if (context->read != nullptr)
        WdfRequestCancelSentRequest(context->read);
    WdfWaitLockRelease(context->lock);
    WdfTimerStop(context->timer, TRUE);
    return STATUS_SUCCESS;
}

NTSTATUS OnReleaseHardware(WDFDEVICE device, WDFCMRESLIST)
{
    TestDevice* context = GetTestDevice(device);
    if (context == nullptr)
        return STATUS_UNSUCCESSFUL;
    if (context->target != nullptr) {
        WdfIoTargetClose(context->target);
        WdfObjectDelete(context->target);
        context->target = nullptr;
    }
    if (context->timer != nullptr) {
        WdfObjectDelete(context->timer);
        context->timer = nullptr;
    }
    if (context->scratch != nullptr) {
        WdfObjectDelete(context->scratch);
        context->scratch = nullptr;
    }
    if (context->lock != nullptr) {
        WdfObjectDelete(context->lock);
        context->lock = nullptr;
    }
    HeapFree(GetProcessHeap(), 0, context->heapBlock);
    context->heapBlock = nullptr;
    return STATUS_SUCCESS;
}

NTSTATUS OnDeviceAdd(WDFDRIVER, PWDFDEVICE_INIT deviceInit)
{
    WdfDeviceInitSetPowerPolicyOwnership(deviceInit, FALSE);
    WDF_PNPPOWER_EVENT_CALLBACKS callbacks{};
    callbacks.Size = sizeof(callbacks);
    callbacks.EvtDevicePrepareHardware = OnPrepareHardware;
    callbacks.EvtDeviceReleaseHardware = OnReleaseHardware;
    callbacks.EvtDeviceD0Entry = OnD0Entry;
    callbacks.EvtDeviceD0Exit = OnD0Exit;
    WdfDeviceInitSetPnpPowerEventCallbacks(deviceInit, &callbacks);
    WDF_OBJECT_ATTRIBUTES attributes;
    WDF_OBJECT_ATTRIBUTES_INIT(&attributes);
    attributes.ContextTypeInfo = WDF_GET_CONTEXT_TYPE_INFO(TestDevice);
    WDFDEVICE device = nullptr;
    NTSTATUS status = WdfDeviceCreate(&deviceInit, &attributes, &device);
    if (!NT_SUCCESS(status))
        return status;
    WDF_OBJECT_ATTRIBUTES extra;
    WDF_OBJECT_ATTRIBUTES_INIT(&extra);
    extra.ContextTypeInfo = WDF_GET_CONTEXT_TYPE_INFO(DeviceExtra);
    void* unused = nullptr;
    return WdfObjectAllocateContext(device, &extra, &unused);
}

void OnUnload(WDFDRIVER)
{
    Stats().SetUnloaded();
}

}  // namespace
}  // namespace host::framework::testing

extern "C" NTSTATUS DriverEntry(PDRIVER_OBJECT DriverObject, PUNICODE_STRING RegistryPath)
{
    using namespace host::framework::testing;
    WDF_DRIVER_CONFIG config{};
    config.Size = sizeof(config);
    config.EvtDriverDeviceAdd = OnDeviceAdd;
    config.EvtDriverUnload = OnUnload;
    return WdfDriverCreate(DriverObject, RegistryPath, nullptr, &config, nullptr);
}
