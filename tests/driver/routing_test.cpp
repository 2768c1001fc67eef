// Completed reads cut into input reports and routed to their sensors.
#include <gtest/gtest.h>

#include "tests/driver/driver_test_bed.h"
#include "tests/driver/recording_sensors.h"

namespace testdriver {
namespace {

namespace hs = host::hid::sensor;
using host::hidsim::HidDeviceConfig;

// Input reports of 7 bytes: ID, two selectors, two 16-bit custom values.
hs::SensorSpec Custom() { return hs::CustomSensor(8, {hs::CustomValue(1), hs::CustomValue(2)}); }
constexpr std::size_t kReportLength = 7;

Bytes Report(std::uint8_t id, std::uint8_t fill)
{
    return Bytes{id, fill, fill, fill, fill, fill, fill};
}

Bytes Concat(std::initializer_list<Bytes> reports)
{
    Bytes read;
    for (const Bytes& report : reports)
        read.insert(read.end(), report.begin(), report.end());
    return read;
}

struct Delivery {
    ULONG sensor;
    std::uint8_t fill;
    ULONG firstInRead;
    std::size_t length;
    bool operator==(const Delivery&) const = default;
};

std::vector<Delivery> Deliveries()
{
    std::vector<Delivery> deliveries;
    for (const RoutedReport& r : RoutingLog::Instance().Take())
        deliveries.push_back({r.sensorIndex, r.bytes.size() > 1 ? r.bytes[1] : std::uint8_t{0}, r.firstInRead,
                              r.bytes.size()});
    return deliveries;
}

class Routing : public ::testing::Test {
protected:
    void Run(std::initializer_list<hs::SensorSpec> sensors)
    {
        bed = std::make_unique<DriverTestBed>(HidDeviceConfig{}.WithDescriptor(hs::BuildSensorContainer(sensors)));
        ASSERT_EQ(bed->Prepare(), STATUS_SUCCESS);
        ASSERT_EQ(bed->Hid()->Caps().InputReportByteLength, kReportLength);
        ASSERT_EQ(bed->Start(), STATUS_SUCCESS);
        RoutingLog::Instance().Clear();
    }
    void TearDown() override
    {
        if (bed != nullptr) {
            EXPECT_EQ(bed->UnloadAndCollectLeaks(), "");
        }
    }

    std::unique_ptr<DriverTestBed> bed;
};

TEST_F(Routing, OneSensorTakesEveryReportWhateverItsId)
{
    Run({Custom()});
    bed->Feed(Concat({Report(9, 1), Report(0, 2), Report(1, 3)}));
    EXPECT_EQ(Deliveries(), (std::vector<Delivery>{{0, 1, 1, 7}, {0, 2, 0, 7}, {0, 3, 0, 7}}));
}

TEST_F(Routing, ReportIdMinusOneNamesTheSensor)
{
    Run({Custom(), Custom(), Custom()});
    bed->Feed(Concat({Report(2, 1), Report(3, 2), Report(1, 3)}));
    EXPECT_EQ(Deliveries(), (std::vector<Delivery>{{1, 1, 1, 7}, {2, 2, 0, 7}, {0, 3, 0, 7}}));
}

TEST_F(Routing, UnroutableReportFollowsThePreviousOneOfItsRead)
{
    Run({Custom(), Custom(), Custom()});
    bed->Feed(Concat({Report(3, 1), Report(0, 2), Report(4, 3), Report(1, 4)}));
    EXPECT_EQ(Deliveries(), (std::vector<Delivery>{{2, 1, 1, 7}, {2, 2, 0, 7}, {2, 3, 0, 7}, {0, 4, 0, 7}}));
    // The next read does not inherit it.
    bed->Feed(Concat({Report(0, 5), Report(1, 6)}));
    EXPECT_TRUE(Deliveries().empty());
}

TEST_F(Routing, UnroutableFirstReportDropsTheWholeRead)
{
    Run({Custom(), Custom(), Custom()});
    bed->Feed(Concat({Report(4, 1), Report(1, 2)}));
    bed->Feed(Concat({Report(0, 3), Report(2, 4)}));
    EXPECT_TRUE(Deliveries().empty());
    // Reading goes on.
    bed->Feed(Report(2, 5));
    EXPECT_EQ(Deliveries(), (std::vector<Delivery>{{1, 5, 1, 7}}));
}

TEST_F(Routing, FailedReportDropsTheRestOfItsReadOnly)
{
    Run({Custom(), Custom()});
    RoutingLog::Instance().FailNext(STATUS_UNSUCCESSFUL);
    bed->Feed(Concat({Report(1, 1), Report(2, 2)}));
    bed->Feed(Concat({Report(2, 3), Report(1, 4)}));
    EXPECT_EQ(Deliveries(), (std::vector<Delivery>{{0, 1, 1, 7}, {1, 3, 1, 7}, {0, 4, 0, 7}}));
}

TEST_F(Routing, ReadLengthsThatAreNotAMultipleOfTheReportLength)
{
    Run({Custom(), Custom()});
    // Exactly one report, and one report with trailing bytes: delivered whole.
    bed->Feed(Report(1, 1));
    Bytes longer = Report(2, 2);
    longer.insert(longer.end(), {9, 9, 9});
    bed->Feed(longer);
    // Two reports and a partial third: the partial one is not delivered.
    Bytes twoAndAHalf = Concat({Report(1, 3), Report(2, 4), Report(1, 5)});
    twoAndAHalf.resize(2 * kReportLength + 3);
    bed->Feed(twoAndAHalf);
    // Shorter than one report: nothing.
    bed->Feed(Bytes{1, 6, 6});
    EXPECT_EQ(Deliveries(), (std::vector<Delivery>{{0, 1, 1, 7}, {1, 2, 1, 10}, {0, 3, 1, 7}, {1, 4, 0, 7}}));
}

TEST_F(Routing, DispatchReportsItsStatus)
{
    Run({Custom(), Custom(), Custom()});
    Bytes unroutable = Report(7, 1);
    EXPECT_EQ(HidDevice::DispatchInputReports(unroutable.data(), static_cast<ULONG>(unroutable.size()), bed->Hid()),
              STATUS_UNSUCCESSFUL);
    Bytes routable = Report(3, 1);
    EXPECT_EQ(HidDevice::DispatchInputReports(routable.data(), static_cast<ULONG>(routable.size()), bed->Hid()),
              STATUS_SUCCESS);
    EXPECT_EQ(HidDevice::DispatchInputReports(routable.data(), 7, nullptr), STATUS_INVALID_PARAMETER);
    EXPECT_EQ(Deliveries(), (std::vector<Delivery>{{2, 1, 1, 7}}));
}

TEST_F(Routing, PlaceholdersKeepTheirNumberAndAcceptTheirReports)
{
    hs::SensorSpec accel;
    accel.usage = hs::kAccelerometer3D;
    accel.inputs = {hs::Property(0x453, 16, -32767, 32767), hs::Property(0x454, 16, -32767, 32767),
                    hs::Property(0x455, 16, -32767, 32767)};
    Run({accel, Custom()});
    bed->Feed(Concat({Report(1, 1), Report(2, 2)}));
    EXPECT_EQ(Deliveries(), (std::vector<Delivery>{{0, 1, 1, 7}, {1, 2, 0, 7}}));
}

}  // namespace
}  // namespace testdriver
