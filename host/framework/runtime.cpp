#include "host/framework/runtime.h"

#include "host/framework/violations.h"

namespace host::framework {

Runtime& Runtime::Get()
{
    static Runtime runtime;
    return runtime;
}

Runtime::Runtime()
{
    clock_.Reset(ClockMode::Deterministic, kDefaultStartTicks);
    dispatcher_.Start(clock_);
}

void Runtime::Reset(ClockMode mode, LONGLONG startTicks)
{
    dispatcher_.Stop();
    clock_.Reset(mode, startTicks);
    dispatcher_.Start(clock_);
    driver_.store(nullptr, std::memory_order_release);
    ClearViolations();
}

}  // namespace host::framework
