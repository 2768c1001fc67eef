// The activity sensor through real report bytes: its lists, the decoding of
// activity words into pairs, the three delivery modes and the device traffic
// of start, stop and intervals.
#include <gtest/gtest.h>

#include "history/history_keys.h"
#include "history/sensor_history.h"
#include "tests/activity/activity_device.h"

namespace testdriver {
namespace {

constexpr const char* kStreamKey = "{C458F8A7-4AE8-4777-9607-2E9BDD65110A} 133";

std::string Pair(ULONG state, USHORT confidence)
{
    return Data(130, "UI4 " + std::to_string(state)) + "|" + Data(131, "UI2 " + std::to_string(confidence));
}

// The sample's lines after the timestamp, a pair per "|"-joined string.
std::vector<std::string> Pairs(const cx::Sample& sample)
{
    std::vector<std::string> lines = Lines(sample.values);
    std::vector<std::string> pairs;
    for (std::size_t i = 1; i + 1 < lines.size(); i += 2)
        pairs.push_back(lines[i] + "|" + lines[i + 1]);
    if (lines.size() % 2 == 0)
        pairs.push_back("odd count");
    return pairs;
}

cx::CollectionListCopy StreamThreshold(VARIANT_BOOL value)
{
    PROPVARIANT flag{};
    flag.vt = VT_BOOL;
    flag.boolVal = value;
    return ValueList({{DataKey(133), flag}});
}

// A started sensor that delivers every sample.
struct StreamingBed : ClientBed {
    StreamingBed() : ClientBed(ActivityDevice())
    {
        EXPECT_EQ(client->SetDataThresholds(0, StreamThreshold(VARIANT_TRUE)).status, STATUS_SUCCESS);
        EXPECT_EQ(client->Start(0).status, STATUS_SUCCESS);
    }
    std::vector<cx::Sample> Words(std::vector<std::uint32_t> words) { return Feed(ActivityReport(Hid(), words)); }
};

TEST(ActivityWords, CodesAndConfidenceDecodeAtTheirLimits)
{
    struct Case {
        std::uint32_t word;
        ULONG state;
        USHORT confidence;
        bool clamped;
    };
    const Case cases[] = {
        {Word(1, 870), kWalking, 87, false},
        {Word(2, 1000), kRunning, 100, false},
        {Word(3, 1009), kBiking, 100, false},
        {Word(4, 2047), kInVehicle, 100, true},   // 204 % reported as 100
        {Word(5, 1010), kStationary, 100, true},  // 101 %
        {Word(6, 10), kFidgeting, 1, false},
        {Word(0, 500), kUnknown, 50, false},
        {Word(7, 500), kUnknown, 50, false},
        {Word(255, 500), kUnknown, 50, false},
        {Word(1, 9), kWalking, 0, false},                    // below 1 %: dropped by the sensor
        {Word(1, 870) | 0xF | 0xFF800000u, kWalking, 87, false},  // bits 0..3 and 23..31 ignored
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.word);
        bool clamped = false;
        EXPECT_EQ(ActivityStateFromCode(c.word), c.state);
        EXPECT_EQ(ActivityConfidence(c.word, &clamped), c.confidence);
        EXPECT_EQ(clamped, c.clamped);
    }
}

TEST(ActivitySensorLists, RegistrationPublishesEveryListWithItsValues)
{
    ClientBed t(ActivityDevice());
    ASSERT_NE(ActivityOf(t.bed.Sensor(0)), nullptr);
    const cx::CallResult fields = t.client->GetSupportedDataFields(0);
    ASSERT_EQ(fields.status, STATUS_SUCCESS);
    EXPECT_EQ(fields.size, 68u);

    const cx::CallResult properties = t.client->GetProperties(0);
    ASSERT_EQ(properties.status, STATUS_SUCCESS);
    const std::vector<std::string> lines = Lines(*properties.list);
    ASSERT_EQ(lines.size(), 11u);
    EXPECT_EQ(lines[1], Dev(10, "LPWSTR \"0x232\""));
    const std::vector<std::string> tail(lines.begin() + 2, lines.end());
    EXPECT_EQ(tail, (std::vector<std::string>{
                        Prop(20, "UI4 0"), Prop(21, "UI4 50"), Prop(22, "UI4 728"),
                        Prop(2, "CLSID \"{9D9E0118-1807-4F2E-96E4-2CE57142E196}\""), Prop(23, "R4 2"),
                        Prop(60, "UI4 127"), Prop(24, "UI4 8648"),  // (152 - 8) x 60 + 8
                        Prop(25, "UI4 60000"), Prop(26, "UI4 152")}));

    // Built with VARIANT_TRUE, answered from the stream flag, which starts at 0.
    const cx::CallResult thresholds = t.client->GetDataThresholds(0);
    ASSERT_EQ(thresholds.status, STATUS_SUCCESS);
    EXPECT_EQ(thresholds.size, 152u);
    EXPECT_EQ(Lines(*thresholds.list),
              (std::vector<std::string>{Data(133, "BOOL false"), Data(132, "UI4 127"), Data(134, "UI2 30")}));

    const PROPERTYKEY confidence = {kSensorDataFmtid, 131};
    const PROPERTYKEY confidenceThreshold = {kSensorDataFmtid, 134};
    const cx::CallResult refused = t.client->GetDataFieldProperties(0, &confidence);
    EXPECT_EQ(refused.status, STATUS_NOT_SUPPORTED);
    EXPECT_EQ(refused.size, 0u);
    const cx::CallResult range = t.client->GetDataFieldProperties(0, &confidenceThreshold);
    ASSERT_EQ(range.status, STATUS_SUCCESS);
    EXPECT_EQ(Lines(*range.list), (std::vector<std::string>{Prop(50, "R4 1"), Prop(51, "R4 0"), Prop(52, "R4 100")}));
    const cx::CallResult small = t.client->GetDataFieldProperties(0, &confidenceThreshold, cx::ListBuffer::OfBytes(151));
    EXPECT_EQ(small.status, STATUS_INSUFFICIENT_RESOURCES);
    EXPECT_EQ(small.size, 0u);
}

TEST(ActivitySensorCalls, WrongHandlesAndAbsentOutputsAreRefused)
{
    ClientBed t(ActivityDevice());
    const cx::CallOptions impostor{.otherHandle = true};
    const cx::CallOptions noOutput{.nullOutput = true};
    const PROPERTYKEY key = DataKey(134);
    ExpectStatuses(t, {
        {"start", [&] { return t.client->Start(0, impostor); }, STATUS_UNSUCCESSFUL},
        {"thresholds", [&] { return t.client->GetDataThresholds(0, {}, impostor); }, STATUS_UNSUCCESSFUL},
        {"field properties", [&] { return t.client->GetDataFieldProperties(0, &key, {}, impostor); }, STATUS_UNSUCCESSFUL},
        {"start history", [&] { return t.client->StartHistory(0, impostor); }, STATUS_INVALID_PARAMETER},
        {"stop history", [&] { return t.client->StopHistory(0, impostor); }, STATUS_INVALID_PARAMETER},
        {"clear history", [&] { return t.client->ClearHistory(0, impostor); }, STATUS_INVALID_PARAMETER},
        {"retrieval", [&] { return t.client->StartHistoryRetrieval(0, 1000, impostor); }, STATUS_INVALID_PARAMETER},
        {"cancel", [&] { return t.client->CancelHistoryRetrieval(0, impostor); }, STATUS_INVALID_PARAMETER},
        {"no interval output", [&] { return t.client->GetDataInterval(0, noOutput); }, STATUS_INVALID_PARAMETER},
        {"no thresholds list", [&] { return t.client->SetDataThresholds(0, StreamThreshold(0), noOutput); },
         STATUS_INVALID_PARAMETER},
        {"interval below the minimum", [&] { return t.client->SetDataInterval(0, 49); }, STATUS_UNSUCCESSFUL},
    });
    EXPECT_EQ(t.client->SetDataInterval(0, 50).status, STATUS_SUCCESS);
}

TEST(ActivitySamples, PairsArePositionalAndCountShowsOnlyTheActivitiesOfTheSample)
{
    StreamingBed t;
    // Three activities then four with confidence 0: the timestamp and three pairs.
    std::vector<cx::Sample> samples = t.Words({Word(1, 870), Word(2, 500), Word(6, 2047), Word(3, 9)});
    ASSERT_EQ(samples.size(), 1u);
    EXPECT_EQ(Pairs(samples[0]), (std::vector<std::string>{Pair(kWalking, 87), Pair(kRunning, 50), Pair(kFidgeting, 100)}));

    // Custom value 1 without confidence: its slot keeps the earlier pair,
    // while custom value 2's pair lies outside Count.
    samples = t.Words({Word(1, 5), Word(3, 640)});
    ASSERT_EQ(samples.size(), 1u);
    EXPECT_EQ(Pairs(samples[0]), (std::vector<std::string>{Pair(kWalking, 87)}));

    // No activity at all: the timestamp alone, and the history takes the kept pair.
    samples = t.Words({});
    ASSERT_EQ(samples.size(), 1u);
    EXPECT_EQ(samples[0].values.Count(), 1u);
    const HistoryRecord latest = ActivityOf(t.bed.Sensor(0))->History()->LatestSample();
    EXPECT_EQ(latest.Activity.activityState, kWalking);
    EXPECT_EQ(latest.Activity.confidence, 87);
}

TEST(ActivitySamples, AFreshSensorShowsStationaryInItsFirstSlot)
{
    StreamingBed t;
    const std::vector<cx::Sample> samples = t.Words({Word(1, 0), Word(2, 700)});
    ASSERT_EQ(samples.size(), 1u);
    EXPECT_EQ(Pairs(samples[0]), (std::vector<std::string>{Pair(kStationary, 100)}));
}

TEST(ActivityDelivery, FilteredDeliversTheFirstSampleThenOnlyWhatTheEvaluationAccepts)
{
    ClientBed t(ActivityDevice());
    // The threshold query refreshes the stream entry to the stream flag (0).
    ASSERT_EQ(t.client->GetDataThresholds(0).status, STATUS_SUCCESS);
    ASSERT_EQ(t.client->Start(0).status, STATUS_SUCCESS);
    EXPECT_EQ(t.Feed(ActivityReport(t.Hid(), {Word(1, 870)})).size(), 1u);  // forced
    EXPECT_EQ(t.Feed(ActivityReport(t.Hid(), {Word(1, 870)})).size(), 0u);  // no change
    EXPECT_EQ(t.Feed(ActivityReport(t.Hid(), {Word(1, 200)})).size(), 1u);  // walking fell below 30 %
    EXPECT_EQ(t.Feed(ActivityReport(t.Hid(), {Word(2, 900)})).size(), 1u);  // another activity
    // A new interval forces the next sample through.
    ASSERT_EQ(t.client->SetDataInterval(0, 200).status, STATUS_SUCCESS);
    EXPECT_EQ(t.Feed(ActivityReport(t.Hid(), {Word(2, 900)})).size(), 1u);
}

TEST(ActivityDelivery, UntilThresholdsAreCopiedOrSetTheStreamEntryLetsEverySampleThrough)
{
    // The threshold list is built with the stream entry VARIANT_TRUE, which the
    // evaluation reads as "deliver every sample". A size query and a call
    // refused for its missing size output copy nothing and refresh nothing.
    ClientBed t(ActivityDevice());
    ASSERT_EQ(t.client->GetDataThresholds(0, cx::ListBuffer::SizeQuery()).status, STATUS_SUCCESS);
    ASSERT_EQ(t.client->GetDataThresholds(0, cx::ListBuffer::OfBytes(200), {.nullOutput = true}).status,
              STATUS_INVALID_PARAMETER);
    ASSERT_EQ(t.client->Start(0).status, STATUS_SUCCESS);
    EXPECT_EQ(t.Feed(ActivityReport(t.Hid(), {Word(1, 870)})).size(), 1u);
    EXPECT_EQ(t.Feed(ActivityReport(t.Hid(), {Word(1, 870)})).size(), 1u);
}

TEST(ActivityDelivery, WithoutAModeNothingIsDeliveredButTheHistorySeesTheSample)
{
    ClientBed t(ActivityDevice());
    EXPECT_TRUE(t.Feed(ActivityReport(t.Hid(), {Word(4, 420)})).empty());
    const HistoryRecord latest = ActivityOf(t.bed.Sensor(0))->History()->LatestSample();
    EXPECT_EQ(latest.Activity.activityState, kInVehicle);
    EXPECT_EQ(latest.Activity.confidence, 42);
    // Stopped after a start: again nothing.
    ASSERT_EQ(t.client->Start(0).status, STATUS_SUCCESS);
    ASSERT_EQ(t.client->Stop(0).status, STATUS_SUCCESS);
    EXPECT_TRUE(t.Feed(ActivityReport(t.Hid(), {Word(1, 870)})).empty());
}

// The report interval field (bytes 3..6) of the last SET_FEATURE, and its
// reporting and power selectors.
struct SentSettings {
    int reporting = -1;
    int power = -1;
    std::uint32_t interval = 0;
};

SentSettings LastSent(ClientBed& t)
{
    SentSettings sent;
    for (const auto& event : t.bed.Traffic()) {
        if (event.kind != TrafficKind::SetFeature || event.bytes.size() < 7)
            continue;
        sent.reporting = event.bytes[1];
        sent.power = event.bytes[2];
        sent.interval = event.bytes[3] | event.bytes[4] << 8 | event.bytes[5] << 16 | std::uint32_t{event.bytes[6]} << 24;
    }
    return sent;
}

TEST(ActivityDeviceTraffic, StartStopAndHistoryPickTheReportIntervalOfTheirMode)
{
    ClientBed t(ActivityDevice());
    struct Step {
        const char* what;
        std::function<NTSTATUS()> call;
        int reporting;
        int power;
        std::uint32_t interval;
    };
    const Step steps[] = {
        {"filtered start: the minimum", [&] { return t.client->Start(0).status; }, 1, 1, 50},
        {"history while filtered: 100 ms", [&] { return t.client->StartHistory(0).status; }, 1, 1, 100},
        {"stop while recording: the history's pace", [&] { return t.client->Stop(0).status; }, 1, 1, 60000},
        {"stop history: reporting off, low power", [&] { return t.client->StopHistory(0).status; }, 0, 2, 60000},
        {"streaming start: the client's interval",
         [&] {
             t.client->SetDataThresholds(0, StreamThreshold(VARIANT_TRUE));
             return t.client->Start(0).status;
         },
         1, 1, 100},
        {"history while streaming: the client's interval",
         [&] {
             t.client->SetDataInterval(0, 250);
             return t.client->StartHistory(0).status;
         },
         1, 1, 250},
        {"stop history while streaming", [&] { return t.client->StopHistory(0).status; }, 1, 1, 250},
    };
    for (const Step& s : steps) {
        SCOPED_TRACE(s.what);
        EXPECT_EQ(s.call(), STATUS_SUCCESS);
        const SentSettings sent = LastSent(t);
        EXPECT_EQ(sent.reporting, s.reporting);
        EXPECT_EQ(sent.power, s.power);
        EXPECT_EQ(sent.interval, s.interval);
    }
    const cx::CallResult thresholds = t.client->GetDataThresholds(0);
    EXPECT_EQ(Lines(*thresholds.list)[0], std::string(kStreamKey) + " BOOL true");
}

TEST(ActivityIntervals, AnIntervalBelowARaisedMinimumReadsAs100)
{
    ClientBed t(ActivityDevice());
    ActivitySensor& sensor = *ActivityOf(t.bed.Sensor(0));
    sensor.History()->requestedInterval.store(20);
    const cx::CallResult interval = t.client->GetDataInterval(0);
    ASSERT_EQ(interval.status, STATUS_SUCCESS);
    EXPECT_EQ(interval.ms, 100u);
    EXPECT_EQ(sensor.History()->requestedInterval.load(), 100u);
}

}  // namespace
}  // namespace testdriver
