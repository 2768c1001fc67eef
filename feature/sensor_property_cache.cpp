#include "feature/sensor_property_cache.h"

namespace {
template <class T, std::size_t N>
void ClearAll(CachedEntry<T> (&entries)[N]) noexcept
{
    for (CachedEntry<T>& entry : entries)
        entry.Clear();
}

void ClearString(CachedString& text) noexcept
{
    text.Present = 0;
    for (WCHAR& c : text.Text)
        c = 0;
}
}  // namespace

int VendorValueIndex(USAGE usage) noexcept
{
    for (ULONG i = 0; i < kVendorValueCount; ++i) {
        if (kVendorValueUsages[i] == usage)
            return static_cast<int>(i);
    }
    return -1;
}

SensorPropertyCache::SensorPropertyCache() noexcept
{
    for (ULONG i = 0; i < kRequestedVendorValueCount; ++i)
        RequestedVendorValues[i].store(kRequestedVendorProperties[i].Default, std::memory_order_relaxed);
}

void SensorPropertyCache::ClearFeatureValues() noexcept
{
    booleanArraySeen.store(0, std::memory_order_relaxed);
    for (std::atomic<ULONG>& seen : dataFieldSeen)
        seen.store(0, std::memory_order_relaxed);
    ReportingState.Clear();
    ReportingStateSelector.Clear();
    PowerState.Clear();
    PowerStateSelector.Clear();
    SensorStatus.Clear();
    SensorStateSelector.Clear();
    ReportInterval.Clear();
    BatchInterval.Clear();
    ChangeSensitivity.Clear();
    Maximum.Clear();
    Minimum.Clear();
    Accuracy.Clear();
    Resolution.Clear();
    VendorF029.Clear();
    ClearAll(VendorValues);
    ClearAll(FieldChangeSensitivity);
    ClearAll(FieldMaximum);
    ClearAll(FieldMinimum);
    ClearAll(FieldAccuracy);
    ClearAll(FieldResolution);
    ConnectionType.Clear();
    ConnectionTypeSelector.Clear();
    MinimumReportInterval.Clear();
    ClearString(FriendlyName);
    ClearString(PersistentUniqueId);
    ClearString(Manufacturer);
    ClearString(Model);
    ClearString(SerialNumber);
    ClearString(Description);
}
