// History start, stop, clear, retrieval and cancel on client threads, with
// real worker threads, while activity reports stream in and a tick thread
// stores records: every call keeps a status of its contract, nothing races
// (the ThreadSanitizer build runs this) and nothing is left at unload.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "history/sensor_history.h"
#include "tests/activity/activity_device.h"

namespace testdriver {
namespace {

bool OneOf(NTSTATUS status, std::initializer_list<NTSTATUS> allowed)
{
    for (NTSTATUS s : allowed) {
        if (status == s)
            return true;
    }
    return false;
}

TEST(HistoryConcurrency, StartStopClearRetrieveAndCancelAgainstAStreamOfReports)
{
    DriverTestBed bed(ActivityDevice(), &SensorFactory::Default(), host::framework::ClockMode::RealTime);
    bed.Host().Registry().Preload("KPX_ActivitySensor", "HistoryMaxEntries", 8);
    bed.Host().Registry().Preload("KPX_ActivitySensor", "HistorySampleReportInterval", 1000);
    ASSERT_EQ(bed.Prepare(), STATUS_SUCCESS);
    ASSERT_EQ(bed.Start(), STATUS_SUCCESS);
    {
        cx::Client client(bed.Host().Device());
        cx::SampleQueue samples(client);
        ASSERT_EQ(client.SensorCount(), 1u);
        ASSERT_EQ(client.Start(0).status, STATUS_SUCCESS);
        SensorHistory& history = *ActivityOf(bed.Sensor(0))->History();

        std::atomic<bool> running{true};
        std::atomic<int> failures{0};
        std::thread feeder([&] {
            std::uint32_t i = 0;
            while (running.load()) {
                bed.Sim().FeedInput(ActivityReport(*bed.Hid(), {Word(1 + i % 6, 100 + i % 900), Word(5, 300)}));
                ++i;
                std::this_thread::yield();
            }
        });
        // Stands in for the timer's ticks, which a second-long interval makes rare.
        std::thread ticker([&] {
            USHORT confidence = 1;
            while (running.load()) {
                HistoryRecord record{};
                record.Activity.activityState = 8;
                record.Activity.confidence = confidence++;
                history.InsertRecord(record);
                std::this_thread::yield();
            }
        });

        constexpr int kRounds = 60;
        std::atomic<int> retrievals{0};
        std::thread other([&] {
            for (int i = 0; i < kRounds; ++i) {
                failures += !OneOf(client.StartHistoryRetrieval(0, 8 + 144 * 4).status,
                                   {STATUS_SUCCESS, STATUS_DEVICE_BUSY, STATUS_UNSUCCESSFUL});
                failures += !OneOf(client.CancelHistoryRetrieval(0).status,
                                   {STATUS_SUCCESS, STATUS_DEVICE_BUSY, STATUS_UNSUCCESSFUL,
                                    static_cast<NTSTATUS>(0xC0000010)});
                failures += client.ClearHistory(0).status != STATUS_SUCCESS;
            }
        });
        for (int i = 0; i < kRounds; ++i) {
            failures += !OneOf(client.StartHistory(0).status, {STATUS_SUCCESS, STATUS_DEVICE_BUSY});
            const NTSTATUS started = client.StartHistoryRetrieval(0, 8 + 144 * 2).status;
            failures += !OneOf(started, {STATUS_SUCCESS, STATUS_DEVICE_BUSY});
            retrievals += started == STATUS_SUCCESS;
            client.WaitHistoryRetrieval(0, std::chrono::milliseconds(50));
            failures += client.StopHistory(0).status != STATUS_SUCCESS;
        }
        other.join();
        running = false;
        feeder.join();
        ticker.join();
        ASSERT_EQ(client.Stop(0).status, STATUS_SUCCESS);
        ASSERT_EQ(bed.Stop(), STATUS_SUCCESS);
        bed.Host().RunPending();
        EXPECT_EQ(failures.load(), 0);
        EXPECT_GT(retrievals.load(), 0);
        EXPECT_FALSE(samples.Drain().empty());
    }
    EXPECT_TRUE(bed.Host().Violations().empty());
    EXPECT_EQ(bed.UnloadAndCollectLeaks(), "");
}

}  // namespace
}  // namespace testdriver
