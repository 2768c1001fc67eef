// Device rules on GET_FEATURE and SET_FEATURE: each action with the reportId
// and times filters, rule order and replacement, and the field clamp and round.
#include <gtest/gtest.h>

#include "hidsim_test_support.h"

namespace hidsim_test {
namespace {

using host::hidsim::FieldAction;
constexpr USAGE kReportInterval = 0x030E;
constexpr USAGE kAccelerationMaximum = 0x2452;  // signed, logical -32767..32767
constexpr USAGE kAccelerationSensitivity = 0x1452;  // 16-bit unsigned

class FeatureRules : public DeviceTest {
protected:
    void Make(std::vector<DeviceRule> rules) { DeviceTest::Make(On("amd-sfh-als").WithFeature(4, kStored), rules); }
    NTSTATUS GetStatus(std::uint8_t id) { return Get(id).result.status; }

    const Bytes kStored{0x04, 0x02, 0x02, 0x01};
};

TEST_F(FeatureRules, FirstMatchingRuleWithUsesLeftAppliesAndReplacingRestartsCounts)
{
    Make({DeviceRule::Zeros(RuleTrigger::GetFeature).ForReportId(4).Times(1),
          DeviceRule::AnswerReportId(RuleTrigger::GetFeature, 9).Times(1),
          DeviceRule::Fail(RuleTrigger::GetFeature, STATUS_UNSUCCESSFUL).ForReportId(4).Times(2)});
    EXPECT_EQ(Get(4).bytes, Bytes(length_, 0)) << "zeros keep the answer length";
    Bytes relabelled = Padded(kStored, length_);
    relabelled[0] = 9;
    EXPECT_EQ(Get(4).bytes, relabelled);
    Bytes buffer(length_, 0);
    buffer[0] = 4;
    const auto failed = Endpoint().DeviceControl(IOCTL_HID_GET_FEATURE, nullptr, 0, buffer.data(), length_);
    EXPECT_EQ(failed.status, STATUS_UNSUCCESSFUL);
    EXPECT_EQ(failed.information, 0u);
    EXPECT_EQ(buffer[1], 0) << "a failed answer leaves the buffer alone";
    EXPECT_EQ(GetStatus(5), STATUS_SUCCESS) << "another report ID does not use up the rule";
    EXPECT_EQ(Set(kStored).status, STATUS_SUCCESS) << "getFeature rules ignore SET_FEATURE";
    EXPECT_EQ(GetStatus(4), STATUS_UNSUCCESSFUL);
    EXPECT_EQ(Get(4).bytes, Padded(kStored, length_)) << "two uses, then the normal answer";
    std::string error;
    ASSERT_TRUE(device_->SetRules({DeviceRule::Fail(RuleTrigger::GetFeature, STATUS_IO_DEVICE_ERROR).Times(1)}, error));
    EXPECT_EQ(GetStatus(4), STATUS_IO_DEVICE_ERROR);
    EXPECT_EQ(GetStatus(4), STATUS_SUCCESS);
}

TEST_F(FeatureRules, SetFeatureRulesDecideWhatIsStored)
{
    Make({DeviceRule::Timeout(RuleTrigger::SetFeature).Times(1),
          DeviceRule::Fail(RuleTrigger::SetFeature, STATUS_DEVICE_BUSY).Times(1),
          DeviceRule::Zeros(RuleTrigger::SetFeature).Times(1), DeviceRule::AnswerReportId(RuleTrigger::SetFeature, 5),
          DeviceRule::Timeout(RuleTrigger::GetFeature).ForReportId(6)});
    EXPECT_FALSE(Set({0x04, 0x07}).answered);
    EXPECT_EQ(Set({0x04, 0x07}).status, STATUS_DEVICE_BUSY);
    EXPECT_EQ(device_->Feature(4), kStored) << "failed or unanswered sets store nothing";
    ASSERT_EQ(Set({0x04, 0x07, 0x08}).status, STATUS_SUCCESS);
    EXPECT_EQ(Get(4).bytes, Bytes(length_, 0));
    ASSERT_EQ(Set({0x04, 0x07, 0x08}).status, STATUS_SUCCESS);
    EXPECT_EQ(Get(4).bytes, Padded({0x05, 0x07, 0x08}, length_)) << "filed under 4, answering with ID 5";
    EXPECT_FALSE(Get(6).result.answered);
}

TEST_F(FeatureRules, UnusableRulesAreRejectedAndTheOldListStays)
{
    Make({DeviceRule::Fail(RuleTrigger::GetFeature, STATUS_IO_DEVICE_ERROR)});
    const std::pair<std::vector<DeviceRule>, std::string> cases[] = {
        {{DeviceRule::Zeros(RuleTrigger::Read), DeviceRule::Fail(RuleTrigger::Read, 0)},
         "rules[1]: fail needs a failure status"},
        {{{RuleTrigger::Read, {}, {}, FieldAction{kReportInterval, {}, 10u}}}, "rules[0]: field applies to setFeature only"},
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
class FieldRules : public DeviceTest {
protected:
    Bytes ReportWith(std::uint8_t reportId, USAGE usage, ULONG value)
    {
        Bytes report(length_, 0);
        report[0] = reportId;
        EXPECT_EQ(HidP_SetUsageValue(HidP_Feature, 0x20, 0, usage, value, Preparsed(),
                                     reinterpret_cast<CHAR*>(report.data()), length_),
                  HIDP_STATUS_SUCCESS);
        return report;
    }
    // Sends `report`, then reads the field back from the device's answer.
    ULONG StoredValue(const Bytes& report, USAGE usage)
    {
        EXPECT_EQ(Set(report).status, STATUS_SUCCESS);
        Answer answer = Get(report[0]);
        ULONG value = 0;
        EXPECT_EQ(HidP_GetUsageValue(HidP_Feature, 0x20, 0, usage, &value, Preparsed(),
                                     reinterpret_cast<CHAR*>(answer.bytes.data()), length_),
                  HIDP_STATUS_SUCCESS);
        return value;
    }
    PHIDP_PREPARSED_DATA Preparsed()
    {
        blob_ = Collection().PreparsedData();
        return reinterpret_cast<PHIDP_PREPARSED_DATA>(blob_.data());
    }

    Bytes blob_;
};

const DeviceRule kClampInterval = DeviceRule::Clamp(kReportInterval, 10, 1000);

TEST_F(FieldRules, StoredValueIsRoundedThenClamped)
{
    const DeviceRule roundInterval = DeviceRule::Round(kReportInterval, 10);
    const DeviceRule roundThenClamp{RuleTrigger::SetFeature, {}, {}, FieldAction{kReportInterval, std::pair(0LL, 95LL), 10u}};
    const struct {
        const char* descriptor;
        std::uint8_t reportId;
        USAGE usage;
        DeviceRule rule;
        ULONG sent;
        ULONG stored;
    } cases[] = {
        {"amd-sfh-als", 4, kReportInterval, kClampInterval, 5, 10},
        {"amd-sfh-als", 4, kReportInterval, kClampInterval, 250, 250},
        // Signed field: -100 (16 bits) is clamped to -50.
        {"hutrr39-accel3", 0, kAccelerationMaximum, DeviceRule::Clamp(kAccelerationMaximum, -50, 50), 0xFF9C, 0xFFCE},
        {"amd-sfh-als", 4, kReportInterval, roundInterval, 94, 90},
        {"amd-sfh-als", 4, kReportInterval, roundInterval, 95, 100},  // ties away from 0
        // 66000 does not fit the 16-bit field: the value stays.
        {"hutrr39-accel3", 0, kAccelerationSensitivity, DeviceRule::Round(kAccelerationSensitivity, 1000), 65535, 65535},
        {"amd-sfh-als", 4, kReportInterval, roundThenClamp, 96, 95},
    };
    for (const auto& c : cases) {
        Make(On(c.descriptor), {c.rule});
        ASSERT_TRUE(device_);
        EXPECT_EQ(StoredValue(ReportWith(c.reportId, c.usage, c.sent), c.usage), c.stored)
            << c.descriptor << " " << c.usage << " sent " << c.sent;
    }
}

TEST_F(FieldRules, OnlyTheFieldChangesShortReportsArePaddedOthersStoredAsSent)
{
    Make(On("amd-sfh-als"), {kClampInterval});
    Bytes report = ReportWith(4, kReportInterval, 5000);
    report[1] = 0x02;
    report[2] = 0x01;
    ASSERT_EQ(Set(report).status, STATUS_SUCCESS);
    Bytes expected = ReportWith(4, kReportInterval, 1000);
    expected[1] = 0x02;
    expected[2] = 0x01;
    EXPECT_EQ(device_->Feature(4), expected) << "only the field changes";
    EXPECT_EQ(StoredValue({0x04}, kReportInterval), 10u) << "padded before the clamp";
    ASSERT_EQ(Set({0x07, 0x01, 0x02}).status, STATUS_SUCCESS);
    EXPECT_EQ(device_->Feature(7), (Bytes{0x07, 0x01, 0x02})) << "report 7 has no such field";
}

}  // namespace
}  // namespace hidsim_test
