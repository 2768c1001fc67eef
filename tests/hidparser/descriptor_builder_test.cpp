// The sensor helper's descriptors (and so the builder under it) as the parser
// reads them.
#include "host/hidparser/sensor_descriptor.h"

#include <gtest/gtest.h>

#include <tuple>

#include "test_support.h"

namespace host::hid {
namespace {

using namespace test;

TEST(SensorDescriptor, CustomSensorsInAContainer)
{
    const sensor::SensorShape activity =
        sensor::CustomSensor(32, {sensor::CustomValue(1, 8, 0, 100), sensor::CustomValue(2, 16, -1000, 1000, -2)});
    const sensor::SensorShape pedometer = sensor::CustomSensor(16, {sensor::CustomValue(1, 32, 0, 0xFFFFFFFFLL)});
    PreparsedBlob blob = ParseSingle(sensor::BuildSensorContainer({activity, pedometer}, 7));

    const HIDP_CAPS caps = Caps(blob);
    EXPECT_EQ(std::tuple(caps.UsagePage, caps.Usage), std::tuple(sensor::kUsagePageSensor, sensor::kSensorCollection));
    EXPECT_EQ(caps.FeatureReportByteLength, 1 + 1 + 1 + 4 + 64);  // longest: the 32-char description
    EXPECT_EQ(caps.InputReportByteLength, 1 + 1 + 1 + 4);         // longest: the pedometer's 32-bit value
    EXPECT_EQ(std::tuple(caps.NumberFeatureButtonCaps, caps.NumberInputValueCaps), std::tuple(24, 3));

    // Node: usage, parent, type (Physical 0, Logical 2).
    std::vector<std::tuple<USAGE, USHORT, UCHAR>> nodes;
    for (const auto& n : Nodes(blob)) nodes.emplace_back(n.LinkUsage, n.Parent, n.CollectionType);
    EXPECT_EQ(nodes, (std::vector<std::tuple<USAGE, USHORT, UCHAR>>{
                         {0x01, 0, 1}, {0xE1, 0, 0}, {0x316, 1, 2}, {0x319, 1, 2}, {0x201, 1, 2}, {0x202, 1, 2},
                         {0xE1, 0, 0}, {0x316, 6, 2}, {0x319, 6, 2}, {0x201, 6, 2}, {0x202, 6, 2}}));
}

}  // namespace
}  // namespace host::hid
