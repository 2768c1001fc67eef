// Programmed device behaviour: rules that make the device fail, stall or bend
// its answers to feature requests and reads.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include "platform/basetypes.h"
#include "platform/hidpi.h"

namespace host::hidsim {

enum class RuleTrigger { GetFeature, SetFeature, Read };

// The request fails with `status` (a failure status); nothing is stored or read.
struct FailAction {
    NTSTATUS status = 0;
};
// The device never answers: the IOCTL reports answered = false; a read stays
// pending until it is cancelled (the input it would have carried is lost).
struct TimeoutAction {};
// The answer is all zero bytes, of the length it would have had. On SET_FEATURE
// the device stores an all-zero report, which later GET_FEATUREs return.
struct ZerosAction {};
// Byte 0 of the answer is `reportId`. On SET_FEATURE the stored report (still
// filed under the ID it was sent with) carries it.
struct AnswerReportIdAction {
    std::uint8_t reportId = 0;
};
// SET_FEATURE only: before storing, the device rounds the field's logical value
// to the nearest multiple of `roundStep` (ties away from zero), then clamps it
// to [min, max]. The field is found on usage page 0x20 with its full usage,
// modifier bits included (0x030E, 0x1544). A report without the field is
// stored unchanged.
struct FieldAction {
    USAGE usage = 0;
    std::optional<std::pair<LONGLONG, LONGLONG>> clamp;
    std::optional<ULONG> roundStep;
};

using RuleAction = std::variant<FailAction, TimeoutAction, ZerosAction, AnswerReportIdAction, FieldAction>;

struct DeviceRule {
    RuleTrigger on = RuleTrigger::GetFeature;
    std::optional<std::uint8_t> reportId;  // absent: any report ID
    std::optional<std::uint32_t> times;    // absent: every matching request
    RuleAction action = FailAction{};

    static DeviceRule Fail(RuleTrigger on, NTSTATUS status) { return {on, {}, {}, FailAction{status}}; }
    static DeviceRule Timeout(RuleTrigger on) { return {on, {}, {}, TimeoutAction{}}; }
    static DeviceRule Zeros(RuleTrigger on) { return {on, {}, {}, ZerosAction{}}; }
    static DeviceRule AnswerReportId(RuleTrigger on, std::uint8_t id) { return {on, {}, {}, AnswerReportIdAction{id}}; }
    static DeviceRule Clamp(USAGE usage, LONGLONG min, LONGLONG max)
    {
        return {RuleTrigger::SetFeature, {}, {}, FieldAction{usage, std::make_pair(min, max), {}}};
    }
    static DeviceRule Round(USAGE usage, ULONG step)
    {
        return {RuleTrigger::SetFeature, {}, {}, FieldAction{usage, {}, step}};
    }

    DeviceRule& ForReportId(std::uint8_t id) { reportId = id; return *this; }
    DeviceRule& Times(std::uint32_t count) { times = count; return *this; }
};

// Empty when every rule is usable, else "rules[i]: reason" for the first bad one.
std::string ValidateRules(const std::vector<DeviceRule>& rules);

// The device's rule list with the remaining count of each rule.
class RuleSet {
public:
    // The caller validates first.
    void Replace(std::vector<DeviceRule> rules);

    // The first rule, in list order, that matches the request and has uses
    // left; that use is consumed. reportId is absent for a read without data.
    std::optional<RuleAction> Match(RuleTrigger trigger, std::optional<std::uint8_t> reportId);

private:
    struct Entry {
        DeviceRule rule;
        std::optional<std::uint32_t> remaining;
    };
    std::vector<Entry> entries_;
};

const char* RuleTriggerName(RuleTrigger trigger);  // "getFeature", "setFeature", "read"

}  // namespace host::hidsim
