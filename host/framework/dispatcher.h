// Where the framework runs the driver's asynchronous callbacks: I/O completion
// routines and timer callbacks.
//
// Deterministic mode: nothing runs by itself. RunPending() runs, on the calling
// thread, every queued completion and every timer whose due time has come,
// each to the end before the next; Advance() moves the clock from due time to
// due time (ties in start order) and fires each timer on the way. A completion
// posted while a callback runs is run after it, never inside it: RunPending()
// called from inside a callback returns at once.
//
// Real-time mode: two framework threads. The I/O thread runs completions in
// posting order; the timer thread fires due timers. A timer callback that
// blocks therefore never holds up read completions, and the other way round.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <thread>
#include <utility>

#include "host/framework/clock.h"
#include "platform/wdf.h"

namespace host::framework {

// One framework timer as the dispatcher sees it. Shared by the timer object and
// the queue, so a timer deleted from its own callback outlives the call.
// Guarded by the dispatcher's lock.
struct TimerState {
    WDFTIMER handle = nullptr;
    PFN_WDF_TIMER callback = nullptr;
    LONGLONG periodTicks = 0;  // 0: one-shot
    bool queued = false;
    LONGLONG due = 0;
    std::uint64_t sequence = 0;
    bool running = false;
    std::thread::id runningThread;
    bool retired = false;  // the timer object is going away; never queued again
};

class Dispatcher {
public:
    using Work = std::function<void()>;

    ~Dispatcher();

    // Starts the framework threads in real-time mode. The clock is reset first.
    void Start(HostClock& clock);
    // Joins the framework threads and drops whatever is still queued.
    void Stop();

    // Queues a completion. `tag` groups the work of one I/O target.
    void Post(const void* tag, Work work);
    // Deterministic: runs queued completions and due timers until none is left.
    // Real-time: waits until the I/O thread has nothing queued or running.
    void RunPending();
    // Runs the queued completions of `tag` now, on the calling thread (used where
    // waiting for them on their own thread could never end).
    void RunPendingFor(const void* tag);
    bool OnIoThread() const;

    // Queues the timer at `due` (ticks); true when it was already queued.
    bool StartTimer(const std::shared_ptr<TimerState>& timer, LONGLONG due);
    // Cancels a queued due time (true when there was one). With `wait`, also waits
    // for a running callback to return, except on the callback's own thread; a
    // re-arm made by that callback is cancelled too.
    bool StopTimer(const std::shared_ptr<TimerState>& timer, bool wait);
    // Stops the timer for good and waits for its callback (not on its own thread).
    void RetireTimer(const std::shared_ptr<TimerState>& timer);

    // Deterministic: moves the clock forward by `ticks`, firing due timers in due
    // order. Real-time: sleeps that long.
    void Advance(LONGLONG ticks);

private:
    using TimerKey = std::pair<LONGLONG, std::uint64_t>;  // due, start order
    struct Item {
        const void* tag;
        Work work;
    };

    // Deterministic: runs what is due; false when a timer storm had to be cut off.
    bool RunDue();
    void FireFirstTimer(std::unique_lock<std::mutex>& lock);
    void DequeueLocked(TimerState& timer);
    void IoThreadMain();
    void TimerThreadMain();

    HostClock* clock_ = nullptr;
    ClockMode mode_ = ClockMode::Deterministic;
    mutable std::mutex mutex_;
    std::condition_variable changed_;  // anything above changed; waiters re-check
    std::deque<Item> work_;
    std::map<TimerKey, std::shared_ptr<TimerState>> timers_;
    std::uint64_t nextSequence_ = 0;
    int workRunning_ = 0;
    bool stopping_ = false;
    std::thread ioThread_;
    std::thread timerThread_;
    std::thread::id ioThreadId_;
};

}  // namespace host::framework
