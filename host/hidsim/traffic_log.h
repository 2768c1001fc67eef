// Every request the simulated device sees, in the order it saw them: kept in a
// bounded list for tests and handed to an optional listener (the tool prints
// them).
#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "platform/basetypes.h"

namespace host::hidsim {

enum class TrafficKind {
    Ioctl,       // collection information, descriptor, strings, unknown codes
    GetFeature,
    SetFeature,
    Read,
};

struct TrafficEvent {
    std::uint64_t sequence = 0;      // 0, 1, 2, ... per device
    std::size_t collection = 0;      // index of the top-level collection the request came to
    TrafficKind kind = TrafficKind::Ioctl;
    ULONG ioctlCode = 0;             // 0 for reads
    std::optional<std::uint8_t> reportId;  // features: the requested ID; reads: first byte of the data
    // SET_FEATURE: the report as sent. Everything else: the bytes the device
    // returned (output buffer contents, or the data of a read).
    std::vector<std::uint8_t> bytes;
    NTSTATUS status = 0;             // STATUS_PENDING when the device never answered
    bool answered = true;
};

using TrafficListener = std::function<void(const TrafficEvent&)>;

// Events are recorded under the device's lock, so their order is the order the
// device handled the requests; the listener is called later, outside that
// lock, one event at a time and in that same order. The listener may call back
// into the device: events it causes are delivered after it returns.
class TrafficLog {
public:
    explicit TrafficLog(std::size_t capacity) : capacity_(capacity) {}

    // Assigns the sequence number, keeps the event and queues it for the
    // listener. Never throws: an event that cannot be allocated is counted as
    // overflowed.
    void Record(std::size_t collection, TrafficKind kind, ULONG ioctlCode, std::optional<std::uint8_t> reportId,
                std::span<const std::uint8_t> bytes, NTSTATUS status, bool answered = true) noexcept;
    // Hands queued events to the listener. Call without holding the device lock.
    void Deliver();

    // Replaces the listener (empty: none). False when memory runs out; the old
    // listener then stays.
    bool SetListener(TrafficListener listener) noexcept;
    std::vector<TrafficEvent> Events() const;
    void Clear();
    // Events pushed out of the bounded list (or lost to a failed allocation)
    // since the last Clear.
    std::uint64_t Overflowed() const;

private:
    const std::size_t capacity_;
    mutable std::mutex mutex_;
    std::uint64_t nextSequence_ = 0;
    std::uint64_t overflowed_ = 0;
    std::deque<TrafficEvent> kept_;
    std::deque<TrafficEvent> outbox_;
    std::shared_ptr<const TrafficListener> listener_;
    bool delivering_ = false;
};

const char* TrafficKindName(TrafficKind kind);  // "ioctl", "getFeature", "setFeature", "read"
// "0A FF 00": upper-case hex pairs separated by single spaces; "" when empty.
std::string FormatHexBytes(std::span<const std::uint8_t> bytes);
// "0xC0000185"
std::string FormatStatus(NTSTATUS status);
// "0x000B0192"
std::string FormatIoctlCode(ULONG code);

}  // namespace host::hidsim
