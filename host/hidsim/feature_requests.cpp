#include "host/hidsim/feature_requests.h"

#include <algorithm>
#include <cstring>
#include <optional>
#include <span>
#include <vector>

#include "host/hidsim/field_adjust.h"
#include "host/hidsim/ioctl_answers.h"
#include "platform/hidclass.h"

namespace host::hidsim {

namespace {

constexpr IoctlResult kNoAnswer{STATUS_PENDING, 0, false};

IoctlResult Recorded(DeviceState& device, const FeatureTarget& target, TrafficKind kind, ULONG ioctlCode,
                     std::optional<std::uint8_t> reportId, std::span<const std::uint8_t> bytes, IoctlResult result)
{
    device.traffic.Record(target.collection, kind, ioctlCode, reportId, bytes, result.status, result.answered);
    return result;
}

}  // namespace

IoctlResult AnswerGetFeature(DeviceState& device, const FeatureTarget& target, BYTE* output, ULONG outputLength)
{
    constexpr TrafficKind kKind = TrafficKind::GetFeature;
    constexpr ULONG kCode = IOCTL_HID_GET_FEATURE;
    const NTSTATUS bufferStatus = CheckBuffer(output, outputLength, 1);
    if (!NT_SUCCESS(bufferStatus))
        return Recorded(device, target, kKind, kCode, std::nullopt, {}, {bufferStatus, 0});

    const std::uint8_t reportId = output[0];
    const std::optional<RuleAction> rule = device.rules.Match(RuleTrigger::GetFeature, reportId);
    if (const auto* fail = rule ? std::get_if<FailAction>(&*rule) : nullptr)
        return Recorded(device, target, kKind, kCode, reportId, {}, {fail->status, 0});
    if (rule && std::holds_alternative<TimeoutAction>(*rule))
        return Recorded(device, target, kKind, kCode, reportId, {}, kNoAnswer);

    std::vector<std::uint8_t> answer = device.features.Answer(reportId, target.featureReportLength);
    if (rule && std::holds_alternative<ZerosAction>(*rule))
        std::fill(answer.begin(), answer.end(), 0);
    if (const auto* relabel = rule ? std::get_if<AnswerReportIdAction>(&*rule) : nullptr; relabel && !answer.empty())
        answer[0] = relabel->reportId;

    answer.resize(std::min<std::size_t>(answer.size(), outputLength));
    if (!answer.empty())
        std::memcpy(output, answer.data(), answer.size());
    return Recorded(device, target, kKind, kCode, reportId, answer,
                    {STATUS_SUCCESS, static_cast<ULONG>(answer.size())});
}

IoctlResult AnswerSetFeature(DeviceState& device, const FeatureTarget& target, const BYTE* input, ULONG inputLength)
{
    constexpr TrafficKind kKind = TrafficKind::SetFeature;
    constexpr ULONG kCode = IOCTL_HID_SET_FEATURE;
    const NTSTATUS bufferStatus = CheckBuffer(input, inputLength, 1);
    if (!NT_SUCCESS(bufferStatus))
        return Recorded(device, target, kKind, kCode, std::nullopt, {}, {bufferStatus, 0});

    const std::span<const std::uint8_t> sent(input, inputLength);
    const std::uint8_t reportId = sent[0];
    const std::optional<RuleAction> rule = device.rules.Match(RuleTrigger::SetFeature, reportId);
    if (const auto* fail = rule ? std::get_if<FailAction>(&*rule) : nullptr)
        return Recorded(device, target, kKind, kCode, reportId, sent, {fail->status, 0});
    if (rule && std::holds_alternative<TimeoutAction>(*rule))
        return Recorded(device, target, kKind, kCode, reportId, sent, kNoAnswer);

    std::vector<std::uint8_t> stored(sent.begin(), sent.end());
    if (rule && std::holds_alternative<ZerosAction>(*rule)) {
        std::fill(stored.begin(), stored.end(), 0);
    } else if (const auto* relabel = rule ? std::get_if<AnswerReportIdAction>(&*rule) : nullptr) {
        stored[0] = relabel->reportId;
    } else if (const auto* field = rule ? std::get_if<FieldAction>(&*rule) : nullptr) {
        // A report without the field is stored as it came.
        AdjustFeatureField(*field, target.preparsed, target.featureReportLength, stored);
    }
    device.features.Set(reportId, std::move(stored));
    return Recorded(device, target, kKind, kCode, reportId, sent, {STATUS_SUCCESS, 0});
}

}  // namespace host::hidsim
