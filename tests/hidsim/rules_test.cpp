// Device rules on GET_FEATURE and SET_FEATURE: each action with the reportId
// and times filters, rule order and replacement, and the field clamp and round.
#include <gtest/gtest.h>

#include "hidsim_test_support.h"

namespace hidsim_test {
namespace {

constexpr USAGE kReportInterval = 0x030E;
constexpr USAGE kAccelerationMaximum = 0x2452;  // signed, logical -32767..32767
constexpr USAGE kAccelerationSensitivity = 0x1452;  // 16-bit unsigned

class FeatureRules : public ::testing::Test {
protected:
    void Make(std::vector<DeviceRule> rules)
    {
        HidDeviceConfig config = On("amd-sfh-als").WithFeature(4, kStored);
        config.rules = std::move(rules);
        device_ = MakeDevice(config);
        ASSERT_TRUE(device_);
        length_ = device_->DriverCollection().Caps().FeatureReportByteLength;
    }
    Answer Get(std::uint8_t id) { return GetFeature(device_->DriverEndpoint(), id, length_); }
    NTSTATUS GetStatus(std::uint8_t id) { return Get(id).result.status; }
    IoctlResult Set(const Bytes& report) { return SetFeature(device_->DriverEndpoint(), report); }

    const Bytes kStored{0x04, 0x02, 0x02, 0x01};
    std::unique_ptr<SimulatedHidDevice> device_;
    ULONG length_ = 0;
};

TEST_F(FeatureRules, FailHonoursTimesAndReportIdAndLeavesTheBufferAlone)
{
    Make({DeviceRule::Fail(RuleTrigger::GetFeature, STATUS_IO_DEVICE_ERROR).ForReportId(4).Times(2)});
    Bytes buffer(length_, 0);
    buffer[0] = 4;
    const auto failed = device_->DriverEndpoint().DeviceControl(IOCTL_HID_GET_FEATURE, nullptr, 0, buffer.data(), length_);
    EXPECT_EQ(failed.status, STATUS_IO_DEVICE_ERROR);
    EXPECT_EQ(failed.information, 0u);
    EXPECT_EQ(buffer[1], 0);
    EXPECT_EQ(GetStatus(5), STATUS_SUCCESS) << "another report ID does not use up the rule";
    EXPECT_EQ(Set({0x04, 0x02, 0x02, 0x01}).status, STATUS_SUCCESS) << "getFeature rules ignore SET_FEATURE";
    EXPECT_EQ(GetStatus(4), STATUS_IO_DEVICE_ERROR);
    EXPECT_EQ(Get(4).bytes, Padded(kStored, length_)) << "two uses, then the normal answer";
}

TEST_F(FeatureRules, FirstMatchingRuleWithUsesLeftAppliesAndReplacingRestartsCounts)
{
    Make({DeviceRule::Zeros(RuleTrigger::GetFeature).ForReportId(4).Times(1),
          DeviceRule::AnswerReportId(RuleTrigger::GetFeature, 9).Times(1),
          DeviceRule::Fail(RuleTrigger::GetFeature, STATUS_UNSUCCESSFUL).Times(2)});
    EXPECT_EQ(Get(4).bytes, Bytes(length_, 0)) << "zeros keep the answer length";
    Bytes relabelled = Padded(kStored, length_);
    relabelled[0] = 9;
    EXPECT_EQ(Get(4).bytes, relabelled);
    EXPECT_EQ(GetStatus(4), STATUS_UNSUCCESSFUL);
    EXPECT_EQ(GetStatus(4), STATUS_UNSUCCESSFUL);
    EXPECT_EQ(GetStatus(4), STATUS_SUCCESS);
    std::string error;
    ASSERT_TRUE(device_->SetRules({DeviceRule::Fail(RuleTrigger::GetFeature, STATUS_IO_DEVICE_ERROR).Times(1)}, error));
    EXPECT_EQ(GetStatus(4), STATUS_IO_DEVICE_ERROR);
    EXPECT_EQ(GetStatus(4), STATUS_SUCCESS);
}

TEST_F(FeatureRules, TimeoutNeverAnswersAndFailedOrUnansweredSetsStoreNothing)
{
    Make({DeviceRule::Timeout(RuleTrigger::SetFeature).Times(1),
          DeviceRule::Fail(RuleTrigger::SetFeature, STATUS_DEVICE_BUSY).Times(1),
          DeviceRule::Timeout(RuleTrigger::GetFeature)});
    EXPECT_FALSE(Set({0x04, 0x07}).answered);
    EXPECT_EQ(Set({0x04, 0x07}).status, STATUS_DEVICE_BUSY);
    EXPECT_EQ(device_->Feature(4), kStored);
    const Answer get = Get(4);
    EXPECT_FALSE(get.result.answered);
    EXPECT_EQ(get.result.information, 0u);
    EXPECT_TRUE(Set({0x04, 0x07}).answered);
    EXPECT_EQ(device_->Feature(4), (Bytes{0x04, 0x07}));
}

TEST_F(FeatureRules, ZerosAndAnswerReportIdOnSetFeatureShapeTheStoredReport)
{
    Make({DeviceRule::Zeros(RuleTrigger::SetFeature).Times(1), DeviceRule::AnswerReportId(RuleTrigger::SetFeature, 5)});
    ASSERT_EQ(Set({0x04, 0x07, 0x08}).status, STATUS_SUCCESS);
    EXPECT_EQ(Get(4).bytes, Bytes(length_, 0));
    ASSERT_EQ(Set({0x04, 0x07, 0x08}).status, STATUS_SUCCESS);
    EXPECT_EQ(Get(4).bytes, Padded({0x05, 0x07, 0x08}, length_)) << "filed under 4, answering with ID 5";
}

TEST_F(FeatureRules, UnusableRulesAreRejectedAndTheOldListStays)
{
    Make({DeviceRule::Fail(RuleTrigger::GetFeature, STATUS_IO_DEVICE_ERROR)});
    DeviceRule clampOnRead = DeviceRule::Clamp(kReportInterval, 1, 2);
    clampOnRead.on = RuleTrigger::Read;
    const std::pair<std::vector<DeviceRule>, std::string> cases[] = {
        {{DeviceRule::Zeros(RuleTrigger::Read), DeviceRule::Fail(RuleTrigger::Read, 0)},
         "rules[1]: fail needs a failure status"},
        {{clampOnRead}, "rules[0]: field applies to setFeature only"},
        {{DeviceRule::Clamp(kReportInterval, 5, 4)}, "rules[0]: field clamp minimum is above its maximum"},
        {{DeviceRule::Round(kReportInterval, 0)}, "rules[0]: field round step must not be 0"},
    };
    for (const auto& [rules, message] : cases) {
        std::string error;
        EXPECT_FALSE(device_->SetRules(rules, error));
        EXPECT_EQ(error, message);
    }
    EXPECT_EQ(GetStatus(4), STATUS_IO_DEVICE_ERROR);
}

// Field rules on the collection's own fields, written and read through the parser.
class FieldDevice {
public:
    FieldDevice(const char* descriptor, DeviceRule rule) : device(MakeDevice(On(descriptor).WithRule(std::move(rule))))
    {
        if (device) {
            blob = device->DriverCollection().PreparsedData();
            length = device->DriverCollection().Caps().FeatureReportByteLength;
        }
    }
    Bytes ReportWith(std::uint8_t reportId, USAGE usage, ULONG value)
    {
        Bytes report(length, 0);
        report[0] = reportId;
        EXPECT_EQ(HidP_SetUsageValue(HidP_Feature, 0x20, 0, usage, value, Preparsed(),
                                     reinterpret_cast<CHAR*>(report.data()), length),
                  HIDP_STATUS_SUCCESS);
        return report;
    }
    // Sends `report`, then reads the field back from the device's answer.
    ULONG StoredValue(const Bytes& report, USAGE usage)
    {
        EXPECT_EQ(SetFeature(device->DriverEndpoint(), report).status, STATUS_SUCCESS);
        Answer answer = GetFeature(device->DriverEndpoint(), report[0], length);
        ULONG value = 0;
        EXPECT_EQ(HidP_GetUsageValue(HidP_Feature, 0x20, 0, usage, &value, Preparsed(),
                                     reinterpret_cast<CHAR*>(answer.bytes.data()), length),
                  HIDP_STATUS_SUCCESS);
        return value;
    }
    PHIDP_PREPARSED_DATA Preparsed() { return reinterpret_cast<PHIDP_PREPARSED_DATA>(blob.data()); }

    std::unique_ptr<SimulatedHidDevice> device;
    Bytes blob;
    ULONG length = 0;
};

struct FieldCase {
    const char* descriptor;
    std::uint8_t reportId;
    USAGE usage;
    DeviceRule rule;
    ULONG sent;
    ULONG stored;
};

class FieldRules : public ::testing::TestWithParam<FieldCase> {};

TEST_P(FieldRules, StoredValueIsRoundedThenClamped)
{
    const FieldCase& c = GetParam();
    FieldDevice field(c.descriptor, c.rule);
    ASSERT_TRUE(field.device);
    EXPECT_EQ(field.StoredValue(field.ReportWith(c.reportId, c.usage, c.sent), c.usage), c.stored);
}

DeviceRule RoundAndClamp(USAGE usage, ULONG step, LONGLONG min, LONGLONG max)
{
    DeviceRule rule = DeviceRule::Clamp(usage, min, max);
    std::get<host::hidsim::FieldAction>(rule.action).roundStep = step;
    return rule;
}

const DeviceRule kClampInterval = DeviceRule::Clamp(kReportInterval, 10, 1000);
const DeviceRule kRoundInterval = DeviceRule::Round(kReportInterval, 10);
const DeviceRule kClampSigned = DeviceRule::Clamp(kAccelerationMaximum, -50, 50);

INSTANTIATE_TEST_SUITE_P(
    Actions, FieldRules,
    ::testing::Values(FieldCase{"amd-sfh-als", 4, kReportInterval, kClampInterval, 5, 10},
                      FieldCase{"amd-sfh-als", 4, kReportInterval, kClampInterval, 60000, 1000},
                      FieldCase{"amd-sfh-als", 4, kReportInterval, kClampInterval, 250, 250},
                      // Signed field: -100 (16 bits) is clamped to -50, 100 to 50.
                      FieldCase{"hutrr39-accel3", 0, kAccelerationMaximum, kClampSigned, 0xFF9C, 0xFFCE},
                      FieldCase{"hutrr39-accel3", 0, kAccelerationMaximum, kClampSigned, 100, 50},
                      FieldCase{"amd-sfh-als", 4, kReportInterval, kRoundInterval, 96, 100},
                      FieldCase{"amd-sfh-als", 4, kReportInterval, kRoundInterval, 94, 90},
                      FieldCase{"amd-sfh-als", 4, kReportInterval, kRoundInterval, 95, 100},  // ties away from 0
                      // 66000 does not fit the 16-bit field: the value stays.
                      FieldCase{"hutrr39-accel3", 0, kAccelerationSensitivity,
                                DeviceRule::Round(kAccelerationSensitivity, 1000), 65535, 65535},
                      FieldCase{"amd-sfh-als", 4, kReportInterval, RoundAndClamp(kReportInterval, 10, 0, 95), 96, 95}));

TEST(FieldRuleReports, OnlyTheFieldChangesShortReportsArePaddedOthersStoredAsSent)
{
    FieldDevice field("amd-sfh-als", kClampInterval);
    FieldDevice otherUsage("amd-sfh-als", DeviceRule::Clamp(0x0123, 10, 1000));
    ASSERT_TRUE(field.device && otherUsage.device);
    Bytes report = field.ReportWith(4, kReportInterval, 5000);
    report[1] = 0x02;
    report[2] = 0x01;
    EXPECT_EQ(field.StoredValue(report, kReportInterval), 1000u);
    const Bytes stored = *field.device->Feature(4);
    ASSERT_EQ(stored.size(), report.size());
    std::size_t differing = 0;
    for (std::size_t i = 0; i < stored.size(); ++i)
        differing += stored[i] != report[i] ? 1 : 0;
    EXPECT_EQ(differing, 2u) << "5000 -> 1000 changes two bytes of the 32-bit field";

    EXPECT_EQ(field.StoredValue({0x04}, kReportInterval), 10u) << "padded before the clamp";
    ASSERT_EQ(SetFeature(field.device->DriverEndpoint(), {0x07, 0x01, 0x02}).status, STATUS_SUCCESS);
    EXPECT_EQ(field.device->Feature(7), (Bytes{0x07, 0x01, 0x02})) << "report 7 has no such field";
    report = otherUsage.ReportWith(4, kReportInterval, 5);
    ASSERT_EQ(SetFeature(otherUsage.device->DriverEndpoint(), report).status, STATUS_SUCCESS);
    EXPECT_EQ(otherUsage.device->Feature(4), report) << "no such usage";
}

}  // namespace
}  // namespace hidsim_test
