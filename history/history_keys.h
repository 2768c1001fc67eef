// Keys of the activity and pedometer data, thresholds and history properties.
#pragma once

#include "sensors/sensor_keys.h"

// Data fields and thresholds.
inline constexpr PROPERTYKEY kActivityStateKey = {kSensorDataFmtid, 130};
inline constexpr PROPERTYKEY kActivityConfidenceKey = {kSensorDataFmtid, 131};
inline constexpr PROPERTYKEY kSubscribedActivitiesThresholdKey = {kSensorDataFmtid, 132};
inline constexpr PROPERTYKEY kActivityStreamThresholdKey = {kSensorDataFmtid, 133};
inline constexpr PROPERTYKEY kActivityConfidenceThresholdKey = {kSensorDataFmtid, 134};
inline constexpr PROPERTYKEY kStepTypeKey = {kSensorDataFmtid, 140};
inline constexpr PROPERTYKEY kStepCountKey = {kSensorDataFmtid, 141};
inline constexpr PROPERTYKEY kStepDurationKey = {kSensorDataFmtid, 142};
inline constexpr PROPERTYKEY kFirstAfterResetKey = {kSensorDataFmtid, 143};

// Values: every activity-state flag (unknown to biking), and the step types.
inline constexpr ULONG kAllActivities = 127;
inline constexpr ULONG kStepTypeUnknown = 1;
inline constexpr ULONG kStepTypeWalking = 2;
inline constexpr ULONG kStepTypeRunning = 4;

// Sensor properties of the history sensors.
inline constexpr PROPERTYKEY kHistorySizeKey = {kSensorPropertyFmtid, 24};
inline constexpr PROPERTYKEY kHistoryIntervalKey = {kSensorPropertyFmtid, 25};
inline constexpr PROPERTYKEY kHistoryRecordSizeKey = {kSensorPropertyFmtid, 26};
// Both publish pid 23 with this fixed value.
inline constexpr PROPERTYKEY kSensorProperty23Key = {kSensorPropertyFmtid, 23};
inline constexpr float kProperty23Value = 2.0f;
