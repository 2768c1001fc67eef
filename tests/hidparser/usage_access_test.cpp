// HidP_GetUsages, HidP_SetUsages and HidP_UnsetUsages over sensor selectors
// (Array fields) and keyboard-style buttons.
#include <gtest/gtest.h>

#include <algorithm>
#include <iterator>
#include <tuple>

#include "host/hidparser/descriptor_builder.h"
#include "host/hidparser/sensor_descriptor.h"
#include "test_support.h"

namespace host::hid {
namespace {

using namespace test;

// hutrr39-accel3 feature report: connection type, reporting state, power state
// and sensor state selectors in nodes 1..4, one byte each, after byte 0.
class SensorSelectors : public testing::Test {
protected:
    void SetUp() override { blob_ = ParseSingle(LoadDescriptor("hutrr39-accel3")); }
    PreparsedBlob blob_;
};

TEST_F(SensorSelectors, SlotValuesNameSelectorsFromLogicalMinimum)
{
    std::vector<CHAR> report = EmptyReport(blob_, HidP_Feature, 0);
    const CHAR slots[] = {1, 2, 1, 6};  // 0x831, 0x842, 0x851, 0x806
    std::copy(std::begin(slots), std::end(slots), report.begin() + 1);
    EXPECT_EQ(GetUsages(blob_, HidP_Feature, 0x20, 0, report), (std::vector<USAGE>{0x831, 0x842, 0x851, 0x806}));
    EXPECT_EQ(GetUsages(blob_, HidP_Feature, 0x20, 2, report), (std::vector<USAGE>{0x842}));
    EXPECT_EQ(GetUsages(blob_, HidP_Feature, 0x20, 4, report), (std::vector<USAGE>{0x806}));

    // A short list gets what fits and the length needed.
    USAGE usages[2] = {};
    ULONG count = 2;
    const auto length = static_cast<ULONG>(report.size());
    EXPECT_EQ(HidP_GetUsages(HidP_Feature, 0x20, 0, usages, &count, Preparsed(blob_), report.data(), length),
              HIDP_STATUS_BUFFER_TOO_SMALL);
    EXPECT_EQ(std::tuple(count, usages[0], usages[1]), std::tuple(4u, 0x831, 0x842));
    count = 0;
    EXPECT_EQ(HidP_GetUsages(HidP_Feature, 0x20, 0, nullptr, &count, Preparsed(blob_), report.data(), length),
              HIDP_STATUS_BUFFER_TOO_SMALL);
    EXPECT_EQ(count, 4u);

    // Value 0 is the first selector; a value past Logical Maximum names none.
    report[1] = 0;
    report[2] = 6;
    EXPECT_EQ(GetUsages(blob_, HidP_Feature, 0x20, 1, report), (std::vector<USAGE>{0x830}));
    EXPECT_EQ(GetUsages(blob_, HidP_Feature, 0x20, 2, report), (std::vector<USAGE>{}));
}

TEST_F(SensorSelectors, FullArrayAndMissingUsages)
{
    std::vector<CHAR> report = EmptyReport(blob_, HidP_Feature, 0);
    ASSERT_EQ(SetUsages(blob_, HidP_Feature, 0x20, 2, {0x844}, report), HIDP_STATUS_SUCCESS);
    // Setting what is already there changes nothing.
    EXPECT_EQ(SetUsages(blob_, HidP_Feature, 0x20, 2, {0x844}, report), HIDP_STATUS_SUCCESS);
    ULONG done = 99;
    EXPECT_EQ(SetUsages(blob_, HidP_Feature, 0x20, 2, {0x845}, report, &done), HIDP_STATUS_BUFFER_TOO_SMALL);
    EXPECT_EQ(std::tuple(done, report[2]), std::tuple(0u, 4));

    EXPECT_EQ(UnsetUsages(blob_, HidP_Feature, 0x20, 2, {0x843}, report, &done), HIDP_STATUS_BUTTON_NOT_PRESSED);
    EXPECT_EQ(done, 0u);
    EXPECT_EQ(SetUsages(blob_, HidP_Feature, 0x20, 2, {0x851}, report, &done), HIDP_STATUS_USAGE_NOT_FOUND);
    EXPECT_EQ(SetUsages(blob_, HidP_Feature, 0x20, 0, {0x851, 0x846}, report, &done), HIDP_STATUS_USAGE_NOT_FOUND);
    EXPECT_EQ(std::tuple(done, report[3]), std::tuple(1u, 1));  // the first usage went in
}

TEST(SelectorsOfSeveralSensors, ReportIdAndLinkCollectionPickTheSensor)
{
    const sensor::SensorShape sensorShape = sensor::CustomSensor(8, {sensor::CustomValue(1)});
    PreparsedBlob blob = ParseSingle(sensor::BuildSensorContainer({sensorShape, sensorShape}, 4));
    // Node order: 1 sensor A, 2 reporting, 3 power, 4 state, 5 event, 6 sensor B, 7 reporting, ...
    std::vector<CHAR> report = EmptyReport(blob, HidP_Input, 5);
    report[1] = 1;  // sensor state 0x801
    report[2] = 3;  // sensor event 0x813
    EXPECT_EQ(GetUsages(blob, HidP_Input, 0x20, 0, report), (std::vector<USAGE>{0x801, 0x813}));
    EXPECT_EQ(GetUsages(blob, HidP_Input, 0x20, 9, report), (std::vector<USAGE>{0x801}));
    GetUsages(blob, HidP_Input, 0x20, 4, report, HIDP_STATUS_INCOMPATIBLE_REPORT_ID);
    GetUsages(blob, HidP_Input, 0x20, 2, report, HIDP_STATUS_USAGE_NOT_FOUND);  // feature-only selector

    std::vector<CHAR> feature = EmptyReport(blob, HidP_Feature, 0);
    ASSERT_EQ(SetUsages(blob, HidP_Feature, 0x20, 7, {sensor::kReportingAllEvents}, feature), HIDP_STATUS_SUCCESS);
    EXPECT_EQ(std::tuple(feature[0], feature[1]), std::tuple(5, 1));  // a zeroed report gets the field's ID
    EXPECT_EQ(UnsetUsages(blob, HidP_Feature, 0x20, 2, {sensor::kReportingAllEvents}, feature),
              HIDP_STATUS_INCOMPATIBLE_REPORT_ID);
}

TEST(SelectorWithLogicalMinimumOne, ZeroIsAnEmptySlot)
{
    DescriptorBuilder b;
    b.UsagePage(0x20).Usage(0xE1).Collection(CollectionType::Application);
    b.Usage(0x316).LogicalMinimum(1).LogicalMaximum(6).ReportSize(8).ReportCount(1).Collection(CollectionType::Logical);
    b.UsageMinimum(0x840).UsageMaximum(0x845).Feature(main_item::kDataArrayAbs).EndCollection();
    b.EndCollection();
    PreparsedBlob blob = ParseSingle(b.Build());
    const auto buttons = ButtonCaps(blob, HidP_Feature);
    ASSERT_EQ(buttons.size(), 1u);
    EXPECT_EQ(std::tuple(buttons[0].IsRange, buttons[0].Range.DataIndexMax), std::tuple(1, 5));

    std::vector<CHAR> report = EmptyReport(blob, HidP_Feature, 0);
    EXPECT_EQ(GetUsages(blob, HidP_Feature, 0x20, 1, report), (std::vector<USAGE>{}));
    ASSERT_EQ(SetUsages(blob, HidP_Feature, 0x20, 1, {0x840}, report), HIDP_STATUS_SUCCESS);
    EXPECT_EQ(report[1], 1);
    EXPECT_EQ(GetUsages(blob, HidP_Feature, 0x20, 1, report), (std::vector<USAGE>{0x840}));
    ASSERT_EQ(UnsetUsages(blob, HidP_Feature, 0x20, 1, {0x840}, report), HIDP_STATUS_SUCCESS);
    EXPECT_EQ(report[1], 0);
}

TEST(OneBitSelectors, HeadTrackerReportingAndPowerState)
{
    PreparsedBlob blob = ParseSingle(LoadDescriptor("android-headtracker-v2-le"));
    std::vector<CHAR> report = EmptyReport(blob, HidP_Feature, 1);
    // Feature report 1: reporting (1 bit), power (1 bit), interval (6 bits), vendor (1 bit), pad (1 bit).
    EXPECT_EQ(GetUsages(blob, HidP_Feature, 0x20, 0, report), (std::vector<USAGE>{0x840, 0x855, 0xF800}));
    ASSERT_EQ(UnsetUsages(blob, HidP_Feature, 0x20, 1, {0x840}, report), HIDP_STATUS_SUCCESS);
    ASSERT_EQ(SetUsages(blob, HidP_Feature, 0x20, 1, {0x841}, report), HIDP_STATUS_SUCCESS);
    ASSERT_EQ(SetUsages(blob, HidP_Feature, 0x20, 2, {0x851}, report), HIDP_STATUS_SUCCESS);
    ASSERT_EQ(SetUsages(blob, HidP_Feature, 0x20, 3, {0xF801}, report), HIDP_STATUS_SUCCESS);
    EXPECT_EQ(std::tuple(report[1], report[2]), std::tuple(0x03, 0x01));
    EXPECT_EQ(GetUsages(blob, HidP_Feature, 0x20, 0, report), (std::vector<USAGE>{0x841, 0x851, 0xF801}));

    // The 6-bit interval between the selector bits leaves them alone.
    ULONG interval = 0;
    ASSERT_EQ(SetValue(blob, HidP_Feature, 0x20, 0, 0x30E, 50, report), HIDP_STATUS_SUCCESS);
    ASSERT_EQ(GetValue(blob, HidP_Feature, 0x20, 0, 0x30E, report, interval), HIDP_STATUS_SUCCESS);
    EXPECT_EQ(interval, 50u);
    EXPECT_EQ(GetUsages(blob, HidP_Feature, 0x20, 0, report), (std::vector<USAGE>{0x841, 0x851, 0xF801}));
}

TEST(KeyboardButtons, ModifierBitsAndKeyArray)
{
    std::vector<PreparsedBlob> blobs = ParseOk(LoadDescriptor("hutrr39-col2"));
    PreparsedBlob& keyboard = blobs[0];
    std::vector<CHAR> report = EmptyReport(keyboard, HidP_Input, 3);
    ASSERT_EQ(report.size(), 12u);

    ASSERT_EQ(SetUsages(keyboard, HidP_Input, 0x07, 0, {0xE1, 0xE4}, report), HIDP_STATUS_SUCCESS);
    EXPECT_EQ(static_cast<std::uint8_t>(report[1]), 0x12);
    std::vector<USAGE> keys;
    for (USAGE key = 0x04; key < 0x04 + 10; ++key) keys.push_back(key);
    ASSERT_EQ(SetUsages(keyboard, HidP_Input, 0x07, 0, keys, report), HIDP_STATUS_SUCCESS);
    EXPECT_EQ(std::tuple(report[2], report[11]), std::tuple(0x04, 0x0D));

    std::vector<USAGE> expected = {0xE1, 0xE4};
    expected.insert(expected.end(), keys.begin(), keys.end());
    EXPECT_EQ(GetUsages(keyboard, HidP_Input, 0x07, 0, report), expected);

    ASSERT_EQ(UnsetUsages(keyboard, HidP_Input, 0x07, 0, {0x06, 0xE1}, report), HIDP_STATUS_SUCCESS);
    // The key slot is freed: usage 0 ("no event") is never reported.
    EXPECT_EQ(std::tuple(report[4], report[1]), std::tuple(0, 0x10));
    EXPECT_EQ(UnsetUsages(keyboard, HidP_Input, 0x07, 0, {0xE1}, report), HIDP_STATUS_BUTTON_NOT_PRESSED);
    ASSERT_EQ(SetUsages(keyboard, HidP_Input, 0x07, 0, {0x2C}, report), HIDP_STATUS_SUCCESS);
    EXPECT_EQ(report[4], 0x2C);
}

}  // namespace
}  // namespace host::hid
