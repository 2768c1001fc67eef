// A small driver for the framework's lifecycle tests, written the way the real
// driver uses the framework: DriverEntry, device add with a context, a target
// opened by file in prepare-hardware with one synchronous IOCTL, a self-re-arming
// read from D0 entry, a one-shot timer that re-arms itself while in D0, a wait
// lock, a heap block, and the teardown in D0 exit, release-hardware and unload.
// It reports what it saw through TestDriverStats; its entry is FxDriverEntryUm.
#pragma once

#include <condition_variable>
#include <mutex>

#include "platform/wdf.h"

namespace host::framework::testing {

inline constexpr ULONG kInfoIoctl = 0x000B01A8;
inline constexpr ULONG kTickMs = 100;
inline constexpr ULONG kReadBufferSize = 64;

class TestDriverStats {
public:
    void Reset();

    void AddRead(ULONG bytes);
    void AddTick();
    void SetIoctlStatus(NTSTATUS status);
    void SetUnloaded();

    int Reads() const;
    ULONG Bytes() const;
    int Ticks() const;
    NTSTATUS IoctlStatus() const;
    bool Unloaded() const;

    // Real-time tests: wait (bounded, not timed) until the counts are reached.
    bool WaitForReads(int count) const;
    bool WaitForTicks(int count) const;

private:
    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    int reads_ = 0;
    ULONG bytes_ = 0;
    int ticks_ = 0;
    NTSTATUS ioctlStatus_ = STATUS_PENDING;
    bool unloaded_ = false;
};

TestDriverStats& Stats();

}  // namespace host::framework::testing
