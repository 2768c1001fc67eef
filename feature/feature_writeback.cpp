#include "feature/feature_writeback.h"

#include <cmath>
#include <cstring>

#include "hid/hid_io_target.h"
#include "platform/hidclass.h"
#include "tracing/trace.h"

namespace {
constexpr GUID kTraceMessageGuid = {
    0xA41E9D07, 0x5B3C, 0x4C62, {0xB8, 0x0F, 0x6E, 0x27, 0xD4, 0x91, 0x3A, 0x5C}};

constexpr USAGE kReportIntervalUsage = 0x030E;
constexpr USAGE kBatchIntervalUsage = 0x530E;
constexpr USAGE kReportingStateUsage = 0x0316;
constexpr USAGE kPowerStateUsage = 0x0319;
constexpr ULONG kIntervalUnitsNone = 0x00;
constexpr ULONG kIntervalUnitsSeconds = 0x19;  // SI linear time, the only unit an interval may carry
constexpr int kSendAttempts = 2;

// Owned 4096-byte scratch buffer for one SendFeatureReport.
class ScratchBuffer {
public:
    ScratchBuffer() noexcept : bytes_(static_cast<BYTE*>(DriverHeapAlloc(kMaxFeatureReportBytes))) {}
    ~ScratchBuffer() { DriverHeapFree(bytes_); }
    ScratchBuffer(const ScratchBuffer&) = delete;
    ScratchBuffer& operator=(const ScratchBuffer&) = delete;
    BYTE* Get() const noexcept { return bytes_; }

private:
    BYTE* bytes_;
};

bool AnyNonZero(const BYTE* bytes, ULONG length) noexcept
{
    for (ULONG i = 0; i < length; ++i) {
        if (bytes[i] != 0)
            return true;
    }
    return false;
}

const HIDP_VALUE_CAPS* FindCapsExactly(const FeatureReportContext& context, USAGE usage) noexcept
{
    const HeapArray<HIDP_VALUE_CAPS>& caps = context.Record.FeatureValueCaps;
    for (std::size_t i = 0; i < caps.Count(); ++i) {
        if (caps[i].ReportID == context.ReportId && CapsUsage(caps[i]) == usage)
            return &caps[i];
    }
    return nullptr;
}

// Intervals and vendor values are multiplied by ten to the field's unit
// exponent code as the descriptor gives it, not decoded: devices state these
// fields with code 0 (milliseconds, plain numbers), for which this is the
// value itself, and the bytes sent stay those every host of these devices
// sends. A field with another code does not round-trip through the decoded
// read-back; the record then follows whatever the device answers.
ULONG ScaleByRawExponentCode(ULONG code, ULONG value) noexcept
{
    const double power = std::pow(10.0, static_cast<double>(code));
    const auto factor = power < 9223372036854775808.0
                            ? static_cast<ULONG>(static_cast<unsigned long long>(power) & 0xFFFFFFFFu)
                            : 0u;
    return factor * value;
}

NTSTATUS SetFeatureValue(const FeatureReportContext& context, USAGE usage, ULONG value)
{
    const NTSTATUS status = HidP_SetUsageValue(HidP_Feature, kSensorsUsagePage, context.LinkCollection, usage,
                                               value, context.Preparsed(), context.ReportChars(),
                                               context.ReportLength);
    if (!NT_SUCCESS(status))
        TraceHidStatus(&context.Sensor, status, HidP_Feature, kSensorsUsagePage);
    return status;
}

// Reads the single-value capability `caps` from the current report.
NTSTATUS ReadFeatureValue(const FeatureReportContext& context, const HIDP_VALUE_CAPS& caps, ULONG& raw)
{
    raw = 0;
    const NTSTATUS status = HidP_GetUsageValue(HidP_Feature, caps.UsagePage, context.LinkCollection,
                                               CapsUsage(caps), &raw, context.Preparsed(),
                                               context.ReportChars(), context.ReportLength);
    if (!NT_SUCCESS(status))
        TraceHidStatus(&context.Sensor, status, HidP_Feature, caps.UsagePage);
    return status;
}

// Walks the single-value capabilities of the report, reading each, until
// `matches` accepts one; its integer value goes to `found`. False if none.
template <class Matches>
bool ReadBackInteger(const FeatureReportContext& context, Matches matches, ULONG& found)
{
    const HeapArray<HIDP_VALUE_CAPS>& caps = context.Record.FeatureValueCaps;
    for (std::size_t i = 0; i < caps.Count(); ++i) {
        const HIDP_VALUE_CAPS& field = caps[i];
        if (field.ReportID != context.ReportId || field.ReportCount != 1)
            continue;
        ULONG raw = 0;
        if (!NT_SUCCESS(ReadFeatureValue(context, field, raw)))
            continue;
        if (!matches(CapsUsage(field)))
            continue;
        found = ScaleToInteger(field.LogicalMin, raw, SignExtendLogical(field.LogicalMin, field.BitSize, raw),
                               DecodedExponent(field));
        return true;
    }
    return false;
}

// The report interval and the batch interval share one shape.
struct IntervalWrite {
    USAGE Usage;
    bool MatchWithoutModifier;  // the report interval's read-back accepts a modified usage too
    CachedEntry<ULONG>& CacheEntry;
    std::atomic<ULONG>& RecordValue;
    ULONG Requested;
};

NTSTATUS WriteInterval(FeatureReportContext& context, const IntervalWrite& write)
{
    if (context.ReportLength > kMaxFeatureReportBytes)
        return STATUS_INVALID_PARAMETER;
    write.CacheEntry.Value.store(0, std::memory_order_relaxed);

    const HIDP_VALUE_CAPS* caps = FindCapsExactly(context, write.Usage);
    const ULONG code = caps != nullptr ? caps->UnitsExp : 0;
    const ULONG units = caps != nullptr ? caps->Units : 0;
    if (units != kIntervalUnitsNone && units != kIntervalUnitsSeconds) {
        TRACE_ERROR(STATUS_UNSUCCESSFUL, context.Name(), static_cast<ULONG>(write.Usage), units);
        return STATUS_UNSUCCESSFUL;
    }
    write.CacheEntry.Value.store(write.Requested, std::memory_order_relaxed);
    const ULONG logical = ScaleByRawExponentCode(code, write.Requested);
    if (logical == 0xFFFFFFFF)
        return STATUS_UNSUCCESSFUL;

    NTSTATUS status = SetFeatureValue(context, write.Usage, logical);
    if (!NT_SUCCESS(status))
        return status;
    ULONG verified = 0;
    status = SendFeatureReport(context, 1, &verified);
    if (!NT_SUCCESS(status))
        return status;
    if (!context.CanReadBack())
        return STATUS_UNSUCCESSFUL;

    ULONG readBack = 0;
    const bool found = ReadBackInteger(
        context,
        [&](USAGE usage) {
            return write.MatchWithoutModifier ? UsageKey(usage) == write.Usage : usage == write.Usage;
        },
        readBack);
    if (found)
        write.CacheEntry.Value.store(readBack, std::memory_order_relaxed);
    const ULONG kept = write.CacheEntry.Get();
    write.RecordValue.store(kept, std::memory_order_relaxed);
    TRACE_INFO(context.Name(), static_cast<ULONG>(write.Usage), write.Requested, kept, verified);
    return STATUS_SUCCESS;
}

// The selectors of one named-array kind in every child of the sensor's node:
// a selector `isOurs` accepts is replaced by `replacement` (none: kept).
template <class IsOurs>
NTSTATUS RewriteSelectors(const FeatureReportContext& context, IsOurs isOurs, USAGE replacement)
{
    ULONG children = 0;
    const NTSTATUS childrenStatus = context.SelectorChildren(&children);
    if (!NT_SUCCESS(childrenStatus))
        return childrenStatus;
    for (ULONG j = 1; j <= children; ++j) {
        const auto link = static_cast<USHORT>(context.LinkCollection + j);
        USAGE usages[kSelectorListCapacity] = {};
        ULONG count = kSelectorListCapacity;
        NTSTATUS status = HidP_GetUsages(HidP_Feature, kSensorsUsagePage, link, usages, &count,
                                         context.Preparsed(), context.ReportChars(), context.ReportLength);
        if (status == HIDP_STATUS_USAGE_NOT_FOUND)
            continue;
        if (!NT_SUCCESS(status)) {
            TraceHidStatus(&context.Sensor, status, HidP_Feature, link);
            return status;
        }
        for (ULONG i = 0; i < count && i < kSelectorListCapacity; ++i) {
            if (!isOurs(usages[i]))
                continue;
            ULONG length = count;
            status = HidP_UnsetUsages(HidP_Feature, kSensorsUsagePage, link, usages, &length,
                                      context.Preparsed(), context.ReportChars(), context.ReportLength);
            if (!NT_SUCCESS(status)) {
                TraceHidStatus(&context.Sensor, status, HidP_Feature, link);
                return status;
            }
            if (replacement != 0 && count < kSelectorListCapacity)
                usages[i] = replacement;
            length = count;
            status = HidP_SetUsages(HidP_Feature, kSensorsUsagePage, link, usages, &length,
                                    context.Preparsed(), context.ReportChars(), context.ReportLength);
            if (!NT_SUCCESS(status)) {
                TraceHidStatus(&context.Sensor, status, HidP_Feature, link);
                return status;
            }
        }
    }
    return STATUS_SUCCESS;
}

// Requested power state -> the 0x319 value: 2 (full) -> 1 (D0), 1 (low) -> 2
// (D1), 0 (off) -> 5 (D4). Any other request leaves the field as the device
// reported it: no value is right for a state the platform does not define.
bool PowerStateValue(ULONG requested, ULONG& value) noexcept
{
    switch (requested) {
    case 2: value = 1; return true;
    case 1: value = 2; return true;
    case 0: value = 5; return true;
    default: return false;
    }
}

USAGE PowerSelectorFor(ULONG requested) noexcept
{
    switch (requested) {
    case 2: return 0x851;
    case 1: return 0x852;
    case 0: return 0x855;
    default: return 0;
    }
}

USAGE ReportingSelectorFor(ULONG requested) noexcept
{
    switch (requested) {
    case 1: return 0x841;
    case 0: return 0x840;
    default: return 0;
    }
}

NTSTATUS Carry(NTSTATUS status, PCWSTR name, ULONG step)
{
    if (!NT_SUCCESS(status))
        TRACE_ERROR(status, name, step);
    return status;
}
}  // namespace

ULONG FeatureCompareLength(const HidCollectionRecord& record, UCHAR reportId) noexcept
{
    ULONG length = 1;
    const HeapArray<HIDP_VALUE_CAPS>& values = record.FeatureValueCaps;
    for (std::size_t i = 0; i < values.Count(); ++i) {
        if (values[i].ReportID == reportId)
            length += static_cast<ULONG>(values[i].BitSize / 8) * values[i].ReportCount;
    }
    const HeapArray<HIDP_BUTTON_CAPS>& buttons = record.FeatureButtonCaps;
    bool first = true;
    USAGE previousLinkUsage = 0;
    for (std::size_t i = 0; i < buttons.Count(); ++i) {
        if (buttons[i].ReportID != reportId)
            continue;
        if (first || buttons[i].LinkUsage != previousLinkUsage)
            ++length;
        first = false;
        previousLinkUsage = buttons[i].LinkUsage;
    }
    return length;
}

NTSTATUS SendFeatureReport(const FeatureReportContext& context, ULONG verify, ULONG* verified)
{
    TRACE_ENTRY();
    const ULONG length = context.ReportLength;
    if (context.Report == nullptr || length > kMaxFeatureReportBytes) {
        TRACE_EXIT(STATUS_INVALID_PARAMETER);
        return STATUS_INVALID_PARAMETER;
    }
    ScratchBuffer sendOutput;
    ScratchBuffer answer;
    if (sendOutput.Get() == nullptr || answer.Get() == nullptr) {
        TRACE_ERROR(STATUS_NO_MEMORY, context.Name());
        TRACE_EXIT(STATUS_NO_MEMORY);
        return STATUS_NO_MEMORY;
    }
    HidIoTarget* target = context.Device.IoctlTarget();
    if (target == nullptr) {
        TRACE_EXIT(STATUS_UNSUCCESSFUL);
        return STATUS_UNSUCCESSFUL;
    }
    ULONG compareLength = FeatureCompareLength(context.Record, context.ReportId);
    if (compareLength > length)
        compareLength = length;

    NTSTATUS status = STATUS_UNSUCCESSFUL;
    bool answered = false;
    bool everAnswered = false;
    ULONG matched = 0;
    for (int attempt = 0; attempt < kSendAttempts; ++attempt) {
        std::memset(sendOutput.Get(), 0, length);
        std::memset(answer.Get(), 0, length);
        std::memcpy(answer.Get(), context.Report, length);
        status = target->SendIoctlSynchronously(sendOutput.Get(), length, IOCTL_HID_SET_FEATURE, answer.Get());
        // The answer buffer still starts with the report ID the GET asks for.
        if (NT_SUCCESS(status))
            status = target->SendIoctlSynchronously(answer.Get(), length, IOCTL_HID_GET_FEATURE, nullptr);
        matched = std::memcmp(answer.Get(), context.Report, compareLength) == 0 ? 1 : 0;
        answered = AnyNonZero(answer.Get(), length);
        everAnswered = everAnswered || answered;
        if (answered && answer.Get()[0] != context.ReportId)
            status = STATUS_UNSUCCESSFUL;
        const ULONG attemptVerified = verify == 0 ? 1 : matched;
        if (verified != nullptr)
            *verified = attemptVerified;
        // A failed request leaves the answer buffer holding the report sent,
        // which reads as a matching answer: the retry is for a device that
        // answered differently (it adjusted a field, or had nothing to say).
        if (answered && attemptVerified == 1)
            break;
    }
    // Two all-zero answers are no read-back at all: the caller's report keeps
    // what was sent, rather than a report without its ID that the following
    // writes would then be made into. After a real first answer, a zero second
    // one is the device's last word and is taken as it stands.
    if (NT_SUCCESS(status) && !everAnswered)
        status = STATUS_UNSUCCESSFUL;
    if (NT_SUCCESS(status))
        std::memcpy(context.Report, answer.Get(), length);
    else
        TRACE_ERROR(status, context.Name(), static_cast<ULONG>(context.ReportId));
    TRACE_EXIT(status);
    return status;
}

NTSTATUS WriteReportInterval(FeatureReportContext& context)
{
    const ULONG current = context.Record.CurrentReportInterval.load(std::memory_order_relaxed);
    const ULONG requested =
        current != 0 ? current : context.Record.FallbackReportInterval.load(std::memory_order_relaxed);
    return WriteInterval(context, {kReportIntervalUsage, true, context.Cache.ReportInterval,
                                   context.Record.CurrentReportInterval, requested});
}

NTSTATUS WriteBatchInterval(FeatureReportContext& context)
{
    return WriteInterval(context, {kBatchIntervalUsage, false, context.Cache.BatchInterval,
                                   context.Record.BatchInterval,
                                   context.Record.BatchInterval.load(std::memory_order_relaxed)});
}

NTSTATUS WriteVendorProperty(FeatureReportContext& context, ULONG vendorIndex)
{
    const RequestedVendorProperty& property = kRequestedVendorProperties[vendorIndex];
    const int valueIndex = VendorValueIndex(property.Usage);
    CachedEntry<LONG>& current = context.Cache.VendorValues[valueIndex];
    const ULONG requested = context.Cache.RequestedVendorValues[vendorIndex].load(std::memory_order_relaxed);

    const HIDP_VALUE_CAPS* caps = FindCapsExactly(context, property.Usage);
    const ULONG code = caps != nullptr ? caps->UnitsExp : 0;
    if (requested == static_cast<ULONG>(current.Get()) || requested == kVendorLeaveAlone)
        return STATUS_SUCCESS;
    const ULONG logical = ScaleByRawExponentCode(code, requested);
    if (context.ReportLength > kMaxFeatureReportBytes || logical == 0xFFFFFFFF)
        return STATUS_UNSUCCESSFUL;

    NTSTATUS status = SetFeatureValue(context, property.Usage, logical);
    if (!NT_SUCCESS(status))
        return status;
    status = SendFeatureReport(context, 1, nullptr);
    if (!NT_SUCCESS(status))
        return status;
    if (context.Record.HasFeatureReport != 1)
        return STATUS_SUCCESS;
    if (context.ReportLength != context.Device.Caps().FeatureReportByteLength)
        return STATUS_UNSUCCESSFUL;
    ULONG readBack = 0;
    if (ReadBackInteger(context, [&](USAGE usage) { return UsageKey(usage) == property.Usage; }, readBack))
        current.Value.store(static_cast<LONG>(readBack), std::memory_order_relaxed);
    TRACE_INFO(context.Name(), property.Name, requested, static_cast<ULONG>(current.Get()));
    return STATUS_SUCCESS;
}

NTSTATUS WriteReportingAndPowerState(FeatureReportContext& context)
{
    SensorPropertyCache& cache = context.Cache;
    const ULONG reporting = context.Record.RequestedReportingState.load(std::memory_order_relaxed);
    const ULONG power = context.Record.RequestedPowerState.load(std::memory_order_relaxed);
    NTSTATUS status = STATUS_SUCCESS;

    if (cache.ReportingState.IsPresent() == 1) {
        if (context.ReportLength > kMaxFeatureReportBytes)
            return STATUS_UNSUCCESSFUL;
        status = SetFeatureValue(context, kReportingStateUsage, reporting == 1 ? 1 : 0);
        if (!NT_SUCCESS(status))
            return status;
    }
    ULONG powerValue = 0;
    if (cache.PowerState.IsPresent() == 1 && PowerStateValue(power, powerValue)) {
        if (context.ReportLength > kMaxFeatureReportBytes)
            return STATUS_UNSUCCESSFUL;
        status = SetFeatureValue(context, kPowerStateUsage, powerValue);
        if (!NT_SUCCESS(status))
            return status;
    }
    if (cache.ReportingStateSelector.IsPresent() == 1) {
        status = RewriteSelectors(context, [](USAGE usage) { return usage == 0x840 || usage == 0x841; },
                                  ReportingSelectorFor(reporting));
        if (!NT_SUCCESS(status))
            return status;
    }
    if (cache.PowerStateSelector.IsPresent() == 1) {
        status = RewriteSelectors(context, [](USAGE usage) { return usage >= 0x850 && usage <= 0x855; },
                                  PowerSelectorFor(power));
        if (!NT_SUCCESS(status))
            return status;
    }

    ULONG verified = 0;
    status = SendFeatureReport(context, 1, &verified);
    if (!NT_SUCCESS(status))
        return status;
    ULONG reportingBack = 0;
    ULONG powerBack = 0;
    if (cache.ReportingState.IsPresent() == 1)
        HidP_GetUsageValue(HidP_Feature, kSensorsUsagePage, context.LinkCollection, kReportingStateUsage,
                           &reportingBack, context.Preparsed(), context.ReportChars(), context.ReportLength);
    if (cache.PowerState.IsPresent() == 1)
        HidP_GetUsageValue(HidP_Feature, kSensorsUsagePage, context.LinkCollection, kPowerStateUsage,
                           &powerBack, context.Preparsed(), context.ReportChars(), context.ReportLength);
    TRACE_INFO(context.Name(), reporting, reportingBack, power, powerBack, verified);
    context.Record.SettingsApplied.store(1, std::memory_order_relaxed);
    return STATUS_SUCCESS;
}

NTSTATUS WriteBackSettings(FeatureReportContext& context)
{
    TRACE_ENTRY();
    SensorPropertyCache& cache = context.Cache;
    PCWSTR name = context.Name();
    NTSTATUS status = STATUS_SUCCESS;

    if (cache.ReportInterval.IsPresent() == 1)
        status = Carry(WriteReportInterval(context), name, 1);

    cache.BatchInterval.Present.store(1, std::memory_order_relaxed);
    status = Carry(WriteBatchInterval(context), name, 2);

    for (ULONG k = 1; k <= kCustomValueCount; ++k) {
        if (cache.dataFieldSeen[k].load(std::memory_order_relaxed) == 1)
            status = Carry(WriteFieldSensitivity(context, k), name, 3);
    }
    for (ULONG k = 1; k <= kCustomValueCount; ++k) {
        if (cache.dataFieldSeen[k].load(std::memory_order_relaxed) != 1)
            continue;
        status = Carry(RefreshFieldMaximum(context, k), name, 4);
        status = Carry(RefreshFieldMinimum(context, k), name, 4);
        status = Carry(RefreshFieldAccuracy(context, k), name, 4);
        status = Carry(RefreshFieldResolution(context, k), name, 4);
    }

    if (context.WriteSettings == 1) {
        for (ULONG i = 0; i < kRequestedVendorValueCount; ++i) {
            const int valueIndex = VendorValueIndex(kRequestedVendorProperties[i].Usage);
            if (cache.VendorValues[valueIndex].IsPresent() == 1)
                status = Carry(WriteVendorProperty(context, i), name, 5);
        }
    }

    if (NT_SUCCESS(status))
        status = Carry(WriteReportingAndPowerState(context), name, 6);
    TRACE_EXIT(status);
    return status;
}
