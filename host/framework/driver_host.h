// The host: loads a driver module, adds its device on a HID collection, drives
// the device through the PnP/power callbacks, runs the clock and the driver's
// threads, and tells after unload what the driver left behind.
//
// One reset: creating a DriverHost puts every piece of process-wide host state
// back to its start: clock and dispatcher, the violation stream, fault arms
// and counters, driver threads and holds, the GUID sequence (seed 1: a runner
// with a seed of its own sets it after creating the host), trace
// registrations and enables, the sensor table. Two runs with the same inputs
// then behave the same. Only one DriverHost may exist at a time; destroying it
// unloads the driver and resets again.
//
// PnP/power order, as the framework calls them (one callback at a time, any
// number of cycles):
//   AddDevice → PrepareHardware → D0Entry ⇄ D0Exit → ReleaseHardware → (PrepareHardware ...)
// A call out of this order is refused with STATUS_INVALID_DEVICE_STATE and
// calls nothing: a scenario runner turns such a step into a scenario error.
// D0Entry gets WdfPowerDeviceD3Final as the previous state on the first entry
// after PrepareHardware and WdfPowerDeviceD3 after a D0Exit; D0Exit always
// targets WdfPowerDeviceD3. A failed PrepareHardware is undone with the
// release-hardware callback, as the framework does, and leaves the device
// added; a failed D0Entry leaves it prepared; D0Exit and ReleaseHardware
// always move on, whatever the callback returns. Absent callbacks count as
// success. Every PnP call, AddDevice and Unload run the pending work
// (completions, due timers) before and after the callback.
//
// Unload takes a started device through D0Exit and ReleaseHardware, deletes
// the device, calls EvtDriverUnload and deletes the driver object.
//
// Contracts the host enforces on the driver (each breach is a violation):
//   - A framework object is deleted with its parent. Deleting it again
//     afterwards (a history timer parented to the SENSOROBJECT, once the
//     SENSOROBJECT is gone) is a dead-handle violation: delete or forget
//     children before their parent goes.
//   - Strings placed into published lists are task memory (CoTaskMemAlloc);
//     what the driver does not free shows in Leaks() at unload.
//   - A wait lock acquired twice by one thread, released when free, or
//     deleted while held; a timer or request used after deletion; a handle
//     closed twice.
//   - A device that never answers costs a synchronous send its whole
//     time-out (the driver's 5 s per IOCTL) of virtual time; timers that fall
//     due meanwhile fire after the call returns, never inside it. A
//     synchronous send without a time-out to such a device is a violation.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "host/common/hid_collection_endpoint.h"
#include "host/common/resource_ledger.h"
#include "host/framework/clock.h"
#include "host/framework/driver.h"
#include "host/framework/object.h"
#include "host/framework/registry_store.h"
#include "host/framework/threads.h"
#include "host/framework/violations.h"

namespace host::framework {

// The module's exported entry, FxDriverEntryUm (see fx_driver_entry.cpp).
using EntryFn = NTSTATUS (*)(void* LoaderInterface, void* Context, PDRIVER_OBJECT DriverObject,
                             PUNICODE_STRING RegistryPath);

enum class PnpState { NoDevice, Added, Prepared, Started };

class DriverHost {
public:
    DriverHost(ClockMode mode, FILETIME startTime);
    ~DriverHost();
    DriverHost(const DriverHost&) = delete;
    DriverHost& operator=(const DriverHost&) = delete;

    // Calls the module's entry. A driver whose entry fails is not loaded (a
    // driver object it created is deleted, without EvtDriverUnload).
    NTSTATUS LoadDriver(EntryFn fxDriverEntryUm);
    // Calls EvtDriverDeviceAdd with a fresh WDFDEVICE_INIT bound to `endpoint`,
    // which must outlive the device. A device created by a failing device add is
    // deleted.
    NTSTATUS AddDevice(HidCollectionEndpoint& endpoint);
    NTSTATUS PrepareHardware();
    NTSTATUS D0Entry();
    NTSTATUS D0Exit();
    NTSTATUS ReleaseHardware();
    void Unload();

    bool Loaded() const { return driverObject_.wdfDriver != nullptr; }
    WDFDRIVER Driver() const;
    WDFDEVICE Device() const { return device_; }
    PnpState State() const { return state_; }
    // The device's registry; preload it before AddDevice, read it back any time.
    RegistryStore& Registry() { return *registry_; }

    ClockMode Mode() const;
    // Deterministic: moves the clock, firing due timers in order (see Dispatcher).
    // Real time: sleeps.
    void Advance(ULONGLONG milliseconds);
    // Runs queued completions and due timers (real time: waits for the I/O thread).
    void RunPending();
    FILETIME Now() const;

    // What is left compared with when the host was created: ledger counts
    // (framework objects and memory, heap blocks, task memory, handles,
    // threads, trace registrations) and live framework objects by kind. Empty
    // when nothing is left. Meaningful after Unload.
    std::string Leaks() const;
    // The violation stream (see host/framework/violations.h) since the host
    // was created: texts only, and full records.
    std::vector<std::string> Violations() const;
    std::vector<ViolationRecord> ViolationRecords() const;

    // Driver threads (see host/framework/threads.h). Deterministic mode: a
    // driver thread runs only when the host lets it.
    std::size_t RunThreads() { return RunDriverThreads(); }
    bool RunThread(HANDLE thread) { return RunDriverThread(thread); }
    void HoldThreadAt(FaultPoint point) { HoldDriverThreadAt(point); }
    bool ReleaseThread(HANDLE thread) { return ReleaseDriverThread(thread); }
    std::vector<DriverThreadInfo> Threads() const { return DriverThreads(); }

private:
    NTSTATUS Refuse() const { return STATUS_INVALID_DEVICE_STATE; }
    const WDF_PNPPOWER_EVENT_CALLBACKS* Callbacks() const;

    DRIVER_OBJECT driverObject_;
    std::u16string registryPathText_;
    UNICODE_STRING registryPath_{};
    std::shared_ptr<RegistryStore> registry_;
    WDFDEVICE device_ = nullptr;
    PnpState state_ = PnpState::NoDevice;
    bool firstEntry_ = true;
    std::int64_t ledgerBaseline_[static_cast<unsigned>(ResourceKind::Count)] = {};
    std::array<std::int64_t, static_cast<unsigned>(ObjectKind::Count)> objectBaseline_{};
};

}  // namespace host::framework
