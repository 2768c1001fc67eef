#include "host/sensorscx/violations.h"

#include <algorithm>
#include <iterator>

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
    std::shared_ptr<const Listener> listener;
    Violation violation{kind, std::move(what)};
    {
        std::lock_guard lock(mutex_);
        listener = listener_;
        if (entries_.size() < kMaxEntries) {
            try {
                entries_.push_back(violation);
            } catch (const std::bad_alloc&) {
                ++dropped_;
            }
        } else {
            ++dropped_;
        }
    }
    if (listener)
        (*listener)(violation);
}

std::vector<Violation> ViolationLog::Entries() const
{
    std::lock_guard lock(mutex_);
    return entries_;
}

std::size_t ViolationLog::Count() const
{
    std::lock_guard lock(mutex_);
    return entries_.size();
}

std::uint64_t ViolationLog::Dropped() const
{
    std::lock_guard lock(mutex_);
    return dropped_;
}

bool ViolationLog::Contains(ViolationKind kind) const
{
    std::lock_guard lock(mutex_);
    return std::any_of(entries_.begin(), entries_.end(), [kind](const Violation& v) { return v.kind == kind; });
}

void ViolationLog::Reset()
{
    std::lock_guard lock(mutex_);
    entries_.clear();
    dropped_ = 0;
}

void ViolationLog::SetListener(Listener listener)
{
    auto shared = listener ? std::make_shared<const Listener>(std::move(listener)) : nullptr;
    std::lock_guard lock(mutex_);
    listener_ = std::move(shared);
}

void ReportViolation(ViolationKind kind, std::string what)
{
    ViolationLog::Instance().Report(kind, std::move(what));
}

}  // namespace host::sensorscx
