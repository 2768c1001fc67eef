// The events of a run, printed as they happen: one JSON object a line (the
// scenario format's output), or a readable rendering of the same events.
#pragma once

#include <cstdint>
#include <mutex>
#include <optional>
#include <ostream>
#include <string>
#include <utility>
#include <vector>

#include "host/sensorscx/list_copy.h"

namespace hidsensor {

struct Event {
    std::string name;
    std::uint64_t t = 0;  // host clock, milliseconds since the start
    // In print order: field name and its JSON text.
    std::vector<std::pair<std::string, std::string>> fields;
    // For the readable rendering only: lines shown under the event (list entries).
    std::vector<std::string> details;
    // For other renderings: the list or keys behind "list", "values" or "enumeration".
    std::optional<host::sensorscx::CollectionListCopy> list;
    std::vector<PROPERTYKEY> keys;

    Event& Add(std::string field, std::string json)
    {
        fields.emplace_back(std::move(field), std::move(json));
        return *this;
    }
};

class EventPrinter {
public:
    enum class Style { Json, Human };

    EventPrinter(std::ostream& out, Style style) : out_(out), style_(style) {}
    virtual ~EventPrinter() = default;

    // Thread-safe: samples and violations arrive on the driver's threads.
    virtual void Print(const Event& event);
    std::uint64_t Count(const std::string& name) const;

protected:
    void CountEvent(const std::string& name);
    std::ostream& out_;
    mutable std::mutex mutex_;

private:
    const Style style_;
    std::vector<std::pair<std::string, std::uint64_t>> counts_;
};

// {"event":NAME,"t":T,FIELD:VALUE,...}
std::string EventJson(const Event& event);

}  // namespace hidsensor
