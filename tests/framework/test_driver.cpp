#include "tests/framework/test_driver.h"

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <mutex>
#include <utility>


namespace host::framework::testing {
namespace {

std::mutex statsMutex;
std::condition_variable statsChanged;
TestDriverStats stats;

template <typename Change>
void Record(Change change)
{
    {
        std::lock_guard lock(statsMutex);
        change(stats);
    }
    statsChanged.notify_all();
}

struct TestDevice {
    WDFIOTARGET target;
    WDFWAITLOCK lock;  // guards `read` between the completion routine and D0 exit
    WDFREQUEST read;
    WDFTIMER timer;
    std::atomic<ULONG> running;  // reads and ticks re-arm while set
    BYTE buffer[kReadBufferSize];
};
WDF_DECLARE_CONTEXT_TYPE_WITH_NAME(TestDevice, GetTestDevice)

// A request on the target with `buffer` lent as its memory.
NTSTATUS CreateRequest(TestDevice& context, void* buffer, SIZE_T size, WDFREQUEST* request, WDFMEMORY* memory)
{
    WDF_OBJECT_ATTRIBUTES attributes;
    WDF_OBJECT_ATTRIBUTES_INIT(&attributes);
    attributes.ParentObject = context.target;
    NTSTATUS status = WdfRequestCreate(&attributes, context.target, request);
    if (!NT_SUCCESS(status))
        return status;
    attributes.ParentObject = *request;
    status = WdfMemoryCreatePreallocated(&attributes, buffer, size, memory);
    if (!NT_SUCCESS(status))
        WdfObjectDelete(*request);
    return status;
}

void SubmitRead(TestDevice& context);

void OnReadComplete(WDFREQUEST request, WDFIOTARGET, PWDF_REQUEST_COMPLETION_PARAMS params, WDFCONTEXT completionContext)
{
    auto& context = *static_cast<TestDevice*>(completionContext);
    const ULONG bytes = static_cast<ULONG>(params->IoStatus.Information);
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

// Called with the lock held (or before anyone else can see the context).
void SubmitRead(TestDevice& context)
{
    WDFREQUEST request = nullptr;
    WDFMEMORY memory = nullptr;
    if (!NT_SUCCESS(CreateRequest(context, context.buffer, sizeof(context.buffer), &request, &memory)))
        return;
    const NTSTATUS status = WdfIoTargetFormatRequestForRead(context.target, request, memory, nullptr, nullptr);
    WdfRequestSetCompletionRoutine(request, OnReadComplete, &context);
    context.read = request;
    if (NT_SUCCESS(status) && WdfRequestSend(request, context.target, nullptr))
        return;
    context.read = nullptr;
    WdfObjectDelete(request);
}

NTSTATUS SendInfoIoctl(TestDevice& context)
{
    BYTE info[12] = {};
    WDFREQUEST request = nullptr;
    WDFMEMORY output = nullptr;
    NTSTATUS status = CreateRequest(context, info, sizeof(info), &request, &output);
    if (!NT_SUCCESS(status))
        return status;
    status = WdfIoTargetFormatRequestForIoctl(context.target, request, kInfoIoctl, nullptr, nullptr, output, nullptr);
    WDF_REQUEST_SEND_OPTIONS options{sizeof(options), 3, -50'000'000};
    if (NT_SUCCESS(status))
        status = WdfRequestSend(request, context.target, &options) ? STATUS_SUCCESS : WdfRequestGetStatus(request);
    WdfObjectDelete(request);
    return status;
}

void OnTick(WDFTIMER timer)
{
    Record([](TestDriverStats& s) { ++s.ticks; });
    if (GetTestDevice(WdfTimerGetParentObject(timer))->running.load(std::memory_order_relaxed) == 1)
        WdfTimerStart(timer, WDF_REL_TIMEOUT_IN_MS(kTickMs));
}

NTSTATUS OnPrepareHardware(WDFDEVICE device, WDFCMRESLIST, WDFCMRESLIST)
{
    TestDevice* context = GetTestDevice(device);
    WDF_TIMER_CONFIG timerConfig;
    WDF_TIMER_CONFIG_INIT(&timerConfig, OnTick);
    WDF_OBJECT_ATTRIBUTES attributes;
    WDF_OBJECT_ATTRIBUTES_INIT(&attributes);
    attributes.ParentObject = device;
    attributes.ExecutionLevel = WdfExecutionLevelPassive;
    NTSTATUS status = WdfWaitLockCreate(nullptr, &context->lock);
    if (NT_SUCCESS(status))
        status = WdfTimerCreate(&timerConfig, &attributes, &context->timer);
    if (NT_SUCCESS(status))
        status = WdfIoTargetCreate(device, nullptr, &context->target);
    if (!NT_SUCCESS(status))
        return status;
    WDF_IO_TARGET_OPEN_PARAMS open{};
    open.Size = sizeof(open);
    open.Type = WdfIoTargetOpenLocalTargetByFile;
    status = WdfIoTargetOpen(context->target, &open);
    if (!NT_SUCCESS(status))
        return status;  // release-hardware undoes the rest
    const NTSTATUS ioctlStatus = SendInfoIoctl(*context);
    Record([ioctlStatus](TestDriverStats& s) { s.ioctlStatus = ioctlStatus; });
    return STATUS_SUCCESS;
}

NTSTATUS OnD0Entry(WDFDEVICE device, WDF_POWER_DEVICE_STATE)
{
    TestDevice* context = GetTestDevice(device);
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
        WdfObjectDelete(std::exchange(object, nullptr));
}

NTSTATUS OnReleaseHardware(WDFDEVICE device, WDFCMRESLIST)
{
    TestDevice* context = GetTestDevice(device);
    if (context->target != nullptr)
        WdfIoTargetClose(context->target);
    DeleteIfCreated(context->target);
    DeleteIfCreated(context->timer);
    DeleteIfCreated(context->lock);
    return STATUS_SUCCESS;
}

NTSTATUS OnDeviceAdd(WDFDRIVER, PWDFDEVICE_INIT deviceInit)
{
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
    return WdfDeviceCreate(&deviceInit, &attributes, &device);
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

}  // namespace host::framework::testing

extern "C" NTSTATUS DriverEntry(PDRIVER_OBJECT DriverObject, PUNICODE_STRING RegistryPath)
{
    using namespace host::framework::testing;
    auto onUnload = [](WDFDRIVER) { Record([](TestDriverStats& s) { s.unloaded = true; }); };
    WDF_DRIVER_CONFIG config{sizeof(config), OnDeviceAdd, onUnload, 0, 0};
    return WdfDriverCreate(DriverObject, RegistryPath, nullptr, &config, nullptr);
}
