// Device rules on GET_FEATURE and SET_FEATURE: each action, the reportId and
// times filters, rule order and replacement, field clamp and round.
#include <gtest/gtest.h>

#include "hidsim_test_support.h"

namespace hidsim_test {
namespace {

using host::hidsim::DeviceRule;
using host::hidsim::RuleTrigger;

constexpr USAGE kReportInterval = 0x030E;
constexpr USAGE kAccelerationMaximum = 0x2452;  // signed, logical -32767..32767
constexpr USAGE kAccelerationSensitivity = 0x1452;

class RulesOnAls : public ::testing::Test {
protected:
    void Make(std::vector<DeviceRule> rules)
    {
        HidDeviceConfig config;
        config.WithDescriptor(LoadDescriptor("amd-sfh-als")).WithFeature(4, {0x04, 0x02, 0x02, 0x01});
        config.rules = std::move(rules);
        device_ = MakeDevice(config);
        ASSERT_TRUE(device_);
        length_ = device_->DriverCollection().Caps().FeatureReportByteLength;
    }
    HidCollectionEndpoint& Endpoint() { return device_->DriverEndpoint(); }
    Bytes Stored() const
    {
        Bytes bytes{0x04, 0x02, 0x02, 0x01};
        bytes.resize(length_, 0);
        return bytes;
    }

    std::unique_ptr<SimulatedHidDevice> device_;
    ULONG length_ = 0;
};

TEST_F(RulesOnAls, FailHonoursTimesThenAnswersNormally)
{
    Make({DeviceRule::Fail(RuleTrigger::GetFeature, STATUS_IO_DEVICE_ERROR).Times(2)});
    Bytes buffer(length_, 0);
    buffer[0] = 4;
    const auto failed = Endpoint().DeviceControl(IOCTL_HID_GET_FEATURE, nullptr, 0, buffer.data(), length_);
    EXPECT_EQ(failed.status, STATUS_IO_DEVICE_ERROR);
    EXPECT_EQ(failed.information, 0u);
    EXPECT_EQ(buffer[1], 0) << "a failed request leaves the buffer alone";
    EXPECT_EQ(GetFeature(Endpoint(), 4, length_).result.status, STATUS_IO_DEVICE_ERROR);
    EXPECT_EQ(GetFeature(Endpoint(), 4, length_).bytes, Stored());
}

TEST_F(RulesOnAls, ReportIdFilterLeavesOtherReportsAlone)
{
    Make({DeviceRule::Fail(RuleTrigger::GetFeature, STATUS_IO_DEVICE_ERROR).ForReportId(5)});
    EXPECT_EQ(GetFeature(Endpoint(), 4, length_).result.status, STATUS_SUCCESS);
    EXPECT_EQ(GetFeature(Endpoint(), 5, length_).result.status, STATUS_IO_DEVICE_ERROR);
    EXPECT_EQ(SetFeature(Endpoint(), {0x05, 0x01}).status, STATUS_SUCCESS) << "getFeature rules ignore SET_FEATURE";
}

TEST_F(RulesOnAls, FirstMatchingRuleWithUsesLeftApplies)
{
    Make({DeviceRule::Zeros(RuleTrigger::GetFeature).ForReportId(4).Times(1),
          DeviceRule::AnswerReportId(RuleTrigger::GetFeature, 9).Times(1),
          DeviceRule::Fail(RuleTrigger::GetFeature, STATUS_UNSUCCESSFUL)});
    EXPECT_EQ(GetFeature(Endpoint(), 4, length_).bytes, Bytes(length_, 0));
    Bytes relabelled = Stored();
    relabelled[0] = 9;
    EXPECT_EQ(GetFeature(Endpoint(), 4, length_).bytes, relabelled);
    EXPECT_EQ(GetFeature(Endpoint(), 4, length_).result.status, STATUS_UNSUCCESSFUL);
    EXPECT_EQ(GetFeature(Endpoint(), 4, length_).result.status, STATUS_UNSUCCESSFUL);
}

TEST_F(RulesOnAls, ZerosOnGetFeatureKeepsTheAnswerLength)
{
    Make({DeviceRule::Zeros(RuleTrigger::GetFeature)});
    const Answer answer = GetFeature(Endpoint(), 4, length_);
    EXPECT_EQ(answer.result.status, STATUS_SUCCESS);
    EXPECT_EQ(answer.bytes, Bytes(length_, 0));
}

TEST_F(RulesOnAls, TimeoutNeverAnswers)
{
    Make({DeviceRule::Timeout(RuleTrigger::SetFeature).Times(1), DeviceRule::Timeout(RuleTrigger::GetFeature)});
    const auto set = SetFeature(Endpoint(), {0x04, 0x07});
    EXPECT_FALSE(set.answered);
    EXPECT_EQ(device_->Feature(4), (Bytes{0x04, 0x02, 0x02, 0x01})) << "an unanswered SET_FEATURE stores nothing";
    Bytes buffer(length_, 0);
    buffer[0] = 4;
    const auto get = Endpoint().DeviceControl(IOCTL_HID_GET_FEATURE, nullptr, 0, buffer.data(), length_);
    EXPECT_FALSE(get.answered);
    EXPECT_EQ(buffer[1], 0);
    EXPECT_TRUE(SetFeature(Endpoint(), {0x04, 0x07}).answered);
}

TEST_F(RulesOnAls, FailedSetFeatureStoresNothing)
{
    Make({DeviceRule::Fail(RuleTrigger::SetFeature, STATUS_DEVICE_BUSY)});
    EXPECT_EQ(SetFeature(Endpoint(), {0x04, 0x07}).status, STATUS_DEVICE_BUSY);
    EXPECT_EQ(device_->Feature(4), (Bytes{0x04, 0x02, 0x02, 0x01}));
}

TEST_F(RulesOnAls, ZerosAndAnswerReportIdOnSetFeatureShapeTheStoredReport)
{
    Make({DeviceRule::Zeros(RuleTrigger::SetFeature).Times(1),
          DeviceRule::AnswerReportId(RuleTrigger::SetFeature, 5)});
    ASSERT_EQ(SetFeature(Endpoint(), {0x04, 0x07, 0x08}).status, STATUS_SUCCESS);
    EXPECT_EQ(GetFeature(Endpoint(), 4, length_).bytes, Bytes(length_, 0));
    ASSERT_EQ(SetFeature(Endpoint(), {0x04, 0x07, 0x08}).status, STATUS_SUCCESS);
    Bytes expected{0x05, 0x07, 0x08};
    expected.resize(length_, 0);
    EXPECT_EQ(GetFeature(Endpoint(), 4, length_).bytes, expected) << "filed under 4, answering with ID 5";
}

TEST_F(RulesOnAls, ReplacingTheRulesRestartsTheirCounts)
{
    Make({DeviceRule::Fail(RuleTrigger::GetFeature, STATUS_IO_DEVICE_ERROR).Times(1)});
    EXPECT_EQ(GetFeature(Endpoint(), 4, length_).result.status, STATUS_IO_DEVICE_ERROR);
    EXPECT_EQ(GetFeature(Endpoint(), 4, length_).result.status, STATUS_SUCCESS);
    std::string error;
    ASSERT_TRUE(device_->SetRules({DeviceRule::Fail(RuleTrigger::GetFeature, STATUS_IO_DEVICE_ERROR).Times(1)}, error));
    EXPECT_EQ(GetFeature(Endpoint(), 4, length_).result.status, STATUS_IO_DEVICE_ERROR);
    ASSERT_TRUE(device_->SetRules({}, error));
    EXPECT_EQ(GetFeature(Endpoint(), 4, length_).result.status, STATUS_SUCCESS);
}

TEST_F(RulesOnAls, UnusableRulesAreRejectedAndTheOldListStays)
{
    Make({DeviceRule::Fail(RuleTrigger::GetFeature, STATUS_IO_DEVICE_ERROR)});
    std::string error;
    EXPECT_FALSE(
        device_->SetRules({DeviceRule::Zeros(RuleTrigger::Read), DeviceRule::Fail(RuleTrigger::Read, 0)}, error));
    EXPECT_EQ(error, "rules[1]: fail needs a failure status");
    EXPECT_EQ(GetFeature(Endpoint(), 4, length_).result.status, STATUS_IO_DEVICE_ERROR);

    DeviceRule clampOnRead = DeviceRule::Clamp(kReportInterval, 1, 2);
    clampOnRead.on = RuleTrigger::Read;
    EXPECT_FALSE(device_->SetRules({clampOnRead}, error));
    EXPECT_EQ(error, "rules[0]: field applies to setFeature only");
    EXPECT_FALSE(device_->SetRules({DeviceRule::Clamp(kReportInterval, 5, 4)}, error));
    EXPECT_EQ(error, "rules[0]: field clamp minimum is above its maximum");
    EXPECT_FALSE(device_->SetRules({DeviceRule::Round(kReportInterval, 0)}, error));
    EXPECT_EQ(error, "rules[0]: field round step must not be 0");
}

TEST(RulesAtCreation, AnUnusableRuleMeansNoDevice)
{
    HidDeviceConfig config;
    config.WithDescriptor(LoadDescriptor("amd-sfh-als"))
        .WithRule(DeviceRule::Fail(RuleTrigger::SetFeature, STATUS_PENDING));
    host::hidsim::DeviceError error;
    EXPECT_EQ(SimulatedHidDevice::Create(config, error), nullptr);
    EXPECT_EQ(error.message, "rules[0]: fail needs a failure status");
}

// Field rules work on the collection's own fields, read through the parser.
class FieldRules : public ::testing::Test {
protected:
    void Make(const std::string& descriptor, DeviceRule rule)
    {
        device_ = MakeDevice(HidDeviceConfig{}.WithDescriptor(LoadDescriptor(descriptor)).WithRule(std::move(rule)));
        ASSERT_TRUE(device_);
    }
    PHIDP_PREPARSED_DATA Preparsed()
    {
        blob_ = device_->DriverCollection().PreparsedData();
        return reinterpret_cast<PHIDP_PREPARSED_DATA>(blob_.data());
    }
    ULONG Length() const { return device_->DriverCollection().Caps().FeatureReportByteLength; }
    Bytes ReportWith(std::uint8_t reportId, USAGE usage, ULONG value)
    {
        Bytes report(Length(), 0);
        report[0] = reportId;
        EXPECT_EQ(HidP_SetUsageValue(HidP_Feature, 0x20, 0, usage, value, Preparsed(),
                                     reinterpret_cast<CHAR*>(report.data()), Length()),
                  HIDP_STATUS_SUCCESS);
        return report;
    }
    // What the device now answers for the field.
    ULONG DeviceValue(std::uint8_t reportId, USAGE usage)
    {
        Answer answer = GetFeature(device_->DriverEndpoint(), reportId, Length());
        ULONG value = 0;
        EXPECT_EQ(HidP_GetUsageValue(HidP_Feature, 0x20, 0, usage, &value, Preparsed(),
                                     reinterpret_cast<CHAR*>(answer.bytes.data()), Length()),
                  HIDP_STATUS_SUCCESS);
        return value;
    }
    void Send(const Bytes& report) { ASSERT_EQ(SetFeature(device_->DriverEndpoint(), report).status, STATUS_SUCCESS); }

    std::unique_ptr<SimulatedHidDevice> device_;
    Bytes blob_;
};

TEST_F(FieldRules, ClampLimitsAnUnsignedFieldOnBothSides)
{
    Make("amd-sfh-als", DeviceRule::Clamp(kReportInterval, 10, 1000));
    Send(ReportWith(4, kReportInterval, 5));
    EXPECT_EQ(DeviceValue(4, kReportInterval), 10u);
    Send(ReportWith(4, kReportInterval, 60000));
    EXPECT_EQ(DeviceValue(4, kReportInterval), 1000u);
    Send(ReportWith(4, kReportInterval, 250));
    EXPECT_EQ(DeviceValue(4, kReportInterval), 250u);
}

TEST_F(FieldRules, ClampReadsASignedFieldAsSigned)
{
    Make("hutrr39-accel3", DeviceRule::Clamp(kAccelerationMaximum, -50, 50));
    Send(ReportWith(0, kAccelerationMaximum, 0xFF9C));  // -100 in 16 bits
    EXPECT_EQ(DeviceValue(0, kAccelerationMaximum), 0xFFCEu);  // -50
    Send(ReportWith(0, kAccelerationMaximum, 100));
    EXPECT_EQ(DeviceValue(0, kAccelerationMaximum), 50u);
}

TEST_F(FieldRules, RoundGoesToTheNearestStep)
{
    Make("amd-sfh-als", DeviceRule::Round(kReportInterval, 10));
    Send(ReportWith(4, kReportInterval, 96));
    EXPECT_EQ(DeviceValue(4, kReportInterval), 100u);
    Send(ReportWith(4, kReportInterval, 94));
    EXPECT_EQ(DeviceValue(4, kReportInterval), 90u);
    Send(ReportWith(4, kReportInterval, 95));
    EXPECT_EQ(DeviceValue(4, kReportInterval), 100u) << "a tie goes away from zero";
}

TEST_F(FieldRules, RoundNeverOverflowsTheField)
{
    Make("hutrr39-accel3", DeviceRule::Round(kAccelerationSensitivity, 1000));  // 16-bit unsigned field
    Send(ReportWith(0, kAccelerationSensitivity, 65535));
    EXPECT_EQ(DeviceValue(0, kAccelerationSensitivity), 65535u) << "66000 does not fit in 16 bits";
}

TEST_F(FieldRules, RoundThenClampTogether)
{
    DeviceRule rule = DeviceRule::Clamp(kReportInterval, 0, 95);
    std::get<host::hidsim::FieldAction>(rule.action).roundStep = 10;
    Make("amd-sfh-als", rule);
    Send(ReportWith(4, kReportInterval, 96));
    EXPECT_EQ(DeviceValue(4, kReportInterval), 95u);
}

TEST_F(FieldRules, OnlyTheFieldChanges)
{
    Make("amd-sfh-als", DeviceRule::Clamp(kReportInterval, 10, 1000));
    Bytes report = ReportWith(4, kReportInterval, 5000);
    report[1] = 0x02;
    report[2] = 0x01;
    Send(report);
    const Bytes stored = *device_->Feature(4);
    ASSERT_EQ(stored.size(), report.size());
    std::size_t differing = 0;
    for (std::size_t i = 0; i < stored.size(); ++i)
        differing += stored[i] != report[i] ? 1 : 0;
    EXPECT_EQ(differing, 2u) << "5000 -> 1000 changes two bytes of the 32-bit field";
    EXPECT_EQ(stored[1], 0x02);
    EXPECT_EQ(stored[2], 0x01);
}

TEST_F(FieldRules, ReportWithoutTheFieldIsStoredAsSent)
{
    Make("amd-sfh-als", DeviceRule::Clamp(kReportInterval, 10, 1000));
    Send({0x07, 0x01, 0x02});
    EXPECT_EQ(device_->Feature(7), (Bytes{0x07, 0x01, 0x02}));
    Make("amd-sfh-als", DeviceRule::Clamp(0x0123, 10, 1000));  // no such usage
    Bytes report = ReportWith(4, kReportInterval, 5);
    Send(report);
    EXPECT_EQ(device_->Feature(4), report);
}

TEST_F(FieldRules, ShortReportIsPaddedBeforeTheClamp)
{
    Make("amd-sfh-als", DeviceRule::Clamp(kReportInterval, 10, 1000));
    Send({0x04});
    EXPECT_EQ(DeviceValue(4, kReportInterval), 10u);
}

}  // namespace
}  // namespace hidsim_test
