// HID sensor descriptors stated compactly, for tests and examples. A sensor is
// a list of feature and input fields on the Sensors page (0x20):
//
//   SensorShape activity = CustomSensor(32, {CustomValue(1, 8, 0, 100), CustomValue(2, 16)});
//   auto container = BuildSensorContainer({activity, pedometer});  // report IDs 1, 2
//
// Usage conventions: the top four bits of a property or data-field usage carry
// a modifier (Modified(0x544, kModMaximum) == 0x2544); 0xF000..0xFFFF is the
// vendor range. Selectors (reporting state, power state, ...) are 8-bit Array
// fields inside a Logical collection named by the property, as devices write
// them; their Logical Minimum is 0, so the first selector has value 0.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <span>
#include <vector>

#include "host/hidparser/descriptor_builder.h"

namespace host::hid::sensor {

inline constexpr std::uint16_t kUsagePageSensor = 0x0020;

// Collection usages.
inline constexpr std::uint16_t kSensorCollection = 0x0001;  // container of several sensors
inline constexpr std::uint16_t kAccelerometer3D = 0x0073;
inline constexpr std::uint16_t kGyrometer3D = 0x0076;
inline constexpr std::uint16_t kCustomSensor = 0x00E1;

// Properties.
inline constexpr std::uint16_t kFriendlyName = 0x0301;
inline constexpr std::uint16_t kPersistentUniqueId = 0x0302;
inline constexpr std::uint16_t kSensorStatus = 0x0303;
inline constexpr std::uint16_t kMinimumReportInterval = 0x0304;
inline constexpr std::uint16_t kManufacturer = 0x0305;
inline constexpr std::uint16_t kModel = 0x0306;
inline constexpr std::uint16_t kSerialNumber = 0x0307;
inline constexpr std::uint16_t kDescription = 0x0308;
inline constexpr std::uint16_t kConnectionType = 0x0309;
inline constexpr std::uint16_t kReportInterval = 0x030E;
inline constexpr std::uint16_t kChangeSensitivityAbsolute = 0x030F;
inline constexpr std::uint16_t kAccuracy = 0x0312;
inline constexpr std::uint16_t kResolution = 0x0313;
inline constexpr std::uint16_t kMaximum = 0x0314;
inline constexpr std::uint16_t kMinimum = 0x0315;
inline constexpr std::uint16_t kReportingState = 0x0316;
inline constexpr std::uint16_t kPowerState = 0x0319;
inline constexpr std::uint16_t kReportLatency = 0x031B;

// Data fields.
inline constexpr std::uint16_t kSensorState = 0x0201;
inline constexpr std::uint16_t kSensorEvent = 0x0202;
inline constexpr std::uint16_t kCustomUsage = 0x0541;
inline constexpr std::uint16_t kCustomBooleanArray = 0x0542;
inline constexpr std::uint16_t kCustomValueAll = 0x0543;  // all custom values at once
constexpr std::uint16_t CustomValueUsage(int k)
{
    return static_cast<std::uint16_t>(0x0543 + k);
}  // k = 1..28

// Modifiers in the top four bits.
inline constexpr std::uint16_t kModChangeSensitivityAbsolute = 0x1000;
inline constexpr std::uint16_t kModMaximum = 0x2000;
inline constexpr std::uint16_t kModMinimum = 0x3000;
inline constexpr std::uint16_t kModAccuracy = 0x4000;
inline constexpr std::uint16_t kModResolution = 0x5000;
inline constexpr std::uint16_t kModChangeSensitivityRelativePercent = 0xE000;
constexpr std::uint16_t Modified(std::uint16_t usage, std::uint16_t modifier)
{
    return static_cast<std::uint16_t>((usage & 0x0FFF) | modifier);
}

// First selector of each named array.
inline constexpr std::uint16_t kSensorStateUndefined = 0x0800;  // 0x800..0x806
inline constexpr std::uint16_t kSensorEventUnknown = 0x0810;    // 0x810..0x815
inline constexpr std::uint16_t kConnectionIntegrated = 0x0830;  // 0x830..0x832
inline constexpr std::uint16_t kReportingNoEvents = 0x0840;     // 0x840..0x845
inline constexpr std::uint16_t kReportingAllEvents = 0x0841;
inline constexpr std::uint16_t kPowerUndefined = 0x0850;  // 0x850..0x855
inline constexpr std::uint16_t kPowerFull = 0x0851;
inline constexpr std::uint16_t kPowerLow = 0x0852;
inline constexpr std::uint16_t kPowerOff = 0x0855;

// One Variable field (a value, or a string: 16-bit elements, count = chars).
struct ValueField {
    std::uint16_t usage = 0;
    std::uint8_t bitSize = 16;
    std::uint16_t count = 1;
    std::int64_t logicalMin = 0;
    std::int64_t logicalMax = 0xFFFF;
    int unitExponent = 0;
    std::uint32_t unit = 0;
    std::uint16_t flags = main_item::kDataVarAbs;
};

// A named array: a Logical collection with the property's usage around one
// Array field whose usages are `selectorCount` consecutive selectors.
struct SelectorField {
    std::uint16_t usage = 0;
    std::uint16_t firstSelector = 0;
    std::uint8_t selectorCount = 0;
    std::uint8_t bitSize = 8;
};

struct SensorShape {
    std::uint16_t usage = kCustomSensor;
    std::uint8_t reportId = 0;  // single sensors only; 0 writes no Report ID
    std::vector<SelectorField> featureSelectors;
    std::vector<ValueField> features;
    std::vector<SelectorField> inputSelectors;
    std::vector<ValueField> inputs;
};

// Fields.
ValueField Property(std::uint16_t usage, std::uint8_t bitSize, std::int64_t logicalMin, std::int64_t logicalMax,
                    int unitExponent = 0);
ValueField StringProperty(std::uint16_t usage, std::uint16_t chars);  // UTF-16, one element per char
ValueField ReportIntervalProperty(std::uint8_t bitSize = 32, int unitExponent = 0);
ValueField CustomValue(int k, std::uint8_t bitSize = 16, std::int64_t logicalMin = -32767,
                       std::int64_t logicalMax = 32767, int unitExponent = 0);
SelectorField ReportingStateSelector();  // 0x316: 0x840..0x845
SelectorField PowerStateSelector();      // 0x319: 0x850..0x855
SelectorField SensorStateSelector();     // 0x201: 0x800..0x806
SelectorField SensorEventSelector();     // 0x202: 0x810..0x815
SelectorField ConnectionTypeSelector();  // 0x309: 0x830..0x832

// A custom sensor as devices usually state one: feature report with reporting
// and power state selectors, report interval and a description string of
// `descriptionChars` characters; input report with sensor state and event
// selectors followed by `values`.
SensorShape CustomSensor(std::uint16_t descriptionChars, std::vector<ValueField> values);

// The fields of one sensor (no collection around them) into a builder.
void AppendSensorFields(DescriptorBuilder& builder, const SensorShape& sensor, std::uint8_t reportId);

// Application collection 0x0001 with one Physical child per sensor; sensor k
// (0-based) uses report ID reportIdBase + k for input and feature.
std::vector<std::uint8_t> BuildSensorContainer(std::span<const SensorShape> sensors, std::uint8_t reportIdBase = 1);
std::vector<std::uint8_t> BuildSensorContainer(std::initializer_list<SensorShape> sensors,
                                               std::uint8_t reportIdBase = 1);

// The sensor as a top-level collection of its own, with its reportId (if any).
std::vector<std::uint8_t> BuildSingleSensor(const SensorShape& sensor,
                                            CollectionType type = CollectionType::Application);

}  // namespace host::hid::sensor
