// Class-extension calls on two threads while pedometer and orientation reports
// stream in on the framework's I/O thread: thresholds, modes and intervals
// change under the reader, every call keeps its result, samples keep their
// shape, and nothing races (the ThreadSanitizer build runs this).
#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <thread>

#include "tests/sensors/custom_sensor_test_support.h"

namespace testdriver {
namespace {

constexpr GUID kDataFmtid = {0xC458F8A7, 0x4AE8, 0x4777, {0x96, 0x07, 0x2E, 0x9B, 0xDD, 0x65, 0x11, 0x0A}};

cx::CollectionListCopy OneEntry(DWORD pid, VARTYPE vt, ULONG bits)
{
    SENSOR_VALUE_PAIR pair = {};
    pair.Key = {kDataFmtid, pid};
    pair.Value.vt = vt;
    pair.Value.ulVal = bits;
    return cx::CollectionListCopy::FromEntries(&pair, 1);
}

TEST(PedometerConcurrency, CallbacksOnTwoThreadsWhileReportsStreamIn)
{
    std::vector<hs::ValueField> steps;
    for (int k = 1; k <= 5; ++k)
        steps.push_back(hs::CustomValue(k, 32, 0, 0x7FFFFFFF));
    std::vector<hs::ValueField> components;
    for (int k = 1; k <= 4; ++k)
        components.push_back(hs::CustomValue(k, 16, -1000, 1000, -3));
    DriverTestBed bed(HidDeviceConfig{}
                          .WithDescriptor(hs::BuildSensorContainer(
                              {hs::CustomSensor(16, steps), hs::CustomSensor(16, components)}))
                          .WithFeature(1, FeatureReport(1, 100, {u"0x230"}))
                          .WithFeature(2, FeatureReport(2, 100, {u"0x200"})),
                      &SensorFactory::Default(), host::framework::ClockMode::RealTime);
    ASSERT_EQ(bed.Prepare(), STATUS_SUCCESS);
    ASSERT_EQ(bed.Start(), STATUS_SUCCESS);
    {
        cx::Client client(bed.Host().Device());
        cx::SampleQueue samples(client);
        ASSERT_EQ(client.SensorCount(), 2u);
        Bytes read = InputReport(*bed.Hid(), 1, {1, 10, 20, 30, 40}, {4, 4, 4, 4, 4});
        const Bytes orientation = InputReport(*bed.Hid(), 2, {250, 500, 750, 1000}, {2, 2, 2, 2});
        read.insert(read.end(), orientation.begin(), orientation.end());

        std::atomic<bool> feeding{true};
        std::atomic<int> fed{0};
        std::thread feeder([&] {
            while (feeding.load()) {
                bed.Sim().FeedInput(read);
                fed.fetch_add(1);
                std::this_thread::yield();
            }
        });
        while (fed.load() == 0)
            std::this_thread::yield();

        constexpr int kRounds = 40;
        std::atomic<int> failures{0};
        std::thread pedometerCalls([&] {
            for (int i = 0; i < kRounds; ++i) {
                failures += client.SetDataThresholds(0, OneEntry(141, VT_UI4, i % 3 == 0 ? 0 : 50)).status !=
                            STATUS_SUCCESS;
                failures += client.Start(0).status != STATUS_SUCCESS;
                failures += client.SetDataInterval(0, 100 + static_cast<ULONG>(i)).status != STATUS_SUCCESS;
                failures += client.Stop(0).status != STATUS_SUCCESS;
            }
        });
        const float half = 0.5f;
        ULONG halfBits = 0;
        std::memcpy(&halfBits, &half, sizeof(halfBits));
        for (int i = 0; i < kRounds; ++i) {
            failures += client.SetDataThresholds(1, OneEntry(70 + static_cast<DWORD>(i % 4), VT_R4, halfBits)).status !=
                        STATUS_SUCCESS;
            const cx::CallResult thresholds = client.GetDataThresholds(1);
            failures += !thresholds.list.has_value();
            if (thresholds.list) {
                for (const std::string& line : Lines(*thresholds.list))
                    failures += !line.ends_with("R4 0.2") && !line.ends_with("R4 0.5");
            }
            const cx::CallResult stepThreshold = client.GetDataThresholds(0);
            failures += !stepThreshold.list.has_value();
            if (stepThreshold.list) {
                const std::string line = Lines(*stepThreshold.list).at(0);
                failures += !line.ends_with("UI4 0") && !line.ends_with("UI4 50");
            }
            failures += client.GetProperties(0).status != STATUS_SUCCESS;
        }
        pedometerCalls.join();
        feeding = false;
        feeder.join();
        ASSERT_EQ(bed.Stop(), STATUS_SUCCESS);
        bed.Host().RunPending();

        EXPECT_EQ(failures.load(), 0);
        int pedometerSamples = 0;
        int orientationSamples = 0;
        for (const cx::Sample& sample : samples.Drain()) {
            const std::vector<std::string> lines = Lines(sample.values);
            if (sample.sensorIndex == 0) {
                ++pedometerSamples;
                ASSERT_EQ(lines.size(), 11u);
                EXPECT_EQ(lines[1], Data(143, "BOOL true"));
                EXPECT_EQ(lines[6], Data(141, "UI4 10"));
                EXPECT_EQ(lines[10], Data(142, "I8 40"));
            } else {
                ++orientationSamples;
                ASSERT_EQ(lines.size(), 5u);
                EXPECT_EQ(lines[1], Data(71, "R4 0.25"));
                EXPECT_EQ(lines[4], Data(70, "R4 1"));
            }
        }
        // Orientation samples go out whatever the calls do; the pedometer's
        // reset flag makes each of its filtered samples go out too.
        EXPECT_GT(orientationSamples, 0);
        EXPECT_GE(fed.load(), orientationSamples);
        EXPECT_LE(pedometerSamples, orientationSamples);
    }
    EXPECT_EQ(bed.UnloadAndCollectLeaks(), "");
}

}  // namespace
}  // namespace testdriver
