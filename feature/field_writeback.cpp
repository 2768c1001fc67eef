// Data field k's change sensitivity and bounds. A sensitivity may be carried
// by the field's own usage (0x543 + k with a modifier), by the collection-wide
// custom value 0x543, or by the sensor-wide properties; each candidate field
// present in the report is written and sent on its own.
#include <cstring>

#include "feature/feature_writeback.h"
#include "tracing/trace.h"

namespace {
constexpr GUID kTraceMessageGuid = {
    0xC6F05B29, 0x17DA, 0x4E83, {0xA2, 0x4C, 0x90, 0x3B, 0x6D, 0xE1, 0x58, 0x07}};

constexpr USAGE kCollectionWide = 0x543;
constexpr USAGE kSensitivityAbsolute = 0x1000;
constexpr USAGE kSensitivityRelativePercent = 0xE000;
constexpr USAGE kPropertySensitivityAbsolute = 0x030F;
constexpr USAGE kPropertySensitivityRelativePercent = 0x0311;
// Change sensitivity of data usage 0x566, which no sensor page defines; it is
// written like the others, and any modifier of it counts in the read-back.
constexpr USAGE kOtherSensitivity = 0x1566;
constexpr ULONG kSensitivityArrayBytes = 24;

USAGE FieldUsage(ULONG k) noexcept
{
    return static_cast<USAGE>(kCollectionWide + k);
}

USAGE WithModifier(USAGE usage, USAGE modifier) noexcept
{
    return static_cast<USAGE>((usage & 0x0FFF) | modifier);
}

bool IsSensitivityCandidate(USAGE usage, ULONG k) noexcept
{
    const USAGE field = FieldUsage(k);
    return usage == kPropertySensitivityAbsolute || usage == kPropertySensitivityRelativePercent ||
           usage == kOtherSensitivity || usage == WithModifier(field, kSensitivityAbsolute) ||
           usage == WithModifier(field, kSensitivityRelativePercent) ||
           usage == WithModifier(kCollectionWide, kSensitivityAbsolute) ||
           usage == WithModifier(kCollectionWide, kSensitivityRelativePercent);
}

float ScaledFloat(const HIDP_VALUE_CAPS& caps, ULONG raw) noexcept
{
    return static_cast<float>(ScaleToFloat(caps.LogicalMin, raw,
                                           SignExtendLogical(caps.LogicalMin, caps.BitSize, raw),
                                           DecodedExponent(caps)));
}

// Reads one sensitivity field back. A multi-element field takes its first
// element, as the parse does.
NTSTATUS ReadSensitivity(const FeatureReportContext& context, const HIDP_VALUE_CAPS& caps, ULONG& raw)
{
    raw = 0;
    NTSTATUS status;
    if (caps.ReportCount >= 2) {
        BYTE array[kSensitivityArrayBytes] = {};
        status = HidP_GetUsageValueArray(HidP_Feature, caps.UsagePage, context.LinkCollection, CapsUsage(caps),
                                         reinterpret_cast<CHAR*>(array), kSensitivityArrayBytes,
                                         context.Preparsed(), context.ReportChars(), context.ReportLength);
        if (NT_SUCCESS(status)) {
            const ULONG bytes = caps.BitSize >= 32 ? 4 : (caps.BitSize + 7u) / 8u;
            std::memcpy(&raw, array, bytes);
            if (caps.BitSize < 32)
                raw &= (1u << caps.BitSize) - 1u;
        }
    } else {
        status = HidP_GetUsageValue(HidP_Feature, caps.UsagePage, context.LinkCollection, CapsUsage(caps), &raw,
                                    context.Preparsed(), context.ReportChars(), context.ReportLength);
    }
    if (!NT_SUCCESS(status))
        TraceHidStatus(&context.Sensor, status, HidP_Feature, caps.UsagePage);
    return status;
}

// After a sensitivity write: every sensitivity field of the report decoded
// again into the entry it belongs to.
NTSTATUS ReadBackSensitivities(FeatureReportContext& context, ULONG k)
{
    SensorPropertyCache& cache = context.Cache;
    const USAGE field = FieldUsage(k);
    const HeapArray<HIDP_VALUE_CAPS>& all = context.Record.FeatureValueCaps;
    for (std::size_t i = 0; i < all.Count(); ++i) {
        const HIDP_VALUE_CAPS& caps = all[i];
        const USAGE usage = CapsUsage(caps);
        if (caps.ReportID != context.ReportId)
            continue;
        if (!IsSensitivityCandidate(usage, k) && (usage & 0x0FFF) != (kOtherSensitivity & 0x0FFF))
            continue;
        ULONG raw = 0;
        const NTSTATUS status = ReadSensitivity(context, caps, raw);
        if (!NT_SUCCESS(status))
            return status;

        const float value = ScaledFloat(caps, raw);
        const USAGE modifier = UsageModifier(usage);
        CachedEntry<float>* target = nullptr;
        if (cache.FieldChangeSensitivity[k].IsPresent() == 1 &&
            (usage == WithModifier(field, kSensitivityAbsolute) ||
             usage == WithModifier(field, kSensitivityRelativePercent) || modifier == kSensitivityAbsolute)) {
            target = &cache.FieldChangeSensitivity[k];
        } else if (cache.FieldChangeSensitivity[0].IsPresent() == 1 &&
                   (usage == WithModifier(kCollectionWide, kSensitivityAbsolute) ||
                    usage == WithModifier(kCollectionWide, kSensitivityRelativePercent))) {
            target = &cache.FieldChangeSensitivity[0];
        } else if (cache.ChangeSensitivity.IsPresent() == 1 &&
                   (usage == kPropertySensitivityAbsolute || usage == kPropertySensitivityRelativePercent)) {
            target = &cache.ChangeSensitivity;
        } else if (cache.ChangeSensitivity.IsPresent() == 1 && modifier == kSensitivityAbsolute) {
            target = &cache.FieldChangeSensitivity[k];
        }
        if (target != nullptr)
            target->Value.store(value, std::memory_order_relaxed);
    }
    return STATUS_SUCCESS;
}

// One bound (maximum, minimum, accuracy or resolution) of data field k.
struct BoundKind {
    USAGE Modifier;
    USAGE Property;
    CachedEntry<float>& PropertyEntry;
    CachedEntry<float>* Slots;
};

NTSTATUS RefreshBound(FeatureReportContext& context, ULONG k, const BoundKind& bound)
{
    if (context.ReportLength > kMaxFeatureReportBytes)
        return STATUS_INVALID_PARAMETER;
    const USAGE fieldBound = WithModifier(FieldUsage(k), bound.Modifier);
    const USAGE wideBound = WithModifier(kCollectionWide, bound.Modifier);
    const HeapArray<HIDP_VALUE_CAPS>& all = context.Record.FeatureValueCaps;

    NTSTATUS status = STATUS_SUCCESS;
    for (std::size_t c = 0; c < all.Count(); ++c) {
        const HIDP_VALUE_CAPS& candidate = all[c];
        const USAGE usage = CapsUsage(candidate);
        if (candidate.ReportID != context.ReportId ||
            (usage != bound.Property && usage != fieldBound && usage != wideBound))
            continue;
        // A sensor-wide bound with units is not in the data field's terms.
        if (candidate.Units != 0 && UsageModifier(usage) != bound.Modifier) {
            status = STATUS_UNSUCCESSFUL;
            continue;
        }
        if (!context.CanReadBack())
            continue;
        for (std::size_t i = 0; i < all.Count(); ++i) {
            const HIDP_VALUE_CAPS& caps = all[i];
            if (caps.ReportID != context.ReportId || caps.ReportCount != 1)
                continue;
            ULONG raw = 0;
            const USAGE read = CapsUsage(caps);
            status = HidP_GetUsageValue(HidP_Feature, caps.UsagePage, context.LinkCollection, read, &raw,
                                        context.Preparsed(), context.ReportChars(), context.ReportLength);
            if (!NT_SUCCESS(status)) {
                TraceHidStatus(&context.Sensor, status, HidP_Feature, caps.UsagePage);
                continue;
            }
            status = STATUS_SUCCESS;
            CachedEntry<float>* target = nullptr;
            if (bound.Slots[k].IsPresent() == 1 && read == fieldBound)
                target = &bound.Slots[k];
            else if (bound.Slots[0].IsPresent() == 1 && read == wideBound)
                target = &bound.Slots[0];
            else if (bound.PropertyEntry.IsPresent() == 1 && read == bound.Property)
                target = &bound.PropertyEntry;
            if (target != nullptr)
                target->Value.store(ScaledFloat(caps, raw), std::memory_order_relaxed);
        }
    }
    return status;
}
}  // namespace

NTSTATUS WriteFieldSensitivity(FeatureReportContext& context, ULONG k)
{
    if (context.ReportLength > kMaxFeatureReportBytes)
        return STATUS_INVALID_PARAMETER;
    const float threshold = context.Record.DataThresholds[k + 2].load(std::memory_order_relaxed);
    const HeapArray<HIDP_VALUE_CAPS>& all = context.Record.FeatureValueCaps;

    NTSTATUS status = STATUS_SUCCESS;
    for (std::size_t c = 0; c < all.Count(); ++c) {
        const HIDP_VALUE_CAPS& caps = all[c];
        const USAGE usage = CapsUsage(caps);
        if (caps.ReportID != context.ReportId || !IsSensitivityCandidate(usage, k))
            continue;
        const USAGE modifier = UsageModifier(usage);
        // A sensor-wide sensitivity with units cannot take a data field's threshold.
        if (caps.Units != 0 && modifier != kSensitivityAbsolute && modifier != kSensitivityRelativePercent) {
            TRACE_ERROR(STATUS_UNSUCCESSFUL, context.Name(), static_cast<ULONG>(usage), caps.Units);
            return STATUS_UNSUCCESSFUL;
        }
        const ULONG logical = ToLogicalValue(threshold, DecodedExponent(caps), caps.BitSize);
        if (context.WriteSettings != 1)
            continue;

        status = HidP_SetUsageValue(HidP_Feature, kSensorsUsagePage, context.LinkCollection, usage, logical,
                                    context.Preparsed(), context.ReportChars(), context.ReportLength);
        if (!NT_SUCCESS(status)) {
            TraceHidStatus(&context.Sensor, status, HidP_Feature, kSensorsUsagePage);
            return status;
        }
        ULONG verified = 0;
        status = SendFeatureReport(context, 1, &verified);
        if (!NT_SUCCESS(status))
            return status;
        TRACE_INFO(context.Name(), k, static_cast<ULONG>(usage), threshold, logical, verified);
        if (!context.CanReadBack())
            return STATUS_UNSUCCESSFUL;
        status = ReadBackSensitivities(context, k);
        if (!NT_SUCCESS(status))
            return status;
    }
    return status;
}

NTSTATUS RefreshFieldMaximum(FeatureReportContext& context, ULONG k)
{
    SensorPropertyCache& cache = context.Cache;
    return RefreshBound(context, k, {0x2000, 0x0314, cache.Maximum, cache.FieldMaximum});
}

NTSTATUS RefreshFieldMinimum(FeatureReportContext& context, ULONG k)
{
    SensorPropertyCache& cache = context.Cache;
    return RefreshBound(context, k, {0x3000, 0x0315, cache.Minimum, cache.FieldMinimum});
}

NTSTATUS RefreshFieldAccuracy(FeatureReportContext& context, ULONG k)
{
    SensorPropertyCache& cache = context.Cache;
    return RefreshBound(context, k, {0x4000, 0x0312, cache.Accuracy, cache.FieldAccuracy});
}

NTSTATUS RefreshFieldResolution(FeatureReportContext& context, ULONG k)
{
    SensorPropertyCache& cache = context.Cache;
    return RefreshBound(context, k, {0x5000, 0x0313, cache.Resolution, cache.FieldResolution});
}
