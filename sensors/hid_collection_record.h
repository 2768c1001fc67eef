// The per-sensor state block: identity, capabilities, report IDs, strings,
// intervals, the platform sensor and its lists, delivery and history state.
// HidSensor allocates one in its constructor and frees it in its destructor.
//
// The 32-bit fields that class-extension callbacks write while the reader
// reads them (requested states, intervals, forceDelivery, modeFlags,
// thresholds) are relaxed atomics: each is a single value whose change takes
// effect at the next completed sample, and no lock is wanted on the report path.
#pragma once

#include <atomic>
#include <cfloat>

#include "driver/heap.h"
#include "driver/wide_string.h"
#include "platform/hidpi.h"
#include "platform/sensorscx.h"

class HidDevice;
class SensorHistory;

inline constexpr ULONG kCustomSensorObjectKind = 17;  // usage 0xE1 collections
inline constexpr ULONG kOtherSensorObjectKind = 19;   // every other sensor collection
inline constexpr ULONG kThresholdPositions = 32;      // one per data-field position
inline constexpr ULONG kFeaturePropertyFlagCount = 6;

// modeFlags bits.
inline constexpr ULONG kModeFiltered = 1;     // the host filters by thresholds
inline constexpr ULONG kModeEverySample = 2;  // every complete sample goes out
inline constexpr ULONG kModeHistory = 4;      // the history records

// Sets one delivery mode and clears the other in one step, so that the reader
// never sees neither; the history bit is kept. Returns the old flags.
inline ULONG SetDeliveryMode(std::atomic<ULONG>& flags, ULONG mode) noexcept
{
    ULONG old = flags.load(std::memory_order_relaxed);
    while (!flags.compare_exchange_weak(old, (old & ~(kModeFiltered | kModeEverySample)) | mode,
                                        std::memory_order_relaxed))
        ;
    return old;
}

// DataThresholds position of custom value 1: the value the write-back sends
// as the sensor's change sensitivity.
inline constexpr ULONG kChangeSensitivityPosition = 3;

struct HidCollectionRecord : HeapObject {
    // Identity, set by the constructor.
    WDFDEVICE Device = nullptr;
    std::atomic<ULONG> IsInitialized{0};  // input reports are ignored while 0
    HidDevice* Owner = nullptr;
    ULONG SensorObjectKind = 0;
    ULONG SensorIndex = 0;
    ULONG Usage = 0;
    USHORT LinkCollection = 0;

    // Capabilities of the whole HID collection, read by Initialize.
    ULONG CapabilitiesRead = 0;
    HeapArray<HIDP_VALUE_CAPS> InputValueCaps;
    HeapArray<HIDP_BUTTON_CAPS> InputButtonCaps;
    HeapArray<HIDP_VALUE_CAPS> FeatureValueCaps;
    HeapArray<HIDP_BUTTON_CAPS> FeatureButtonCaps;
    UCHAR InputReportId = 0;    // ReportID of the first input value capability
    UCHAR FeatureReportId = 0;  // ReportID of the first feature value capability
    ULONG HasFeatureReport = 0;
    ULONG CustomUsageAnnounced = 0;

    // What clients asked the device for; written to it by the feature write-back.
    std::atomic<ULONG> RequestedReportingState{0};  // 1 report events, 0 none
    std::atomic<ULONG> RequestedPowerState{0};      // 2 full, 1 low, 0 off
    std::atomic<ULONG> SettingsApplied{0};  // set after a reporting and power state write

    // The platform sensor and the six lists published for it. The lists are
    // framework memory parented to the SENSOROBJECT and die with it.
    GUID PersistentUniqueId{};
    SENSOROBJECT SensorObject = nullptr;
    // 1 once the platform sensor is initialized with all six lists. A sensor
    // whose registration failed part-way may lack lists; the input path
    // ignores its reports, as it does those of an uninitialized sensor.
    std::atomic<ULONG> IsRegistered{0};
    PSENSOR_COLLECTION_LIST EnumerationProperties = nullptr;
    PSENSOR_COLLECTION_LIST SensorProperties = nullptr;
    PSENSOR_PROPERTY_LIST SupportedDataFields = nullptr;
    PSENSOR_COLLECTION_LIST DataFieldProperties = nullptr;
    PSENSOR_COLLECTION_LIST Thresholds = nullptr;
    PSENSOR_COLLECTION_LIST Data = nullptr;

    // Intervals in milliseconds; 0 as current interval stands for the fallback.
    std::atomic<ULONG> CurrentReportInterval{0};
    std::atomic<ULONG> FallbackReportInterval{0};
    std::atomic<ULONG> MinimumReportInterval{0};
    std::atomic<ULONG> BatchInterval{0};

    // Sensor-wide bounds of the data fields, set when a custom sensor initializes.
    float DefaultMaximum = 0.0f;
    float DefaultMinimum = 0.0f;
    float FurtherBounds[2] = {0.0f, 0.0f};

    // Strings, each at most 251 characters and a terminator.
    WCHAR Manufacturer[kSensorStringChars] = {};
    WCHAR Model[kSensorStringChars] = {};
    WCHAR SerialNumber[kSensorStringChars] = {};
    WCHAR InstanceName[kSensorStringChars] = {};
    WCHAR FriendlyName[kSensorStringChars] = {};

    // Which standard properties the feature report carried.
    ULONG FeaturePropertyFlags[kFeaturePropertyFlagCount] = {};
    ULONG FeatureSummaryTraced = 0;  // the feature report summary goes out once per sensor

    // Change sensitivities per data-field position; custom value k uses k + 2.
    std::atomic<float> DataThresholds[kThresholdPositions] = {};
    std::atomic<float> RequestedChangeSensitivity{0.0f};

    // Delivery.
    std::atomic<ULONG> modeFlags{0};      // bit 0 filtered, bit 1 every sample, bit 2 history
    std::atomic<ULONG> forceDelivery{1};  // deliver the next sample whatever the filter says

    // History.
    SensorHistory* History = nullptr;  // owned by the activity or pedometer sensor; null for others
    ULONG historySupported = 0;
    ULONG minRetrievalSize = 0;
    void* HistoryBuffer = nullptr;  // heap block owned by the record
    ULONG historyHead = 0;
    ULONG historyNewest = 0;
    ULONG historyCount = 0;
    ULONG historyCapacity = 0;
    UCHAR historyStarted = 0;

    // Services offered to subclasses (the history's bufferLock and timer).
    WDFWAITLOCK WaitLock = nullptr;
    WDFTIMER Timer = nullptr;
};

// What the write-back asks of the device: reporting on at full power, or
// reporting off at low power.
inline void RequestReporting(HidCollectionRecord& record, bool on) noexcept
{
    record.RequestedReportingState.store(on ? 1 : 0, std::memory_order_relaxed);
    record.RequestedPowerState.store(on ? 2 : 1, std::memory_order_relaxed);
}
