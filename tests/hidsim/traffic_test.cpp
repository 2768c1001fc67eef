// The traffic log: what a driver's discovery looks like from the device, the
// listener, and the formatting the tool prints.
#include <gtest/gtest.h>

#include "hidsim_test_support.h"

namespace hidsim_test {
namespace {

using host::hidsim::DeviceRule;
using host::hidsim::FormatHexBytes;
using host::hidsim::FormatIoctlCode;
using host::hidsim::FormatStatus;
using host::hidsim::RuleTrigger;
using host::hidsim::TrafficEvent;
using host::hidsim::TrafficKind;
using host::hidsim::TrafficKindName;

// The driver's discovery, request by request, on a device without serial number.
void Discover(HidCollectionEndpoint& endpoint)
{
    HID_COLLECTION_INFORMATION information{};
    endpoint.DeviceControl(IOCTL_HID_GET_COLLECTION_INFORMATION, nullptr, 0, reinterpret_cast<BYTE*>(&information),
                           sizeof(information));
    Query(endpoint, IOCTL_HID_GET_SERIALNUMBER_STRING, 252);
    Query(endpoint, IOCTL_HID_GET_MANUFACTURER_STRING, 252);
    Query(endpoint, IOCTL_HID_GET_PRODUCT_STRING, 252);
    Query(endpoint, IOCTL_HID_GET_COLLECTION_DESCRIPTOR, information.DescriptorSize);
    GetFeature(endpoint, 4, 15);
}

class Traffic : public ::testing::Test {
protected:
    void SetUp() override
    {
        device_ = MakeDevice(HidDeviceConfig{}
                                 .WithDescriptor(LoadDescriptor("amd-sfh-als"))
                                 .WithManufacturer(u"AMD")
                                 .WithProduct(u"SFH")
                                 .WithFeature(4, {0x04, 0x02}));
        ASSERT_TRUE(device_);
        ASSERT_EQ(device_->DriverCollection().Caps().FeatureReportByteLength, 15);
    }
    HidCollectionEndpoint& Endpoint() { return device_->DriverEndpoint(); }

    std::unique_ptr<SimulatedHidDevice> device_;
};

TEST_F(Traffic, DiscoveryInTheOrderTheDeviceSawIt)
{
    Discover(Endpoint());
    const std::vector<TrafficEvent> events = device_->Traffic();
    ASSERT_EQ(events.size(), 6u);
    const ULONG codes[] = {IOCTL_HID_GET_COLLECTION_INFORMATION, IOCTL_HID_GET_SERIALNUMBER_STRING,
                           IOCTL_HID_GET_MANUFACTURER_STRING,    IOCTL_HID_GET_PRODUCT_STRING,
                           IOCTL_HID_GET_COLLECTION_DESCRIPTOR,  IOCTL_HID_GET_FEATURE};
    for (std::size_t i = 0; i < events.size(); ++i) {
        EXPECT_EQ(events[i].sequence, i);
        EXPECT_EQ(events[i].ioctlCode, codes[i]) << "event " << i;
        EXPECT_EQ(events[i].collection, device_->DriverCollectionIndex());
    }
    EXPECT_EQ(events[0].kind, TrafficKind::Ioctl);
    EXPECT_EQ(events[0].bytes.size(), sizeof(HID_COLLECTION_INFORMATION));
    EXPECT_EQ(events[1].status, STATUS_INVALID_PARAMETER) << "no serial number";
    EXPECT_TRUE(events[1].bytes.empty());
    EXPECT_EQ(events[2].bytes, (Bytes{'A', 0, 'M', 0, 'D', 0, 0, 0}));
    EXPECT_EQ(events[4].bytes, device_->DriverCollection().PreparsedData());
    EXPECT_EQ(events[5].kind, TrafficKind::GetFeature);
    EXPECT_EQ(events[5].reportId, 4);
    EXPECT_EQ(FormatHexBytes(events[5].bytes), "04 02 00 00 00 00 00 00 00 00 00 00 00 00 00");
}

TEST_F(Traffic, SetFeatureLogsTheReportAsSentAndFailuresTheirStatus)
{
    std::string error;
    ASSERT_TRUE(device_->SetRules(
        {DeviceRule::Clamp(0x030E, 10, 20), DeviceRule::Timeout(RuleTrigger::GetFeature)}, error));
    Bytes report(15, 0);
    report[0] = 4;
    report[5] = 0xFF;  // somewhere in the report, whatever the field layout
    SetFeature(Endpoint(), report);
    GetFeature(Endpoint(), 4, 15);
    const std::vector<TrafficEvent> events = device_->Traffic();
    ASSERT_EQ(events.size(), 2u);
    EXPECT_EQ(events[0].kind, TrafficKind::SetFeature);
    EXPECT_EQ(events[0].bytes, report);
    EXPECT_EQ(events[0].status, STATUS_SUCCESS);
    EXPECT_EQ(events[1].kind, TrafficKind::GetFeature);
    EXPECT_FALSE(events[1].answered);
    EXPECT_EQ(events[1].status, STATUS_PENDING);
    EXPECT_TRUE(events[1].bytes.empty());
}

TEST_F(Traffic, ReadsAreLoggedWhenTheyComplete)
{
    RecordingRead read;
    Endpoint().SubmitRead(&read, 4096);
    EXPECT_TRUE(device_->Traffic().empty()) << "a read that waits is not an answer yet";
    device_->FeedInput(Bytes{0x04, 0x01});
    Endpoint().SubmitRead(&read, 4096);
    Endpoint().CancelRead(&read);
    const std::vector<TrafficEvent> events = device_->Traffic();
    ASSERT_EQ(events.size(), 2u);
    EXPECT_EQ(events[0].kind, TrafficKind::Read);
    EXPECT_EQ(events[0].reportId, 4);
    EXPECT_EQ(events[0].bytes, (Bytes{0x04, 0x01}));
    EXPECT_EQ(events[1].status, STATUS_CANCELLED);
    EXPECT_EQ(events[1].reportId, std::nullopt);
}

TEST_F(Traffic, ListenerSeesEveryEventAndMayCallTheDevice)
{
    std::vector<std::string> seen;
    device_->SetTrafficListener([&](const TrafficEvent& event) {
        seen.push_back(std::string(TrafficKindName(event.kind)) + " " + FormatStatus(event.status));
        if (event.kind == TrafficKind::SetFeature)
            GetFeature(Endpoint(), 4, 15);  // a read-back from inside the listener
    });
    SetFeature(Endpoint(), {0x04, 0x03});
    ASSERT_EQ(seen.size(), 2u);
    EXPECT_EQ(seen[0], "setFeature 0x00000000");
    EXPECT_EQ(seen[1], "getFeature 0x00000000");

    device_->SetTrafficListener(nullptr);
    GetFeature(Endpoint(), 4, 15);
    EXPECT_EQ(seen.size(), 2u);
    EXPECT_EQ(device_->Traffic().size(), 3u);
}

TEST_F(Traffic, ListenerSeesTheReadBeforeItsCompletionRuns)
{
    std::vector<std::string> order;
    device_->SetTrafficListener([&](const TrafficEvent& event) { order.push_back(TrafficKindName(event.kind)); });
    RecordingRead read;
    read.onComplete = [&](RecordingRead&) { order.push_back("complete"); };
    Endpoint().SubmitRead(&read, 4096);
    device_->FeedInput(Bytes{0x04});
    EXPECT_EQ(order, (std::vector<std::string>{"read", "complete"}));
}

TEST(TrafficCapacity, OldestEventsGoFirst)
{
    HidDeviceConfig config;
    config.WithDescriptor(LoadDescriptor("amd-sfh-als"));
    config.trafficCapacity = 2;
    auto device = MakeDevice(config);
    ASSERT_TRUE(device);
    for (std::uint8_t id = 1; id <= 3; ++id)
        GetFeature(device->DriverEndpoint(), id, 15);
    const std::vector<TrafficEvent> events = device->Traffic();
    ASSERT_EQ(events.size(), 2u);
    EXPECT_EQ(events[0].reportId, 2);
    EXPECT_EQ(events[1].sequence, 2u);
    EXPECT_EQ(device->TrafficOverflowed(), 1u);
    device->ClearTraffic();
    EXPECT_TRUE(device->Traffic().empty());
    EXPECT_EQ(device->TrafficOverflowed(), 0u);
}

TEST(TrafficFormat, HexStatusAndCodes)
{
    EXPECT_EQ(FormatHexBytes(Bytes{}), "");
    EXPECT_EQ(FormatHexBytes(Bytes{0x0A, 0xFF, 0x00}), "0A FF 00");
    EXPECT_EQ(FormatStatus(STATUS_IO_DEVICE_ERROR), "0xC0000185");
    EXPECT_EQ(FormatStatus(STATUS_SUCCESS), "0x00000000");
    EXPECT_EQ(FormatIoctlCode(IOCTL_HID_GET_FEATURE), "0x000B0192");
    EXPECT_STREQ(TrafficKindName(TrafficKind::Ioctl), "ioctl");
    EXPECT_STREQ(TrafficKindName(TrafficKind::SetFeature), "setFeature");
}

}  // namespace
}  // namespace hidsim_test
