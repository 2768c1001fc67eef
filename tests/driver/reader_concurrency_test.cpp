// The reader on the framework's own I/O thread while D0 exit and entry come
// and go on another: input keeps arriving, nothing is used after deletion,
// and the device never sees two reads at once.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "tests/driver/driver_test_bed.h"

namespace testdriver {
namespace {

TEST(ReaderConcurrency, PowerCyclesWhileReportsStreamIn)
{
    DriverTestBed bed(HidDeviceConfig{}.WithDescriptor(hs::BuildSensorContainer({Custom(1), Custom(1)})),
                      &kRecordingFactory, host::framework::ClockMode::RealTime);
    ASSERT_EQ(bed.Prepare(), STATUS_SUCCESS);
    ASSERT_EQ(bed.Start(), STATUS_SUCCESS);

    std::atomic<bool> feeding{true};
    std::atomic<int> fed{0};
    std::thread feeder([&] {
        const Bytes read = {1, 1, 1, 1, 1, 2, 2, 2, 2, 2};
        for (int i = 0; i < 4000 && feeding.load(); ++i) {
            bed.Sim().FeedInput(read);
            fed.fetch_add(1);
        }
    });
    // The power cycles must overlap the feeding, however late the thread starts.
    while (fed.load() == 0)
        std::this_thread::yield();
    for (int cycle = 0; cycle < 40; ++cycle) {
        ASSERT_EQ(bed.Stop(), STATUS_SUCCESS);
        bed.Host().RunPending();
        // A completion that was re-arming when the exit came gives way to it.
        EXPECT_FALSE(bed.ReadPending()) << cycle;
        ASSERT_EQ(bed.Start(), STATUS_SUCCESS);
    }
    feeding = false;
    feeder.join();
    ASSERT_EQ(bed.Stop(), STATUS_SUCCESS);
    bed.Host().RunPending();
    EXPECT_FALSE(bed.ReadPending());

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

}  // namespace
}  // namespace testdriver
