// Device creation: top-level collections, the driver's collection, errors.
#include <cstring>

#include <gtest/gtest.h>

#include "hidsim_test_support.h"

namespace hidsim_test {
namespace {

using host::hidsim::DeviceError;

TEST(CompositeDevice, KeyboardSensorAndMouseAreThreeEndpoints)
{
    auto device = MakeDevice(HidDeviceConfig{}.WithDescriptor(LoadDescriptor("hutrr39-col2")));
    ASSERT_TRUE(device);
    ASSERT_EQ(device->CollectionCount(), 3u);
    EXPECT_EQ(device->Collection(0)->Caps().UsagePage, 0x01);
    EXPECT_EQ(device->Collection(0)->Caps().Usage, 0x06);
    EXPECT_EQ(device->Collection(1)->Caps().UsagePage, 0x20);
    EXPECT_EQ(device->Collection(1)->Caps().Usage, 0x01);
    EXPECT_EQ(device->Collection(2)->Caps().UsagePage, 0x01);
    EXPECT_EQ(device->Collection(2)->Caps().Usage, 0x02);
    EXPECT_EQ(device->Collection(3), nullptr);

    EXPECT_EQ(device->DriverCollectionIndex(), 1u) << "the first collection on the sensor page";
    EXPECT_EQ(&device->DriverEndpoint(), device->Collection(1));
    EXPECT_EQ(device->FindCollection(0x01, 0x02), 2u);
    EXPECT_EQ(device->FindCollection(0x0C), std::nullopt);
}

TEST(CompositeDevice, EachEndpointHandsOutItsOwnBlob)
{
    auto device = MakeDevice(HidDeviceConfig{}.WithDescriptor(LoadDescriptor("hutrr39-col2")));
    ASSERT_TRUE(device);
    for (std::size_t i = 0; i < device->CollectionCount(); ++i) {
        host::hidsim::SimulatedCollection& collection = *device->Collection(i);
        const Bytes& blob = collection.PreparsedData();
        const Answer answer = Query(collection, IOCTL_HID_GET_COLLECTION_DESCRIPTOR, static_cast<ULONG>(blob.size()));
        EXPECT_EQ(answer.result.status, STATUS_SUCCESS) << "collection " << i;
        EXPECT_EQ(answer.bytes, blob) << "collection " << i;
        HID_COLLECTION_INFORMATION information{};
        const Answer info = Query(collection, IOCTL_HID_GET_COLLECTION_INFORMATION, sizeof(information));
        std::memcpy(&information, info.bytes.data(), sizeof(information));
        EXPECT_EQ(information.DescriptorSize, blob.size()) << "collection " << i;
    }
}

TEST(CompositeDevice, InputGoesToTheCollectionItIsFedTo)
{
    auto device = MakeDevice(HidDeviceConfig{}.WithDescriptor(LoadDescriptor("hutrr39-col2")));
    ASSERT_TRUE(device);
    RecordingRead sensorRead;
    RecordingRead mouseRead;
    device->DriverEndpoint().SubmitRead(&sensorRead, 4096);
    device->Collection(2)->SubmitRead(&mouseRead, 4096);
    device->Collection(2)->FeedInput(Bytes{0x04, 0x01, 0x05, 0xFB});
    EXPECT_TRUE(sensorRead.completions.empty());
    ASSERT_EQ(mouseRead.completions.size(), 1u);
    device->FeedInput(Bytes{0x02, 0x00});
    ASSERT_EQ(sensorRead.completions.size(), 1u);
    EXPECT_EQ(sensorRead.completions[0].data, (Bytes{0x02, 0x00}));
}

TEST(CompositeDevice, FeatureReportsAreSharedByTheCollections)
{
    auto device = MakeDevice(HidDeviceConfig{}.WithDescriptor(LoadDescriptor("hutrr39-col2")));
    ASSERT_TRUE(device);
    ASSERT_EQ(SetFeature(*device->Collection(0), {0x03, 0x11}).status, STATUS_SUCCESS);
    EXPECT_EQ(GetFeature(*device->Collection(1), 3, 2).bytes, (Bytes{0x03, 0x11}));
}

TEST(DriverCollection, ChosenByIndex)
{
    auto device = MakeDevice(HidDeviceConfig{}.WithDescriptor(LoadDescriptor("hutrr39-col2")).WithDriverCollection(2));
    ASSERT_TRUE(device);
    EXPECT_EQ(device->DriverCollectionIndex(), 2u);
}

TEST(DriverCollection, IndexOutOfRangeMeansNoDevice)
{
    DeviceError error;
    auto device = SimulatedHidDevice::Create(
        HidDeviceConfig{}.WithDescriptor(LoadDescriptor("hutrr39-col2")).WithDriverCollection(3), error);
    EXPECT_EQ(device, nullptr);
    EXPECT_EQ(error.message, "driver collection 3 does not exist: the descriptor has 3 top-level collections");
}

TEST(DriverCollection, WithoutASensorCollectionTheFirstOne)
{
    // A bare mouse (generic desktop, no sensor page).
    const Bytes mouse{0x05, 0x01, 0x09, 0x02, 0xA1, 0x01, 0x05, 0x09, 0x19, 0x01, 0x29, 0x03, 0x15, 0x00,
                      0x25, 0x01, 0x95, 0x03, 0x75, 0x01, 0x81, 0x02, 0x95, 0x01, 0x75, 0x05, 0x81, 0x03, 0xC0};
    auto device = MakeDevice(HidDeviceConfig{}.WithDescriptor(mouse));
    ASSERT_TRUE(device);
    EXPECT_EQ(device->CollectionCount(), 1u);
    EXPECT_EQ(device->DriverCollectionIndex(), 0u);
}

TEST(DescriptorErrors, MalformedDescriptorGivesOffsetAndReason)
{
    // Report Size 0 at offset 6.
    const Bytes bad{0x05, 0x20, 0x09, 0x73, 0xA1, 0x00, 0x75, 0x00, 0x95, 0x01, 0x0A, 0x53, 0x04, 0x81, 0x02, 0xC0};
    DeviceError error;
    auto device = SimulatedHidDevice::Create(HidDeviceConfig{}.WithDescriptor(bad), error);
    EXPECT_EQ(device, nullptr);
    ASSERT_TRUE(error.descriptorOffset.has_value());
    EXPECT_NE(error.message.find("report descriptor: "), std::string::npos) << error.message;
    EXPECT_LT(*error.descriptorOffset, bad.size());
}

TEST(DescriptorErrors, TruncatedDescriptorIsRejected)
{
    Bytes truncated = LoadDescriptor("hutrr39-accel3");
    ASSERT_GT(truncated.size(), 10u);
    truncated.resize(truncated.size() - 3);
    DeviceError error;
    EXPECT_EQ(SimulatedHidDevice::Create(HidDeviceConfig{}.WithDescriptor(truncated), error), nullptr);
    EXPECT_FALSE(error.message.empty());
}

TEST(DescriptorErrors, EmptyDescriptorHasNoCollection)
{
    DeviceError error;
    EXPECT_EQ(SimulatedHidDevice::Create(HidDeviceConfig{}, error), nullptr);
    EXPECT_FALSE(error.message.empty());
}

}  // namespace
}  // namespace hidsim_test
