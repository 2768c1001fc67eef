// GetSystemTimeAsFileTime: the host clock.
#include "host/framework/runtime.h"
#include "host/framework/violations.h"
#include "platform/system.h"

extern "C" void GetSystemTimeAsFileTime(FILETIME* lpSystemTimeAsFileTime)
{
    using namespace host::framework;
    if (lpSystemTimeAsFileTime == nullptr) {
        ReportViolation("GetSystemTimeAsFileTime: null pointer");
        return;
    }
    *lpSystemTimeAsFileTime = TicksToFileTime(Runtime::Get().Clock().Now());
}
