// Plays a scenario on the simulated host with the driver loaded: the device,
// driver entry, the start sequence and every step, printing what a client or
// the device sees as events.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "host/sensorscx/tracing.h"
#include "tools/hidsensor/event_printer.h"
#include "tools/hidsensor/scenario.h"

namespace hidsensor {

struct RunOptions {
    // Where the trace lines of `trace` steps go (null: standard error).
    std::shared_ptr<host::tracing::TraceSink> traceSink;
    // Tracing enabled before driver entry with this level and flags, as if
    // the scenario began with a trace step.
    std::optional<std::pair<UCHAR, ULONG>> traceFromStart;
    // Runs once the host exists, before driver entry: the place to arm fault
    // injection, which creating the host resets.
    std::function<void()> beforeDriverEntry;
    // Runs after the final unload, while the host still exists.
    std::function<void()> afterUnload;
};

// Exit status of `hidsensor run`: 0 every step ran, 1 there was a violation,
// 2 the scenario's device cannot be built (`error` says why, with its path).
int RunScenario(const Scenario& scenario, EventPrinter& printer, const RunOptions& options, std::string& error);

}  // namespace hidsensor
