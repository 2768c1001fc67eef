// Interim stand-in for the feature layer (property cache and value scaling)
// until it lands; removed when it does.
#pragma once

#include <cfloat>
#include <cmath>
#include <cstring>

#include "driver/heap.h"
#include "platform/hidpi.h"
#include "platform/propsys.h"

struct CachedFloat {
    ULONG Present = 0;
    float Value = 0.0f;
};
struct CachedString {
    ULONG Present = 0;
    WCHAR Text[64] = {};
};

struct SensorPropertyCache : HeapObject {
    ULONG CustomUsageValue = 0;
    ULONG CustomUsagePresent = 0;
    ULONG booleanArraySeen = 0;
    ULONG dataFieldSeen[29] = {};
    CachedFloat Maximum, Minimum;
    CachedFloat DataFieldSensitivity[29];
    CachedFloat DataFieldMaximum[29];
    CachedFloat DataFieldMinimum[29];
    CachedString FriendlyName, PersistentUniqueId, Manufacturer, Model, SerialNumber, Description;
    HeapArray<const PROPERTYKEY*> DataFieldKeys;
    ULONG DataFieldCount = 0;
    ULONG PendingFieldCount = 0;

    void ClearFeatureValues()
    {
        CustomUsageValue = CustomUsagePresent = booleanArraySeen = 0;
        std::memset(dataFieldSeen, 0, sizeof(dataFieldSeen));
        Maximum = Minimum = {};
        for (int i = 0; i < 29; ++i)
            DataFieldSensitivity[i] = DataFieldMaximum[i] = DataFieldMinimum[i] = {};
        FriendlyName = PersistentUniqueId = Manufacturer = Model = SerialNumber = Description = {};
    }
    float ChangeSensitivityOfSlot(int slot) const { return DataFieldSensitivity[slot].Value; }
};

inline void DecodeUnitExponent(LONG* exponent)
{
    if (*exponent < 0)
        return;
    if (*exponent > 15)
        *exponent = 0;
    else if (*exponent >= 8)
        *exponent -= 16;
}
inline LONG SignExtendLogical(LONG logicalMin, ULONG bitSize, ULONG raw)
{
    if (logicalMin == 0)
        return static_cast<LONG>(raw);
    if (bitSize == 8)
        return (raw & 0x80) ? static_cast<LONG>(raw) - 0x100 : static_cast<LONG>(raw);
    if (bitSize == 32)
        return static_cast<LONG>(raw);
    return (raw & 0x8000) ? static_cast<LONG>(raw) - 0x10000 : static_cast<LONG>(raw);
}
inline double ScaleToFloat(LONG logicalMin, ULONG raw, LONG signedValue, LONG exponent)
{
    const double factor = static_cast<double>(static_cast<float>(std::pow(10.0, exponent)));
    const double base = logicalMin == 0 ? static_cast<double>(raw) : static_cast<double>(signedValue);
    return base * factor;
}
inline float ResolveFieldBound(float fallback, ULONG p1, float v1, ULONG p2, float v2, ULONG p3, float v3)
{
    if (p1 == 1)
        return v1;
    if (p2 == 1)
        return v2;
    if (p3 == 1)
        return v3;
    return fallback;
}
class HidSensor;
inline void TraceHidStatus(const HidSensor*, NTSTATUS, HIDP_REPORT_TYPE, ULONG) {}
