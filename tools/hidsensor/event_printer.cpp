#include "tools/hidsensor/event_printer.h"

#include <cstdio>

namespace hidsensor {

std::string EventJson(const Event& event)
{
    std::string line = "{\"event\":\"" + event.name + "\",\"t\":" + std::to_string(event.t);
    for (const auto& [field, json] : event.fields)
        line += ",\"" + field + "\":" + json;
    line += "}";
    return line;
}

namespace {

// A JSON string fragment without its quotes; anything else as it stands.
std::string Unquoted(const std::string& json)
{
    if (json.size() >= 2 && json.front() == '"' && json.back() == '"' &&
        json.find('\\') == std::string::npos)
        return json.substr(1, json.size() - 2);
    return json;
}

std::string HumanLine(const Event& event)
{
    char time[32];
    std::snprintf(time, sizeof time, "%9.3f s", static_cast<double>(event.t) / 1000.0);
    std::string line = std::string(time) + "  " + event.name;
    line.resize(std::max<std::size_t>(line.size(), 11 + 2 + 16), ' ');
    for (const auto& [field, json] : event.fields) {
        if (!event.details.empty() && (field == "list" || field == "values" || field == "enumeration"))
            continue;
        line += " " + field + "=" + Unquoted(json);
    }
    line += "\n";
    for (const std::string& detail : event.details)
        line += "               " + detail + "\n";
    return line;
}

}  // namespace

void EventPrinter::Print(const Event& event)
{
    const std::string text = style_ == Style::Json ? EventJson(event) + "\n" : HumanLine(event);
    std::lock_guard lock(mutex_);
    out_ << text << std::flush;
    CountEvent(event.name);
}

void EventPrinter::CountEvent(const std::string& eventName)
{
    for (auto& [name, count] : counts_) {
        if (name == eventName) {
            ++count;
            return;
        }
    }
    counts_.emplace_back(eventName, 1);
}

std::uint64_t EventPrinter::Count(const std::string& name) const
{
    std::lock_guard lock(mutex_);
    for (const auto& [eventName, count] : counts_) {
        if (eventName == name)
            return count;
    }
    return 0;
}

}  // namespace hidsensor
