// GetFeatureReport and the open state of the HidDevice.
#include <gtest/gtest.h>

#include "hid/hid_io_target.h"
#include "platform/hidclass.h"
#include "tests/driver/driver_test_bed.h"

namespace testdriver {
namespace {

namespace hs = host::hid::sensor;
using host::hidsim::DeviceRule;
using host::hidsim::HidDeviceConfig;
using host::hidsim::RuleTrigger;

HidDeviceConfig DeviceWithReport4()
{
    hs::SensorSpec sensor = hs::CustomSensor(8, {hs::CustomValue(1)});
    sensor.reportId = 4;
    return HidDeviceConfig{}
        .WithDescriptor(hs::BuildSingleSensor(sensor))
        .WithFeature(4, CustomFeatureReport(4, u"0x210", 8))
        .WithFeature(5, CustomFeatureReport(5, u"0x210", 8));
}

class FeatureReport : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_EQ(bed.Prepare(), STATUS_SUCCESS);
        bed.Sim().ClearTraffic();
        length = bed.Hid()->Caps().FeatureReportByteLength;
    }
    void TearDown() override { EXPECT_EQ(bed.UnloadAndCollectLeaks(), ""); }

    NTSTATUS Get(UCHAR reportId) { return bed.Hid()->GetFeatureReport(reportId, buffer, length, u"Test"); }

    DriverTestBed bed{DeviceWithReport4()};
    BYTE buffer[kMaxFeatureReportBytes + 1] = {};
    ULONG length = 0;
};

TEST_F(FeatureReport, ReadsTheRequestedReportInOneAttempt)
{
    EXPECT_EQ(Get(4), STATUS_SUCCESS);
    EXPECT_EQ(buffer[0], 4);
    EXPECT_EQ(buffer[3], 100);
    EXPECT_EQ(bed.Traffic().size(), 1u);
}

TEST_F(FeatureReport, AnswerWithAnotherReportIdFailsAfterOneAttempt)
{
    std::string error;
    ASSERT_TRUE(bed.Sim().SetRules({DeviceRule::AnswerReportId(RuleTrigger::GetFeature, 5)}, error));
    EXPECT_EQ(Get(4), STATUS_UNSUCCESSFUL);
    EXPECT_EQ(bed.Traffic().size(), 1u);
}

TEST_F(FeatureReport, SecondFailureIsReturned)
{
    std::string error;
    ASSERT_TRUE(bed.Sim().SetRules({DeviceRule::Fail(RuleTrigger::GetFeature, STATUS_IO_DEVICE_ERROR).Times(1),
                                    DeviceRule::Fail(RuleTrigger::GetFeature, STATUS_DEVICE_NOT_CONNECTED)},
                                   error));
    EXPECT_EQ(Get(4), STATUS_DEVICE_NOT_CONNECTED);
    EXPECT_EQ(bed.Traffic().size(), 2u);
}

TEST_F(FeatureReport, BadArgumentsFailWithoutTraffic)
{
    EXPECT_EQ(bed.Hid()->GetFeatureReport(4, buffer, kMaxFeatureReportBytes + 1, u"Test"), STATUS_UNSUCCESSFUL);
    EXPECT_EQ(bed.Hid()->GetFeatureReport(4, nullptr, length, u"Test"), STATUS_UNSUCCESSFUL);
    EXPECT_EQ(bed.Hid()->GetFeatureReport(4, buffer, 0, u"Test"), STATUS_UNSUCCESSFUL);
    EXPECT_TRUE(bed.Traffic().empty());
}

TEST_F(FeatureReport, DeviceThatNeverAnswersTimesOutAfterFiveSeconds)
{
    std::string error;
    ASSERT_TRUE(bed.Sim().SetRules({DeviceRule::Timeout(RuleTrigger::GetFeature)}, error));
    EXPECT_EQ(Get(4), STATUS_IO_TIMEOUT);
    EXPECT_EQ(bed.Traffic().size(), 2u);
}

TEST_F(FeatureReport, OpenTwiceIsRefused)
{
    EXPECT_EQ(bed.Hid()->Open(nullptr, nullptr), STATUS_UNSUCCESSFUL);
    EXPECT_TRUE(bed.Hid()->IsOpen());
}

TEST(HidDeviceState, NothingWorksBeforeOpen)
{
    DriverTestBed bed(DeviceWithReport4());
    ASSERT_EQ(bed.Load(), STATUS_SUCCESS);
    HidDevice* device = new (std::nothrow) HidDevice(bed.Host().Device());
    ASSERT_NE(device, nullptr);
    BYTE report[16] = {};
    EXPECT_FALSE(device->IsOpen());
    EXPECT_EQ(device->EnumerateSensors(), STATUS_UNSUCCESSFUL);
    EXPECT_EQ(device->GetFeatureReport(4, report, sizeof(report), u"Test"), STATUS_UNSUCCESSFUL);
    EXPECT_EQ(device->StartReader(), STATUS_UNSUCCESSFUL);
    EXPECT_EQ(std::u16string(device->DevicePath()), kDevicePath);
    EXPECT_EQ(std::u16string(device->FriendlyName()), u"HID Sensor Class Device");
    delete device;
    EXPECT_TRUE(bed.Traffic().empty());
    EXPECT_EQ(bed.UnloadAndCollectLeaks(), "");
}

TEST(HidIoTargetState, UnopenedTargetSendsNothingAndCannotRead)
{
    HidIoTarget* target = new (std::nothrow) HidIoTarget;
    ASSERT_NE(target, nullptr);
    HID_COLLECTION_INFORMATION information = {};
    EXPECT_EQ(target->SendIoctlSynchronously(&information, sizeof(information),
                                             IOCTL_HID_GET_COLLECTION_INFORMATION, nullptr),
              STATUS_SUCCESS);
    EXPECT_EQ(target->SubmitRead(), STATUS_UNSUCCESSFUL);
    EXPECT_EQ(target->Stop(), STATUS_SUCCESS);
    EXPECT_EQ(target->Close(), STATUS_SUCCESS);
    delete target;
}

}  // namespace
}  // namespace testdriver
