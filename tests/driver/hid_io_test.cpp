// I/O of the HidDevice: GetFeatureReport, the continuous reader across D0
// exit and entry, and completed reads cut into reports routed to sensors.
#include <gtest/gtest.h>

#include "host/common/fault_injection.h"
#include "tests/driver/driver_test_bed.h"

namespace testdriver {
namespace {

using host::hidsim::DeviceRule;
using host::hidsim::RuleTrigger;

TEST(FeatureReport, AttemptsAndAnswers)
{
    hs::SensorShape sensor = Custom(1);
    sensor.reportId = 4;
    struct Case {
        const char* what;
        std::vector<DeviceRule> rules;
        NTSTATUS status;
        std::size_t attempts;
    };
    const Case cases[] = {
        {"answered", {}, STATUS_SUCCESS, 1},
        {"another report ID: no second attempt", {DeviceRule::AnswerReportId(RuleTrigger::GetFeature, 5)},
         STATUS_UNSUCCESSFUL, 1},
        {"the second failure is returned",
         {DeviceRule::Fail(RuleTrigger::GetFeature, STATUS_IO_DEVICE_ERROR).Times(1),
          DeviceRule::Fail(RuleTrigger::GetFeature, STATUS_DEVICE_NOT_CONNECTED)},
         STATUS_DEVICE_NOT_CONNECTED, 2},
        {"never answers", {DeviceRule::Timeout(RuleTrigger::GetFeature)}, STATUS_IO_TIMEOUT, 2},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        DriverTestBed bed(HidDeviceConfig{}
                              .WithDescriptor(hs::BuildSingleSensor(sensor))
                              .WithFeature(4, FeatureReport(4, 100, {u"0x210"}))
                              .WithFeature(5, FeatureReport(5, 100, {u"0x210"})));
        ASSERT_EQ(bed.Prepare(), STATUS_SUCCESS);
        bed.Sim().ClearTraffic();
        std::string error;
        ASSERT_TRUE(bed.Sim().SetRules(c.rules, error)) << error;
        BYTE buffer[kMaxFeatureReportBytes + 1] = {};
        const ULONG length = bed.Hid()->Caps().FeatureReportByteLength;
        EXPECT_EQ(bed.Hid()->GetFeatureReport(4, buffer, length, u"Test"), c.status);
        EXPECT_EQ(bed.Traffic().size(), c.attempts);
        if (c.status == STATUS_SUCCESS) {
            EXPECT_EQ(buffer[0], 4);
            EXPECT_EQ(buffer[3], 100);
            // Bad arguments fail without traffic: 4097 bytes, no buffer.
            bed.Sim().ClearTraffic();
            EXPECT_EQ(bed.Hid()->GetFeatureReport(4, buffer, kMaxFeatureReportBytes + 1, u"Test"), STATUS_UNSUCCESSFUL);
            EXPECT_EQ(bed.Hid()->GetFeatureReport(4, nullptr, length, u"Test"), STATUS_UNSUCCESSFUL);
            EXPECT_TRUE(bed.Traffic().empty());
        }
    }
}

// Input reports of 7 bytes: ID, two selectors, two 16-bit custom values.
constexpr std::size_t kReportLength = 7;
Bytes Report(std::uint8_t id, std::uint8_t fill) { return Bytes{id, fill, fill, fill, fill, fill, fill}; }
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
using Deliveries = std::vector<Delivery>;

// A container of `sensors` prepared, with the routing log cleared.
class HidIo : public ::testing::Test {
protected:
    void Prepare(std::initializer_list<hs::SensorShape> sensors, bool start = true)
    {
        bed.reset();
        bed = std::make_unique<DriverTestBed>(HidDeviceConfig{}.WithDescriptor(hs::BuildSensorContainer(sensors)));
        ASSERT_EQ(bed->Prepare(), STATUS_SUCCESS);
        ASSERT_EQ(bed->Hid()->Caps().InputReportByteLength, kReportLength);
        if (start) {
            ASSERT_EQ(bed->Start(), STATUS_SUCCESS);
        }
        RoutingLog::Instance().Clear();
    }
    static Deliveries Delivered()
    {
        Deliveries deliveries;
        for (const RoutedReport& r : RoutingLog::Instance().Take())
            deliveries.push_back({r.sensorIndex, r.bytes.size() > 1 ? r.bytes[1] : std::uint8_t{0}, r.firstInRead,
                                  r.bytes.size()});
        return deliveries;
    }

    std::unique_ptr<DriverTestBed> bed;
};

TEST_F(HidIo, ReaderStopsAtD0ExitAndRestartsWithExactlyOneReadAtEachEntry)
{
    Prepare({Custom()}, false);
    EXPECT_FALSE(bed->ReadPending());  // no read before D0 entry
    bed->Feed(Report(1, 1));
    for (int cycle = 0; cycle < 3; ++cycle) {
        SCOPED_TRACE(cycle);
        ASSERT_EQ(bed->Start(), STATUS_SUCCESS);
        EXPECT_EQ(Module().startReaderStatus, STATUS_SUCCESS);
        // Input that came while stopped is taken by the new read.
        EXPECT_EQ(Delivered().size(), 1u);
        for (std::uint8_t i = 1; i <= 2; ++i) {
            EXPECT_TRUE(bed->ReadPending());
            bed->Feed(Report(1, i));
        }
        EXPECT_EQ(Delivered().size(), 2u);
        ASSERT_EQ(bed->Stop(), STATUS_SUCCESS);
        EXPECT_FALSE(bed->ReadPending());
        bed->Feed(Report(1, 9));
        EXPECT_TRUE(Delivered().empty());
    }
    // A second read while one is pending would fail at the device: none did.
    for (const auto& event : bed->Traffic()) {
        EXPECT_TRUE(event.kind != TrafficKind::Read || NT_SUCCESS(event.status) || event.status == STATUS_CANCELLED)
            << event.status;
    }
}

TEST_F(HidIo, ReaderThatFailsOrCannotSubmitWaitsForTheNextEntry)
{
    Prepare({Custom()});
    std::string error;
    ASSERT_TRUE(bed->Sim().SetRules({DeviceRule::Fail(RuleTrigger::Read, STATUS_IO_DEVICE_ERROR).Times(1)}, error));
    bed->Feed(Report(1, 1));
    EXPECT_FALSE(bed->ReadPending());
    EXPECT_TRUE(Delivered().empty());
    bed->Feed(Report(1, 2));
    ASSERT_EQ(bed->Stop(), STATUS_SUCCESS);

    host::FaultInjector::Instance().FailNth(host::FaultPoint::RequestCreate, 1, STATUS_INSUFFICIENT_RESOURCES);
    ASSERT_EQ(bed->Start(), STATUS_SUCCESS);
    EXPECT_EQ(Module().startReaderStatus, STATUS_INSUFFICIENT_RESOURCES);
    EXPECT_FALSE(bed->ReadPending());
    ASSERT_EQ(bed->Stop(), STATUS_SUCCESS);
    ASSERT_EQ(bed->Start(), STATUS_SUCCESS);
    EXPECT_EQ(Module().startReaderStatus, STATUS_SUCCESS);
    EXPECT_EQ(Delivered().size(), 1u);
    EXPECT_TRUE(bed->ReadPending());
}

TEST_F(HidIo, ReadsAreCutIntoReportsRoutedByReportIdMinusOne)
{
    Prepare({Custom(), Custom(), Custom()});
    struct Case {
        const char* what;
        Bytes read;
        Deliveries expected;
    };
    Bytes twoAndAHalf = Concat({Report(1, 3), Report(2, 4), Report(1, 5)});
    twoAndAHalf.resize(2 * kReportLength + 3);
    Bytes longer = Report(2, 2);
    longer.insert(longer.end(), {9, 9, 9});
    const Case cases[] = {
        {"several", Concat({Report(2, 1), Report(3, 2), Report(1, 3)}), {{1, 1, 1, 7}, {2, 2, 0, 7}, {0, 3, 0, 7}}},
        {"unroutable follows the previous of its read", Concat({Report(3, 1), Report(0, 2), Report(4, 3), Report(1, 4)}),
         {{2, 1, 1, 7}, {2, 2, 0, 7}, {2, 3, 0, 7}, {0, 4, 0, 7}}},
        {"not inherited by the next read", Concat({Report(0, 5), Report(1, 6)}), {}},
        {"unroutable first drops the read", Concat({Report(4, 1), Report(1, 2)}), {}},
        {"one with trailing bytes is delivered whole", longer, {{1, 2, 1, 10}}},
        {"trailing partial report is not delivered", twoAndAHalf, {{0, 3, 1, 7}, {1, 4, 0, 7}}},
        {"shorter than one report", Bytes{1, 6, 6}, {}},
    };
    for (const Case& c : cases) {
        bed->Feed(c.read);
        EXPECT_EQ(Delivered(), c.expected) << c.what;
        EXPECT_TRUE(bed->ReadPending()) << c.what;
    }
    // A failed report drops the rest of its read only.
    RoutingLog::Instance().FailNext(STATUS_UNSUCCESSFUL);
    bed->Feed(Concat({Report(1, 1), Report(2, 2)}));
    bed->Feed(Concat({Report(2, 3), Report(1, 4)}));
    EXPECT_EQ(Delivered(), (Deliveries{{0, 1, 1, 7}, {1, 3, 1, 7}, {0, 4, 0, 7}}));
}

TEST_F(HidIo, OneSensorTakesEveryReportAndPlaceholdersKeepTheirNumber)
{
    Prepare({Custom()});
    bed->Feed(Concat({Report(9, 1), Report(0, 2), Report(1, 3)}));
    EXPECT_EQ(Delivered(), (Deliveries{{0, 1, 1, 7}, {0, 2, 0, 7}, {0, 3, 0, 7}}));
    Prepare({Accelerometer(3), Custom()});
    bed->Feed(Concat({Report(1, 1), Report(2, 2)}));
    EXPECT_EQ(Delivered(), (Deliveries{{0, 1, 1, 7}, {1, 2, 0, 7}}));
}

}  // namespace
}  // namespace testdriver
