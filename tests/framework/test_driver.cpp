#include "tests/framework/test_driver.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>

#include "platform/system.h"

namespace host::framework::testing {
namespace {

std::mutex statsMutex;
std::condition_variable statsChanged;
TestDriverStats stats;

void Record(const std::function<void(TestDriverStats&)>& change)
{
    {
        std::lock_guard lock(statsMutex);
        change(stats);
    }
    statsChanged.notify_all();
}

}  // namespace

TestDriverStats Stats()
{
    std::lock_guard lock(statsMutex);
    return stats;
}

void ResetStats()
{
    Record([](TestDriverStats& s) { s = TestDriverStats{}; });
}

bool WaitForStats(const std::function<bool(const TestDriverStats&)>& done)
{
    std::unique_lock lock(statsMutex);
    return statsChanged.wait_for(lock, std::chrono::seconds(20), [&] { return done(stats); });
}

namespace {

struct TestDevice {
    WDFIOTARGET target;
    WDFWAITLOCK lock;  // guards `read` between the completion routine and D0 exit
    WDFREQUEST read;
    WDFTIMER timer;
    WDFMEMORY scratch;
    void* heapBlock;
    std::atomic<ULONG> running;  // reads and ticks re-arm while set
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
    const ULONG bytes = params->Type == WdfRequestTypeRead ? static_cast<ULONG>(params->IoStatus.Information) : 0;
    if (bytes > 0)
        Record([bytes](TestDriverStats& s) {
            ++s.reads;
            s.bytes += bytes;
        });
    WdfWaitLockAcquire(context.lock, nullptr);
    WdfObjectDelete(request);
    context.read = nullptr;
    if (bytes > 0 && context.running.load(std::memory_order_relaxed) == 1)
        SubmitRead(context);
    WdfWaitLockRelease(context.lock);
}

// A request on the target with `buffer` lent as its memory, formatted by `format`.
NTSTATUS CreateRequest(TestDevice& context, void* buffer, SIZE_T size, WDFREQUEST* request,
                       const std::function<NTSTATUS(WDFREQUEST, WDFMEMORY)>& format)
{
    WDF_OBJECT_ATTRIBUTES attributes;
    WDF_OBJECT_ATTRIBUTES_INIT(&attributes);
    attributes.ParentObject = context.target;
    NTSTATUS status = WdfRequestCreate(&attributes, context.target, request);
    if (!NT_SUCCESS(status))
        return status;
    attributes.ParentObject = *request;
    WDFMEMORY memory = nullptr;
    status = WdfMemoryCreatePreallocated(&attributes, buffer, size, &memory);
    if (NT_SUCCESS(status))
        status = format(*request, memory);
    if (!NT_SUCCESS(status))
        WdfObjectDelete(*request);
    return status;
}

// Called with the lock held (or before anyone else can see the context).
NTSTATUS SubmitRead(TestDevice& context)
{
    WDFREQUEST request = nullptr;
    NTSTATUS status = CreateRequest(context, context.buffer, sizeof(context.buffer), &request,
                                    [&](WDFREQUEST r, WDFMEMORY memory) {
                                        return WdfIoTargetFormatRequestForRead(context.target, r, memory, nullptr, nullptr);
                                    });
    if (!NT_SUCCESS(status))
        return status;
    WdfRequestSetCompletionRoutine(request, OnReadComplete, &context);
    context.read = request;
    if (WdfRequestSend(request, context.target, nullptr))
        return STATUS_SUCCESS;
    context.read = nullptr;
    status = WdfRequestGetStatus(request);
    WdfObjectDelete(request);
    return status;
}

NTSTATUS SendInfoIoctl(TestDevice& context)
{
    BYTE info[12] = {};
    WDFREQUEST request = nullptr;
    NTSTATUS status = CreateRequest(context, info, sizeof(info), &request, [&](WDFREQUEST r, WDFMEMORY output) {
        return WdfIoTargetFormatRequestForIoctl(context.target, r, kInfoIoctl, nullptr, nullptr, output, nullptr);
    });
    if (!NT_SUCCESS(status))
        return status;
    WDF_REQUEST_SEND_OPTIONS options{sizeof(options), 3, -50'000'000};
    status = WdfRequestSend(request, context.target, &options) ? STATUS_SUCCESS : WdfRequestGetStatus(request);
    WdfObjectDelete(request);
    return status;
}

void OnTick(WDFTIMER timer)
{
    TestDevice* context = GetTestDevice(WdfTimerGetParentObject(timer));
    if (context == nullptr)
        return;
    Record([](TestDriverStats& s) { ++s.ticks; });
    if (context->running.load(std::memory_order_relaxed) == 1)
        WdfTimerStart(timer, WDF_REL_TIMEOUT_IN_MS(kTickMs));
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
    const NTSTATUS ioctlStatus = SendInfoIoctl(*context);
    Record([ioctlStatus](TestDriverStats& s) { s.ioctlStatus = ioctlStatus; });
    return STATUS_SUCCESS;
}

NTSTATUS OnD0Entry(WDFDEVICE device, WDF_POWER_DEVICE_STATE)
{
    TestDevice* context = GetTestDevice(device);
    if (context == nullptr || context->target == nullptr)
        return STATUS_SUCCESS;
    context->running.store(1, std::memory_order_relaxed);
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
    context->running.store(0, std::memory_order_relaxed);
    WdfWaitLockAcquire(context->lock, nullptr);
    if (context->read != nullptr)
        WdfRequestCancelSentRequest(context->read);
    WdfWaitLockRelease(context->lock);
    WdfTimerStop(context->timer, TRUE);
    return STATUS_SUCCESS;
}

template <typename Handle>
void DeleteIfCreated(Handle& object)
{
    if (object != nullptr)
        WdfObjectDelete(object);
    object = nullptr;
}

NTSTATUS OnReleaseHardware(WDFDEVICE device, WDFCMRESLIST)
{
    TestDevice* context = GetTestDevice(device);
    if (context == nullptr)
        return STATUS_UNSUCCESSFUL;
    if (context->target != nullptr)
        WdfIoTargetClose(context->target);
    DeleteIfCreated(context->target);
    DeleteIfCreated(context->timer);
    DeleteIfCreated(context->scratch);
    DeleteIfCreated(context->lock);
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
    attributes.ContextTypeInfo = WDF_GET_CONTEXT_TYPE_INFO(DeviceExtra);
    void* unused = nullptr;
    return WdfObjectAllocateContext(device, &attributes, &unused);
}

void OnUnload(WDFDRIVER)
{
    Record([](TestDriverStats& s) { s.unloaded = true; });
}

}  // namespace
}  // namespace host::framework::testing

extern "C" NTSTATUS DriverEntry(PDRIVER_OBJECT DriverObject, PUNICODE_STRING RegistryPath)
{
    using namespace host::framework::testing;
    WDF_DRIVER_CONFIG config{sizeof(config), OnDeviceAdd, OnUnload, 0, 0};
    return WdfDriverCreate(DriverObject, RegistryPath, nullptr, &config, nullptr);
}
