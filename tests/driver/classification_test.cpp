// Classification of custom collections by the description string of their
// feature report, and how each device answer is taken.
#include <gtest/gtest.h>

#include "hid/custom_sensor_kind.h"
#include "pedometer/pedometer_sensor.h"
#include "sensors/custom_sensor.h"
#include "tests/driver/driver_test_bed.h"
#include "tests/driver/recording_sensors.h"

namespace testdriver {
namespace {

namespace hs = host::hid::sensor;
using host::hidsim::DeviceRule;
using host::hidsim::HidDeviceConfig;
using host::hidsim::RuleTrigger;

// Sensor 1 of a container (an accelerometer before it), whose feature report
// 2 says `description`.
HidDeviceConfig ContainerWithCustomSecond(const std::u16string& description)
{
    hs::SensorSpec accel;
    accel.usage = hs::kAccelerometer3D;
    accel.inputs = {hs::Property(0x453, 16, -32767, 32767)};
    return HidDeviceConfig{}
        .WithDescriptor(hs::BuildSensorContainer({accel, hs::CustomSensor(16, {hs::CustomValue(1)})}))
        .WithFeature(2, CustomFeatureReport(2, description, 16));
}

std::u16string SecondSensorName(DriverTestBed& bed)
{
    EXPECT_EQ(bed.Prepare(), STATUS_SUCCESS);
    HidSensor* sensor = bed.Sensor(1);
    return sensor != nullptr ? std::u16string(sensor->GetFriendlyName()) : u"(none)";
}

std::size_t GetFeatureCount(const DriverTestBed& bed)
{
    std::size_t count = 0;
    for (const auto& event : bed.Traffic())
        count += event.kind == host::hidsim::TrafficKind::GetFeature ? 1 : 0;
    return count;
}

class NearMiss : public ::testing::TestWithParam<const char16_t*> {};

TEST_P(NearMiss, ClassifiesAsOtherAndGivesAPlainCustomSensor)
{
    DriverTestBed bed(ContainerWithCustomSecond(GetParam()));
    EXPECT_EQ(SecondSensorName(bed), u"HID Sensor Collection V2: Other-1");
    EXPECT_TRUE(IsPlainCustomSensor(bed.Sensor(1)));
    EXPECT_EQ(bed.UnloadAndCollectLeaks(), "");
}

INSTANTIATE_TEST_SUITE_P(Descriptions, NearMiss,
                         ::testing::Values(u"0x232 ", u"0X232", u"0x0232", u" 0x232", u"0x23", u"",
                                           u"0x2320"));

TEST(Classification, DeviceAnswersDecideTheKindAndTheNumberOfAttempts)
{
    struct Case {
        const char* what;
        DeviceRule rule;
        const char16_t* name;
        std::size_t getFeatures;  // discovery and the constructor together
    };
    const Case cases[] = {
        // Another report ID: refused after one attempt.
        {"other id", DeviceRule::AnswerReportId(RuleTrigger::GetFeature, 3), u"Other-1", 2},
        // Zeros once: the second attempt has the report.
        {"zeros once", DeviceRule::Zeros(RuleTrigger::GetFeature).Times(1), u"Activity-1", 3},
        // Zeros twice: accepted as a report without description.
        {"zeros", DeviceRule::Zeros(RuleTrigger::GetFeature), u"Other-1", 4},
        {"fails once", DeviceRule::Fail(RuleTrigger::GetFeature, STATUS_IO_DEVICE_ERROR).Times(1),
         u"Activity-1", 3},
        {"fails", DeviceRule::Fail(RuleTrigger::GetFeature, STATUS_IO_DEVICE_ERROR), u"Other-1", 4},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        DriverTestBed bed(ContainerWithCustomSecond(u"0x232").WithRule(c.rule));
        EXPECT_EQ(SecondSensorName(bed), std::u16string(u"HID Sensor Collection V2: ") + c.name);
        EXPECT_EQ(GetFeatureCount(bed), c.getFeatures);
        EXPECT_EQ(bed.UnloadAndCollectLeaks(), "");
    }
}

// A custom sensor whose feature report carries two descriptions: the plain
// usage 0x308 and one with a modifier (0x2308), which classification strips.
HidDeviceConfig TwoDescriptions(const std::u16string& first, const std::u16string& second)
{
    hs::SensorSpec sensor = hs::CustomSensor(8, {hs::CustomValue(1)});
    sensor.reportId = 1;
    hs::ValueField modified = hs::StringProperty(hs::Modified(hs::kDescription, hs::kModMaximum), 8);
    sensor.features.push_back(modified);
    Bytes report = CustomFeatureReport(1, first, 8);
    const Bytes tail = CustomFeatureReport(1, second, 8);
    report.insert(report.end(), tail.begin() + 7, tail.end());
    return HidDeviceConfig{}.WithDescriptor(hs::BuildSingleSensor(sensor)).WithFeature(1, report);
}

TEST(Classification, ALaterMatchingDescriptionOverridesAnEarlierOne)
{
    {
        DriverTestBed bed(TwoDescriptions(u"0x232", u"0x230"));
        ASSERT_EQ(bed.Prepare(), STATUS_SUCCESS);
        EXPECT_EQ(std::u16string(bed.Sensor(0)->GetFriendlyName()), u"HID Sensor Collection V2: Pedometer-0");
        EXPECT_EQ(bed.UnloadAndCollectLeaks(), "");
    }
    {
        DriverTestBed bed(TwoDescriptions(u"0x232", u"nothing"));
        ASSERT_EQ(bed.Prepare(), STATUS_SUCCESS);
        EXPECT_EQ(std::u16string(bed.Sensor(0)->GetFriendlyName()), u"HID Sensor Collection V2: Activity-0");
        EXPECT_EQ(bed.UnloadAndCollectLeaks(), "");
    }
}

TEST(Classification, RealHeadTrackerWhoseDescriptionIsNotInItsSensorReportIsOther)
{
    // The description (25 8-bit characters) sits in feature report 2, the
    // inputs in report 1: the report classification reads has none.
    Bytes report(42, 0);
    report[0] = 2;
    const std::string text = "#AndroidHeadTracker#1.0";
    std::copy(text.begin(), text.end(), report.begin() + 1);
    DriverTestBed bed(
        HidDeviceConfig{}.WithDescriptor(LoadDescriptor("android-headtracker-v2-le")).WithFeature(2, report));
    ASSERT_EQ(bed.Prepare(), STATUS_SUCCESS);
    ASSERT_EQ(bed.Hid()->SensorCount(), 1u);
    EXPECT_EQ(std::u16string(bed.Sensor(0)->GetFriendlyName()), u"HID Sensor Collection V2: Other-0");
    for (const auto& event : bed.Traffic()) {
        if (event.kind == host::hidsim::TrafficKind::GetFeature) {
            EXPECT_EQ(event.reportId, 1);
        }
    }
    EXPECT_EQ(bed.UnloadAndCollectLeaks(), "");
}

TEST(Classification, WithoutDeviceOrWithoutInputValuesItIsOtherWithoutTraffic)
{
    EXPECT_EQ(ClassifyCustomCollection(nullptr, 0, 0), CustomSensorKind::Other);

    // Only a feature report: no input value capability gives no report ID.
    host::hid::DescriptorBuilder b;
    b.UsagePage(0x20).Usage(0xE1).Collection(host::hid::CollectionType::Application);
    b.Usage(0x308).LogicalMinimum(0).LogicalMaximum(0xFFFF).ReportSize(16).ReportCount(8).Feature(0x02);
    b.EndCollection();
    DriverTestBed bed(HidDeviceConfig{}.WithDescriptor(b.Build()));
    ASSERT_EQ(bed.Prepare(), STATUS_SUCCESS);
    EXPECT_EQ(std::u16string(bed.Sensor(0)->GetFriendlyName()), u"HID Sensor Collection V2: Other-0");
    EXPECT_EQ(GetFeatureCount(bed), 0u);
    EXPECT_EQ(bed.UnloadAndCollectLeaks(), "");
}

}  // namespace
}  // namespace testdriver
