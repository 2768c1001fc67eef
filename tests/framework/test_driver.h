// A small driver for the framework's lifecycle tests, written the way the real
// driver uses the framework: DriverEntry, device add with two contexts, a target
// opened by file in prepare-hardware with one synchronous IOCTL, a
// self-re-arming read from D0 entry, a one-shot timer that re-arms itself while
// in D0, a wait lock, framework memory and a heap block, and the teardown in D0
// exit, release-hardware and unload. Its entry is FxDriverEntryUm.
#pragma once

#include <functional>

#include "platform/wdf.h"

namespace host::framework::testing {

inline constexpr ULONG kInfoIoctl = 0x000B01A8;
inline constexpr ULONG kTickMs = 100;
inline constexpr ULONG kReadBufferSize = 64;

struct TestDriverStats {
    int reads = 0;
    ULONG bytes = 0;
    int ticks = 0;
    NTSTATUS ioctlStatus = STATUS_PENDING;
    bool unloaded = false;
};

// What the driver has seen so far: a copy taken under the lock.
TestDriverStats Stats();
void ResetStats();
// Real-time tests: waits (bounded, not timed) until `done` holds.
bool WaitForStats(const std::function<bool(const TestDriverStats&)>& done);

}  // namespace host::framework::testing
