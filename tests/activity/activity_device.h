// An activity sensor on a simulated device: a container with one custom
// sensor described "0x232" whose input report carries seven 32-bit activity
// words (report ID 1), and the words and reports it takes.
#pragma once

#include <cstdint>
#include <vector>

#include "activity/activity_sensor.h"
#include "tests/sensors/custom_sensor_test_support.h"

namespace testdriver {

inline HidDeviceConfig ActivityDevice()
{
    std::vector<hs::ValueField> values;
    for (int k = 1; k <= 7; ++k)
        values.push_back(hs::CustomValue(k, 32, 0, 0x7FFFFFFF, 0));
    return HidDeviceConfig{}
        .WithDescriptor(hs::BuildSensorContainer({hs::CustomSensor(16, values)}))
        .WithFeature(1, FeatureReport(1, 100, {u"0x232"}));
}

// Code in bits 4..11, confidence field (tenths of a percent) in bits 12..22.
constexpr std::uint32_t Word(std::uint32_t code, std::uint32_t confidenceField)
{
    return (code << 4) | (confidenceField << 12);
}

// One input report with the seven words (missing ones 0).
inline Bytes ActivityReport(HidDevice& device, std::vector<std::uint32_t> words)
{
    words.resize(7, 0);
    return InputReport(device, 1, words, std::vector<int>(7, 4));
}

inline ActivitySensor* ActivityOf(HidSensor* sensor)
{
    return dynamic_cast<ActivitySensor*>(sensor);
}

// Flags of the platform's activity states.
inline constexpr ULONG kWalking = 0x08;
inline constexpr ULONG kRunning = 0x10;
inline constexpr ULONG kBiking = 0x40;
inline constexpr ULONG kInVehicle = 0x20;
inline constexpr ULONG kStationary = 0x02;
inline constexpr ULONG kFidgeting = 0x04;
inline constexpr ULONG kUnknown = 0x01;

}  // namespace testdriver
