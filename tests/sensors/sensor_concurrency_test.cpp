// Class-extension calls on client threads while input reports stream in on
// the framework's I/O thread, for a plain custom sensor, a pedometer beside an
// orientation sensor, and an activity sensor's history with its real worker
// threads: every call keeps a status of its contract, samples keep their
// shape, nothing races (the ThreadSanitizer build runs this) and nothing is
// left at unload.
#include <gtest/gtest.h>

#include <algorithm>

#include "history/sensor_history.h"
#include "tests/activity/activity_device.h"

namespace testdriver {
namespace {

constexpr auto kRealTime = host::framework::ClockMode::RealTime;
constexpr int kRounds = 40;

bool OneOf(NTSTATUS status, std::initializer_list<NTSTATUS> allowed)
{
    return std::find(allowed.begin(), allowed.end(), status) != allowed.end();
}

// Ends the stream, then stops the device and runs what is left.
void Finish(ClientBed& t, ReportStream& stream)
{
    stream.Stop();
    ASSERT_EQ(t.bed.Stop(), STATUS_SUCCESS);
    t.bed.Host().RunPending();
}

TEST(CustomSensorConcurrency, CallbacksOnTwoThreadsWhileReportsStreamIn)
{
    ClientBed t(HidDeviceConfig{}
                    .WithDescriptor(hs::BuildSensorContainer(
                        {hs::CustomSensor(16, {hs::CustomValue(1, 16, -32767, 32767, -2), hs::CustomValue(2)})}))
                    .WithFeature(1, FeatureReport(1, 100, {u"0x210"})),
                kRealTime);
    ASSERT_EQ(t.client->SensorCount(), 1u);
    const Bytes report = InputReport(t.Hid(), 1, {0xFB2E, 7}, {2, 2});
    ReportStream stream(t.bed, [&](std::uint32_t) { return report; });

    std::atomic<int> failures{0};
    std::thread startStop([&] {
        for (int i = 0; i < kRounds; ++i) {
            failures += t.client->Start(0).status != STATUS_SUCCESS;
            failures += t.client->Stop(0).status != STATUS_SUCCESS;
        }
    });
    const cx::CollectionListCopy thresholds = ValueList({{DataKey(161), Float(1.5f)}});
    for (int i = 0; i < kRounds; ++i) {
        const cx::CallResult properties = t.client->GetProperties(0);
        failures += properties.status != STATUS_SUCCESS;
        if (properties.list)
            failures += (*properties.list)[3].Value.ulVal > 2;  // the sensor state
        failures += t.client->GetDataThresholds(0).status != STATUS_SUCCESS;
        failures += t.client->SetDataThresholds(0, thresholds).status != STATUS_SUCCESS;
        failures += t.client->SetDataInterval(0, 100 + static_cast<ULONG>(i)).status != STATUS_SUCCESS;
    }
    startStop.join();
    Finish(t, stream);

    EXPECT_EQ(failures.load(), 0);
    const std::vector<cx::Sample> delivered = t.samples->Drain();
    EXPECT_FALSE(delivered.empty());
    for (const cx::Sample& sample : delivered) {
        ASSERT_EQ(sample.values.Count(), 3u);
        EXPECT_EQ(Lines(sample.values)[1], Custom(7, "R4 -12.34"));
        EXPECT_EQ(Lines(sample.values)[2], Custom(8, "UI4 7"));
    }
}

TEST(PedometerConcurrency, CallbacksOnTwoThreadsWhileReportsStreamIn)
{
    std::vector<hs::ValueField> steps;
    for (int k = 1; k <= 5; ++k)
        steps.push_back(hs::CustomValue(k, 32, 0, 0x7FFFFFFF));
    std::vector<hs::ValueField> components;
    for (int k = 1; k <= 4; ++k)
        components.push_back(hs::CustomValue(k, 16, -1000, 1000, -3));
    ClientBed t(HidDeviceConfig{}
                    .WithDescriptor(hs::BuildSensorContainer(
                        {hs::CustomSensor(16, steps), hs::CustomSensor(16, components)}))
                    .WithFeature(1, FeatureReport(1, 100, {u"0x230"}))
                    .WithFeature(2, FeatureReport(2, 100, {u"0x200"})),
                kRealTime);
    ASSERT_EQ(t.client->SensorCount(), 2u);
    Bytes read = InputReport(t.Hid(), 1, {1, 10, 20, 30, 40}, {4, 4, 4, 4, 4});
    const Bytes orientation = InputReport(t.Hid(), 2, {250, 500, 750, 1000}, {2, 2, 2, 2});
    read.insert(read.end(), orientation.begin(), orientation.end());
    ReportStream stream(t.bed, [&](std::uint32_t) { return read; });

    std::atomic<int> failures{0};
    std::thread pedometerCalls([&] {
        for (int i = 0; i < kRounds; ++i) {
            failures += t.client->SetDataThresholds(0, ValueList({{DataKey(141), UInt(i % 3 == 0 ? 0 : 50)}})).status !=
                        STATUS_SUCCESS;
            failures += t.client->Start(0).status != STATUS_SUCCESS;
            failures += t.client->SetDataInterval(0, 100 + static_cast<ULONG>(i)).status != STATUS_SUCCESS;
            failures += t.client->Stop(0).status != STATUS_SUCCESS;
        }
    });
    for (int i = 0; i < kRounds; ++i) {
        const cx::CollectionListCopy component = ValueList({{DataKey(70 + static_cast<DWORD>(i % 4)), Float(0.5f)}});
        failures += t.client->SetDataThresholds(1, component).status != STATUS_SUCCESS;
        const cx::CallResult thresholds = t.client->GetDataThresholds(1);
        failures += !thresholds.list.has_value();
        if (thresholds.list) {
            for (const std::string& line : Lines(*thresholds.list))
                failures += !line.ends_with("R4 0.2") && !line.ends_with("R4 0.5");
        }
        const cx::CallResult stepThreshold = t.client->GetDataThresholds(0);
        failures += !stepThreshold.list.has_value();
        if (stepThreshold.list) {
            const std::string line = Lines(*stepThreshold.list).at(0);
            failures += !line.ends_with("UI4 0") && !line.ends_with("UI4 50");
        }
        failures += t.client->GetProperties(0).status != STATUS_SUCCESS;
    }
    pedometerCalls.join();
    Finish(t, stream);

    EXPECT_EQ(failures.load(), 0);
    int pedometerSamples = 0;
    int orientationSamples = 0;
    for (const cx::Sample& sample : t.samples->Drain()) {
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
    EXPECT_GE(stream.Fed(), orientationSamples);
    EXPECT_LE(pedometerSamples, orientationSamples);
}

TEST(HistoryConcurrency, StartStopClearRetrieveAndCancelAgainstAStreamOfReports)
{
    ClientBed t(ActivityDevice(), kRealTime, [](DriverTestBed& bed) {
        bed.Host().Registry().Preload("KPX_ActivitySensor", "HistoryMaxEntries", 8);
        bed.Host().Registry().Preload("KPX_ActivitySensor", "HistorySampleReportInterval", 1000);
    });
    ASSERT_EQ(t.client->SensorCount(), 1u);
    ASSERT_EQ(t.client->Start(0).status, STATUS_SUCCESS);
    SensorHistory& history = *ActivityOf(t.bed.Sensor(0))->History();
    ReportStream stream(t.bed, [&](std::uint32_t i) {
        return ActivityReport(t.Hid(), {Word(1 + i % 6, 100 + i % 900), Word(5, 300)});
    });
    // Stands in for the timer's ticks, which a second-long interval makes rare.
    std::atomic<bool> ticking{true};
    std::thread ticker([&] {
        for (USHORT confidence = 1; ticking.load(); ++confidence) {
            HistoryRecord record{};
            record.Activity.activityState = 8;
            record.Activity.confidence = confidence;
            history.InsertRecord(record);
            std::this_thread::yield();
        }
    });

    constexpr int kHistoryRounds = 60;
    std::atomic<int> failures{0};
    std::atomic<int> retrievals{0};
    std::thread other([&] {
        for (int i = 0; i < kHistoryRounds; ++i) {
            failures += !OneOf(t.client->StartHistoryRetrieval(0, 8 + 144 * 4).status,
                               {STATUS_SUCCESS, STATUS_DEVICE_BUSY, STATUS_UNSUCCESSFUL});
            failures += !OneOf(t.client->CancelHistoryRetrieval(0).status,
                               {STATUS_SUCCESS, STATUS_DEVICE_BUSY, STATUS_UNSUCCESSFUL, static_cast<NTSTATUS>(0xC0000010)});
            failures += t.client->ClearHistory(0).status != STATUS_SUCCESS;
        }
    });
    for (int i = 0; i < kHistoryRounds; ++i) {
        failures += !OneOf(t.client->StartHistory(0).status, {STATUS_SUCCESS, STATUS_DEVICE_BUSY});
        const NTSTATUS started = t.client->StartHistoryRetrieval(0, 8 + 144 * 2).status;
        failures += !OneOf(started, {STATUS_SUCCESS, STATUS_DEVICE_BUSY});
        retrievals += started == STATUS_SUCCESS;
        t.client->WaitHistoryRetrieval(0, std::chrono::milliseconds(50));
        failures += t.client->StopHistory(0).status != STATUS_SUCCESS;
    }
    other.join();
    stream.Stop();
    ticking = false;
    ticker.join();
    ASSERT_EQ(t.client->Stop(0).status, STATUS_SUCCESS);
    Finish(t, stream);
    EXPECT_EQ(failures.load(), 0);
    EXPECT_GT(retrievals.load(), 0);
    EXPECT_FALSE(t.samples->Drain().empty());
}

}  // namespace
}  // namespace testdriver
