// Collection information, preparsed data and strings, over real descriptors.
#include <cstring>

#include <gtest/gtest.h>

#include "hidsim_test_support.h"

namespace hidsim_test {
namespace {

HID_COLLECTION_INFORMATION ReadInformation(HidCollectionEndpoint& endpoint)
{
    const Answer answer = Query(endpoint, IOCTL_HID_GET_COLLECTION_INFORMATION, sizeof(HID_COLLECTION_INFORMATION));
    EXPECT_EQ(answer.result.status, STATUS_SUCCESS);
    EXPECT_EQ(answer.result.information, sizeof(HID_COLLECTION_INFORMATION));
    HID_COLLECTION_INFORMATION information{};
    if (answer.bytes.size() == sizeof(information))
        std::memcpy(&information, answer.bytes.data(), sizeof(information));
    return information;
}

std::u16string ReadString(const Answer& answer)
{
    std::u16string text(answer.bytes.size() / 2, u'\0');
    std::memcpy(text.data(), answer.bytes.data(), text.size() * 2);
    return text;
}

TEST(CollectionInformation, DefaultsAndDescriptorSizeOfTheBlob)
{
    auto device = MakeDevice(HidDeviceConfig{}.WithDescriptor(LoadDescriptor("hutrr39-accel3")));
    ASSERT_TRUE(device);
    const HID_COLLECTION_INFORMATION information = ReadInformation(device->DriverEndpoint());
    EXPECT_EQ(information.DescriptorSize, device->DriverCollection().PreparsedData().size());
    EXPECT_GT(information.DescriptorSize, 0u);
    EXPECT_EQ(information.Polled, FALSE);
    EXPECT_EQ(information.VendorID, 0);
    EXPECT_EQ(information.ProductID, 0);
    EXPECT_EQ(information.VersionNumber, 0x0100);
}

TEST(CollectionInformation, ConfiguredValues)
{
    auto device = MakeDevice(HidDeviceConfig{}
                                 .WithDescriptor(LoadDescriptor("amd-sfh-als"))
                                 .WithInformation({0x5A3C, 0x0002, 0x0213, true}));
    ASSERT_TRUE(device);
    const HID_COLLECTION_INFORMATION information = ReadInformation(device->DriverEndpoint());
    EXPECT_EQ(information.Polled, TRUE);
    EXPECT_EQ(information.VendorID, 0x5A3C);
    EXPECT_EQ(information.ProductID, 0x0002);
    EXPECT_EQ(information.VersionNumber, 0x0213);
}

TEST(CollectionInformation, ShortOrMissingBufferFails)
{
    auto device = MakeDevice(HidDeviceConfig{}.WithDescriptor(LoadDescriptor("hutrr39-accel3")));
    ASSERT_TRUE(device);
    HidCollectionEndpoint& endpoint = device->DriverEndpoint();
    EXPECT_EQ(Query(endpoint, IOCTL_HID_GET_COLLECTION_INFORMATION, 11).result.status, STATUS_BUFFER_TOO_SMALL);
    EXPECT_EQ(endpoint.DeviceControl(IOCTL_HID_GET_COLLECTION_INFORMATION, nullptr, 0, nullptr, 12).status,
              STATUS_INVALID_PARAMETER);
    EXPECT_EQ(endpoint.DeviceControl(IOCTL_HID_GET_COLLECTION_INFORMATION, nullptr, 0, nullptr, 0).status,
              STATUS_BUFFER_TOO_SMALL);
}

TEST(CollectionDescriptor, CopiesTheBlobAndWorksWithTheParser)
{
    auto device = MakeDevice(HidDeviceConfig{}.WithDescriptor(LoadDescriptor("amd-sfh-als")));
    ASSERT_TRUE(device);
    const Bytes& blob = device->DriverCollection().PreparsedData();
    const Answer answer =
        Query(device->DriverEndpoint(), IOCTL_HID_GET_COLLECTION_DESCRIPTOR, static_cast<ULONG>(blob.size()));
    ASSERT_EQ(answer.result.status, STATUS_SUCCESS);
    EXPECT_EQ(answer.bytes, blob);

    Bytes copy = answer.bytes;
    HIDP_CAPS caps{};
    ASSERT_EQ(HidP_GetCaps(reinterpret_cast<PHIDP_PREPARSED_DATA>(copy.data()), &caps), HIDP_STATUS_SUCCESS);
    EXPECT_EQ(caps.UsagePage, 0x20);
    EXPECT_EQ(caps.Usage, 0x41);
}

TEST(CollectionDescriptor, BufferOneByteShortGetsNothing)
{
    auto device = MakeDevice(HidDeviceConfig{}.WithDescriptor(LoadDescriptor("amd-sfh-als")));
    ASSERT_TRUE(device);
    const auto size = static_cast<ULONG>(device->DriverCollection().PreparsedData().size());
    Bytes buffer(size, 0xEE);
    const auto result = device->DriverEndpoint().DeviceControl(IOCTL_HID_GET_COLLECTION_DESCRIPTOR, nullptr, 0,
                                                               buffer.data(), size - 1);
    EXPECT_EQ(result.status, STATUS_BUFFER_TOO_SMALL);
    EXPECT_EQ(result.information, 0u);
    EXPECT_EQ(buffer, Bytes(size, 0xEE));
}

class DeviceStrings : public ::testing::Test {
protected:
    void SetUp() override
    {
        device_ = MakeDevice(HidDeviceConfig{}
                                 .WithDescriptor(LoadDescriptor("hutrr39-accel3"))
                                 .WithManufacturer(u"Contoso")
                                 .WithSerialNumber(u"\u00C9-42"));
        ASSERT_TRUE(device_);
    }
    HidCollectionEndpoint& Endpoint() { return device_->DriverEndpoint(); }

    std::unique_ptr<SimulatedHidDevice> device_;
};

TEST_F(DeviceStrings, PresentStringIsTerminatedWhenThereIsRoom)
{
    const Answer answer = Query(Endpoint(), IOCTL_HID_GET_MANUFACTURER_STRING, 252);
    EXPECT_EQ(answer.result.status, STATUS_SUCCESS);
    EXPECT_EQ(answer.result.information, 16u);  // 7 characters and the terminator
    EXPECT_EQ(ReadString(answer), std::u16string(u"Contoso\0", 8));
}

TEST_F(DeviceStrings, NonAsciiCharactersArriveAsUtf16)
{
    const Answer answer = Query(Endpoint(), IOCTL_HID_GET_SERIALNUMBER_STRING, 252);
    ASSERT_EQ(answer.result.status, STATUS_SUCCESS);
    EXPECT_EQ(ReadString(answer), std::u16string(u"\u00C9-42\0", 5));
}

TEST_F(DeviceStrings, ExactFitHasNoTerminatorAndShortBufferTruncates)
{
    EXPECT_EQ(ReadString(Query(Endpoint(), IOCTL_HID_GET_MANUFACTURER_STRING, 14)), u"Contoso");
    const Answer truncated = Query(Endpoint(), IOCTL_HID_GET_MANUFACTURER_STRING, 7);  // odd: 3 characters fit
    EXPECT_EQ(truncated.result.status, STATUS_SUCCESS);
    EXPECT_EQ(ReadString(truncated), u"Con");
}

TEST_F(DeviceStrings, AbsentStringFails)
{
    const Answer answer = Query(Endpoint(), IOCTL_HID_GET_PRODUCT_STRING, 252);
    EXPECT_EQ(answer.result.status, STATUS_INVALID_PARAMETER);
    EXPECT_EQ(answer.result.information, 0u);
}

TEST_F(DeviceStrings, BufferBelowOneCharacterFails)
{
    EXPECT_EQ(Query(Endpoint(), IOCTL_HID_GET_MANUFACTURER_STRING, 1).result.status, STATUS_BUFFER_TOO_SMALL);
    EXPECT_EQ(Endpoint().DeviceControl(IOCTL_HID_GET_MANUFACTURER_STRING, nullptr, 0, nullptr, 252).status,
              STATUS_INVALID_PARAMETER);
}

TEST_F(DeviceStrings, EmptyStringIsJustTheTerminator)
{
    auto device = MakeDevice(HidDeviceConfig{}.WithDescriptor(LoadDescriptor("hutrr39-accel3")).WithProduct(u""));
    ASSERT_TRUE(device);
    const Answer answer = Query(device->DriverEndpoint(), IOCTL_HID_GET_PRODUCT_STRING, 252);
    EXPECT_EQ(answer.result.status, STATUS_SUCCESS);
    EXPECT_EQ(answer.bytes, Bytes(2, 0));
}

TEST(UnknownIoctl, IsAnInvalidDeviceRequest)
{
    auto device = MakeDevice(HidDeviceConfig{}.WithDescriptor(LoadDescriptor("hutrr39-accel3")));
    ASSERT_TRUE(device);
    // IOCTL_HID_GET_INPUT_REPORT: the platform has it, this device does not answer it.
    const Answer answer = Query(device->DriverEndpoint(), 0x000B01A2, 64);
    EXPECT_EQ(answer.result.status, STATUS_INVALID_DEVICE_REQUEST);
    EXPECT_EQ(answer.result.information, 0u);
    EXPECT_TRUE(answer.result.answered);
}

}  // namespace
}  // namespace hidsim_test
