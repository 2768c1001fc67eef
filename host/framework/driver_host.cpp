#include "host/framework/driver_host.h"

#include <atomic>

#include "host/common/fault_injection.h"
#include "host/common/host_state.h"

#include "host/framework/device.h"
#include "host/framework/runtime.h"
#include "host/framework/threads.h"
#include "host/framework/violations.h"

namespace host::framework {
namespace {

std::atomic<DriverHost*> currentHost{nullptr};

constexpr char16_t kRegistryPath[] = u"\\Registry\\Machine\\System\\CurrentControlSet\\Services\\HidSensorDriver";

DeviceObject* LiveDevice(WDFDEVICE device)
{
    Object* object = Object::FromHandle(device);
    return object != nullptr && object->Kind() == ObjectKind::Device ? static_cast<DeviceObject*>(object) : nullptr;
}

// A callback into the driver: its platform calls are the driver's, whatever
// host code calls the host.
template <class Fn, class... Args>
auto CallDriver(Fn fn, Args... args)
{
    host::DriverCodeScope driverCode;
    return fn(args...);
}

}  // namespace

DriverHost::DriverHost(ClockMode mode, FILETIME startTime)
    : registryPathText_(kRegistryPath), registry_(std::make_shared<RegistryStore>())
{
    DriverHost* previous = currentHost.exchange(this);
    ResetDriverThreads();
    Runtime::Get().Reset(mode, FileTimeToTicks(startTime));
    host::FaultInjector::Instance().Reset();
    host::ResetHostState();
    if (previous != nullptr)
        ReportViolation("DriverHost: a second host while another exists");
    registryPath_.Length = static_cast<USHORT>(registryPathText_.size() * sizeof(char16_t));
    registryPath_.MaximumLength = registryPath_.Length;
    registryPath_.Buffer = registryPathText_.data();
    for (unsigned i = 0; i < static_cast<unsigned>(ResourceKind::Count); ++i)
        ledgerBaseline_[i] = ResourceLedger::Instance().Live(static_cast<ResourceKind>(i));
    objectBaseline_ = Object::LiveCounts();
}

DriverHost::~DriverHost()
{
    Unload();
    ResetDriverThreads();
    Runtime::Get().Reset(ClockMode::Deterministic, kDefaultStartTicks);
    host::FaultInjector::Instance().Reset();
    host::ResetHostState();
    DriverHost* self = this;
    currentHost.compare_exchange_strong(self, nullptr);
}

WDFDRIVER DriverHost::Driver() const
{
    return driverObject_.wdfDriver != nullptr ? driverObject_.wdfDriver->DriverHandle() : nullptr;
}

ClockMode DriverHost::Mode() const
{
    return Runtime::Get().Clock().Mode();
}

NTSTATUS DriverHost::LoadDriver(EntryFn fxDriverEntryUm)
{
    if (Loaded())
        return Refuse();
    if (fxDriverEntryUm == nullptr)
        return STATUS_INVALID_PARAMETER;
    const NTSTATUS status = CallDriver(fxDriverEntryUm, nullptr, nullptr, &driverObject_, &registryPath_);
    if (NT_SUCCESS(status) && driverObject_.wdfDriver == nullptr) {
        ReportViolation("DriverEntry: succeeded without creating the driver object");
        return STATUS_UNSUCCESSFUL;
    }
    if (!NT_SUCCESS(status) && driverObject_.wdfDriver != nullptr) {
        Object::Delete(driverObject_.wdfDriver);
        driverObject_.wdfDriver = nullptr;
        Runtime::Get().SetDriver(nullptr);
    }
    RunPending();
    return status;
}

NTSTATUS DriverHost::AddDevice(HidCollectionEndpoint& endpoint)
{
    if (!Loaded() || state_ != PnpState::NoDevice)
        return Refuse();
    const PFN_WDF_DRIVER_DEVICE_ADD deviceAdd = driverObject_.wdfDriver->Config().EvtDriverDeviceAdd;
    if (deviceAdd == nullptr)
        return STATUS_NOT_SUPPORTED;
    RunPending();
    WDFDEVICE_INIT init;
    init.driver = driverObject_.wdfDriver;
    init.endpoint = &endpoint;
    init.registry = registry_;
    BeginDeviceInit(&init);
    NTSTATUS status = CallDriver(deviceAdd, Driver(), &init);
    EndDeviceInit();
    if (NT_SUCCESS(status) && init.createdDevice == nullptr) {
        ReportViolation("EvtDriverDeviceAdd: succeeded without creating a device");
        status = STATUS_INVALID_DEVICE_STATE;
    }
    if (!NT_SUCCESS(status)) {
        if (DeviceObject* device = LiveDevice(init.createdDevice))
            Object::Delete(device);
        RunPending();
        return status;
    }
    device_ = init.createdDevice;
    state_ = PnpState::Added;
    RunPending();
    return status;
}

const WDF_PNPPOWER_EVENT_CALLBACKS* DriverHost::Callbacks() const
{
    DeviceObject* device = LiveDevice(device_);
    return device != nullptr ? &device->Callbacks() : nullptr;
}

NTSTATUS DriverHost::PrepareHardware()
{
    const WDF_PNPPOWER_EVENT_CALLBACKS* callbacks = Callbacks();
    if (state_ != PnpState::Added || callbacks == nullptr)
        return Refuse();
    RunPending();
    NTSTATUS status = STATUS_SUCCESS;
    if (callbacks->EvtDevicePrepareHardware != nullptr)
        status = CallDriver(callbacks->EvtDevicePrepareHardware, device_, nullptr, nullptr);
    if (!NT_SUCCESS(status)) {
        RunPending();
        if (callbacks->EvtDeviceReleaseHardware != nullptr)
            CallDriver(callbacks->EvtDeviceReleaseHardware, device_, nullptr);
    } else {
        state_ = PnpState::Prepared;
        firstEntry_ = true;
    }
    RunPending();
    return status;
}

NTSTATUS DriverHost::D0Entry()
{
    const WDF_PNPPOWER_EVENT_CALLBACKS* callbacks = Callbacks();
    if (state_ != PnpState::Prepared || callbacks == nullptr)
        return Refuse();
    RunPending();
    const WDF_POWER_DEVICE_STATE previous = firstEntry_ ? WdfPowerDeviceD3Final : WdfPowerDeviceD3;
    NTSTATUS status = STATUS_SUCCESS;
    if (callbacks->EvtDeviceD0Entry != nullptr)
        status = CallDriver(callbacks->EvtDeviceD0Entry, device_, previous);
    if (NT_SUCCESS(status)) {
        state_ = PnpState::Started;
        firstEntry_ = false;
    }
    RunPending();
    return status;
}

NTSTATUS DriverHost::D0Exit()
{
    const WDF_PNPPOWER_EVENT_CALLBACKS* callbacks = Callbacks();
    if (state_ != PnpState::Started || callbacks == nullptr)
        return Refuse();
    RunPending();
    NTSTATUS status = STATUS_SUCCESS;
    if (callbacks->EvtDeviceD0Exit != nullptr)
        status = CallDriver(callbacks->EvtDeviceD0Exit, device_, WdfPowerDeviceD3);
    state_ = PnpState::Prepared;
    RunPending();
    return status;
}

NTSTATUS DriverHost::ReleaseHardware()
{
    const WDF_PNPPOWER_EVENT_CALLBACKS* callbacks = Callbacks();
    if (state_ != PnpState::Prepared || callbacks == nullptr)
        return Refuse();
    RunPending();
    NTSTATUS status = STATUS_SUCCESS;
    if (callbacks->EvtDeviceReleaseHardware != nullptr)
        status = CallDriver(callbacks->EvtDeviceReleaseHardware, device_, nullptr);
    state_ = PnpState::Added;
    RunPending();
    return status;
}

void DriverHost::Unload()
{
    if (!Loaded())
        return;
    RunPending();
    if (state_ == PnpState::Started)
        D0Exit();
    if (state_ == PnpState::Prepared)
        ReleaseHardware();
    if (DeviceObject* device = LiveDevice(device_))
        Object::Delete(device);
    device_ = nullptr;
    state_ = PnpState::NoDevice;
    RunPending();
    DriverObject* driver = driverObject_.wdfDriver;
    if (driver->Config().EvtDriverUnload != nullptr)
        CallDriver(driver->Config().EvtDriverUnload, driver->DriverHandle());
    Object::Delete(driver);
    driverObject_.wdfDriver = nullptr;
    Runtime::Get().SetDriver(nullptr);
    RunPending();
}

void DriverHost::Advance(ULONGLONG milliseconds)
{
    constexpr ULONGLONG kLongest = static_cast<ULONGLONG>(INT64_MAX / kTicksPerMillisecond);
    const ULONGLONG bounded = milliseconds < kLongest ? milliseconds : kLongest;
    Runtime::Get().Dispatch().Advance(static_cast<LONGLONG>(bounded) * kTicksPerMillisecond);
}

void DriverHost::RunPending()
{
    Runtime::Get().Dispatch().RunPending();
}

FILETIME DriverHost::Now() const
{
    return TicksToFileTime(Runtime::Get().Clock().Now());
}

std::string DriverHost::Leaks() const
{
    std::string report;
    const auto add = [&report](const char* name, std::int64_t count) {
        if (count == 0)
            return;
        if (!report.empty())
            report += ", ";
        report += name;
        report += ": ";
        report += std::to_string(count);
    };
    for (unsigned i = 0; i < static_cast<unsigned>(ResourceKind::Count); ++i) {
        const auto kind = static_cast<ResourceKind>(i);
        add(ResourceKindName(kind), ResourceLedger::Instance().Live(kind) - ledgerBaseline_[i]);
    }
    const auto objects = Object::LiveCounts();
    std::string byKind;
    for (unsigned i = 0; i < objects.size(); ++i) {
        const std::int64_t count = objects[i] - objectBaseline_[i];
        if (count == 0)
            continue;
        if (!byKind.empty())
            byKind += ", ";
        byKind += ObjectKindName(static_cast<ObjectKind>(i));
        byKind += " ";
        byKind += std::to_string(count);
    }
    if (!byKind.empty())
        report += (report.empty() ? "" : " ") + std::string("(live objects: ") + byKind + ")";
    return report;
}

std::vector<std::string> DriverHost::Violations() const
{
    return host::framework::Violations();
}

std::vector<ViolationRecord> DriverHost::ViolationRecords() const
{
    return host::framework::ViolationRecords();
}

}  // namespace host::framework
