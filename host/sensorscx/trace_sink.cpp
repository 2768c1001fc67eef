#include <cstdio>

#include "host/sensorscx/tracing.h"

namespace host::tracing {

void MemoryTraceSink::Write(std::string_view line)
{
    std::lock_guard lock(mutex_);
    try {
        lines_.emplace_back(line);
    } catch (const std::bad_alloc&) {
        // Tracing never changes behaviour; a lost line is the cheaper failure.
    }
}

std::vector<std::string> MemoryTraceSink::Lines() const
{
    std::lock_guard lock(mutex_);
    return lines_;
}

void MemoryTraceSink::Clear()
{
    std::lock_guard lock(mutex_);
    lines_.clear();
}

void StderrTraceSink::Write(std::string_view line)
{
    std::lock_guard lock(mutex_);
    std::fwrite(line.data(), 1, line.size(), stderr);
    std::fputc('\n', stderr);
}

}  // namespace host::tracing
