#include "host/common/resource_ledger.h"

#include <iterator>

namespace host {

const char* ResourceKindName(ResourceKind kind)
{
    static constexpr const char* names[] = {
        "framework objects", "framework memory", "driver heap blocks", "task memory blocks",
        "handles", "threads", "trace registrations",
    };
    static_assert(std::size(names) == static_cast<unsigned>(ResourceKind::Count));
    const auto index = static_cast<unsigned>(kind);
    return index < std::size(names) ? names[index] : "?";
}

ResourceLedger& ResourceLedger::Instance()
{
    static ResourceLedger instance;
    return instance;
}

std::string ResourceLedger::Leaks() const
{
    std::string report;
    for (unsigned i = 0; i < static_cast<unsigned>(ResourceKind::Count); ++i) {
        const std::int64_t live = live_[i].load(std::memory_order_relaxed);
        if (live == 0)
            continue;
        if (!report.empty())
            report += ", ";
        report += ResourceKindName(static_cast<ResourceKind>(i));
        report += ": ";
        report += std::to_string(live);
    }
    return report;
}

}  // namespace host
