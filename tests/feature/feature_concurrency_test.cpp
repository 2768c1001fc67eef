// Two client calls running ReadFeatureReport on one sensor at once, while the
// input side reads the bounds: each call's read-modify-write cycle reaches the
// device whole, and nothing races (the ThreadSanitizer build runs this).
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "feature/value_scaling.h"
#include "tests/feature/feature_test_bed.h"

namespace featuretest {
namespace {

TEST(FeatureConcurrency, ConcurrentReadFeatureReportCallsDoNotInterleave)
{
    hs::SensorShape shape;
    shape.features = {hs::Property(hs::Modified(0x543, 0x1000), 16, 0, 0xFFFF),
                     hs::Property(hs::Modified(0x544, 0x2000), 16, 0, 0xFFFF)};
    FeatureBed bed(shape, ReportBytes(1).U16(5).U16(300));
    ASSERT_TRUE(bed.Ready());
    bed.SeeField(1, 1.0f);

    constexpr int kCallsPerThread = 300;
    std::atomic<bool> running{true};
    std::atomic<int> boundReads{0};
    // What the input reader does for every value: bounds through the atomics, no lock.
    std::thread reader([&] {
        SensorPropertyCache& cache = bed.Cache();
        while (running.load()) {
            const float bound = ResolveFieldBound(FLT_MAX, cache.FieldMaximum[1].IsPresent(), cache.FieldMaximum[1].Get(),
                                                  cache.FieldMaximum[0].IsPresent(), cache.FieldMaximum[0].Get(),
                                                  cache.Maximum.IsPresent(), cache.Maximum.Get());
            EXPECT_EQ(bound, 300.0f);
            boundReads.fetch_add(1);
        }
    });
    bed.Bed().Sim().ClearTraffic();
    std::atomic<int> ready{0};
    auto client = [&](ULONG writeSettings, float threshold) {
        // Both clients start together, so that their calls overlap.
        ready.fetch_add(1);
        while (ready.load() < 2)
            std::this_thread::yield();
        for (int i = 0; i < kCallsPerThread; ++i) {
            bed.Record().DataThresholds[3].store(threshold);
            bed.Sensor().ReadFeatureReport(writeSettings);
        }
    };
    std::thread first(client, 1, 7.0f);
    std::thread second(client, 1, 9.0f);
    first.join();
    second.join();
    running = false;
    reader.join();
    EXPECT_GT(boundReads.load(), 0);

    // Every call is a fetch, the sensitivity write and the states write, in that
    // order: a second call cutting in would break the pattern.
    const std::vector<std::string> traffic = FeatureTraffic(bed.Bed().Traffic());
    ASSERT_EQ(traffic.size(), 2u * kCallsPerThread * 5);
    for (std::size_t i = 0; i < traffic.size(); i += 5) {
        const std::string fetched = traffic[i].substr(4);
        const std::string sent = traffic[i + 1].substr(4);
        EXPECT_EQ(traffic[i].substr(0, 4), "get ") << i;
        EXPECT_EQ(traffic[i + 1].substr(0, 4), "set ") << i;
        EXPECT_EQ(traffic[i + 2], "get " + sent) << i;
        EXPECT_EQ(traffic[i + 3], "set " + sent) << i;
        EXPECT_EQ(traffic[i + 4], "get " + sent) << i;
        EXPECT_TRUE(sent == "01 07 00 2C 01" || sent == "01 09 00 2C 01") << sent;
    }
}

}  // namespace
}  // namespace featuretest
