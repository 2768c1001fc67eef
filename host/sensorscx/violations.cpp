#include "host/sensorscx/violations.h"

#include <algorithm>
#include <iterator>

#include "host/framework/violations.h"

namespace host::sensorscx {

const char* ViolationKindName(ViolationKind kind)
{
    static constexpr const char* names[] = {
        "BadConfigSize",        "MissingCallback",      "OutOfOrder",
        "InitializedTwice",     "BadHandle",           "SensorNotInitialized",
        "NullArgument",             "ListCountExceedsSize", "ListContentOutsideBuffer",
        "AllocatedSizeChanged", "BufferOverrun",        "SizeTooSmall",
        "NoAcceptedRetrieval",  "RetrievalOverlap",
    };
    static_assert(std::size(names) == static_cast<unsigned>(ViolationKind::RetrievalOverlap) + 1);
    const auto index = static_cast<unsigned>(kind);
    return index < std::size(names) ? names[index] : "?";
}

ViolationLog& ViolationLog::Instance()
{
    static ViolationLog log;
    return log;
}

void ViolationLog::Report(ViolationKind kind, std::string what)
{
    framework::ReportViolation(framework::ViolationSource::ClassExtension, static_cast<unsigned>(kind), {},
                               std::move(what));
}

std::vector<Violation> ViolationLog::Entries() const
{
    std::vector<Violation> entries;
    for (framework::ViolationRecord& record : framework::ViolationRecords()) {
        if (record.source == framework::ViolationSource::ClassExtension)
            entries.push_back({static_cast<ViolationKind>(record.kind), std::move(record.what)});
    }
    return entries;
}

std::size_t ViolationLog::Count() const { return Entries().size(); }

bool ViolationLog::Contains(ViolationKind kind) const
{
    const auto entries = Entries();
    return std::any_of(entries.begin(), entries.end(), [kind](const Violation& v) { return v.kind == kind; });
}

void ViolationLog::Reset() { framework::ClearViolations(); }

void ReportViolation(ViolationKind kind, std::string what)
{
    ViolationLog::Instance().Report(kind, std::move(what));
}

}  // namespace host::sensorscx
