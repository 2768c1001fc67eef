// What every step of ReadFeatureReport works on: the sensor, its cache, and
// the one report buffer that each write modifies, sends and receives back.
#pragma once

#include "feature/sensor_property_cache.h"
#include "feature/value_scaling.h"
#include "hid/hid_device.h"
#include "platform/hidpi.h"
#include "sensors/hid_collection_record.h"
#include "sensors/hid_sensor.h"

inline constexpr USAGE kModifierMask = 0xF000;
inline constexpr USAGE kVendorModifier = 0xF000;
inline constexpr ULONG kSelectorListCapacity = 6;
inline constexpr ULONG kArrayReadBytes = 128;

struct FeatureReportContext {
    HidSensor& Sensor;
    HidCollectionRecord& Record;
    HidDevice& Device;
    SensorPropertyCache& Cache;
    UCHAR ReportId;
    USHORT LinkCollection;
    BYTE* Report;        // kMaxFeatureReportBytes bytes
    ULONG ReportLength;  // the collection's FeatureReportByteLength
    ULONG WriteSettings;

    PHIDP_PREPARSED_DATA Preparsed() const noexcept { return Device.PreparsedData(); }
    CHAR* ReportChars() const noexcept { return reinterpret_cast<CHAR*>(Report); }
    PCWSTR Name() const noexcept { return Sensor.GetFriendlyName(); }
    // Read-backs decode the report only when it is the collection's whole
    // feature report.
    bool CanReadBack() const noexcept
    {
        return Record.HasFeatureReport == 1 && ReportLength == Device.Caps().FeatureReportByteLength;
    }
    // The sensor's named arrays are the children of its link-collection node,
    // numbered LinkCollection + 1 on. STATUS_UNSUCCESSFUL for a report too
    // long to read them in; no children without a node.
    NTSTATUS SelectorChildren(ULONG* children) const noexcept
    {
        *children = 0;
        if (ReportLength >= kMaxFeatureReportBytes)
            return STATUS_UNSUCCESSFUL;
        const HIDP_LINK_COLLECTION_NODE* nodes = Device.LinkCollectionNodes();
        if (nodes != nullptr && LinkCollection < Device.Caps().NumberLinkCollectionNodes)
            *children = nodes[LinkCollection].NumberOfChildren;
        return STATUS_SUCCESS;
    }
};

inline USAGE CapsUsage(const HIDP_VALUE_CAPS& caps) noexcept
{
    return caps.IsRange ? caps.Range.UsageMin : caps.NotRange.Usage;
}

inline USAGE UsageModifier(USAGE usage) noexcept
{
    return static_cast<USAGE>(usage & kModifierMask);
}

// The usage without its modifier; vendor usages (0xF000..0xFFFF) stay whole.
inline USAGE UsageKey(USAGE usage) noexcept
{
    return UsageModifier(usage) == kVendorModifier ? usage : static_cast<USAGE>(usage & 0x0FFF);
}

inline LONG DecodedExponent(const HIDP_VALUE_CAPS& caps) noexcept
{
    auto exponent = static_cast<LONG>(caps.UnitsExp);
    DecodeUnitExponent(exponent);
    return exponent;
}

// Feature value capabilities of the whole collection, in parser order.
template <class Visit>
void ForEachFeatureCaps(const FeatureReportContext& context, Visit visit)
{
    const HeapArray<HIDP_VALUE_CAPS>& caps = context.Record.FeatureValueCaps;
    for (std::size_t i = 0; i < caps.Count(); ++i)
        visit(caps[i]);
}
