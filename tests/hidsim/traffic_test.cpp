// The traffic log: a driver's discovery as the device saw it, feature and read
// events, the listener, the capacity and the formatting the tool prints.
#include <gtest/gtest.h>

#include "hidsim_test_support.h"

namespace hidsim_test {
namespace {

using host::hidsim::FormatHexBytes;
using host::hidsim::FormatStatus;
using host::hidsim::TrafficEvent;
using host::hidsim::TrafficKind;
using host::hidsim::TrafficKindName;

class Traffic : public ::testing::Test {
protected:
    void SetUp() override
    {
        device_ = MakeDevice(On("amd-sfh-als").WithManufacturer(u"AMD").WithProduct(u"SFH").WithFeature(4, {0x04, 0x02}));
        ASSERT_TRUE(device_);
        ASSERT_EQ(device_->DriverCollection().Caps().FeatureReportByteLength, 15);
    }
    HidCollectionEndpoint& Endpoint() { return device_->DriverEndpoint(); }

    std::unique_ptr<SimulatedHidDevice> device_;
};

TEST_F(Traffic, DiscoveryIsLoggedInOrderWithWhatEachAnswerCarried)
{
    // The driver's discovery, request by request, on a device without serial number.
    const ULONG codes[] = {IOCTL_HID_GET_COLLECTION_INFORMATION, IOCTL_HID_GET_SERIALNUMBER_STRING,
                           IOCTL_HID_GET_MANUFACTURER_STRING,    IOCTL_HID_GET_PRODUCT_STRING,
                           IOCTL_HID_GET_COLLECTION_DESCRIPTOR,  IOCTL_HID_GET_FEATURE};
    const ULONG lengths[] = {sizeof(HID_COLLECTION_INFORMATION), 252, 252, 252,
                             static_cast<ULONG>(device_->DriverCollection().PreparsedData().size()), 15};
    for (std::size_t i = 0; i < 6; ++i)
        Query(Endpoint(), codes[i], lengths[i], 4);
    const std::vector<TrafficEvent> events = device_->Traffic();
    ASSERT_EQ(events.size(), 6u);
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

TEST_F(Traffic, SetFeatureAsSentUnansweredRequestsAndReadsOnlyOnceCompleted)
{
    std::string error;
    ASSERT_TRUE(device_->SetRules({DeviceRule::Clamp(0x030E, 10, 20), DeviceRule::Timeout(RuleTrigger::GetFeature)}, error));
    Bytes report(15, 0xFF);
    report[0] = 4;
    SetFeature(Endpoint(), report);
    GetFeature(Endpoint(), 4, 15);
    RecordingRead read;
    Endpoint().SubmitRead(&read, 4096);
    EXPECT_EQ(device_->Traffic().size(), 2u) << "a read that waits is not an answer yet";
    device_->FeedInput(Bytes{0x04, 0x01});
    Endpoint().SubmitRead(&read, 4096);
    Endpoint().CancelRead(&read);

    const std::vector<TrafficEvent> events = device_->Traffic();
    ASSERT_EQ(events.size(), 4u);
    EXPECT_EQ(events[0].kind, TrafficKind::SetFeature);
    EXPECT_EQ(events[0].bytes, report) << "logged as sent, before the clamp";
    EXPECT_EQ(events[0].status, STATUS_SUCCESS);
    EXPECT_FALSE(events[1].answered);
    EXPECT_EQ(events[1].status, STATUS_PENDING);
    EXPECT_TRUE(events[1].bytes.empty());
    EXPECT_EQ(events[2].kind, TrafficKind::Read);
    EXPECT_EQ(events[2].reportId, 4);
    EXPECT_EQ(events[2].bytes, (Bytes{0x04, 0x01}));
    EXPECT_EQ(events[3].status, STATUS_CANCELLED);
    EXPECT_EQ(events[3].reportId, std::nullopt);
}

TEST_F(Traffic, ListenerSeesEachEventBeforeTheReadCompletesAndMayCallTheDevice)
{
    std::vector<std::string> seen;
    device_->SetTrafficListener([&](const TrafficEvent& event) {
        seen.push_back(std::string(TrafficKindName(event.kind)) + " " + FormatStatus(event.status));
        if (event.kind == TrafficKind::SetFeature)
            GetFeature(Endpoint(), 4, 15);  // a read-back from inside the listener
    });
    RecordingRead read;
    read.onComplete = [&](RecordingRead&) { seen.push_back("complete"); };
    SetFeature(Endpoint(), {0x04, 0x03});
    Endpoint().SubmitRead(&read, 4096);
    device_->FeedInput(Bytes{0x04});
    EXPECT_EQ(seen, (std::vector<std::string>{"setFeature 0x00000000", "getFeature 0x00000000", "read 0x00000000",
                                              "complete"}));
    device_->SetTrafficListener(nullptr);
    GetFeature(Endpoint(), 4, 15);
    EXPECT_EQ(seen.size(), 4u);
    EXPECT_EQ(device_->Traffic().size(), 4u);
    EXPECT_EQ(FormatStatus(STATUS_IO_DEVICE_ERROR), "0xC0000185");
    EXPECT_EQ(host::hidsim::FormatIoctlCode(IOCTL_HID_GET_FEATURE), "0x000B0192");
}

TEST(TrafficCapacity, OldestEventsGoFirstAndClearStartsAfresh)
{
    HidDeviceConfig config = On("amd-sfh-als");
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

}  // namespace
}  // namespace hidsim_test
