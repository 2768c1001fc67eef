#include "host/hidsim/device_rules.h"

#include <utility>

namespace host::hidsim {

namespace {

std::string RuleProblem(const DeviceRule& rule)
{
    if (const auto* fail = std::get_if<FailAction>(&rule.action)) {
        if (NT_SUCCESS(fail->status))
            return "fail needs a failure status";
        return {};
    }
    if (const auto* field = std::get_if<FieldAction>(&rule.action)) {
        if (rule.on != RuleTrigger::SetFeature)
            return "field applies to setFeature only";
        if (!field->clamp && !field->roundStep)
            return "field needs clamp or round";
        if (field->clamp && field->clamp->first > field->clamp->second)
            return "field clamp minimum is above its maximum";
        if (field->roundStep && *field->roundStep == 0)
            return "field round step must not be 0";
    }
    return {};
}

}  // namespace

std::string ValidateRules(const std::vector<DeviceRule>& rules)
{
    for (std::size_t i = 0; i < rules.size(); ++i) {
        std::string problem = RuleProblem(rules[i]);
        if (!problem.empty())
            return "rules[" + std::to_string(i) + "]: " + problem;
    }
    return {};
}

void RuleSet::Replace(std::vector<DeviceRule> rules)
{
    std::vector<Entry> entries;
    entries.reserve(rules.size());
    for (DeviceRule& rule : rules) {
        const std::optional<std::uint32_t> times = rule.times;
        entries.push_back({std::move(rule), times});
    }
    entries_ = std::move(entries);
}

std::optional<RuleAction> RuleSet::Match(RuleTrigger trigger, std::optional<std::uint8_t> reportId)
{
    for (Entry& entry : entries_) {
        if (entry.rule.on != trigger)
            continue;
        if (entry.rule.reportId && entry.rule.reportId != reportId)
            continue;
        if (entry.remaining) {
            if (*entry.remaining == 0)
                continue;
            --*entry.remaining;
        }
        return entry.rule.action;
    }
    return std::nullopt;
}

const char* RuleTriggerName(RuleTrigger trigger)
{
    switch (trigger) {
    case RuleTrigger::GetFeature:
        return "getFeature";
    case RuleTrigger::SetFeature:
        return "setFeature";
    case RuleTrigger::Read:
        return "read";
    }
    return "unknown";
}

}  // namespace host::hidsim
