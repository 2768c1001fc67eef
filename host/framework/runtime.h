// Process-wide state of the framework: the host clock, the dispatcher and the
// loaded driver object. A DriverHost resets it when it starts and again when it
// ends, so every test starts from a clean clock, empty queues and no recorded
// violations. Only one DriverHost may exist at a time.
//
// Without a DriverHost the runtime is deterministic and starts at
// kDefaultStartTicks, so components tested on their own still get a clock.
#pragma once

#include <atomic>

#include "host/framework/clock.h"
#include "host/framework/dispatcher.h"

namespace host::framework {

class Object;

class Runtime {
public:
    static Runtime& Get();

    // Stops the framework threads, drops queued work and timers, clears the
    // violations and restarts the clock in `mode` at `startTicks`.
    void Reset(ClockMode mode, LONGLONG startTicks);

    HostClock& Clock() { return clock_; }
    Dispatcher& Dispatch() { return dispatcher_; }

    // The driver object, default parent of memory, locks and target-less requests.
    Object* Driver() const { return driver_.load(std::memory_order_acquire); }
    void SetDriver(Object* driver) { driver_.store(driver, std::memory_order_release); }

private:
    Runtime();

    HostClock clock_;
    Dispatcher dispatcher_;
    std::atomic<Object*> driver_{nullptr};
};

}  // namespace host::framework
