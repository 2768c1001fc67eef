#include "input/input_report.h"

#include <cstring>

#include "feature/value_scaling.h"
#include "hid/hid_device.h"
#include "platform/propsys.h"
#include "platform/system.h"
#include "sensors/custom_sensor.h"
#include "sensors/sensor_keys.h"
#include "tracing/trace.h"

namespace {
constexpr GUID kTraceMessageGuid = {
    0x5D21C8E7, 0x0B94, 0x4F3A, {0x8C, 0x6E, 0x27, 0xB1, 0x94, 0x0D, 0xA5, 0x62}};

constexpr USAGE kSensorStateValueUsage = 0x201;
constexpr USAGE kSensorEventValueUsage = 0x202;
constexpr USAGE kFirstStateSelector = 0x800;
constexpr USAGE kLastStateSelector = 0x806;
constexpr USAGE kFirstEventSelector = 0x810;
constexpr USAGE kLastEventSelector = 0x815;
constexpr USAGE kLastOtherEventSelector = 0x820;
constexpr USAGE kUsageModifierMask = 0xF000;
constexpr USAGE kUsageBaseMask = 0x0FFF;
constexpr ULONG kSelectorListCapacity = 6;
constexpr ULONG kMaxReportBytes = 4096;
constexpr USHORT kValueArrayBytes = 128;
constexpr ULONG kCustomValue4 = 4;

// Sensor State selectors 0x800..0x806 (undefined, ready, not available, no
// data, initializing, access denied, error) as the decoded state.
constexpr ULONG kStateOfSelector[] = {1, 0, 1, 2, 3, 4, 5};

bool IsSilentlyIgnoredSelector(USAGE selector)
{
    return (selector >= 0x830 && selector <= 0x832) || (selector >= 0x840 && selector <= 0x845) ||
           (selector >= 0x850 && selector <= 0x855);
}
}  // namespace

void UpdateTimestamp(PSENSOR_COLLECTION_LIST data) noexcept
{
    FILETIME now = {};
    GetSystemTimeAsFileTime(&now);
    InitPropVariantFromFileTime(&now, &data->List[0].Value);
}

bool ApplyStateOrEventSelector(USAGE selector, SensorStateAndEvent* decoded) noexcept
{
    if (selector >= kFirstStateSelector && selector <= kLastStateSelector) {
        decoded->State = kStateOfSelector[selector - kFirstStateSelector];
        return true;
    }
    if (selector >= kFirstEventSelector && selector <= kLastEventSelector) {
        decoded->Event = static_cast<ULONG>(selector - kFirstEventSelector);
        return true;
    }
    return false;
}

NTSTATUS ReadStateAndEventSelectors(const HidDevice* device, USHORT linkCollection, BYTE* report,
                                    ULONG length, SensorStateAndEvent* decoded) noexcept
{
    if (device == nullptr || report == nullptr || decoded == nullptr || device->LinkCollectionNodes() == nullptr)
        return STATUS_INVALID_PARAMETER;
    const USHORT children = device->LinkCollectionNodes()[linkCollection].NumberOfChildren;
    if (children == 0)
        return STATUS_SUCCESS;
    if (length >= kMaxReportBytes)
        return STATUS_UNSUCCESSFUL;

    NTSTATUS status = STATUS_SUCCESS;
    USAGE usages[kSelectorListCapacity];
    for (USHORT c = 1; c <= children; ++c) {
        ULONG count = kSelectorListCapacity;
        const NTSTATUS parsed = HidP_GetUsages(HidP_Input, kSensorsUsagePage, static_cast<USHORT>(linkCollection + c),
                                               usages, &count, device->PreparsedData(),
                                               reinterpret_cast<CHAR*>(report), length);
        if (parsed == HIDP_STATUS_USAGE_NOT_FOUND) {
            status = STATUS_SUCCESS;
            continue;
        }
        if (!NT_SUCCESS(parsed)) {
            TraceHidStatus(nullptr, parsed, HidP_Input, static_cast<ULONG>(linkCollection + c));
            status = STATUS_UNSUCCESSFUL;
            continue;
        }
        status = STATUS_SUCCESS;
        for (ULONG i = 0; i < count && i < kSelectorListCapacity; ++i) {
            const USAGE selector = usages[i];
            if (selector == 0 || ApplyStateOrEventSelector(selector, decoded) || IsSilentlyIgnoredSelector(selector))
                continue;
            // Other Sensor Event selectors, and anything else: noted, ignored.
            TRACE_WARNING(static_cast<ULONG>(selector), selector <= kLastOtherEventSelector ? 1u : 0u);
        }
    }
    TRACE_INFO(decoded->State, decoded->Event);
    return status;
}

NTSTATUS CustomSensor::HandleCommonInputUsage(USHORT usage, LONG signedValue, ULONG raw,
                                              SensorStateAndEvent* decoded, bool* handled)
{
    *handled = true;
    switch (usage) {
    case kSensorStateValueUsage:
        decoded->State = static_cast<ULONG>(static_cast<SHORT>(signedValue));
        if (!stateAsValueNoted_) {
            stateAsValueNoted_ = true;
            TRACE_INFO(GetFriendlyName(), decoded->State);
        }
        return STATUS_SUCCESS;
    case kSensorEventValueUsage:
        decoded->Event = static_cast<ULONG>(signedValue);
        if (!eventAsValueNoted_) {
            eventAsValueNoted_ = true;
            TRACE_INFO(GetFriendlyName(), decoded->Event);
        }
        return STATUS_SUCCESS;
    case kCustomUsageUsage: {
        PROPVARIANT value;
        PropVariantInit(&value);
        HidCollectionRecord& record = *Record();
        if (record.CustomUsageAnnounced == 0) {
            // The first report tells clients the field exists before its value.
            record.CustomUsageAnnounced = 1;
            const NTSTATUS status = UpdateDataField(&kCustomUsageKey, &value);
            if (!NT_SUCCESS(status))
                return status;
        }
        value.vt = VT_UI4;
        value.ulVal = raw;
        return UpdateDataField(&kCustomUsageKey, &value);
    }
    default:
        *handled = false;
        return STATUS_SUCCESS;
    }
}

NTSTATUS CustomSensor::ProcessInputReport(BYTE* report, ULONG length, ULONG firstInRead)
{
    TRACE_ENTRY();
    if (report == nullptr || length == 0) {
        TRACE_ERROR(STATUS_INVALID_PARAMETER, GetFriendlyName());
        TRACE_EXIT(STATUS_INVALID_PARAMETER);
        return STATUS_INVALID_PARAMETER;
    }
    HidCollectionRecord& record = *Record();
    // A sensor that is not initialized, or whose registration stopped before
    // its lists were all there, has nothing to fill: its reports are accepted
    // and ignored.
    if (record.IsInitialized.load(std::memory_order_relaxed) == 0 ||
        record.IsRegistered.load(std::memory_order_relaxed) == 0) {
        TRACE_EXIT(STATUS_SUCCESS);
        return STATUS_SUCCESS;
    }
    SensorPropertyCache& cache = *cache_;
    if (firstInRead == 1)
        cache.PendingFieldCount = 0;

    const HidDevice& device = *record.Owner;
    const HIDP_CAPS& caps = device.Caps();
    if (length != caps.InputReportByteLength) {
        TRACE_ERROR(STATUS_UNSUCCESSFUL, GetFriendlyName(), length, static_cast<ULONG>(caps.InputReportByteLength));
        TRACE_EXIT(STATUS_UNSUCCESSFUL);
        return STATUS_UNSUCCESSFUL;
    }
    TRACE_DATA(GetFriendlyName(), TraceBytes{report, length});

    UCHAR reportId = 0;
    USHORT linkCollection = 0;
    if (device.SensorCount() != 0) {
        reportId = static_cast<UCHAR>(record.InputReportId + record.SensorIndex);
        linkCollection = record.LinkCollection;
    }

    UpdateTimestamp(record.Data);

    SensorStateAndEvent decoded;
    NTSTATUS status = ReadStateAndEventSelectors(&device, linkCollection, report, length, &decoded);

    PROPVARIANT value;
    PropVariantInit(&value);
    // Raw values of fields decoded unscaled earlier in this report: index 0
    // the boolean array, k custom value k. Custom value 4 keeps its scaled
    // value as well.
    ULONG holding[kCustomValueCount + 1] = {};
    float holdingFloat4 = 0.0f;
    char valueArray[kValueArrayBytes];
    PHIDP_PREPARSED_DATA preparsed = device.PreparsedData();
    CHAR* reportChars = reinterpret_cast<CHAR*>(report);

    const std::size_t capCount = record.InputValueCaps.Count();
    for (std::size_t i = 0; i < capCount; ++i) {
        const HIDP_VALUE_CAPS& cap = record.InputValueCaps[i];
        if (cap.ReportID != reportId)
            continue;
        const USAGE usage = cap.NotRange.Usage;
        LONG exponent = static_cast<LONG>(cap.UnitsExp);
        DecodeUnitExponent(exponent);

        ULONG raw = 0;
        NTSTATUS read = STATUS_SUCCESS;
        if (cap.ReportCount >= 2) {
            std::memset(valueArray, 0, sizeof(valueArray));
            read = HidP_GetUsageValueArray(HidP_Input, cap.UsagePage, linkCollection, usage, valueArray,
                                           kValueArrayBytes, preparsed, reportChars, length);
        } else if (cap.ReportCount == 1) {
            read = HidP_GetUsageValue(HidP_Input, cap.UsagePage, linkCollection, usage, &raw, preparsed,
                                      reportChars, length);
        } else {
            read = STATUS_UNSUCCESSFUL;
        }
        if (!NT_SUCCESS(read)) {
            TraceHidStatus(this, read, HidP_Input, cap.UsagePage);
            status = read;
            continue;
        }
        const LONG signedValue = SignExtendLogical(cap.LogicalMin, cap.BitSize, raw);
        const USHORT base = static_cast<USHORT>(usage & kUsageBaseMask);

        bool handled = false;
        NTSTATUS common = STATUS_SUCCESS;
        if (base == kSensorStateValueUsage || base == kSensorEventValueUsage || base == kCustomUsageUsage)
            common = HandleCommonInputUsage(base, signedValue, raw, &decoded, &handled);
        // Only a failure sets the status: a handled usage that succeeds
        // leaves an earlier failure standing, and with it the rest of the read.
        if (!NT_SUCCESS(common)) {
            status = common;
            continue;
        }
        if (handled)
            continue;
        if (base < kCustomBooleanArrayUsage || base > kLastCustomValueUsage || base == kCustomValueAllUsage ||
            (usage & kUsageModifierMask) != 0)
            continue;

        const bool isBooleanArray = base == kCustomBooleanArrayUsage;
        const ULONG k = isBooleanArray ? 0 : static_cast<ULONG>(base - kCustomValueAllUsage);
        const PROPERTYKEY& key = isBooleanArray ? kCustomBooleanArrayKey : kCustomValueKeys[k - 1];
        std::atomic<ULONG>& seen = isBooleanArray ? cache.booleanArraySeen : cache.dataFieldSeen[k];
        if (seen.load(std::memory_order_relaxed) == 0) {
            seen.store(1, std::memory_order_relaxed);
            value.vt = VT_UI4;
            value.ulVal = holding[k];
            const NTSTATUS announced = UpdateDataField(&key, &value);
            if (!NT_SUCCESS(announced)) {
                status = announced;
                continue;
            }
        }

        if (isBooleanArray) {
            if (cap.Units == 0)
                holding[0] = raw;
            value.vt = VT_UI4;
            value.ulVal = holding[0];
        } else if (cap.Units != 0) {
            // A value with a unit is not decoded; its holding value stands in.
            if (k == kCustomValue4) {
                value.vt = VT_R4;
                value.fltVal = holdingFloat4;
            } else {
                value.vt = VT_UI4;
                value.ulVal = holding[k];
            }
        } else {
            float tested = 0.0f;
            if (exponent != 0) {
                const float scaled = static_cast<float>(ScaleToFloat(cap.LogicalMin, raw, signedValue, exponent));
                if (k == kCustomValue4)
                    holdingFloat4 = scaled;
                value.vt = VT_R4;
                value.fltVal = scaled;
                tested = scaled;
            } else {
                holding[k] = raw;
                value.vt = VT_UI4;
                value.ulVal = raw;
                tested = static_cast<float>(static_cast<LONG>(raw));
            }
            // Out of range is worth a warning, never a clamp or a drop. The
            // bounds serve only that warning, so they are resolved only when
            // someone listens for it.
            if (TraceClassEnabled(TraceClass::Warning)) {
                const float maximum = ResolveFieldBound(
                    record.DefaultMaximum, cache.FieldMaximum[k].IsPresent(), cache.FieldMaximum[k].Get(),
                    cache.FieldMaximum[0].IsPresent(), cache.FieldMaximum[0].Get(), cache.Maximum.IsPresent(),
                    cache.Maximum.Get());
                const float minimum = ResolveFieldBound(
                    record.DefaultMinimum, cache.FieldMinimum[k].IsPresent(), cache.FieldMinimum[k].Get(),
                    cache.FieldMinimum[0].IsPresent(), cache.FieldMinimum[0].Get(), cache.Minimum.IsPresent(),
                    cache.Minimum.Get());
                if (tested > maximum || tested < minimum)
                    TRACE_WARNING(GetFriendlyName(), k, tested, minimum, maximum);
            }
        }
        status = UpdateDataField(&key, &value);
    }
    PropVariantClear(&value);
    TRACE_EXIT(status);
    return status;
}
