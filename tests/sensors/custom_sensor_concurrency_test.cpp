// Class-extension calls on two threads while input reports stream in on the
// framework's I/O thread: every call keeps its result, samples keep their
// shape, and nothing races (the ThreadSanitizer build runs this).
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "tests/sensors/custom_sensor_test_support.h"

namespace testdriver {
namespace {

TEST(CustomSensorConcurrency, CallbacksOnTwoThreadsWhileReportsStreamIn)
{
    DriverTestBed bed(HidDeviceConfig{}
                          .WithDescriptor(hs::BuildSensorContainer(
                              {hs::CustomSensor(16, {hs::CustomValue(1, 16, -32767, 32767, -2), hs::CustomValue(2)})}))
                          .WithFeature(1, FeatureReport(1, 100, {u"0x210"})),
                      &SensorFactory::Default(), host::framework::ClockMode::RealTime);
    ASSERT_EQ(bed.Prepare(), STATUS_SUCCESS);
    ASSERT_EQ(bed.Start(), STATUS_SUCCESS);
    {
        cx::Client client(bed.Host().Device());
        cx::SampleQueue samples(client);
        ASSERT_EQ(client.SensorCount(), 1u);
        const Bytes report = InputReport(*bed.Hid(), 1, {0xFB2E, 7}, {2, 2});

        std::atomic<bool> feeding{true};
        std::atomic<int> fed{0};
        std::thread feeder([&] {
            while (feeding.load()) {
                bed.Sim().FeedInput(report);
                fed.fetch_add(1);
                std::this_thread::yield();
            }
        });
        while (fed.load() == 0)
            std::this_thread::yield();

        constexpr int kRounds = 40;
        std::atomic<int> failures{0};
        std::thread startStop([&] {
            for (int i = 0; i < kRounds; ++i) {
                failures += client.Start(0).status != STATUS_SUCCESS;
                failures += client.Stop(0).status != STATUS_SUCCESS;
            }
        });
        SENSOR_VALUE_PAIR threshold = {};
        threshold.Key = {{0xC458F8A7, 0x4AE8, 0x4777, {0x96, 0x07, 0x2E, 0x9B, 0xDD, 0x65, 0x11, 0x0A}}, 161};
        threshold.Value.vt = VT_R4;
        threshold.Value.fltVal = 1.5f;
        const cx::CollectionListCopy thresholds = cx::CollectionListCopy::FromEntries(&threshold, 1);
        for (int i = 0; i < kRounds; ++i) {
            const cx::CallResult properties = client.GetProperties(0);
            failures += properties.status != STATUS_SUCCESS;
            if (properties.list) {
                const ULONG state = (*properties.list)[3].Value.ulVal;
                failures += state > 2;
            }
            failures += client.GetDataThresholds(0).status != STATUS_SUCCESS;
            failures += client.SetDataThresholds(0, thresholds).status != STATUS_SUCCESS;
            failures += client.SetDataInterval(0, 100 + static_cast<ULONG>(i)).status != STATUS_SUCCESS;
        }
        startStop.join();
        feeding = false;
        feeder.join();
        ASSERT_EQ(bed.Stop(), STATUS_SUCCESS);
        bed.Host().RunPending();

        EXPECT_EQ(failures.load(), 0);
        const std::vector<cx::Sample> delivered = samples.Drain();
        EXPECT_FALSE(delivered.empty());
        for (const cx::Sample& sample : delivered) {
            ASSERT_EQ(sample.values.Count(), 3u);
            EXPECT_EQ(Lines(sample.values)[1], Custom(7, "R4 -12.34"));
            EXPECT_EQ(Lines(sample.values)[2], Custom(8, "UI4 7"));
        }
    }
    EXPECT_EQ(bed.UnloadAndCollectLeaks(), "");
}

}  // namespace
}  // namespace testdriver
