// A small driver for the lifecycle tests, using the framework the way the real
// driver does: a target opened in prepare-hardware with one synchronous IOCTL,
// a self-re-arming read and a self-re-arming timer while in D0 and a wait lock,
// all torn down in D0 exit, release-hardware and unload. Its entry
// is FxDriverEntryUm.
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

// A copy of what the driver has seen, taken under the lock.
TestDriverStats Stats();
void ResetStats();
// Real-time tests: waits (bounded, not timed) until `done` holds.
bool WaitForStats(const std::function<bool(const TestDriverStats&)>& done);

}  // namespace host::framework::testing
