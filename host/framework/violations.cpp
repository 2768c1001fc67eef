#include "host/framework/violations.h"

#include <algorithm>
#include <memory>
#include <mutex>
#include <new>

#include "host/framework/runtime.h"

namespace host::framework {
namespace {

struct Listener {
    std::uint64_t id;
    std::shared_ptr<const ViolationListener> callback;
};

struct ViolationStream {
    std::mutex lock;
    std::vector<ViolationRecord> records;
    std::uint64_t nextSequence = 1;
    std::uint64_t dropped = 0;
    std::vector<Listener> listeners;
    std::uint64_t nextListenerId = 1;
    // Delivers in stream order even when threads report together.
    std::recursive_mutex delivery;
};

ViolationStream& Stream()
{
    static ViolationStream stream;
    return stream;
}

std::string WhereOf(const std::string& what)
{
    const std::size_t end = what.find_first_of(": ");
    return what.substr(0, end);
}

}  // namespace

const char* ViolationSourceName(ViolationSource source)
{
    switch (source) {
    case ViolationSource::Framework:
        return "framework";
    case ViolationSource::ClassExtension:
        return "class extension";
    }
    return "?";
}

void ReportViolation(std::string what)
{
    ReportViolation(ViolationSource::Framework, 0, {}, std::move(what));
}

void ReportViolation(ViolationSource source, unsigned kind, std::string where, std::string what)
{
    ViolationStream& stream = Stream();
    try {
        ViolationRecord record;
        record.source = source;
        record.kind = kind;
        record.where = where.empty() ? WhereOf(what) : std::move(where);
        record.what = std::move(what);
        record.ticks = Runtime::Get().Clock().Now();
        std::vector<Listener> listeners;
        std::lock_guard delivery(stream.delivery);
        {
            std::lock_guard lock(stream.lock);
            record.sequence = stream.nextSequence++;
            listeners = stream.listeners;
            if (stream.records.size() < kMaxViolations)
                stream.records.push_back(record);
            else
                ++stream.dropped;
        }
        for (const Listener& listener : listeners)
            (*listener.callback)(record);
    } catch (const std::bad_alloc&) {
        // Losing a diagnostic is better than failing the call that reported it.
        std::lock_guard lock(stream.lock);
        ++stream.dropped;
    }
}

std::vector<std::string> Violations()
{
    ViolationStream& stream = Stream();
    std::lock_guard lock(stream.lock);
    std::vector<std::string> texts;
    texts.reserve(stream.records.size());
    for (const ViolationRecord& record : stream.records)
        texts.push_back(record.what);
    return texts;
}

std::vector<ViolationRecord> ViolationRecords()
{
    ViolationStream& stream = Stream();
    std::lock_guard lock(stream.lock);
    return stream.records;
}

std::uint64_t DroppedViolations()
{
    ViolationStream& stream = Stream();
    std::lock_guard lock(stream.lock);
    return stream.dropped;
}

void ClearViolations()
{
    ViolationStream& stream = Stream();
    std::lock_guard lock(stream.lock);
    stream.records.clear();
    stream.dropped = 0;
    stream.nextSequence = 1;
}

ViolationSubscription SubscribeViolations(ViolationListener listener)
{
    if (!listener)
        return {};
    auto callback = std::make_shared<const ViolationListener>(std::move(listener));
    ViolationStream& stream = Stream();
    std::lock_guard lock(stream.lock);
    const std::uint64_t id = stream.nextListenerId++;
    stream.listeners.push_back({id, std::move(callback)});
    return ViolationSubscription(id);
}

ViolationSubscription& ViolationSubscription::operator=(ViolationSubscription&& other) noexcept
{
    if (this != &other) {
        Cancel();
        id_ = other.id_;
        other.id_ = 0;
    }
    return *this;
}

void ViolationSubscription::Cancel()
{
    if (id_ == 0)
        return;
    ViolationStream& stream = Stream();
    std::lock_guard lock(stream.lock);
    std::erase_if(stream.listeners, [this](const Listener& l) { return l.id == id_; });
    id_ = 0;
}

}  // namespace host::framework
