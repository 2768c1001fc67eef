// The traffic log: a driver's discovery as the device saw it, feature and read
// events and the capacity.
#include <gtest/gtest.h>

#include "hidsim_test_support.h"

namespace hidsim_test {
namespace {

using host::hidsim::TrafficEvent;
using host::hidsim::TrafficKind;

class Traffic : public DeviceTest {
protected:
    void SetUp() override { Make(On("amd-sfh-als").WithManufacturer(u"AMD").WithFeature(4, {0x04, 0x02})); }
};

TEST_F(Traffic, EventsAreLoggedInOrderWithWhatEachAnswerCarried)
{
    // The driver's discovery, request by request, on a device without serial number.
    const ULONG codes[] = {IOCTL_HID_GET_COLLECTION_INFORMATION, IOCTL_HID_GET_SERIALNUMBER_STRING,
                           IOCTL_HID_GET_MANUFACTURER_STRING, IOCTL_HID_GET_COLLECTION_DESCRIPTOR};
    const ULONG lengths[] = {sizeof(HID_COLLECTION_INFORMATION), 252, 252,
                             static_cast<ULONG>(device_->DriverCollection().PreparsedData().size())};
    for (std::size_t i = 0; i < 4; ++i)
        Query(Endpoint(), codes[i], lengths[i]);
    // Then a feature round trip, a read that waits, and a cancelled one.
    std::string error;
    ASSERT_TRUE(device_->SetRules({DeviceRule::Clamp(0x030E, 10, 20), DeviceRule::Timeout(RuleTrigger::GetFeature)}, error));
    Bytes report(length_, 0xFF);
    report[0] = 4;
    Set(report);
    Get(4);
    RecordingRead read;
    Submit(read);
    EXPECT_EQ(device_->Traffic().size(), 6u) << "a read that waits is not an answer yet";
    Feed({0x04, 0x01});
    Submit(read);
    Cancel(read);

    const std::vector<TrafficEvent> events = device_->Traffic();
    ASSERT_EQ(events.size(), 8u);
    for (std::size_t i = 0; i < events.size(); ++i) {
        EXPECT_EQ(events[i].sequence, i);
        EXPECT_EQ(events[i].collection, device_->DriverCollectionIndex());
    }
    for (std::size_t i = 0; i < 4; ++i)
        EXPECT_EQ(events[i].ioctlCode, codes[i]) << "event " << i;
    EXPECT_EQ(events[1].status, STATUS_INVALID_PARAMETER) << "no serial number";
    EXPECT_TRUE(events[1].bytes.empty());
    EXPECT_EQ(events[2].bytes, (Bytes{'A', 0, 'M', 0, 'D', 0, 0, 0}));
    EXPECT_EQ(events[4].kind, TrafficKind::SetFeature);
    EXPECT_EQ(events[4].bytes, report) << "logged as sent, before the clamp";
    EXPECT_EQ(events[5].reportId, 4);
    EXPECT_FALSE(events[5].answered);
    EXPECT_EQ(events[5].status, STATUS_PENDING);
    EXPECT_EQ(events[6].kind, TrafficKind::Read);
    EXPECT_EQ(events[6].reportId, 4);
    EXPECT_EQ(events[6].bytes, (Bytes{0x04, 0x01}));
    EXPECT_EQ(events[7].status, STATUS_CANCELLED);
}

TEST_F(Traffic, BeyondTheCapacityTheOldestEventsGoAndClearStartsAfresh)
{
    HidDeviceConfig config = On("amd-sfh-als");
    config.trafficCapacity = 2;
    Make(config);
    for (std::uint8_t id = 1; id <= 3; ++id)
        Get(id);
    const std::vector<TrafficEvent> events = device_->Traffic();
    ASSERT_EQ(events.size(), 2u);
    EXPECT_EQ(events[0].reportId, 2);
    EXPECT_EQ(events[1].sequence, 2u);
    EXPECT_EQ(device_->TrafficOverflowed(), 1u);
    device_->ClearTraffic();
    EXPECT_TRUE(device_->Traffic().empty());
    EXPECT_EQ(device_->TrafficOverflowed(), 0u);
}

}  // namespace
}  // namespace hidsim_test
