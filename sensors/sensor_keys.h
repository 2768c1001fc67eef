// The property keys and GUIDs a custom sensor publishes. The data-field key
// vector points into these constants, so a key's address is stable for the
// life of the process.
#pragma once

#include "platform/propsys.h"

// Format IDs.
inline constexpr GUID kCustomDataFmtid = {
    0xB14C764F, 0x07CF, 0x41E8, {0x9D, 0x82, 0xEB, 0xE3, 0xD0, 0x77, 0x6A, 0x6F}};
inline constexpr GUID kSensorDataFmtid = {
    0xC458F8A7, 0x4AE8, 0x4777, {0x96, 0x07, 0x2E, 0x9B, 0xDD, 0x65, 0x11, 0x0A}};
inline constexpr GUID kSensorPropertyFmtid = {
    0xD4247382, 0x969D, 0x4F24, {0xBB, 0x14, 0xFB, 0x96, 0x71, 0x87, 0x0B, 0xBF}};
inline constexpr GUID kDevicePropertyFmtid = {
    0x7F8383EC, 0xD3EC, 0x495C, {0xA8, 0xCF, 0xB8, 0xBB, 0xE8, 0x5C, 0x29, 0x20}};

// Values.
inline constexpr GUID kCustomSensorType = {
    0xE83AF229, 0x8640, 0x4D18, {0xA2, 0x13, 0xE2, 0x26, 0x75, 0xEB, 0xB2, 0xC3}};
inline constexpr GUID kSensorCategoryCustom = {
    0x2C90E7A9, 0xF4C9, 0x4FA2, {0xAF, 0x37, 0x56, 0xD4, 0x71, 0xFE, 0x5A, 0x3D}};
inline constexpr GUID kFallbackVendorSubtype = {
    0x23D274E9, 0x9C7A, 0x43B6, {0x90, 0x26, 0x37, 0x7A, 0x5D, 0x6C, 0x0A, 0x38}};
// The custom sensor's category is the platform's "other" category.
inline constexpr GUID kSensorCategoryOther = kSensorCategoryCustom;
inline constexpr GUID kMotionSensorCategory = {
    0xCD09DAF1, 0x3B2E, 0x4C3D, {0xB5, 0x98, 0xB5, 0xE5, 0xFF, 0x93, 0xFD, 0x46}};
inline constexpr GUID kRelativeOrientationSensorType = {
    0x40993B51, 0x4706, 0x44DC, {0x98, 0xD5, 0xC9, 0x20, 0xC0, 0x37, 0xFF, 0xAB}};
inline constexpr GUID kSimpleDeviceOrientationSensorType = {
    0x86A19291, 0x0482, 0x402C, {0xBF, 0x4C, 0xAD, 0xDA, 0xC5, 0x2B, 0x1C, 0x39}};

// Data fields.
inline constexpr PROPERTYKEY kTimestampKey = {kSensorDataFmtid, 2};
inline constexpr PROPERTYKEY kThresholdKey = {kSensorDataFmtid, 161};
inline constexpr PROPERTYKEY kCustomUsageKey = {kCustomDataFmtid, 5};
inline constexpr PROPERTYKEY kCustomBooleanArrayKey = {kCustomDataFmtid, 6};
// Orientation: the four quaternion components (W, X, Y, Z) and the simple
// device orientation value.
inline constexpr PROPERTYKEY kQuaternionWKey = {kSensorDataFmtid, 70};
inline constexpr PROPERTYKEY kQuaternionXKey = {kSensorDataFmtid, 71};
inline constexpr PROPERTYKEY kQuaternionYKey = {kSensorDataFmtid, 72};
inline constexpr PROPERTYKEY kQuaternionZKey = {kSensorDataFmtid, 73};
inline constexpr PROPERTYKEY kSimpleDeviceOrientationKey = {kSensorDataFmtid, 120};

namespace sensor_keys_detail {
constexpr PROPERTYKEY CustomValueKey(int k)
{
    return {kCustomDataFmtid, static_cast<DWORD>(6 + k)};
}
}  // namespace sensor_keys_detail

// Custom value k (1..28) is kCustomValueKeys[k - 1], pid 6 + k.
inline constexpr PROPERTYKEY kCustomValueKeys[28] = {
#define HIDSENSOR_CV(k) sensor_keys_detail::CustomValueKey(k)
    HIDSENSOR_CV(1),  HIDSENSOR_CV(2),  HIDSENSOR_CV(3),  HIDSENSOR_CV(4),  HIDSENSOR_CV(5),
    HIDSENSOR_CV(6),  HIDSENSOR_CV(7),  HIDSENSOR_CV(8),  HIDSENSOR_CV(9),  HIDSENSOR_CV(10),
    HIDSENSOR_CV(11), HIDSENSOR_CV(12), HIDSENSOR_CV(13), HIDSENSOR_CV(14), HIDSENSOR_CV(15),
    HIDSENSOR_CV(16), HIDSENSOR_CV(17), HIDSENSOR_CV(18), HIDSENSOR_CV(19), HIDSENSOR_CV(20),
    HIDSENSOR_CV(21), HIDSENSOR_CV(22), HIDSENSOR_CV(23), HIDSENSOR_CV(24), HIDSENSOR_CV(25),
    HIDSENSOR_CV(26), HIDSENSOR_CV(27), HIDSENSOR_CV(28),
#undef HIDSENSOR_CV
};

// Sensor properties (P) and device properties (D).
inline constexpr PROPERTYKEY kSensorTypeKey = {kSensorPropertyFmtid, 2};
inline constexpr PROPERTYKEY kSensorCategoryKey = {kSensorPropertyFmtid, 3};
inline constexpr PROPERTYKEY kIsPrimaryKey = {kSensorPropertyFmtid, 5};
inline constexpr PROPERTYKEY kFriendlyNameKey = {kSensorPropertyFmtid, 6};
inline constexpr PROPERTYKEY kManufacturerKey = {kSensorPropertyFmtid, 7};
inline constexpr PROPERTYKEY kModelKey = {kSensorPropertyFmtid, 8};
inline constexpr PROPERTYKEY kPersistentUniqueIdKey = {kSensorPropertyFmtid, 9};
inline constexpr PROPERTYKEY kVendorSubtypeKey = {kSensorPropertyFmtid, 10};
inline constexpr PROPERTYKEY kSensorStateKey = {kSensorPropertyFmtid, 20};
inline constexpr PROPERTYKEY kMinimumDataIntervalKey = {kSensorPropertyFmtid, 21};
inline constexpr PROPERTYKEY kMaximumDataSizeKey = {kSensorPropertyFmtid, 22};
inline constexpr PROPERTYKEY kResolutionKey = {kSensorPropertyFmtid, 50};
inline constexpr PROPERTYKEY kRangeMinimumKey = {kSensorPropertyFmtid, 51};
inline constexpr PROPERTYKEY kRangeMaximumKey = {kSensorPropertyFmtid, 52};
inline constexpr PROPERTYKEY kSerialNumberKey = {kDevicePropertyFmtid, 8};
inline constexpr PROPERTYKEY kDescriptionKey = {kDevicePropertyFmtid, 10};
inline constexpr PROPERTYKEY kHidUsageKey = {kDevicePropertyFmtid, 22};

// Usages of the custom data fields (Sensors page).
inline constexpr USHORT kCustomUsageUsage = 0x0541;
inline constexpr USHORT kCustomBooleanArrayUsage = 0x0542;
inline constexpr USHORT kCustomValueAllUsage = 0x0543;
inline constexpr USHORT kFirstCustomValueUsage = 0x0544;  // custom value 1
inline constexpr USHORT kLastCustomValueUsage = 0x055F;   // custom value 28
