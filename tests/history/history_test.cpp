// The history of an activity sensor on a simulated device: settings from the
// registry, the ring, the sampling timer in virtual time, start, stop and
// clear, and retrieval on the deterministic worker thread.
#include <gtest/gtest.h>

#include <optional>

#include "history/sensor_history.h"
#include "host/common/fault_injection.h"
#include "tests/activity/activity_device.h"

namespace testdriver {
namespace {

constexpr const char* kSubkey = "KPX_ActivitySensor";
constexpr const char* kInterval = "HistorySampleReportInterval";
constexpr const char* kEntries = "HistoryMaxEntries";
constexpr ULONG kRecordBytes = 144;  // three entries of 48 bytes
constexpr ULONG kOneRecordList = 8 + kRecordBytes;

struct HistoryBed : ClientBed {
    explicit HistoryBed(ULONG entries = 3, ULONG interval = 1000)
        : ClientBed(ActivityDevice(), host::framework::ClockMode::Deterministic, [=](DriverTestBed& fresh) {
              fresh.Host().Registry().Preload(kSubkey, kEntries, entries);
              fresh.Host().Registry().Preload(kSubkey, kInterval, interval);
          })
    {
    }

    ActivitySensor& Sensor() { return *ActivityOf(bed.Sensor(0)); }
    SensorHistory& History() { return *Sensor().History(); }
    HidCollectionRecord& Record() { return *Sensor().Record(); }
    void Words(std::vector<std::uint32_t> words) { bed.Feed(ActivityReport(*bed.Hid(), std::move(words))); }
    void Advance(ULONGLONG ms) { bed.Host().Advance(ms); }
    // Records of state walking with confidence 1..n, inserted as ticks would.
    void Fill(int n)
    {
        for (int i = 1; i <= n; ++i)
            History().InsertRecord(Activity(kWalking, static_cast<USHORT>(i), static_cast<ULONGLONG>(i)));
    }
    static HistoryRecord Activity(ULONG state, USHORT confidence, ULONGLONG ticks = 0)
    {
        HistoryRecord record{};
        record.Activity.timestamp.dwLowDateTime = static_cast<DWORD>(ticks);
        record.Activity.activityState = state;
        record.Activity.confidence = confidence;
        return record;
    }
    std::vector<USHORT> Drain()
    {
        std::vector<USHORT> confidences;
        HistoryRecord record{};
        while (History().PopOldest(&record) == STATUS_SUCCESS)
            confidences.push_back(record.Activity.confidence);
        return confidences;
    }
};

TEST(HistorySettings, RegistryValuesAreRangeCheckedAndDefaultsWrittenBack)
{
    struct Case {
        const char* what;
        std::optional<ULONG> interval;
        std::optional<ULONG> entries;
        ULONG usedInterval;
        ULONG usedEntries;
    };
    const Case cases[] = {
        {"absent subkey: created with both defaults", std::nullopt, std::nullopt, 60000, 60},
        {"just below the ranges", 999, 0, 60000, 60},
        {"just above the ranges", 300001, 1001, 60000, 60},
        {"lowest accepted", 1000, 1, 1000, 1},
        {"highest accepted", 300000, 1000, 300000, 1000},
        {"one value missing", 5000, std::nullopt, 5000, 60},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        DriverTestBed bed(ActivityDevice(), &SensorFactory::Default());
        if (c.interval)
            bed.Host().Registry().Preload(kSubkey, kInterval, *c.interval);
        if (c.entries)
            bed.Host().Registry().Preload(kSubkey, kEntries, *c.entries);
        ASSERT_EQ(bed.Prepare(), STATUS_SUCCESS);
        const SensorHistory& history = *ActivityOf(bed.Sensor(0))->History();
        EXPECT_EQ(history.SampleReportInterval(), c.usedInterval);
        EXPECT_EQ(history.MaxEntries(), c.usedEntries);
        EXPECT_EQ(bed.Host().Registry().Read(kSubkey, kInterval), c.usedInterval);
        EXPECT_EQ(bed.Host().Registry().Read(kSubkey, kEntries), c.usedEntries);
        EXPECT_EQ(ActivityOf(bed.Sensor(0))->Record()->historyCapacity, c.usedEntries);

        // The next preparation reads what the first left.
        ASSERT_EQ(bed.Host().ReleaseHardware(), STATUS_SUCCESS);
        ASSERT_EQ(bed.Host().PrepareHardware(), STATUS_SUCCESS);
        EXPECT_EQ(ActivityOf(bed.Sensor(0))->History()->SampleReportInterval(), c.usedInterval);
        EXPECT_EQ(bed.UnloadAndCollectLeaks(), "");
    }
}

TEST(HistoryRing, WrapsAroundAndPopsOldestFirst)
{
    HistoryBed t(3);
    ASSERT_EQ(t.client->StartHistory(0).status, STATUS_SUCCESS);
    t.Fill(4);
    EXPECT_EQ(t.Record().historyCount, 3u);
    EXPECT_EQ(t.Drain(), (std::vector<USHORT>{2, 3, 4}));
    EXPECT_EQ(t.Record().historyCount, 0u);
    EXPECT_EQ(t.Record().historyNewest, t.Record().historyHead);
    HistoryRecord none{};
    EXPECT_EQ(t.History().PopOldest(&none), STATUS_NO_MORE_ENTRIES);
}

TEST(HistoryRing, ARecordEqualToTheNewestSlotIsNotStored)
{
    HistoryBed t(3);
    ASSERT_EQ(t.client->StartHistory(0).status, STATUS_SUCCESS);
    // The emptied ring's newest slot holds zeros: a zero activity matches it.
    t.History().InsertRecord(HistoryBed::Activity(0, 0, 77));
    EXPECT_EQ(t.Record().historyCount, 0u);
    t.History().InsertRecord(HistoryBed::Activity(kRunning, 50, 1));
    t.History().InsertRecord(HistoryBed::Activity(kRunning, 50, 2));  // same but the time
    EXPECT_EQ(t.Record().historyCount, 1u);
    EXPECT_EQ(t.Drain(), (std::vector<USHORT>{50}));

    // Emptied by popping, newest moves to head, whose slot keeps what it held:
    // after a wrap that is an old record, and it blocks its twin.
    t.Fill(4);  // slots 3, 4, 2; head 2
    EXPECT_EQ(t.Drain(), (std::vector<USHORT>{2, 3, 4}));
    ASSERT_EQ(t.Record().historyNewest, 2u);  // the slot of record 2
    t.History().InsertRecord(HistoryBed::Activity(kWalking, 2, 9));
    EXPECT_EQ(t.Record().historyCount, 0u);
    t.History().InsertRecord(HistoryBed::Activity(kWalking, 5, 9));
    EXPECT_EQ(t.Record().historyCount, 1u);
}

TEST(HistoryRecording, TicksStoreOnlyNewChangedSamplesWhileRecording)
{
    HistoryBed t(5, 1000);
    t.Words({Word(1, 870)});
    t.Advance(1000);  // not recording: the timer is not running
    EXPECT_EQ(t.Record().historyCount, 0u);

    ASSERT_EQ(t.client->StartHistory(0).status, STATUS_SUCCESS);
    t.Words({Word(2, 500)});
    t.Advance(1000);
    EXPECT_EQ(t.Record().historyCount, 1u);
    t.Words({Word(2, 500)});  // the same activity again
    t.Advance(1000);
    EXPECT_EQ(t.Record().historyCount, 1u);
    t.Words({Word(5, 990)});
    t.Words({Word(4, 300)});  // two samples in one period: the tick takes the latest
    t.Advance(999);
    EXPECT_EQ(t.Record().historyCount, 1u);
    t.Advance(1);
    EXPECT_EQ(t.Record().historyCount, 2u);
    t.Advance(3000);  // no input: nothing new
    EXPECT_EQ(t.Record().historyCount, 2u);

    // A second start is refused and keeps the ring.
    EXPECT_EQ(t.client->StartHistory(0).status, STATUS_DEVICE_BUSY);
    EXPECT_EQ(t.Record().historyCount, 2u);

    // Clearing while recording: recording goes on with the next tick.
    EXPECT_EQ(t.client->ClearHistory(0).status, STATUS_SUCCESS);
    EXPECT_EQ(t.Record().historyCount, 0u);
    t.Words({Word(1, 100)});
    t.Advance(1000);
    EXPECT_EQ(t.Record().historyCount, 1u);

    // Stopped: the ring stays, the ticks end.
    EXPECT_EQ(t.client->StopHistory(0).status, STATUS_SUCCESS);
    t.Words({Word(6, 100)});
    t.Advance(5000);
    EXPECT_EQ(t.Record().historyCount, 1u);
    EXPECT_EQ(t.Record().modeFlags.load() & 4u, 0u);
    EXPECT_EQ(t.bed.UnloadAndCollectLeaks(), "");
}

TEST(HistoryRecording, StopWithoutStartSendsTheStoppedConfiguration)
{
    HistoryBed t;
    EXPECT_EQ(t.client->StopHistory(0).status, STATUS_SUCCESS);
    EXPECT_EQ(t.Record().RequestedReportingState.load(), 0u);
    EXPECT_EQ(t.Record().RequestedPowerState.load(), 1u);
    bool sent = false;
    for (const auto& event : t.bed.Traffic())
        sent = sent || event.kind == TrafficKind::SetFeature;
    EXPECT_TRUE(sent);
}

TEST(HistoryRecording, StartWithoutAClientSetsTheHistoryPace)
{
    HistoryBed t(7, 2000);
    ASSERT_EQ(t.client->StartHistory(0).status, STATUS_SUCCESS);
    EXPECT_EQ(t.Record().BatchInterval.load(), 14000u);
    EXPECT_EQ(t.Record().CurrentReportInterval.load(), 2000u);
    EXPECT_EQ(t.Record().RequestedReportingState.load(), 1u);
    EXPECT_EQ(t.Record().RequestedPowerState.load(), 2u);
    EXPECT_EQ(t.Record().modeFlags.load(), 4u);
}

// Lines of `n` records of state walking with confidences first, first + 1, ...
std::vector<std::string> RecordLines(int first, int n)
{
    std::vector<std::string> lines;
    for (int i = first; i < first + n; ++i) {
        lines.push_back(Data(2, "FILETIME " + std::to_string(i)));
        lines.push_back(Data(130, "UI4 8"));
        lines.push_back(Data(131, "UI2 " + std::to_string(i)));
    }
    return lines;
}

TEST(HistoryRetrieval, TheBufferSizeDecidesHowManyRecordsLeaveTheRing)
{
    struct Case {
        const char* what;
        int held;
        ULONG bytes;
        NTSTATUS started;
        NTSTATUS completed;
        int delivered;
        ULONG left;
    };
    const Case cases[] = {
        {"exactly one record", 5, kOneRecordList, STATUS_SUCCESS, STATUS_SUCCESS, 1, 4},
        {"one byte short", 5, kOneRecordList - 1, STATUS_BUFFER_TOO_SMALL, 0, 0, 5},
        {"two and a half records", 5, 8 + kRecordBytes * 5 / 2, STATUS_SUCCESS, STATUS_SUCCESS, 2, 3},
        {"room for ten, five held", 5, 8 + 10 * kRecordBytes, STATUS_SUCCESS, STATUS_SUCCESS, 5, 0},
        {"an empty ring", 0, 8 + 10 * kRecordBytes, STATUS_SUCCESS, STATUS_NO_MORE_ENTRIES, 0, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        HistoryBed t(10);
        ASSERT_EQ(t.client->StartHistory(0).status, STATUS_SUCCESS);
        t.Fill(c.held);
        EXPECT_EQ(t.client->StartHistoryRetrieval(0, c.bytes).status, c.started);
        if (c.started == STATUS_SUCCESS) {
            const std::optional<cx::HistoryCompletion> done =
                t.client->WaitHistoryRetrieval(0, std::chrono::milliseconds(1000));
            ASSERT_TRUE(done.has_value());
            EXPECT_EQ(done->status, c.completed);
            EXPECT_EQ(done->size, 8u + 48u * 3u * static_cast<ULONG>(c.delivered));
            EXPECT_EQ(Lines(done->list), RecordLines(1, c.delivered));
        }
        EXPECT_EQ(t.Record().historyCount, c.left);
        EXPECT_EQ(t.bed.UnloadAndCollectLeaks(), "");
    }
}

TEST(HistoryRetrieval, RefusedUntilRecordingAndForBadArguments)
{
    HistoryBed t;
    cx::CallOptions noList;
    noList.nullOutput = true;
    EXPECT_EQ(t.client->StartHistoryRetrieval(0, 1000).status, STATUS_UNSUCCESSFUL);
    EXPECT_EQ(t.client->CancelHistoryRetrieval(0).status, STATUS_UNSUCCESSFUL);
    ASSERT_EQ(t.client->StartHistory(0).status, STATUS_SUCCESS);
    EXPECT_EQ(t.client->StartHistoryRetrieval(0, 1000, noList).status, STATUS_INVALID_PARAMETER);
    EXPECT_EQ(t.client->CancelHistoryRetrieval(0, noList).status, STATUS_INVALID_PARAMETER);
    const cx::CallResult idle = t.client->CancelHistoryRetrieval(0);
    EXPECT_EQ(idle.status, static_cast<NTSTATUS>(0xC0000010));
    EXPECT_EQ(idle.bytesWritten, 0u);
}

TEST(HistoryRetrieval, AHeldWorkerMakesStartBusyAndCancelTimeOut)
{
    HistoryBed t(10);
    ASSERT_EQ(t.client->StartHistory(0).status, STATUS_SUCCESS);
    t.Fill(4);
    t.bed.Host().HoldThreadAt(host::FaultPoint::FrameworkMemory);  // before the scratch memory
    ASSERT_EQ(t.client->StartHistoryRetrieval(0, 1000).status, STATUS_SUCCESS);
    EXPECT_EQ(t.client->StartHistoryRetrieval(0, 1000).status, STATUS_DEVICE_BUSY);
    const cx::CallResult busy = t.client->CancelHistoryRetrieval(0);
    EXPECT_EQ(busy.status, STATUS_DEVICE_BUSY);
    EXPECT_EQ(busy.bytesWritten, 0u);
    // A second cancel still finds the held worker and still waits for it.
    EXPECT_EQ(t.client->CancelHistoryRetrieval(0).status, STATUS_DEVICE_BUSY);

    // Let go, it sees the cancel at its first poll: nothing taken, no completion.
    ASSERT_TRUE(t.bed.Host().ReleaseThread(t.History().WorkerThread()));
    t.bed.Host().RunThreads();
    EXPECT_FALSE(t.client->TakeHistoryCompletion(0).has_value());
    EXPECT_FALSE(t.History().RetrievalRunning());
    EXPECT_EQ(t.Record().historyCount, 4u);

    // The next retrieval is not cancelled by that old signal.
    ASSERT_EQ(t.client->StartHistoryRetrieval(0, 1000).status, STATUS_SUCCESS);
    const std::optional<cx::HistoryCompletion> done = t.client->WaitHistoryRetrieval(0, std::chrono::milliseconds(1000));
    ASSERT_TRUE(done.has_value());
    EXPECT_EQ(done->status, STATUS_SUCCESS);
    EXPECT_EQ(Lines(done->list), RecordLines(1, 4));
    EXPECT_EQ(t.bed.UnloadAndCollectLeaks(), "");
}

TEST(HistoryRetrieval, CancelBeforeTheWorkerRunsEndsItWithoutCompletion)
{
    HistoryBed t(10);
    ASSERT_EQ(t.client->StartHistory(0).status, STATUS_SUCCESS);
    t.Fill(3);
    ASSERT_EQ(t.client->StartHistoryRetrieval(0, 1000).status, STATUS_SUCCESS);
    const cx::CallResult cancelled = t.client->CancelHistoryRetrieval(0);
    EXPECT_EQ(cancelled.status, STATUS_SUCCESS);
    EXPECT_EQ(cancelled.bytesWritten, 8u);
    EXPECT_FALSE(t.client->TakeHistoryCompletion(0).has_value());
    EXPECT_EQ(t.Record().historyCount, 3u);
    // After the worker ended: nothing to cancel.
    EXPECT_EQ(t.client->CancelHistoryRetrieval(0).status, static_cast<NTSTATUS>(0xC0000010));
}

TEST(HistoryRetrieval, ReleaseHardwareEndsAWaitingWorkerCleanly)
{
    HistoryBed t(10);
    ASSERT_EQ(t.client->StartHistory(0).status, STATUS_SUCCESS);
    t.Fill(2);
    ASSERT_EQ(t.client->StartHistoryRetrieval(0, 1000).status, STATUS_SUCCESS);
    ASSERT_EQ(t.bed.Host().D0Exit(), STATUS_SUCCESS);
    ASSERT_EQ(t.bed.Host().ReleaseHardware(), STATUS_SUCCESS);
    EXPECT_TRUE(t.bed.Host().Violations().empty());
    EXPECT_EQ(t.bed.UnloadAndCollectLeaks(), "");
}

TEST(HistoryRetrieval, FailedScratchMemoryCompletesWithTheFailure)
{
    HistoryBed t(10);
    ASSERT_EQ(t.client->StartHistory(0).status, STATUS_SUCCESS);
    t.Fill(2);
    host::FaultInjector::Instance().FailNth(host::FaultPoint::FrameworkMemory, 1, STATUS_INSUFFICIENT_RESOURCES);
    ASSERT_EQ(t.client->StartHistoryRetrieval(0, 1000).status, STATUS_SUCCESS);
    const std::optional<cx::HistoryCompletion> done = t.client->WaitHistoryRetrieval(0, std::chrono::milliseconds(1000));
    ASSERT_TRUE(done.has_value());
    EXPECT_EQ(done->status, STATUS_INSUFFICIENT_RESOURCES);
    EXPECT_EQ(done->list.Count(), 0u);
    EXPECT_EQ(t.Record().historyCount, 2u);
}

// A lifecycle of an activity device with history: whatever each step returns.
void HistoryCycle(DriverTestBed& bed)
{
    if (!NT_SUCCESS(bed.Prepare()))
        return;
    bed.Start();
    {
        cx::Client client(bed.Host().Device());
        // A failure while classifying makes a plain custom sensor, whose
        // history operations answer success and do nothing.
        if (client.SensorCount() == 1 && ActivityOf(bed.Sensor(0)) != nullptr) {
            client.Start(0);
            client.StartHistory(0);
            bed.Feed(ActivityReport(*bed.Hid(), {Word(1, 870)}));
            bed.Host().Advance(1000);
            bed.Feed(ActivityReport(*bed.Hid(), {Word(2, 870)}));
            bed.Host().Advance(1000);
            client.StartHistoryRetrieval(0, 8 + 144);
            client.WaitHistoryRetrieval(0, std::chrono::milliseconds(1000));
            client.StartHistoryRetrieval(0, 1000);
            client.CancelHistoryRetrieval(0);
            client.StartHistoryRetrieval(0, 1000);  // left running for release-hardware
        }
    }
    bed.Stop();
    bed.Host().ReleaseHardware();
}

TEST(HistoryFaultSweep, EveryDriverCallOfAHistoryLifecycleFailsInTurnAndTheDriverEndsClean)
{
    SweepEveryDriverCall(
        [] {
            auto bed = std::make_unique<DriverTestBed>(ActivityDevice(), &SensorFactory::Default());
            bed->Host().Registry().Preload(kSubkey, kInterval, 1000);
            return bed;
        },
        HistoryCycle);
}

TEST(HistoryConstruction, WithoutSampleLockOrCancelEventTheSensorHasNoHistory)
{
    for (host::FaultPoint point : {host::FaultPoint::WaitLockCreate, host::FaultPoint::EventCreate}) {
        SCOPED_TRACE(host::FaultPointName(point));
        DriverTestBed bed(ActivityDevice(), &SensorFactory::Default());
        host::FaultInjector::Instance().FailNth(point, 1, STATUS_INSUFFICIENT_RESOURCES);
        ASSERT_EQ(bed.Prepare(), STATUS_SUCCESS);
        ASSERT_EQ(bed.Start(), STATUS_SUCCESS);
        {
            cx::Client client(bed.Host().Device());
            ASSERT_EQ(client.SensorCount(), 1u);
            EXPECT_EQ(ActivityOf(bed.Sensor(0))->Record()->historySupported, 0u);
            const cx::CallResult properties = client.GetProperties(0);
            ASSERT_EQ(properties.status, STATUS_SUCCESS);
            EXPECT_EQ(Lines(*properties.list)[8], Prop(24, "UI4 0"));
            EXPECT_EQ(client.StartHistory(0).status, STATUS_NOT_SUPPORTED);
            EXPECT_EQ(client.StartHistoryRetrieval(0, 1000).status, STATUS_NOT_SUPPORTED);
            EXPECT_EQ(client.CancelHistoryRetrieval(0).status, STATUS_NOT_SUPPORTED);
            // Samples still flow.
            ASSERT_EQ(client.Start(0).status, STATUS_SUCCESS);
            cx::SampleQueue samples(client);
            bed.Feed(ActivityReport(*bed.Hid(), {Word(1, 870)}));
            EXPECT_EQ(samples.Drain().size(), 1u);
        }
        EXPECT_EQ(bed.UnloadAndCollectLeaks(), "");
    }
}

TEST(HistoryRecords, PedometerRecordsWriteElevenEntriesAndCompareWithoutTheirTime)
{
    HistoryRecord record{};
    record.Pedometer = {{7, 0}, 5, 10, 1000, 20, 2000, 30, -3};
    alignas(SENSOR_COLLECTION_LIST) unsigned char storage[SENSOR_COLLECTION_LIST_SIZE(kPedometerEntriesPerRecord)] = {};
    auto* list = reinterpret_cast<PSENSOR_COLLECTION_LIST>(storage);
    list->AllocatedSizeInBytes = sizeof storage;
    list->Count = kPedometerEntriesPerRecord;
    ASSERT_EQ(EntriesPerRecord(HistoryKind::Pedometer), 11u);
    WriteRecordEntries(HistoryKind::Pedometer, record, list->List);
    EXPECT_EQ(Lines(*list), (std::vector<std::string>{
                                Data(2, "FILETIME 7"), Data(143, "BOOL true"),  // reset flag 5
                                Data(140, "UI4 1"), Data(141, "UI4 10"), Data(142, "I8 1000"),
                                Data(140, "UI4 2"), Data(141, "UI4 20"), Data(142, "I8 2000"),
                                Data(140, "UI4 4"), Data(141, "UI4 30"), Data(142, "I8 -3")}));

    HistoryRecord later = record;
    later.Pedometer.timestamp.dwLowDateTime = 99;
    EXPECT_TRUE(SameSample(HistoryKind::Pedometer, record, later));
    later.Pedometer.runningStepDuration = -4;
    EXPECT_FALSE(SameSample(HistoryKind::Pedometer, record, later));
    later = record;
    later.Pedometer.resetFlag = 0;
    EXPECT_FALSE(SameSample(HistoryKind::Pedometer, record, later));
}

}  // namespace
}  // namespace testdriver
