// GET_FEATURE and SET_FEATURE without rules, over real descriptors: amd-sfh-als
// uses report ID 4, hutrr39-accel3 no report ID.
#include <gtest/gtest.h>

#include "hidsim_test_support.h"

namespace hidsim_test {
namespace {

class AlsFeatures : public ::testing::Test {
protected:
    void SetUp() override
    {
        device_ = MakeDevice(HidDeviceConfig{}
                                 .WithDescriptor(LoadDescriptor("amd-sfh-als"))
                                 .WithFeature(4, {0x04, 0x02, 0x02, 0x01, 0x00, 0x64}));
        ASSERT_TRUE(device_);
        length_ = device_->DriverCollection().Caps().FeatureReportByteLength;
        ASSERT_GT(length_, 6u);
    }
    HidCollectionEndpoint& Endpoint() { return device_->DriverEndpoint(); }
    static Bytes Padded(Bytes bytes, std::size_t length)
    {
        bytes.resize(length, 0);
        return bytes;
    }

    std::unique_ptr<SimulatedHidDevice> device_;
    ULONG length_ = 0;
};

TEST_F(AlsFeatures, ListedReportIsPaddedToTheFeatureLength)
{
    const Answer answer = GetFeature(Endpoint(), 4, length_);
    EXPECT_EQ(answer.result.status, STATUS_SUCCESS);
    EXPECT_EQ(answer.result.information, length_);
    EXPECT_EQ(answer.bytes, Padded({0x04, 0x02, 0x02, 0x01, 0x00, 0x64}, length_));
}

TEST_F(AlsFeatures, UnlistedReportIdAnswersItsIdAndZeros)
{
    const Answer answer = GetFeature(Endpoint(), 7, length_);
    EXPECT_EQ(answer.result.status, STATUS_SUCCESS);
    EXPECT_EQ(answer.bytes, Padded({0x07}, length_));
}

TEST_F(AlsFeatures, LargerBufferGetsOnlyTheReportAndIsLeftAlone)
{
    Bytes buffer(4096, 0xAA);
    buffer[0] = 4;
    const auto result = Endpoint().DeviceControl(IOCTL_HID_GET_FEATURE, nullptr, 0, buffer.data(), 4096);
    EXPECT_EQ(result.status, STATUS_SUCCESS);
    EXPECT_EQ(result.information, length_);
    EXPECT_EQ(buffer[length_ - 1], 0x00);
    EXPECT_EQ(buffer[length_], 0xAA);
}

TEST_F(AlsFeatures, SmallerBufferGetsTheFirstBytes)
{
    const Answer answer = GetFeature(Endpoint(), 4, 3);
    EXPECT_EQ(answer.result.status, STATUS_SUCCESS);
    EXPECT_EQ(answer.bytes, (Bytes{0x04, 0x02, 0x02}));
}

TEST_F(AlsFeatures, NoRoomForTheReportIdFails)
{
    EXPECT_EQ(GetFeature(Endpoint(), 4, 0).result.status, STATUS_BUFFER_TOO_SMALL);
    EXPECT_EQ(Endpoint().DeviceControl(IOCTL_HID_GET_FEATURE, nullptr, 0, nullptr, 15).status,
              STATUS_INVALID_PARAMETER);
}

TEST_F(AlsFeatures, SetFeatureStoresTheReportForLaterReads)
{
    Bytes report = Padded({0x04, 0x02, 0x02, 0x01, 0x00, 0xE8, 0x03}, length_);
    const auto result = SetFeature(Endpoint(), report);
    EXPECT_EQ(result.status, STATUS_SUCCESS);
    EXPECT_EQ(result.information, 0u);
    EXPECT_EQ(GetFeature(Endpoint(), 4, length_).bytes, report);
    EXPECT_EQ(device_->Feature(4), report);
}

TEST_F(AlsFeatures, SetFeatureFilesTheReportUnderItsFirstByte)
{
    ASSERT_EQ(SetFeature(Endpoint(), {0x09, 0x55}).status, STATUS_SUCCESS);
    EXPECT_EQ(GetFeature(Endpoint(), 9, length_).bytes, Padded({0x09, 0x55}, length_));
    EXPECT_EQ(GetFeature(Endpoint(), 4, length_).bytes, Padded({0x04, 0x02, 0x02, 0x01, 0x00, 0x64}, length_));
}

TEST_F(AlsFeatures, SetFeatureWithoutReportFails)
{
    Bytes output(length_, 0);
    EXPECT_EQ(Endpoint().DeviceControl(IOCTL_HID_SET_FEATURE, nullptr, 0, output.data(), length_).status,
              STATUS_BUFFER_TOO_SMALL);
    EXPECT_EQ(Endpoint().DeviceControl(IOCTL_HID_SET_FEATURE, nullptr, 8, output.data(), length_).status,
              STATUS_INVALID_PARAMETER);
    EXPECT_EQ(device_->Feature(0), std::nullopt);
}

TEST_F(AlsFeatures, FeatureChangesTakeEffectAtOnce)
{
    ASSERT_TRUE(device_->UpdateFeatures({{4, {0x04, 0x03}}, {5, {0x05, 0x01}}}));
    EXPECT_EQ(GetFeature(Endpoint(), 4, length_).bytes, Padded({0x04, 0x03}, length_));
    EXPECT_EQ(GetFeature(Endpoint(), 5, length_).bytes, Padded({0x05, 0x01}, length_));
    ASSERT_TRUE(device_->SetFeature(5, {0x05, 0x02}));
    EXPECT_EQ(GetFeature(Endpoint(), 5, length_).bytes, Padded({0x05, 0x02}, length_));
}

TEST(NoReportIdFeatures, ReportIdZeroIsServedLikeAnyOther)
{
    auto device = MakeDevice(HidDeviceConfig{}.WithDescriptor(LoadDescriptor("hutrr39-accel3")));
    ASSERT_TRUE(device);
    const ULONG length = device->DriverCollection().Caps().FeatureReportByteLength;
    const Answer fresh = GetFeature(device->DriverEndpoint(), 0, length);
    EXPECT_EQ(fresh.bytes, Bytes(length, 0));

    Bytes report(length, 0);
    report[5] = 100;  // report interval, little-endian
    ASSERT_EQ(SetFeature(device->DriverEndpoint(), report).status, STATUS_SUCCESS);
    EXPECT_EQ(GetFeature(device->DriverEndpoint(), 0, length).bytes, report);
}

}  // namespace
}  // namespace hidsim_test
