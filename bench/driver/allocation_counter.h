// Counts calls of the global operator new while counting is on. The
// replacement operators live in allocation_counter.cpp.
#pragma once

#include <cstdint>

void StartCountingNew();
// Stops counting and returns the calls seen since StartCountingNew.
std::uint64_t StopCountingNew();
