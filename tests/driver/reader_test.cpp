// The continuous reader across D0 exit and entry.
#include <gtest/gtest.h>

#include "host/common/fault_injection.h"
#include "tests/driver/driver_test_bed.h"
#include "tests/driver/recording_sensors.h"
#include "tests/driver/test_driver_module.h"

namespace testdriver {
namespace {

namespace hs = host::hid::sensor;
using host::hidsim::DeviceRule;
using host::hidsim::HidDeviceConfig;
using host::hidsim::RuleTrigger;
using host::hidsim::TrafficKind;

Bytes Read(std::uint8_t fill) { return Bytes{1, fill, fill, fill, fill}; }

class Reader : public ::testing::Test {
protected:
    void SetUp() override
    {
        hs::SensorSpec sensor = hs::CustomSensor(8, {hs::CustomValue(1)});
        sensor.reportId = 1;
        bed = std::make_unique<DriverTestBed>(HidDeviceConfig{}.WithDescriptor(hs::BuildSingleSensor(sensor)));
        ASSERT_EQ(bed->Prepare(), STATUS_SUCCESS);
        RoutingLog::Instance().Clear();
    }
    void TearDown() override { EXPECT_EQ(bed->UnloadAndCollectLeaks(), ""); }

    std::size_t Delivered() { return RoutingLog::Instance().Take().size(); }
    std::size_t ReadsSeen()
    {
        std::size_t reads = 0;
        for (const auto& event : bed->Traffic())
            reads += event.kind == TrafficKind::Read ? 1 : 0;
        return reads;
    }

    std::unique_ptr<DriverTestBed> bed;
};

TEST_F(Reader, NoReadBeforeD0Entry)
{
    EXPECT_FALSE(bed->ReadPending());
    bed->Feed(Read(1));
    EXPECT_EQ(Delivered(), 0u);
}

TEST_F(Reader, EachCompletedReadIsDispatchedAndReArmed)
{
    ASSERT_EQ(bed->Start(), STATUS_SUCCESS);
    EXPECT_EQ(testdriver::Module().startReaderStatus, STATUS_SUCCESS);
    EXPECT_TRUE(bed->ReadPending());
    for (std::uint8_t i = 1; i <= 3; ++i) {
        bed->Feed(Read(i));
        EXPECT_TRUE(bed->ReadPending());
    }
    EXPECT_EQ(Delivered(), 3u);
}

TEST_F(Reader, StopsAtD0ExitAndRestartsWithExactlyOneReadAtEachEntry)
{
    for (int cycle = 0; cycle < 3; ++cycle) {
        SCOPED_TRACE(cycle);
        ASSERT_EQ(bed->Start(), STATUS_SUCCESS);
        // Input that came while stopped is taken by the new read.
        EXPECT_EQ(Delivered(), cycle == 0 ? 0u : 1u);
        EXPECT_TRUE(bed->ReadPending());
        bed->Feed(Read(1));
        EXPECT_EQ(Delivered(), 1u);

        ASSERT_EQ(bed->Stop(), STATUS_SUCCESS);
        EXPECT_FALSE(bed->ReadPending());
        bed->Feed(Read(2));
        EXPECT_EQ(Delivered(), 0u);
    }
    // A second read while one is pending would fail at the device: none did.
    for (const auto& event : bed->Traffic()) {
        if (event.kind == TrafficKind::Read) {
            EXPECT_TRUE(NT_SUCCESS(event.status) || event.status == STATUS_CANCELLED) << event.status;
        }
    }
    ASSERT_EQ(bed->Start(), STATUS_SUCCESS);
    EXPECT_EQ(Delivered(), 1u);
    EXPECT_TRUE(bed->ReadPending());
}

TEST_F(Reader, AReadThatCompletesWithoutDataEndsReadingUntilTheNextEntry)
{
    ASSERT_EQ(bed->Start(), STATUS_SUCCESS);
    std::string error;
    ASSERT_TRUE(bed->Sim().SetRules({DeviceRule::Fail(RuleTrigger::Read, STATUS_IO_DEVICE_ERROR).Times(1)}, error));
    bed->Feed(Read(1));
    EXPECT_FALSE(bed->ReadPending());
    EXPECT_EQ(Delivered(), 0u);
    const std::size_t readsBefore = ReadsSeen();
    bed->Feed(Read(2));
    EXPECT_EQ(ReadsSeen(), readsBefore);

    ASSERT_EQ(bed->Stop(), STATUS_SUCCESS);
    ASSERT_EQ(bed->Start(), STATUS_SUCCESS);
    EXPECT_EQ(Delivered(), 1u);
    EXPECT_TRUE(bed->ReadPending());
}

TEST_F(Reader, AReadThatCannotBeSubmittedWaitsForTheNextEntry)
{
    host::FaultInjector::Instance().FailNth(host::FaultPoint::RequestCreate, 1, STATUS_INSUFFICIENT_RESOURCES);
    ASSERT_EQ(bed->Start(), STATUS_SUCCESS);
    EXPECT_EQ(testdriver::Module().startReaderStatus, STATUS_INSUFFICIENT_RESOURCES);
    EXPECT_FALSE(bed->ReadPending());
    ASSERT_EQ(bed->Stop(), STATUS_SUCCESS);
    ASSERT_EQ(bed->Start(), STATUS_SUCCESS);
    EXPECT_EQ(testdriver::Module().startReaderStatus, STATUS_SUCCESS);
    EXPECT_TRUE(bed->ReadPending());
}

TEST_F(Reader, ReleaseWhileReadingCancelsTheReadAndLeavesNothing)
{
    ASSERT_EQ(bed->Start(), STATUS_SUCCESS);
    ASSERT_EQ(bed->Stop(), STATUS_SUCCESS);
    ASSERT_EQ(bed->Release(), STATUS_SUCCESS);
    EXPECT_EQ(bed->Hid(), nullptr);
    EXPECT_FALSE(bed->ReadPending());
    // Prepared again from scratch, the reader works as before.
    ASSERT_EQ(bed->Host().PrepareHardware(), STATUS_SUCCESS);
    ASSERT_EQ(bed->Start(), STATUS_SUCCESS);
    bed->Feed(Read(3));
    EXPECT_EQ(Delivered(), 1u);
}

}  // namespace
}  // namespace testdriver
