// Parsing of a custom sensor's feature report into its SensorPropertyCache.
#include <cstring>

#include "feature/feature_report.h"
#include "feature/feature_report_context.h"
#include "feature/feature_writeback.h"
#include "feature/value_scaling.h"
#include "tracing/trace.h"

namespace {
constexpr GUID kTraceMessageGuid = {
    0x7D2C5E18, 0x4A96, 0x4F0B, {0x8E, 0x37, 0xC1, 0x5A, 0x92, 0x6F, 0x04, 0xB3}};

constexpr USAGE kCollectionWideCustomValue = 0x543;
constexpr USAGE kLastCustomValue = 0x55F;

// Data-field usages the platform has a data type for. Only whether a usage
// has one matters here: an unrecognised usage carries the lookup's status.
struct UsageRange {
    USAGE First, Last;
};
constexpr UsageRange kTypedDataFields[] = {
    {0x400, 0x400}, {0x402, 0x427}, {0x430, 0x431}, {0x433, 0x436}, {0x450, 0x451}, {0x453, 0x455},
    {0x457, 0x459}, {0x45E, 0x45F}, {0x470, 0x470}, {0x472, 0x478}, {0x47A, 0x47C}, {0x47F, 0x483},
    {0x485, 0x487}, {0x490, 0x498}, {0x4B0, 0x4B2}, {0x4B4, 0x4B4}, {0x4D0, 0x4D3}, {0x4F0, 0x4F1},
    {0x500, 0x507}, {0x509, 0x509}, {0x540, 0x542}, {0x544, 0x55F},
};

NTSTATUS LookupDataFieldType(USAGE key) noexcept
{
    if (key < 0x400 || key > 0x566)
        return STATUS_INVALID_PARAMETER;
    for (const UsageRange& range : kTypedDataFields) {
        if (key >= range.First && key <= range.Last)
            return STATUS_SUCCESS;
    }
    return STATUS_UNSUCCESSFUL;
}

// Selector usage -> cache entry and the state stored for it.
void StoreSelector(SensorPropertyCache& cache, USAGE usage) noexcept
{
    if (usage >= 0x800 && usage <= 0x806) {
        cache.SensorStateSelector.Set(usage - 0x800u + 1u);
    } else if (usage >= 0x810 && usage <= 0x815) {
        // Sensor events are input data; nothing to keep.
    } else if (usage >= 0x830 && usage <= 0x832) {
        cache.ConnectionTypeSelector.Set(usage - 0x830u);
    } else if (usage == 0x840 || usage == 0x843) {
        cache.ReportingStateSelector.Set(1);
    } else if (usage == 0x841 || usage == 0x842 || usage == 0x844 || usage == 0x845) {
        cache.ReportingStateSelector.Set(2);
    } else if (usage == 0x850 || usage == 0x853 || usage == 0x854) {
        cache.PowerStateSelector.Set(1);
    } else if (usage == 0x851) {
        cache.PowerStateSelector.Set(2);
    } else if (usage == 0x852) {
        cache.PowerStateSelector.Set(3);
    } else if (usage == 0x855) {
        cache.PowerStateSelector.Set(6);
    } else {
        TRACE_INFO(static_cast<ULONG>(usage));
    }
}

NTSTATUS ReadSelectors(const FeatureReportContext& context)
{
    ULONG children = 0;
    NTSTATUS status = context.SelectorChildren(&children);
    for (ULONG j = 1; j <= children; ++j) {
        USAGE usages[kSelectorListCapacity] = {};
        ULONG count = kSelectorListCapacity;
        const NTSTATUS read = HidP_GetUsages(HidP_Feature, kSensorsUsagePage,
                                             static_cast<USHORT>(context.LinkCollection + j), usages,
                                             &count, context.Preparsed(), context.ReportChars(),
                                             context.ReportLength);
        if (read == HIDP_STATUS_USAGE_NOT_FOUND)
            continue;
        if (!NT_SUCCESS(read)) {
            TraceHidStatus(&context.Sensor, read, HidP_Feature, context.LinkCollection + j);
            status = STATUS_UNSUCCESSFUL;
            continue;
        }
        for (ULONG i = 0; i < count && i < kSelectorListCapacity; ++i)
            StoreSelector(context.Cache, usages[i]);
    }
    return status;
}

// A string property: the array holds UTF-16 text. The last character is forced
// to the terminator; text that fills the field is kept out, leaving the
// previous text, so a truncated name never replaces a whole one.
void StoreString(CachedString& target, const BYTE* array) noexcept
{
    WCHAR text[kFeatureStringChars];
    std::memcpy(text, array, sizeof(text));
    text[kFeatureStringChars - 1] = 0;
    target.Present = 1;
    const std::size_t length = WideLength(text, kFeatureStringChars);
    if (length >= kFeatureStringChars - 1)
        return;
    std::memcpy(target.Text, text, (length + 1) * sizeof(WCHAR));
}

// The first element of a multi-element field, from the packed array read.
ULONG FirstArrayElement(const BYTE* array, USHORT bitSize) noexcept
{
    ULONG value = 0;
    const ULONG bits = bitSize < 32 ? bitSize : 32;
    for (ULONG bit = 0; bit < bits; ++bit) {
        if ((array[bit / 8] >> (bit % 8)) & 1u)
            value |= 1u << bit;
    }
    return value;
}

CachedEntry<float>* FieldSlotArray(SensorPropertyCache& cache, USAGE modifier) noexcept
{
    switch (modifier) {
    case 0x1000: return cache.FieldChangeSensitivity;
    case 0x2000: return cache.FieldMaximum;
    case 0x3000: return cache.FieldMinimum;
    case 0x4000: return cache.FieldAccuracy;
    case 0x5000: return cache.FieldResolution;
    default: return nullptr;
    }
}

struct DecodedValue {
    const HIDP_VALUE_CAPS& Caps;
    USAGE Modifier;
    ULONG Raw;
    LONG Signed;
    LONG Exponent;
    const BYTE* Array;  // the array read, for strings

    float AsFloat() const noexcept
    {
        return static_cast<float>(ScaleToFloat(Caps.LogicalMin, Raw, Signed, Exponent));
    }
    ULONG AsInteger() const noexcept { return ScaleToInteger(Caps.LogicalMin, Raw, Signed, Exponent); }
};

// Standard properties, whatever their modifier: 0x530E lands where 0x30E does.
// False when the key is not one.
bool StoreStandardProperty(const FeatureReportContext& context, USAGE key, const DecodedValue& value)
{
    SensorPropertyCache& cache = context.Cache;
    switch (key) {
    case 0x301: StoreString(cache.FriendlyName, value.Array); break;
    case 0x302: StoreString(cache.PersistentUniqueId, value.Array); break;
    case 0x303: cache.SensorStatus.Set(value.Raw); break;
    case 0x304:
        cache.MinimumReportInterval.Set(value.AsInteger());
        context.Record.MinimumReportInterval.store(value.AsInteger(), std::memory_order_relaxed);
        break;
    case 0x305: StoreString(cache.Manufacturer, value.Array); break;
    case 0x306: StoreString(cache.Model, value.Array); break;
    case 0x307: StoreString(cache.SerialNumber, value.Array); break;
    case 0x308: StoreString(cache.Description, value.Array); break;
    case 0x309: cache.ConnectionType.Set(value.Raw); break;
    case 0x30E: cache.ReportInterval.Set(value.AsInteger()); break;
    case 0x30F: cache.ChangeSensitivity.Set(value.AsFloat()); break;
    case 0x312: cache.Accuracy.Set(value.AsFloat()); break;
    case 0x313: cache.Resolution.Set(value.AsFloat()); break;
    case 0x314: cache.Maximum.Set(value.AsFloat()); break;
    case 0x315: cache.Minimum.Set(value.AsFloat()); break;
    case 0x316: cache.ReportingState.Set(value.Raw); break;
    case 0x319: cache.PowerState.Set(value.Raw); break;
    default: return false;
    }
    return true;
}

// A data-field modifier of custom value `slot` (0: all custom values). Fields
// with units are not data-field bounds the driver understands; skipped.
void StoreFieldSlot(SensorPropertyCache& cache, ULONG slot, const DecodedValue& value) noexcept
{
    if (value.Caps.Units != 0)
        return;
    CachedEntry<float>* entries = FieldSlotArray(cache, value.Modifier);
    if (entries == nullptr)
        return;
    const float scaled = value.AsFloat();
    entries[slot].Set(scaled);
    // The collection-wide value stands for every custom value: it replaces the
    // values, not the presence, of the field-specific slots.
    if (slot == 0) {
        for (ULONG k = 1; k < kDataFieldSlots; ++k)
            entries[k].Value.store(scaled, std::memory_order_relaxed);
    }
}

// The properties whose first appearance in a sensor's report is traced, one
// record flag each; later reports of them are not, so that a client polling
// the interval does not flood the log.
constexpr USAGE kOnceTracedProperties[kFeaturePropertyFlagCount] = {0x30E, 0x304, 0x30F, 0x314, 0x315, 0x308};

void TraceFirstReport(const FeatureReportContext& context, USAGE key, USAGE usage, ULONG raw)
{
    for (ULONG i = 0; i < kFeaturePropertyFlagCount; ++i) {
        if (kOnceTracedProperties[i] != key || context.Record.FeaturePropertyFlags[i] != 0)
            continue;
        context.Record.FeaturePropertyFlags[i] = 1;
        TRACE_INFO(context.Name(), static_cast<ULONG>(usage), raw);
    }
}

// One capability of the sensor's report. Returns the status it carries.
NTSTATUS ParseValue(const FeatureReportContext& context, const HIDP_VALUE_CAPS& caps, BYTE* array)
{
    const USAGE usage = CapsUsage(caps);
    ULONG raw = 0;
    NTSTATUS status = STATUS_SUCCESS;
    if (caps.ReportCount == 1) {
        status = HidP_GetUsageValue(HidP_Feature, caps.UsagePage, context.LinkCollection, usage, &raw,
                                    context.Preparsed(), context.ReportChars(), context.ReportLength);
    } else if (caps.ReportCount >= 2) {
        std::memset(array, 0, kArrayReadBytes);
        status = HidP_GetUsageValueArray(HidP_Feature, caps.UsagePage, context.LinkCollection, usage,
                                         reinterpret_cast<CHAR*>(array), kArrayReadBytes,
                                         context.Preparsed(), context.ReportChars(), context.ReportLength);
        // A multi-element field that is not a string property stands for its
        // first element: a value left over from an earlier field would be
        // stored under this one's usage.
        if (NT_SUCCESS(status))
            raw = FirstArrayElement(array, caps.BitSize);
    } else {
        status = STATUS_UNSUCCESSFUL;
    }
    if (!NT_SUCCESS(status)) {
        TraceHidStatus(&context.Sensor, status, HidP_Feature, caps.UsagePage);
        return status;
    }

    const USAGE key = UsageKey(usage);
    const LONG exponent = DecodedExponent(caps);
    const DecodedValue value{caps, UsageModifier(usage), raw,
                             SignExtendLogical(caps.LogicalMin, caps.BitSize, raw), exponent, array};
    if (StoreStandardProperty(context, key, value)) {
        TraceFirstReport(context, key, usage, raw);
        return STATUS_SUCCESS;
    }
    if (key == kVendorValueF029) {
        context.Cache.VendorF029.Set(value.Signed);
        return STATUS_SUCCESS;
    }
    if (key >= kCollectionWideCustomValue && key <= kLastCustomValue) {
        StoreFieldSlot(context.Cache, key - kCollectionWideCustomValue, value);
        return STATUS_SUCCESS;
    }
    const int vendor = VendorValueIndex(key);
    if (vendor >= 0) {
        context.Cache.VendorValues[vendor].Set(value.Signed);
        return STATUS_SUCCESS;
    }
    status = LookupDataFieldType(key);
    if (!NT_SUCCESS(status))
        TRACE_WARNING(context.Name(), static_cast<ULONG>(usage), status);
    return status;
}

void TraceSummaryOnce(const FeatureReportContext& context)
{
    if (context.Record.FeatureSummaryTraced != 0)
        return;
    context.Record.FeatureSummaryTraced = 1;
    const SensorPropertyCache& cache = context.Cache;
    TRACE_INFO(context.Name(), cache.ReportInterval.IsPresent(), cache.MinimumReportInterval.IsPresent(),
               cache.ChangeSensitivity.IsPresent(), cache.Maximum.IsPresent(), cache.Minimum.IsPresent(),
               cache.ReportingState.IsPresent() | cache.ReportingStateSelector.IsPresent(),
               cache.PowerState.IsPresent() | cache.PowerStateSelector.IsPresent(),
               cache.Description.Present);
}

NTSTATUS ReadAndParse(HidSensor& sensor, SensorPropertyCache& cache, ULONG writeSettings)
{
    if (sensor.Record()->Owner == nullptr)
        return STATUS_INVALID_PARAMETER;
    // Private to this call, so that the fetched report survives the writes.
    BYTE* report = static_cast<BYTE*>(DriverHeapAllocZeroed(kMaxFeatureReportBytes));
    if (report == nullptr) {
        TRACE_ERROR(STATUS_NO_MEMORY, sensor.GetFriendlyName());
        return STATUS_NO_MEMORY;
    }
    FeatureReportContext context = MakeFeatureReportContext(sensor, cache, report, writeSettings);
    const NTSTATUS status = FetchAndParseFeatureReport(context);
    // The write-back's own status decides only its last step and is traced;
    // the caller learns whether the report could be read and parsed. A device
    // without a batch-interval field fails that write every time, and a sensor
    // must not fail to initialize for it.
    if (context.Record.HasFeatureReport == 1 && NT_SUCCESS(status))
        WriteBackSettings(context);
    DriverHeapFree(report);
    return status;
}
}  // namespace

FeatureReportContext MakeFeatureReportContext(HidSensor& sensor, SensorPropertyCache& cache, BYTE* report,
                                              ULONG writeSettings) noexcept
{
    HidCollectionRecord& record = *sensor.Record();
    HidDevice& device = *record.Owner;
    // With sensors discovered, sensor k's feature report is the first one's ID
    // plus k; before that there is no ID to ask for.
    const bool discovered = device.SensorCount() != 0;
    return FeatureReportContext{
        sensor, record, device, cache,
        discovered ? static_cast<UCHAR>(record.FeatureReportId + record.SensorIndex) : UCHAR{0},
        discovered ? record.LinkCollection : USHORT{0},
        report, device.Caps().FeatureReportByteLength, writeSettings};
}

NTSTATUS FetchAndParseFeatureReport(FeatureReportContext& context)
{
    NTSTATUS status = STATUS_SUCCESS;
    if (context.Record.HasFeatureReport == 1) {
        status = context.Device.GetFeatureReport(context.ReportId, context.Report, context.ReportLength,
                                                 context.Name());
        if (!NT_SUCCESS(status)) {
            TRACE_ERROR(status, context.Name(), static_cast<ULONG>(context.ReportId));
            return status;
        }
        status = ReadSelectors(context);
        BYTE array[kArrayReadBytes] = {};
        ForEachFeatureCaps(context, [&](const HIDP_VALUE_CAPS& caps) {
            if (caps.ReportID == context.ReportId)
                status = ParseValue(context, caps, array);
        });
    }
    TraceSummaryOnce(context);
    return status;
}

NTSTATUS ReadSensorFeatureReport(HidSensor& sensor, SensorPropertyCache& cache, ULONG writeSettings)
{
    TRACE_ENTRY();
    NTSTATUS status;
    {
        std::lock_guard<std::mutex> lock(cache.FeatureReportLock);
        status = ReadAndParse(sensor, cache, writeSettings);
    }
    if (!NT_SUCCESS(status))
        TRACE_ERROR(status, sensor.GetFriendlyName());
    TRACE_EXIT(status);
    return status;
}
