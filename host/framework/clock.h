// The host clock: the one time source behind GetSystemTimeAsFileTime and the
// framework timers. Times are FILETIME values as one number: 100-ns ticks
// since 1601-01-01 UTC.
//
// Deterministic mode: time stands still until the host advances it (tests).
// Real-time mode: time follows the steady clock from the start time on (the
// command-line tool, stress tests). The clock never goes backwards.
#pragma once

#include <atomic>
#include <chrono>

#include "platform/basetypes.h"

namespace host::framework {

enum class ClockMode { Deterministic, RealTime };

inline constexpr LONGLONG kTicksPerMillisecond = 10'000;
// 2024-01-01T00:00:00Z: where time starts when no DriverHost chose a start.
inline constexpr LONGLONG kDefaultStartTicks = 133'485'408'000'000'000;

LONGLONG FileTimeToTicks(const FILETIME& time);
FILETIME TicksToFileTime(LONGLONG ticks);

class HostClock {
public:
    // Only while no framework thread runs.
    void Reset(ClockMode mode, LONGLONG startTicks);

    ClockMode Mode() const { return mode_.load(std::memory_order_relaxed); }
    LONGLONG Now() const;

    // Deterministic mode: moves time forward to `ticks`; earlier values are
    // ignored. No effect in real-time mode.
    void AdvanceTo(LONGLONG ticks);

    // Real-time mode: the steady-clock instant at which the clock shows `ticks`.
    std::chrono::steady_clock::time_point SteadyAt(LONGLONG ticks) const;

private:
    std::atomic<ClockMode> mode_{ClockMode::Deterministic};
    std::atomic<LONGLONG> virtualNow_{kDefaultStartTicks};
    std::atomic<LONGLONG> startTicks_{kDefaultStartTicks};
    std::atomic<std::chrono::steady_clock::rep> steadyStart_{0};
};

}  // namespace host::framework
