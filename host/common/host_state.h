// Process-wide host state that every run must start without: the GUID
// sequence, recorded violations, fault arms, trace registrations, the sensor
// table. Each piece registers how to put itself back the first time it is
// created; creating a DriverHost calls ResetHostState(), so no harness resets
// singletons by hand and none can be forgotten.
#pragma once

namespace host {

// Adds `reset` to the resets run by ResetHostState(). Registering the same
// function again is harmless. Never fails (the table is fixed-size; overflow
// is a programming error caught by an assertion in debug builds).
void RegisterHostStateReset(void (*reset)());

// Runs every registered reset, in registration order. Only while no driver
// code runs.
void ResetHostState();

}  // namespace host
