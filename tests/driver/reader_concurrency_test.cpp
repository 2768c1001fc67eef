// The reader on the framework's own I/O thread while D0 exit and entry come
// and go on another: input keeps arriving, nothing is used after deletion,
// and the device never sees two reads at once. The framework reports a second
// read sent while one is outstanding as a violation, so an empty violation
// list plus the pending read the device holds count the reads.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "tests/driver/driver_test_bed.h"

namespace testdriver {
namespace {

const Bytes kTwoReports = {1, 1, 1, 1, 1, 2, 2, 2, 2, 2};

DriverTestBed StartedBed()
{
    return DriverTestBed(HidDeviceConfig{}.WithDescriptor(hs::BuildSensorContainer({Custom(1), Custom(1)})),
                         &kRecordingFactory, host::framework::ClockMode::RealTime);
}

TEST(ReaderConcurrency, PowerCyclesWhileReportsStreamIn)
{
    DriverTestBed bed = StartedBed();
    ASSERT_EQ(bed.Prepare(), STATUS_SUCCESS);
    ASSERT_EQ(bed.Start(), STATUS_SUCCESS);

    std::atomic<bool> feeding{true};
    std::atomic<int> fed{0};
    std::thread feeder([&] {
        for (int i = 0; i < 4000 && feeding.load(); ++i) {
            bed.Sim().FeedInput(kTwoReports);
            fed.fetch_add(1);
        }
    });
    // The power cycles must overlap the feeding, however late the thread starts.
    while (fed.load() == 0)
        std::this_thread::yield();
    for (int cycle = 0; cycle < 40; ++cycle) {
        ASSERT_EQ(bed.Stop(), STATUS_SUCCESS);
        if (cycle % 2 == 0) {
            bed.Host().RunPending();
            // A completion that was re-arming when the exit came gives way to it.
            EXPECT_FALSE(bed.ReadPending()) << cycle;
        }
        // Odd cycles: the entry may land while the cancelled read or a
        // completion with data is still being dispatched.
        ASSERT_EQ(bed.Start(), STATUS_SUCCESS);
    }
    feeding = false;
    feeder.join();
    bed.Host().RunPending();
    EXPECT_TRUE(bed.ReadPending());
    ASSERT_EQ(bed.Stop(), STATUS_SUCCESS);
    bed.Host().RunPending();
    EXPECT_FALSE(bed.ReadPending());

    EXPECT_EQ(bed.Host().Violations(), std::vector<std::string>{});
    for (const auto& event : bed.Traffic()) {
        if (event.kind == TrafficKind::Read) {
            EXPECT_NE(event.status, STATUS_INVALID_DEVICE_STATE);
        }
    }
    EXPECT_EQ(bed.UnloadAndCollectLeaks(), "");
    // Every delivered read came whole and in order of its reports.
    const std::vector<RoutedReport> reports = RoutingLog::Instance().Take();
    EXPECT_FALSE(reports.empty());
    for (std::size_t i = 0; i < reports.size(); ++i)
        EXPECT_EQ(reports[i].sensorIndex, reports[i].firstInRead == 1 ? 0u : 1u);
}

// D0 exit and D0 entry both land while a completion is dispatching its
// reports: the completion's re-arm is the only read afterwards. The host's
// power calls wait for the I/O thread first, so the test makes the driver's
// own D0 calls, StopReader and StartReader, on the held dispatch.
TEST(ReaderConcurrency, ExitAndEntryDuringADispatchLeaveExactlyOneRead)
{
    DriverTestBed bed = StartedBed();
    ASSERT_EQ(bed.Prepare(), STATUS_SUCCESS);
    ASSERT_EQ(bed.Start(), STATUS_SUCCESS);
    HidDevice& hid = *bed.Hid();
    for (int round = 0; round < 50; ++round) {
        RoutingLog::Instance().HoldNext();
        bed.Sim().FeedInput(kTwoReports);
        RoutingLog::Instance().WaitUntilHeld();
        ASSERT_EQ(hid.StopReader(), STATUS_SUCCESS);
        ASSERT_EQ(hid.StartReader(), STATUS_SUCCESS);
        if (round % 2 == 1) {  // and once more
            ASSERT_EQ(hid.StopReader(), STATUS_SUCCESS);
            ASSERT_EQ(hid.StartReader(), STATUS_SUCCESS);
        }
        RoutingLog::Instance().Release();
        bed.Host().RunPending();
        ASSERT_TRUE(bed.ReadPending()) << round;
        ASSERT_EQ(bed.Host().Violations(), std::vector<std::string>{}) << round;
    }
    // A dispatch that ends after an exit without entry does not re-arm.
    RoutingLog::Instance().HoldNext();
    bed.Sim().FeedInput(kTwoReports);
    RoutingLog::Instance().WaitUntilHeld();
    ASSERT_EQ(hid.StopReader(), STATUS_SUCCESS);
    RoutingLog::Instance().Release();
    bed.Host().RunPending();
    EXPECT_FALSE(bed.ReadPending());
    ASSERT_EQ(bed.Stop(), STATUS_SUCCESS);
    EXPECT_EQ(bed.Host().Violations(), std::vector<std::string>{});
    EXPECT_EQ(bed.UnloadAndCollectLeaks(), "");
    EXPECT_EQ(RoutingLog::Instance().Take().size(), 2u * 51);
}

}  // namespace
}  // namespace testdriver
