// I/O targets: the driver's handle on the HID collection of its device.
//
// A target is opened by file on the device's local target (open type
// WdfIoTargetOpenLocalTargetByFile, 4), which binds it to the device's
// HidCollectionEndpoint. Other open types give STATUS_NOT_SUPPORTED; a
// WDF_IO_TARGET_OPEN_PARAMS of the wrong Size gives STATUS_INFO_LENGTH_MISMATCH;
// opening an open target gives STATUS_INVALID_DEVICE_STATE.
//
// Close (and deletion, which closes) cancels what the target still has at the
// device and waits until every completion routine of its requests has run to
// the end. Where waiting on another thread could never end (deterministic mode,
// or a close on the I/O completion thread) the pending completions of the
// target run on the closing thread instead. A close from inside one of the
// target's own completion routines does not wait for that routine. A device
// that does not complete a cancelled read is reported as a violation and the
// read is abandoned (at once in deterministic mode, after 10 s in real time).
#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "host/common/hid_collection_endpoint.h"
#include "host/framework/object.h"

namespace host::framework {

class PendingIo;

// What in-flight I/O needs of its target. Shared, so that completions still
// under way never touch a deleted target object.
struct TargetCore {
    std::mutex mutex;
    std::condition_variable changed;
    WDFIOTARGET handle = nullptr;
    HidCollectionEndpoint* endpoint = nullptr;  // bound by open, cleared by close
    bool open = false;
    // Asynchronous requests sent and not yet through their completion routine,
    // plus synchronous sends in progress.
    int outstanding = 0;
    int readsInFlight = 0;
    std::vector<std::shared_ptr<PendingIo>> atDevice;  // sent, not yet completed by the device
    std::vector<std::thread::id> delivering;           // threads inside a completion routine
};

class IoTargetObject final : public Object {
public:
    static constexpr ObjectKind kKind = ObjectKind::IoTarget;

    explicit IoTargetObject(WDFDEVICE device);

    NTSTATUS Open(const WDF_IO_TARGET_OPEN_PARAMS& params);
    void Close();

    const std::shared_ptr<TargetCore>& Core() const { return core_; }
    WDFIOTARGET TargetHandle() { return static_cast<WDFIOTARGET>(Handle()); }

protected:
    void OnDeleting() override { Close(); }

private:
    // Waits for the outstanding count to drop to what this thread itself holds.
    void WaitForCompletions();

    WDFDEVICE device_;
    std::shared_ptr<TargetCore> core_;
};

}  // namespace host::framework
