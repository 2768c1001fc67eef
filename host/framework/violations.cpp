#include "host/framework/violations.h"

#include <mutex>
#include <new>

namespace host::framework {
namespace {

struct ViolationLog {
    std::mutex lock;
    std::vector<std::string> entries;
};

ViolationLog& Log()
{
    static ViolationLog log;
    return log;
}

}  // namespace

void ReportViolation(std::string what)
{
    ViolationLog& log = Log();
    std::lock_guard lock(log.lock);
    try {
        log.entries.push_back(std::move(what));
    } catch (const std::bad_alloc&) {
        // Losing a diagnostic is better than failing the call that reported it.
    }
}

std::vector<std::string> Violations()
{
    ViolationLog& log = Log();
    std::lock_guard lock(log.lock);
    return log.entries;
}

void ClearViolations()
{
    ViolationLog& log = Log();
    std::lock_guard lock(log.lock);
    log.entries.clear();
}

}  // namespace host::framework
