// A custom sensor's view of its feature report: every value the device states,
// in platform units, each beside a present flag (1 once seen, never cleared).
// ReadFeatureReport fills it and keeps it in line with the device's read-back;
// the lists, input decoding, thresholds and the sensor kinds read it.
//
// Threads: ReadFeatureReport runs on the class extension's threads and is
// serialised per sensor (see FeatureReportLock). The reader decodes input
// reports at the same time and reads the data-field presence flags and the
// bounds without a lock, so every numeric entry is a relaxed atomic: a report
// decoded during a re-read sees the old or the new bound, never a torn one.
// The strings are written only under the lock and read by the registration,
// which runs before any client call.
#pragma once

#include <atomic>
#include <mutex>

#include "driver/heap.h"
#include "platform/hidpi.h"
#include "platform/sensorscx.h"

inline constexpr ULONG kCustomValueCount = 28;    // custom values 1..28, usages 0x544..0x55F
inline constexpr ULONG kDataFieldSlots = 29;      // slot 0: the collection-wide usage 0x543
inline constexpr ULONG kFeatureStringChars = 64;  // terminator included
inline constexpr ULONG kVendorValueCount = 12;
inline constexpr ULONG kRequestedVendorValueCount = 11;
inline constexpr ULONG kVendorLeaveAlone = 0xFFFFFFFF;  // a requested value that never writes

// A value and whether the device's report carried it.
template <class T>
struct CachedEntry {
    std::atomic<ULONG> Present{0};
    std::atomic<T> Value{};

    ULONG IsPresent() const noexcept { return Present.load(std::memory_order_relaxed); }
    T Get() const noexcept { return Value.load(std::memory_order_relaxed); }
    void Set(T value) noexcept
    {
        Value.store(value, std::memory_order_relaxed);
        Present.store(1, std::memory_order_relaxed);
    }
    void Clear() noexcept
    {
        Present.store(0, std::memory_order_relaxed);
        Value.store(T{}, std::memory_order_relaxed);
    }
};

struct CachedString {
    ULONG Present = 0;
    WCHAR Text[kFeatureStringChars] = {};
};

// The read-only and writable vendor values of a feature report, in cache order.
inline constexpr USAGE kVendorValueUsages[kVendorValueCount] = {
    0xF02A, 0xF03D, 0xF03E, 0xF066, 0xF08D, 0xF08E, 0xF097, 0xF0B5, 0xF0BB, 0xF0B6, 0xF0C9, 0xF079};
inline constexpr USAGE kVendorValueF029 = 0xF029;

// A vendor property the driver writes: usage, trace name, initial request.
struct RequestedVendorProperty {
    USAGE Usage;
    const char16_t* Name;
    ULONG Default;
};
// In the order the write-back sends them. 0xF029 and 0xF08D are read only.
inline constexpr RequestedVendorProperty kRequestedVendorProperties[kRequestedVendorValueCount] = {
    {0xF02A, u"HID_DRIVER_USAGE_SENSOR_PROPERTY_ACT_SUBSCRIBED_ACTIVITIES", 127},
    {0xF03D, u"HID_DRIVER_USAGE_SENSOR_PROPERTY_GFLICK_CLSMASK", 63},
    {0xF03E, u"HID_DRIVER_USAGE_SENSOR_PROPERTY_GFLICK_LEVEL", 0},
    {0xF066, u"HID_DRIVER_USAGE_SENSOR_PROPERTY_STAP_LEVEL", 0},
    {0xF08E, u"HID_DRIVER_USAGE_SENSOR_PROPERTY_PEDO_RESET", 0},
    {0xF097, u"HID_DRIVER_USAGE_SENSOR_PROPERTY_INSTANTACTIVITY_CLSMASK", 15},
    {0xF0B5, u"HID_DRIVER_USAGE_SENSOR_PROPERTY_PDR_USER_H", 180},
    {0xF0BB, u"HID_DRIVER_USAGE_SENSOR_PROPERTY_PDR_6DOF", 0},
    {0xF0B6, u"HID_DRIVER_USAGE_SENSOR_PROPERTY_ALTITUDE_FLOOR_H", 450},
    {0xF0C9, u"HID_DRIVER_USAGE_SENSOR_PROPERTY_LIFT_MASK", 3},
    {0xF079, u"HID_DRIVER_USAGE_SENSOR_PROPERTY_UDG_LEVEL", 0},
};

// Indices into RequestedVendorValues, for the sensor kinds that change them.
enum class RequestedVendor : ULONG {
    ActSubscribedActivities = 0,
    GflickClsmask,
    GflickLevel,
    StapLevel,
    PedoReset,
    InstantActivityClsmask,
    PdrUserH,
    Pdr6Dof,
    AltitudeFloorH,
    LiftMask,
    UdgLevel,
};

// Index of `usage` in kVendorValueUsages, or -1.
int VendorValueIndex(USAGE usage) noexcept;

struct SensorPropertyCache : HeapObject {
    SensorPropertyCache() noexcept;
    SensorPropertyCache(const SensorPropertyCache&) = delete;
    SensorPropertyCache& operator=(const SensorPropertyCache&) = delete;

    // Clears every field up to the key vector; the key vector, the custom
    // usage, PendingFieldCount and the requested vendor values keep theirs.
    void ClearFeatureValues() noexcept;

    // Data fields the sensor has (custom boolean array 0x542; custom value k at
    // dataFieldSeen[k], k = 1..28, index 0 unused). Set when the data-field list
    // is built and by input decoding; the write-back acts only on seen fields.
    std::atomic<ULONG> booleanArraySeen{0};
    std::atomic<ULONG> dataFieldSeen[kCustomValueCount + 1] = {};

    CachedEntry<ULONG> ReportingState;          // 0x316, raw
    CachedEntry<ULONG> ReportingStateSelector;  // 1 no events (0x840, 0x843), 2 events (0x841, 0x842, 0x844, 0x845)
    CachedEntry<ULONG> PowerState;              // 0x319, raw
    CachedEntry<ULONG> PowerStateSelector;      // 1 (0x850, 0x853, 0x854), 2 (0x851), 3 (0x852), 6 (0x855)
    CachedEntry<ULONG> SensorStatus;            // 0x303, raw
    CachedEntry<ULONG> SensorStateSelector;     // 0x800..0x806 as 1..7
    CachedEntry<ULONG> ReportInterval;          // 0x30E, milliseconds
    CachedEntry<ULONG> BatchInterval;           // 0x530E read-back
    CachedEntry<float> ChangeSensitivity;       // 0x30F
    CachedEntry<float> Maximum;                 // 0x314
    CachedEntry<float> Minimum;                 // 0x315
    CachedEntry<float> Accuracy;                // 0x312
    CachedEntry<float> Resolution;              // 0x313
    CachedEntry<LONG> VendorF029;
    CachedEntry<LONG> VendorValues[kVendorValueCount];  // kVendorValueUsages order; current device values

    // Per data-field slot: 0 collection-wide (0x543), k custom value k (0x543 + k).
    CachedEntry<float> FieldChangeSensitivity[kDataFieldSlots];  // modifier 0x1000
    CachedEntry<float> FieldMaximum[kDataFieldSlots];            // 0x2000
    CachedEntry<float> FieldMinimum[kDataFieldSlots];            // 0x3000
    CachedEntry<float> FieldAccuracy[kDataFieldSlots];           // 0x4000
    CachedEntry<float> FieldResolution[kDataFieldSlots];         // 0x5000

    CachedEntry<ULONG> ConnectionType;           // 0x309, raw
    CachedEntry<ULONG> ConnectionTypeSelector;   // 0x830..0x832 as 0..2
    CachedEntry<ULONG> MinimumReportInterval;    // 0x304, milliseconds

    CachedString FriendlyName;        // 0x301
    CachedString PersistentUniqueId;  // 0x302
    CachedString Manufacturer;        // 0x305
    CachedString Model;               // 0x306
    CachedString SerialNumber;        // 0x307
    CachedString Description;         // 0x308

    // The sensor's data fields in list order, built once by the registration.
    HeapArray<const PROPERTYKEY*> DataFieldKeys;
    ULONG CustomUsage = 0;         // parsed from the description string; 0 when not
    ULONG CustomUsagePresent = 0;
    ULONG PendingFieldCount = 0;   // counted field updates of the open sample; reader only

    // What the sensor kinds want the vendor properties to be; kVendorLeaveAlone
    // leaves one alone. kRequestedVendorProperties order.
    std::atomic<ULONG> RequestedVendorValues[kRequestedVendorValueCount] = {};

    // Held for the whole of ReadFeatureReport. Two client calls on one sensor
    // (set interval and set thresholds, say) would otherwise parse into the
    // same cache and interleave their read-modify-write cycles on the device,
    // so one could send a report carrying the other's half-written field. A
    // plain mutex: it is taken only on client-call threads, never by the input
    // reader (which reads bounds through the atomics above), and nothing that
    // runs under it takes another driver lock. A device that stops answering
    // holds it for the synchronous requests' timeouts, no longer.
    std::mutex FeatureReportLock;
};
