// Driver threads (CreateThread) and how the host runs them.
//
// Real-time mode: a driver thread is a real thread that starts at once; waits
// on threads and events use real time.
//
// Deterministic mode: the host schedules driver threads itself, so a run is
// reproducible byte for byte. A driver thread is still a real thread (it may
// block in waits and locks like on the platform), but it runs only while the
// host lets it, and then alone: the thread that let it run waits until it
// parks. A new thread does not start until the host first lets it run.
// Threads run
//   - on RunDriverThreads() (DriverHost::RunThreads(); the client's wait for a
//     history retrieval, which a scenario's `wait` step uses),
//   - on a wait on the thread's handle or on an event (WaitForSingleObjectEx)
//     from any thread, driver code included, unless its time-out is 0: a
//     poll only looks,
//   - on RunDriverThread(handle) (DriverHost::RunThread()).
// Letting threads run means: in creation order, each runnable thread runs
// until it parks, round after round, until none can move. A thread parks when
// it finishes, waits for an unsignalled event or an unfinished thread, meets a
// wait lock held by another thread, or reaches a hold point.
//
// Time-outs in deterministic mode are virtual. A driver thread's wait with a
// time-out parks until its object is signalled or the host clock reaches the
// deadline (time moves only when the host advances it). A wait from a thread
// that is not a driver thread (the host's, or the driver's code called by the
// host: a PnP or sensor callback, a completion routine, a timer) first lets
// the driver threads run, then answers at once:
// WAIT_OBJECT_0 when the object is signalled, WAIT_TIMEOUT otherwise. Such a
// wait with INFINITE on something that can never be signalled is reported as
// a deadlock and fails with WAIT_FAILED. Wait-lock acquisitions behave the
// same way.
//
// Hold points, to stop a worker at a known place: HoldDriverThreadAt(point)
// parks the next driver thread that is about to make platform call `point`
// (before the call counts for fault injection, before it does anything). It
// stays parked, whatever lets threads run, until ReleaseDriverThread(); then
// it makes the call the next time threads run. A hold is used up by the
// thread it stops.
//
// A thread still running when the host ends shows in the leak report as a
// live thread, and is then detached: in deterministic mode a parked thread
// stays parked for good, and one that never ran ends without running.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <vector>

#include "host/common/fault_injection.h"
#include "platform/basetypes.h"

namespace host::framework {

enum class DriverThreadState {
    NotStarted,  // created, never let run
    Running,     // running now (or, in real-time mode, alive)
    Waiting,     // parked in a wait, or on a wait lock, that is not satisfied
    Held,        // parked at a hold point until released
    Finished,
};

const char* DriverThreadStateName(DriverThreadState state);

struct DriverThreadInfo {
    HANDLE handle = nullptr;   // the handle CreateThread returned (may be closed since)
    DWORD id = 0;              // the thread id CreateThread gave back
    DriverThreadState state = DriverThreadState::NotStarted;
    std::optional<FaultPoint> heldAt;  // the hold point a Held thread is parked at
};

// Deterministic: lets every driver thread run until none can move; the number
// of times a thread was let run. Real time: 0.
std::size_t RunDriverThreads();
// Deterministic: lets this one thread run until it parks (a wait of its on
// another thread parks it; the other does not run). False when the handle is
// no driver thread.
bool RunDriverThread(HANDLE thread);
// Parks the next driver thread that reaches `point` (deterministic mode only).
void HoldDriverThreadAt(FaultPoint point);
// Drops holds not used yet.
void ClearDriverThreadHolds();
// Lets a held thread go on the next time threads run; false when it is not held.
bool ReleaseDriverThread(HANDLE thread);
// Every driver thread created since the host started, in creation order.
std::vector<DriverThreadInfo> DriverThreads();
// True on a driver thread.
bool OnDriverThread();

// Joins every finished driver thread; with `detachUnfinished`, lets the others go.
void ReapThreads(bool detachUnfinished);
// Waits for every driver thread to end and joins it (tests that closed the
// handle). Deterministic mode: lets them run first; a thread that cannot
// finish is detached and reported.
void JoinAllThreads();
// Forgets every driver thread and hold (a new host; unfinished ones are detached).
void ResetDriverThreads();

}  // namespace host::framework

// For the host's own waitable objects (events, threads, wait locks).
namespace host::framework::scheduling {

enum class WaitResult { Satisfied, TimedOut, Deadlock };

// True when driver threads are scheduled by the host (deterministic mode).
bool Scheduled();

// A wait in deterministic mode, as described above. `tryTake` tests the
// condition and takes it when it holds (consumes an auto-reset signal, takes
// a lock); `ready` only tests it. Both lock only the object's own mutex.
// `timeoutTicks` < 0 waits forever; 0 only tries.
WaitResult Wait(const std::function<bool()>& tryTake, const std::function<bool()>& ready, LONGLONG timeoutTicks);

}  // namespace host::framework::scheduling
