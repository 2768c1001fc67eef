#include "host/hidsim/field_adjust.h"

#include <algorithm>

namespace host::hidsim {

namespace {

constexpr USAGE kSensorUsagePage = 0x20;

bool CapCoversUsage(const HIDP_VALUE_CAPS& cap, USAGE usage)
{
    if (cap.UsagePage != kSensorUsagePage)
        return false;
    if (cap.IsRange)
        return usage >= cap.Range.UsageMin && usage <= cap.Range.UsageMax;
    return cap.NotRange.Usage == usage;
}

NTSTATUS FindFeatureCap(PHIDP_PREPARSED_DATA preparsed, USAGE usage, std::uint8_t reportId, HIDP_VALUE_CAPS& found)
{
    HIDP_CAPS caps{};
    NTSTATUS status = HidP_GetCaps(preparsed, &caps);
    if (status != HIDP_STATUS_SUCCESS)
        return status;
    if (caps.NumberFeatureValueCaps == 0)
        return HIDP_STATUS_USAGE_NOT_FOUND;
    std::vector<HIDP_VALUE_CAPS> valueCaps(caps.NumberFeatureValueCaps);
    USHORT count = caps.NumberFeatureValueCaps;
    status = HidP_GetValueCaps(HidP_Feature, valueCaps.data(), &count, preparsed);
    if (status != HIDP_STATUS_SUCCESS)
        return status;
    valueCaps.resize(std::min<std::size_t>(count, valueCaps.size()));
    for (const HIDP_VALUE_CAPS& cap : valueCaps) {
        if (cap.ReportID == reportId && CapCoversUsage(cap, usage)) {
            found = cap;
            return HIDP_STATUS_SUCCESS;
        }
    }
    return HIDP_STATUS_USAGE_NOT_FOUND;
}

LONGLONG Decode(ULONG raw, const HIDP_VALUE_CAPS& cap)
{
    const unsigned bits = std::clamp<unsigned>(cap.BitSize, 1, 32);
    const std::uint64_t mask = (std::uint64_t{1} << bits) - 1;
    const std::uint64_t value = raw & mask;
    if (cap.LogicalMin >= 0)
        return static_cast<LONGLONG>(value);
    const std::uint64_t signBit = std::uint64_t{1} << (bits - 1);
    return static_cast<LONGLONG>(value ^ signBit) - static_cast<LONGLONG>(signBit);
}

ULONG Encode(LONGLONG value, const HIDP_VALUE_CAPS& cap)
{
    const unsigned bits = std::clamp<unsigned>(cap.BitSize, 1, 32);
    LONGLONG lowest = 0;
    LONGLONG highest = (LONGLONG{1} << bits) - 1;
    if (cap.LogicalMin < 0) {
        lowest = -(LONGLONG{1} << (bits - 1));
        highest = (LONGLONG{1} << (bits - 1)) - 1;
    }
    value = std::clamp(value, lowest, highest);
    const std::uint64_t mask = (std::uint64_t{1} << bits) - 1;
    return static_cast<ULONG>(static_cast<std::uint64_t>(value) & mask);
}

LONGLONG RoundToStep(LONGLONG value, ULONG step)
{
    const LONGLONG wide = step;
    const LONGLONG magnitude = value < 0 ? -value : value;
    const LONGLONG rounded = (magnitude + wide / 2) / wide * wide;
    return value < 0 ? -rounded : rounded;
}

}  // namespace

NTSTATUS AdjustFeatureField(const FieldAction& field, PHIDP_PREPARSED_DATA preparsed, USHORT featureReportLength,
                            std::vector<std::uint8_t>& report)
{
    if (report.empty() || featureReportLength == 0)
        return HIDP_STATUS_INVALID_REPORT_LENGTH;
    HIDP_VALUE_CAPS cap{};
    NTSTATUS status = FindFeatureCap(preparsed, field.usage, report[0], cap);
    if (status != HIDP_STATUS_SUCCESS)
        return status;

    // The parser wants exactly the collection's feature report length.
    std::vector<std::uint8_t> working(featureReportLength, 0);
    std::copy_n(report.begin(), std::min<std::size_t>(report.size(), working.size()), working.begin());
    auto* bytes = reinterpret_cast<CHAR*>(working.data());

    ULONG raw = 0;
    status = HidP_GetUsageValue(HidP_Feature, kSensorUsagePage, cap.LinkCollection, field.usage, &raw, preparsed,
                                bytes, featureReportLength);
    if (status != HIDP_STATUS_SUCCESS)
        return status;

    LONGLONG value = Decode(raw, cap);
    if (field.roundStep)
        value = RoundToStep(value, *field.roundStep);
    if (field.clamp)
        value = std::clamp(value, field.clamp->first, field.clamp->second);

    status = HidP_SetUsageValue(HidP_Feature, kSensorUsagePage, cap.LinkCollection, field.usage, Encode(value, cap),
                                preparsed, bytes, featureReportLength);
    if (status != HIDP_STATUS_SUCCESS)
        return status;

    if (report.size() < working.size())
        report.resize(working.size(), 0);
    std::copy(working.begin(), working.end(), report.begin());
    return HIDP_STATUS_SUCCESS;
}

}  // namespace host::hidsim
