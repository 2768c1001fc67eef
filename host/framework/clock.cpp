#include "host/framework/clock.h"

namespace host::framework {
namespace {

using Ticks = std::chrono::duration<LONGLONG, std::ratio<1, 10'000'000>>;

}  // namespace

LONGLONG FileTimeToTicks(const FILETIME& time)
{
    return static_cast<LONGLONG>((static_cast<ULONGLONG>(time.dwHighDateTime) << 32) | time.dwLowDateTime);
}

FILETIME TicksToFileTime(LONGLONG ticks)
{
    const auto value = static_cast<ULONGLONG>(ticks);
    return FILETIME{static_cast<DWORD>(value & 0xFFFFFFFFu), static_cast<DWORD>(value >> 32)};
}

void HostClock::Reset(ClockMode mode, LONGLONG startTicks)
{
    startTicks_.store(startTicks, std::memory_order_relaxed);
    virtualNow_.store(startTicks, std::memory_order_relaxed);
    steadyStart_.store(std::chrono::steady_clock::now().time_since_epoch().count(), std::memory_order_relaxed);
    mode_.store(mode, std::memory_order_release);
}

LONGLONG HostClock::Now() const
{
    if (Mode() == ClockMode::Deterministic)
        return virtualNow_.load(std::memory_order_acquire);
    const std::chrono::steady_clock::time_point start{
        std::chrono::steady_clock::duration(steadyStart_.load(std::memory_order_relaxed))};
    const auto elapsed = std::chrono::duration_cast<Ticks>(std::chrono::steady_clock::now() - start);
    return startTicks_.load(std::memory_order_relaxed) + elapsed.count();
}

void HostClock::AdvanceTo(LONGLONG ticks)
{
    if (Mode() != ClockMode::Deterministic)
        return;
    LONGLONG now = virtualNow_.load(std::memory_order_relaxed);
    while (ticks > now && !virtualNow_.compare_exchange_weak(now, ticks, std::memory_order_acq_rel)) {
    }
}

std::chrono::steady_clock::time_point HostClock::SteadyAt(LONGLONG ticks) const
{
    // Far-future due times would overflow the steady clock; a day is as good as forever here.
    constexpr LONGLONG kDay = 24LL * 3600 * 10'000'000;
    LONGLONG remaining = ticks - Now();
    if (remaining > kDay)
        remaining = kDay;
    if (remaining < 0)
        remaining = 0;
    return std::chrono::steady_clock::now() + std::chrono::duration_cast<std::chrono::steady_clock::duration>(Ticks(remaining));
}

}  // namespace host::framework
