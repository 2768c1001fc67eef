// Device creation: top-level collections of a composite device as separate
// endpoints, the driver's collection, and configurations that make no device.
#include <cstring>

#include <gtest/gtest.h>

#include "hidsim_test_support.h"

namespace hidsim_test {
namespace {

// hutrr39-col2: a keyboard, a sensor collection and a mouse.
using CompositeDevice = DeviceTest;

TEST_F(CompositeDevice, EachCollectionIsAnEndpointWithItsOwnCapsBlobAndInput)
{
    Make(On("hutrr39-col2"));
    ASSERT_EQ(device_->CollectionCount(), 3u);
    const USAGE expected[3][2] = {{0x01, 0x06}, {0x20, 0x01}, {0x01, 0x02}};
    for (std::size_t i = 0; i < 3; ++i) {
        host::hidsim::SimulatedCollection& collection = *device_->Collection(i);
        EXPECT_EQ(collection.Caps().UsagePage, expected[i][0]) << "collection " << i;
        EXPECT_EQ(collection.Caps().Usage, expected[i][1]) << "collection " << i;
        const Bytes& blob = collection.PreparsedData();
        EXPECT_EQ(Query(collection, IOCTL_HID_GET_COLLECTION_DESCRIPTOR, static_cast<ULONG>(blob.size())).bytes, blob);
        HID_COLLECTION_INFORMATION information{};
        const Answer info = Query(collection, IOCTL_HID_GET_COLLECTION_INFORMATION, sizeof(information));
        std::memcpy(&information, info.bytes.data(), sizeof(information));
        EXPECT_EQ(information.DescriptorSize, blob.size()) << "collection " << i;
    }
    EXPECT_EQ(device_->Collection(3), nullptr);
    EXPECT_EQ(&device_->DriverEndpoint(), device_->Collection(1)) << "the first collection on the sensor page";
    EXPECT_EQ(device_->FindCollection(0x0C), std::nullopt);

    // Input goes to its own collection while features are shared.
    RecordingRead sensorRead;
    RecordingRead mouseRead;
    Submit(sensorRead);
    device_->Collection(2)->SubmitRead(&mouseRead, 4096);
    device_->Collection(2)->FeedInput(Bytes{0x04, 0x01, 0x05, 0xFB});
    EXPECT_TRUE(sensorRead.completions.empty());
    EXPECT_EQ(mouseRead.completions.size(), 1u);
    device_->FeedInput(Bytes{0x02, 0x00});
    ASSERT_EQ(sensorRead.completions.size(), 1u);
    EXPECT_EQ(sensorRead.completions[0].data, (Bytes{0x02, 0x00}));

    ASSERT_EQ(SetFeature(*device_->Collection(0), {0x03, 0x11}).status, STATUS_SUCCESS);
    EXPECT_EQ(GetFeature(*device_->Collection(1), 3, 2).bytes, (Bytes{0x03, 0x11}));
    auto chosen = MakeDevice(On("hutrr39-col2").WithDriverCollection(2));
    ASSERT_TRUE(chosen);
    EXPECT_EQ(&chosen->DriverEndpoint(), chosen->Collection(2)) << "chosen by index";
}

TEST(DeviceCreation, UnusableConfigurationsMakeNoDeviceAndSayWhy)
{
    // Report Size 0 at offset 6.
    const Bytes zeroSize{0x05, 0x20, 0x09, 0x73, 0xA1, 0x00, 0x75, 0x00, 0x95, 0x01, 0x0A, 0x53, 0x04, 0x81, 0x02, 0xC0};
    const std::pair<HidDeviceConfig, std::string> cases[] = {
        {HidDeviceConfig{}.WithDescriptor(zeroSize), "report descriptor: "},
        {HidDeviceConfig{}, ""},
        {On("hutrr39-col2").WithDriverCollection(3),
         "driver collection 3 does not exist: the descriptor has 3 top-level collections"},
    };
    for (const auto& [config, message] : cases) {
        host::hidsim::DeviceError error;
        EXPECT_EQ(SimulatedHidDevice::Create(config, error), nullptr) << message;
        EXPECT_FALSE(error.message.empty());
        EXPECT_NE(error.message.find(message), std::string::npos) << error.message;
        if (&config == &cases[0].first) {
            ASSERT_TRUE(error.descriptorOffset.has_value());
            EXPECT_LT(*error.descriptorOffset, zeroSize.size());
        }
    }
}

}  // namespace
}  // namespace hidsim_test
