// Wait locks: a lock a thread may hold across calls and release from any
// thread, with an optional time-out on acquisition. Real-time mode: real
// waits. Deterministic mode: contention parks a driver thread until the lock
// is free (time-outs on the virtual clock), and the host's own thread lets the
// driver threads run before it gives up (see threads.h).
//
// Acquiring a lock the same thread already holds would deadlock on the
// platform; here it is reported as a violation and fails with
// STATUS_INVALID_DEVICE_STATE instead of hanging. Releasing a lock that is not
// held is reported and ignored; so is deleting a held lock. Without a parent in
// the attributes, a lock belongs to the driver object.
#pragma once

#include <condition_variable>
#include <mutex>
#include <thread>

#include "host/framework/object.h"

namespace host::framework {

class WaitLockObject final : public Object {
public:
    static constexpr ObjectKind kKind = ObjectKind::WaitLock;

    WaitLockObject() : Object(kKind) {}

    // `timeoutTicks` < 0: wait forever; 0: only try.
    NTSTATUS Acquire(LONGLONG timeoutTicks);
    void Release();

protected:
    void OnDeleting() override;

private:
    std::mutex mutex_;
    std::condition_variable released_;
    bool held_ = false;
    std::thread::id owner_;
};

}  // namespace host::framework
