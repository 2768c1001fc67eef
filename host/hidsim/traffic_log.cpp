#include "host/hidsim/traffic_log.h"

#include <cstdio>
#include <new>
#include <utility>

namespace host::hidsim {

void TrafficLog::Record(std::size_t collection, TrafficKind kind, ULONG ioctlCode,
                        std::optional<std::uint8_t> reportId, std::span<const std::uint8_t> bytes, NTSTATUS status,
                        bool answered) noexcept
{
    std::lock_guard lock(mutex_);
    const std::uint64_t sequence = nextSequence_++;
    try {
        TrafficEvent event{sequence, collection, kind, ioctlCode, reportId, {bytes.begin(), bytes.end()}, status,
                           answered};
        if (listener_)
            outbox_.push_back(event);
        if (capacity_ == 0) {
            ++overflowed_;
            return;
        }
        if (kept_.size() == capacity_) {
            kept_.pop_front();
            ++overflowed_;
        }
        kept_.push_back(std::move(event));
    } catch (const std::bad_alloc&) {
        ++overflowed_;
    }
}

void TrafficLog::Deliver()
{
    std::unique_lock lock(mutex_);
    // Someone up the stack (this thread's listener, or another thread) is
    // already delivering; it drains what we just queued, in order.
    if (delivering_)
        return;
    delivering_ = true;
    while (!outbox_.empty()) {
        TrafficEvent event = std::move(outbox_.front());
        outbox_.pop_front();
        const std::shared_ptr<const TrafficListener> listener = listener_;
        lock.unlock();
        if (listener) {
            try {
                (*listener)(event);
            } catch (...) {
                // A failing listener must not take the device down with it.
            }
        }
        lock.lock();
    }
    delivering_ = false;
}

bool TrafficLog::SetListener(TrafficListener listener) noexcept
{
    std::shared_ptr<const TrafficListener> shared;
    if (listener) {
        try {
            shared = std::make_shared<const TrafficListener>(std::move(listener));
        } catch (const std::bad_alloc&) {
            return false;
        }
    }
    std::lock_guard lock(mutex_);
    listener_ = std::move(shared);
    if (!listener_)
        outbox_.clear();
    return true;
}

std::vector<TrafficEvent> TrafficLog::Events() const
{
    std::lock_guard lock(mutex_);
    return {kept_.begin(), kept_.end()};
}

void TrafficLog::Clear()
{
    std::lock_guard lock(mutex_);
    kept_.clear();
    overflowed_ = 0;
}

std::uint64_t TrafficLog::Overflowed() const
{
    std::lock_guard lock(mutex_);
    return overflowed_;
}

const char* TrafficKindName(TrafficKind kind)
{
    switch (kind) {
    case TrafficKind::Ioctl:
        return "ioctl";
    case TrafficKind::GetFeature:
        return "getFeature";
    case TrafficKind::SetFeature:
        return "setFeature";
    case TrafficKind::Read:
        return "read";
    }
    return "unknown";
}

std::string FormatHexBytes(std::span<const std::uint8_t> bytes)
{
    static constexpr char kDigits[] = "0123456789ABCDEF";
    std::string text;
    text.reserve(bytes.size() * 3);
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        if (i != 0)
            text.push_back(' ');
        text.push_back(kDigits[bytes[i] >> 4]);
        text.push_back(kDigits[bytes[i] & 0x0F]);
    }
    return text;
}

namespace {

std::string Hex32(std::uint32_t value)
{
    char text[11];
    std::snprintf(text, sizeof(text), "0x%08X", static_cast<unsigned>(value));
    return text;
}

}  // namespace

std::string FormatStatus(NTSTATUS status)
{
    return Hex32(static_cast<std::uint32_t>(status));
}

std::string FormatIoctlCode(ULONG code)
{
    return Hex32(code);
}

}  // namespace host::hidsim
