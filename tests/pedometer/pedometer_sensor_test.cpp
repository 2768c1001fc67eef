// The pedometer on a simulated device, through the class extension's client:
// its lists, the samples its five custom values make, the step-count
// threshold, the settings it writes to the device per mode, and its history.
#include <gtest/gtest.h>

#include <functional>

#include "host/common/fault_injection.h"
#include "host/sensorscx/guid.h"
#include "pedometer/pedometer_sensor.h"
#include "tests/sensors/custom_sensor_test_support.h"

namespace testdriver {
namespace {

constexpr ULONGLONG kStartTicks = ULONGLONG{0x01DA0000} << 32;
constexpr std::uint8_t kReportId = 2;

const std::string kPedometerType = Clsid("{B19F89AF-E3EB-444B-8DEA-202575A71599}");
const std::string kMotion = Clsid("{CD09DAF1-3B2E-4C3D-B598-B5E5FF93FD46}");

const PROPERTYKEY kStepCount = DataKey(141);

// The pedometer's feature report, as the device holds it.
struct Settings {
    std::uint32_t reporting = 1;  // selector index: 1 all events, 0 none
    std::uint32_t power = 1;      // 1 full, 2 low
    std::uint32_t interval = 100;
    std::uint32_t minimum = 50;
    std::uint32_t batch = 0;
    std::uint32_t sensitivity = 0;
    std::uint32_t reset = 0;
    bool operator==(const Settings&) const = default;
};

// Features after the selectors and the interval: description (16 chars),
// minimum interval, batch interval, change sensitivity of custom value 1 and
// the pedometer-reset vendor property.
constexpr std::size_t kMinimumOffset = 7 + 32;
constexpr std::size_t kBatchOffset = kMinimumOffset + 4;
constexpr std::size_t kSensitivityOffset = kBatchOffset + 4;
constexpr std::size_t kResetOffset = kSensitivityOffset + 2;

Bytes FeatureOf(const Settings& s)
{
    Bytes report = FeatureReport(kReportId, s.interval, {u"0x230"}, 16, static_cast<std::uint8_t>(s.reporting),
                                 static_cast<std::uint8_t>(s.power));
    PutLittleEndian(report, s.minimum, 4);
    PutLittleEndian(report, s.batch, 4);
    PutLittleEndian(report, s.sensitivity, 2);
    PutLittleEndian(report, s.reset, 4);
    return report;
}

Settings SettingsOf(const Bytes& report)
{
    return {report.at(1),
            report.at(2),
            GetLittleEndian(report, 3, 4),
            GetLittleEndian(report, kMinimumOffset, 4),
            GetLittleEndian(report, kBatchOffset, 4),
            GetLittleEndian(report, kSensitivityOffset, 2),
            GetLittleEndian(report, kResetOffset, 4)};
}

// Sensor 0 (report 1) is an accelerometer placeholder; the pedometer is
// published sensor 0 on report 2, with custom values 1 to 5 of 32 bits.
HidDeviceConfig PedometerDevice(const Settings& settings = {})
{
    std::vector<hs::ValueField> values;
    for (int k = 1; k <= 5; ++k)
        values.push_back(hs::CustomValue(k, 32, 0, 0x7FFFFFFF));
    hs::SensorShape pedometer = hs::CustomSensor(16, values);
    pedometer.features.push_back(hs::Property(hs::kMinimumReportInterval, 32, 0, 0x7FFFFFFF));
    pedometer.features.push_back(hs::Property(0x530E, 32, 0, 0x7FFFFFFF));
    pedometer.features.push_back(
        hs::Property(hs::Modified(hs::CustomValueUsage(1), hs::kModChangeSensitivityAbsolute), 16, 0, 0xFFFF));
    pedometer.features.push_back(hs::Property(0xF08E, 32, 0, 0x7FFFFFFF));
    hs::SensorShape accelerometer = Accelerometer(1);
    accelerometer.features = {hs::ReportIntervalProperty()};
    return HidDeviceConfig{}
        .WithDescriptor(hs::BuildSensorContainer({accelerometer, pedometer}))
        .WithManufacturer(u"Contoso")
        .WithFeature(kReportId, FeatureOf(settings));
}

struct Steps {
    std::uint32_t reset = 0;
    std::uint32_t walking = 0;
    std::uint32_t walkingMs = 0;
    std::uint32_t running = 0;
    std::uint32_t runningMs = 0;
};

struct PedometerBed : ClientBed {
    explicit PedometerBed(const Settings& settings = {}) : ClientBed(PedometerDevice(settings)) {}
    PedometerSensor& Pedometer() const { return dynamic_cast<PedometerSensor&>(*bed.Sensor(1)); }
    HidCollectionRecord& Rec() const { return *Pedometer().Record(); }
    Bytes Report(const Steps& s) const
    {
        return InputReport(*bed.Hid(), kReportId, {s.reset, s.walking, s.walkingMs, s.running, s.runningMs},
                           {4, 4, 4, 4, 4});
    }
    std::size_t Delivered(const Steps& s) { return Feed(Report(s)).size(); }
    Settings Device() { return SettingsOf(bed.Sim().Feature(kReportId).value()); }
    cx::CallResult Threshold(PROPVARIANT value) { return client->SetDataThresholds(0, ValueList({{kStepCount, value}})); }
};

TEST(Pedometer, IsPublishedWithItsLists)
{
    PedometerBed t;
    ASSERT_EQ(t.client->SensorCount(), 1u);
    EXPECT_EQ(std::u16string(t.Pedometer().GetFriendlyName()), u"HID Sensor Collection V2: Pedometer-1");
    const HidCollectionRecord& r = t.Rec();
    // One record is the data list: 8 + 11 x 48 bytes; 60 of them by default.
    EXPECT_EQ(r.minRetrievalSize, 536u);
    EXPECT_EQ(r.historySupported, 1u);
    EXPECT_EQ(Lines(t.client->Sensors()[0].enumeration),
              (std::vector<std::string>{Prop(2, kPedometerType), Prop(6, Str("")), Prop(7, Str("")), Prop(8, Str("")),
                                        Prop(9, Clsid(host::com::FormatGuid(r.PersistentUniqueId))), Prop(3, kMotion),
                                        Prop(23, "R4 2"), Prop(24, "UI4 31688"), Prop(70, "UI4 7")}));
    EXPECT_EQ(KeyLines(*t.client->GetSupportedDataFields(0).keys),
              (std::vector<std::string>{Data(2, ""), Data(143, ""), Data(140, ""), Data(141, ""), Data(142, "")}));
    EXPECT_EQ(Lines(*r.Data),
              (std::vector<std::string>{TimestampLine(kStartTicks), Data(143, "BOOL false"), Data(140, "UI4 1"),
                                        Data(141, "UI4 0"), Data(142, "I8 0"), Data(140, "UI4 2"), Data(141, "UI4 0"),
                                        Data(142, "I8 0"), Data(140, "UI4 4"), Data(141, "UI4 0"),
                                        Data(142, "I8 0")}));
    EXPECT_EQ(Lines(*t.client->GetProperties(0).list),
              (std::vector<std::string>{Dev(8, Str("")), Dev(10, Str("0x230")), Prop(20, "UI4 0"), Prop(21, "UI4 50"),
                                        Prop(22, "UI4 536"), Prop(2, kPedometerType), Prop(23, "R4 2"),
                                        Prop(24, "UI4 31688"), Prop(25, "UI4 60000"), Prop(26, "UI4 536"),
                                        Prop(70, "UI4 7")}));
    // Data-field properties describe the step count only.
    const cx::CallResult fieldProperties = t.client->GetDataFieldProperties(0, &kStepCount);
    EXPECT_EQ(fieldProperties.size, 152u);
    EXPECT_EQ(Lines(*fieldProperties.list),
              (std::vector<std::string>{Prop(50, "I8 1"), Prop(51, "UI4 0"), Prop(52, "UI4 4294967295")}));
    const PROPERTYKEY stepType = DataKey(140);
    const cx::CallResult refused = t.client->GetDataFieldProperties(0, &stepType);
    EXPECT_EQ(refused.status, STATUS_NOT_SUPPORTED);
    EXPECT_EQ(refused.size, 0u);
    // The stored 1 is replaced by the step threshold, 0 until a client sets one.
    EXPECT_EQ(Lines(*r.Thresholds), (std::vector<std::string>{Data(141, "UI4 1")}));
    EXPECT_EQ(Lines(*t.client->GetDataThresholds(0).list), (std::vector<std::string>{Data(141, "UI4 0")}));
}

TEST(Pedometer, FiveUnsignedValuesMakeASampleAndOnlyThey)
{
    PedometerBed t;
    // Registered, no threshold, not started: assembled and captured, never delivered.
    EXPECT_EQ(t.Delivered({0, 10, 20, 30, 40}), 0u);
    EXPECT_EQ(t.Pedometer().History()->LatestSample().Pedometer.runningStepCount, 30u);

    ASSERT_EQ(t.Threshold(UInt(0)).status, STATUS_SUCCESS);  // every sample
    std::vector<cx::Sample> samples = t.Feed(t.Report({7, 12, 0xFFFFFFFF, 3, 0x80000000}));
    ASSERT_EQ(samples.size(), 1u);
    EXPECT_EQ(Lines(samples[0].values),
              (std::vector<std::string>{TimestampLine(kStartTicks), Data(143, "BOOL true"), Data(140, "UI4 1"),
                                        Data(141, "UI4 0"), Data(142, "I8 0"), Data(140, "UI4 2"),
                                        Data(141, "UI4 12"), Data(142, "I8 -1"), Data(140, "UI4 4"),
                                        Data(141, "UI4 3"), Data(142, "I8 -2147483648")}));
    const PedometerRecord latest = t.Pedometer().History()->LatestSample().Pedometer;
    EXPECT_EQ(latest.resetFlag, 1u);
    EXPECT_EQ(latest.walkingStepDuration, -1);

    // A float value is neither taken nor counted: five unsigned ones are needed.
    PedometerSensor& pedometer = t.Pedometer();
    const PROPVARIANT asFloat = Float(99.0f);
    const PROPVARIANT asUInt = UInt(5);
    const PROPERTYKEY value2 = CustomKey(8);
    const PROPERTYKEY value6 = CustomKey(12);
    pedometer.UpdateDataField(&value2, &asFloat);
    pedometer.UpdateDataField(&value6, &asUInt);
    EXPECT_EQ(pedometer.PropertyCache()->PendingFieldCount, 0u);
    for (int i = 0; i < 4; ++i)
        pedometer.UpdateDataField(&value2, &asUInt);
    EXPECT_EQ(t.samples->Size(), 0u);
    pedometer.UpdateDataField(&value2, &asUInt);
    ASSERT_EQ(t.samples->Size(), 1u);
    EXPECT_EQ(Lines(t.samples->Pop()->values)[6], Data(141, "UI4 5"));
}

TEST(Pedometer, FilteredDeliveryFollowsTheThresholdRule)
{
    struct Case {
        const char* what;
        Steps previous;
        Steps current;
        bool delivered;
    };
    const Case cases[] = {
        {"crosses", {0, 90, 0, 5, 0}, {0, 100, 0, 5, 0}, true},
        {"already above", {0, 100, 0, 0, 0}, {0, 100, 0, 10, 0}, false},
        {"still below", {0, 50, 0, 0, 0}, {0, 99, 0, 0, 0}, false},
        {"reaches exactly", {0, 99, 0, 0, 0}, {0, 0, 0, 100, 0}, true},
        {"goes down", {0, 150, 0, 0, 0}, {0, 20, 0, 0, 0}, false},
        {"reset flag", {0, 10, 0, 0, 0}, {1, 10, 0, 0, 0}, true},
        {"current sum overflows", {0, 10, 0, 0, 0}, {0, 0xFFFFFFF0, 0, 0x20, 0}, true},
        {"previous sum overflows", {0, 0xFFFFFFF0, 0, 0x20, 0}, {0, 1, 0, 0, 0}, true},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        PedometerBed t;
        ASSERT_EQ(t.Threshold(UInt(100)).status, STATUS_SUCCESS);
        EXPECT_EQ(t.Rec().modeFlags.load(), 1u);
        // The first sample after registration is forced out.
        EXPECT_EQ(t.Delivered({}), 1u);
        t.Delivered(c.previous);
        EXPECT_EQ(t.Delivered(c.current), c.delivered ? 1u : 0u);
    }
}

TEST(Pedometer, StartAndSetDataIntervalForceTheNextFilteredSample)
{
    PedometerBed t;
    ASSERT_EQ(t.Threshold(UInt(1000)).status, STATUS_SUCCESS);
    EXPECT_EQ(t.Delivered({0, 1, 0, 0, 0}), 1u);
    EXPECT_EQ(t.Delivered({0, 2, 0, 0, 0}), 0u);
    ASSERT_EQ(t.client->Start(0).status, STATUS_SUCCESS);
    EXPECT_EQ(t.Delivered({0, 3, 0, 0, 0}), 1u);
    EXPECT_EQ(t.Delivered({0, 4, 0, 0, 0}), 0u);
    ASSERT_EQ(t.client->SetDataInterval(0, 200).status, STATUS_SUCCESS);
    EXPECT_EQ(t.Delivered({0, 5, 0, 0, 0}), 1u);
    EXPECT_EQ(t.Delivered({0, 6, 0, 0, 0}), 0u);
    // Stop clears both delivery modes: nothing goes out, even a reset.
    ASSERT_EQ(t.client->Stop(0).status, STATUS_SUCCESS);
    EXPECT_EQ(t.Delivered({1, 2000, 0, 0, 0}), 0u);
}

TEST(Pedometer, StepThresholdFromEachValueType)
{
    PedometerBed t;
    PROPVARIANT asDouble{};
    asDouble.vt = VT_R8;
    asDouble.dblVal = 50.0;
    struct Case {
        const char* what;
        PROPVARIANT value;
        ULONG threshold;
        ULONG mode;
    };
    const Case cases[] = {
        {"float truncated", Float(2.9f), 2, 1},
        {"unsigned", UInt(40), 40, 1},
        {"another type keeps the threshold", asDouble, 40, 1},
        {"zero: every sample", UInt(0), 0, 2},
        {"float below one", Float(0.75f), 0, 2},
        {"another type keeps zero", asDouble, 0, 2},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        EXPECT_EQ(t.Threshold(c.value).status, STATUS_SUCCESS);
        EXPECT_EQ(t.Pedometer().History()->stepThreshold.load(), c.threshold);
        EXPECT_EQ(t.Rec().modeFlags.load(), c.mode);
        EXPECT_EQ(Lines(*t.client->GetDataThresholds(0).list),
                  (std::vector<std::string>{Data(141, "UI4 " + std::to_string(c.threshold))}));
    }
    // Other keys are ignored, and nothing reached the device.
    const std::size_t before = t.bed.Traffic().size();
    EXPECT_EQ(t.client->SetDataThresholds(0, ValueList({{DataKey(161), UInt(9)}})).status, STATUS_SUCCESS);
    EXPECT_EQ(t.Pedometer().History()->stepThreshold.load(), 0u);
    EXPECT_EQ(t.bed.Traffic().size(), before);
}

TEST(Pedometer, EachOperationLeavesTheDeviceSettingsOfItsMode)
{
    // Start from a device that reports nothing, in low power.
    const Settings idle{0, 2, 100, 50, 0, 0, 0};
    struct Case {
        const char* what;
        std::function<void(PedometerBed&)> steps;
        Settings expected;
    };
    auto threshold = [](ULONG t) { return [t](PedometerBed& b) { b.Threshold(UInt(t)); }; };
    auto both = [](std::function<void(PedometerBed&)> a, std::function<void(PedometerBed&)> b) {
        return [a, b](PedometerBed& bed) { a(bed), b(bed); };
    };
    auto start = [](PedometerBed& b) { EXPECT_EQ(b.client->Start(0).status, STATUS_SUCCESS); };
    auto stop = [](PedometerBed& b) { EXPECT_EQ(b.client->Stop(0).status, STATUS_SUCCESS); };
    auto startHistory = [](PedometerBed& b) { EXPECT_EQ(b.client->StartHistory(0).status, STATUS_SUCCESS); };
    auto stopHistory = [](PedometerBed& b) { EXPECT_EQ(b.client->StopHistory(0).status, STATUS_SUCCESS); };
    auto interval = [](ULONG ms) { return [ms](PedometerBed& b) { b.client->SetDataInterval(0, ms); }; };
    const Case cases[] = {
        {"start, threshold 3", both(threshold(3), start), {1, 1, 50, 50, 0, 14, 0}},
        {"start, threshold 3, recording", both(both(threshold(3), startHistory), start), {1, 1, 100, 50, 0, 0, 0}},
        {"start, no threshold", both(interval(250), start), {1, 1, 250, 50, 0, 0, 0}},
        {"stop while recording", both(both(startHistory, both(threshold(3), start)), stop),
         {1, 1, 60000, 50, 3600000, 5, 0}},
        {"stop, threshold 3", both(both(threshold(3), start), stop), {0, 2, 100, 50, 0, 14, 0}},
        {"start history, filtered", both(both(threshold(3), start), startHistory), {1, 1, 100, 50, 0, 0, 0}},
        {"start history, every sample", both(both(interval(300), start), startHistory), {1, 1, 300, 50, 0, 0, 0}},
        {"start history, no client", startHistory, {1, 1, 60000, 50, 3600000, 5, 0}},
        {"stop history, filtered", both(both(threshold(3), start), both(startHistory, stopHistory)),
         {1, 1, 50, 50, 0, 14, 0}},
        {"stop history, every sample", both(both(interval(300), start), both(startHistory, stopHistory)),
         {1, 1, 300, 50, 0, 0, 0}},
        {"stop history, no client", both(startHistory, stopHistory), {0, 2, 60000, 50, 3600000, 5, 0}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        PedometerBed t(idle);
        c.steps(t);
        EXPECT_EQ(t.Device(), c.expected);
    }
}

TEST(Pedometer, ClearHistoryPulsesThePedometerReset)
{
    PedometerBed t;
    ASSERT_EQ(t.client->StartHistory(0).status, STATUS_SUCCESS);
    const std::size_t before = t.bed.Traffic().size();
    ASSERT_EQ(t.client->ClearHistory(0).status, STATUS_SUCCESS);
    std::vector<std::uint32_t> resets;
    const std::vector<host::hidsim::TrafficEvent> traffic = t.bed.Traffic();
    for (std::size_t i = before; i < traffic.size(); ++i)
        if (traffic[i].kind == TrafficKind::SetFeature)
            resets.push_back(GetLittleEndian(traffic[i].bytes, kResetOffset, 4));
    // Two write-backs of five writes each (interval, batch interval,
    // sensitivity, vendor values, reporting and power state): the vendor
    // write of the first sets the reset, that of the second clears it.
    EXPECT_EQ(resets, (std::vector<std::uint32_t>{0, 0, 0, 1, 1, 1, 1, 1, 0, 0}));
    EXPECT_EQ(t.Device().reset, 0u);
}

TEST(Pedometer, MinimumRaisedAboveTheRequestedIntervalGivesTheDefault)
{
    PedometerBed t;
    ASSERT_EQ(t.client->SetDataInterval(0, 200).status, STATUS_SUCCESS);
    EXPECT_EQ(t.client->GetDataInterval(0).ms, 200u);
    Settings raised = t.Device();
    raised.minimum = 300;
    t.bed.Sim().SetFeature(kReportId, FeatureOf(raised));
    EXPECT_EQ(t.client->GetDataInterval(0).ms, 100u);
    EXPECT_EQ(t.Pedometer().History()->requestedInterval.load(), 100u);
    EXPECT_EQ(t.client->SetDataInterval(0, 299).status, STATUS_UNSUCCESSFUL);
}

TEST(Pedometer, HistoryRecordsCarryTheResetFlagAndRetrieveInOrder)
{
    PedometerBed t;
    ASSERT_EQ(t.client->StartHistory(0).status, STATUS_SUCCESS);
    t.Delivered({5, 10, 1000, 0, 0});
    t.bed.Host().Advance(60000);
    t.Delivered({0, 20, 2000, 1, 100});
    t.bed.Host().Advance(60000);
    ASSERT_EQ(t.client->StartHistoryRetrieval(0, 2 * 528 + 8).status, STATUS_SUCCESS);
    const auto completion = t.client->WaitHistoryRetrieval(0, std::chrono::milliseconds(1000));
    ASSERT_TRUE(completion.has_value());
    EXPECT_EQ(completion->status, STATUS_SUCCESS);
    const std::vector<std::string> lines = Lines(completion->list);
    ASSERT_EQ(lines.size(), 22u);
    EXPECT_EQ(lines[0], TimestampLine(kStartTicks));
    EXPECT_EQ(lines[1], Data(143, "BOOL true"));
    EXPECT_EQ(lines[6], Data(141, "UI4 10"));
    EXPECT_EQ(lines[7], Data(142, "I8 1000"));
    EXPECT_EQ(lines[11], TimestampLine(kStartTicks + 60000 * 10'000));
    EXPECT_EQ(lines[12], Data(143, "BOOL false"));
    EXPECT_EQ(lines[20], Data(141, "UI4 1"));
    EXPECT_EQ(lines[21], Data(142, "I8 100"));
}

TEST(Pedometer, WrongHandlesAndAbsentArguments)
{
    PedometerBed t;
    const cx::CallOptions impostor{.otherHandle = true};
    const cx::CallOptions noOutput{.nullOutput = true};
    const cx::CollectionListCopy list = ValueList({{kStepCount, UInt(5)}});
    ExpectStatuses(t, {
        {"start", [&] { return t.client->Start(0, impostor); }, STATUS_UNSUCCESSFUL},
        {"stop", [&] { return t.client->Stop(0, impostor); }, STATUS_UNSUCCESSFUL},
        {"get interval", [&] { return t.client->GetDataInterval(0, impostor); }, STATUS_UNSUCCESSFUL},
        {"set interval", [&] { return t.client->SetDataInterval(0, 500, impostor); }, STATUS_UNSUCCESSFUL},
        {"get thresholds", [&] { return t.client->GetDataThresholds(0, {}, impostor); }, STATUS_UNSUCCESSFUL},
        {"set thresholds", [&] { return t.client->SetDataThresholds(0, list, impostor); }, STATUS_UNSUCCESSFUL},
        {"field properties", [&] { return t.client->GetDataFieldProperties(0, &kStepCount, {}, impostor); },
         STATUS_UNSUCCESSFUL},
        {"start history", [&] { return t.client->StartHistory(0, impostor); }, STATUS_INVALID_PARAMETER},
        {"stop history", [&] { return t.client->StopHistory(0, impostor); }, STATUS_INVALID_PARAMETER},
        {"clear history", [&] { return t.client->ClearHistory(0, impostor); }, STATUS_INVALID_PARAMETER},
        {"retrieval", [&] { return t.client->StartHistoryRetrieval(0, 536, impostor); }, STATUS_INVALID_PARAMETER},
        {"cancel", [&] { return t.client->CancelHistoryRetrieval(0, impostor); }, STATUS_INVALID_PARAMETER},
        {"no interval output", [&] { return t.client->GetDataInterval(0, noOutput); }, STATUS_INVALID_PARAMETER},
        {"no thresholds", [&] { return t.client->SetDataThresholds(0, list, noOutput); }, STATUS_INVALID_PARAMETER},
        {"no thresholds size", [&] { return t.client->GetDataThresholds(0, cx::ListBuffer::SizeQuery(), noOutput); },
         STATUS_INVALID_PARAMETER},
        {"no field key", [&] { return t.client->GetDataFieldProperties(0, nullptr); }, STATUS_INVALID_PARAMETER},
        {"field properties one byte short",
         [&] { return t.client->GetDataFieldProperties(0, &kStepCount, cx::ListBuffer::OfBytes(151)); },
         STATUS_INSUFFICIENT_RESOURCES},
        {"interval below the minimum", [&] { return t.client->SetDataInterval(0, 49); }, STATUS_UNSUCCESSFUL},
    });
    EXPECT_EQ(t.Pedometer().History()->stepThreshold.load(), 0u);
    EXPECT_EQ(t.Rec().modeFlags.load(), 0u);
}

// A pedometer lifecycle with history, whatever each step returns.
void PedometerCycle(DriverTestBed& bed)
{
    if (!NT_SUCCESS(bed.Prepare()))
        return;
    bed.Start();
    {
        cx::Client client(bed.Host().Device());
        // A failure while classifying makes a plain custom sensor, whose
        // history operations answer success and do nothing.
        if (client.SensorCount() == 1 && dynamic_cast<PedometerSensor*>(bed.Sensor(1)) != nullptr) {
            client.SetDataThresholds(0, ValueList({{kStepCount, UInt(3)}}));
            client.Start(0);
            client.StartHistory(0);
            const auto report = [&](std::uint32_t walking) {
                return InputReport(*bed.Hid(), kReportId, {0, walking, 100, 0, 0}, {4, 4, 4, 4, 4});
            };
            bed.Feed(report(2));
            bed.Host().Advance(1000);
            bed.Feed(report(5));
            bed.Host().Advance(1000);
            client.GetDataThresholds(0);
            client.StartHistoryRetrieval(0, 536);
            client.WaitHistoryRetrieval(0, std::chrono::milliseconds(1000));
            client.ClearHistory(0);
            client.StartHistoryRetrieval(0, 2000);
            client.CancelHistoryRetrieval(0);
            client.Stop(0);
            client.StartHistoryRetrieval(0, 2000);  // left running for release-hardware
        }
    }
    bed.Stop();
    bed.Host().ReleaseHardware();
}

TEST(PedometerFaultSweep, EveryDriverCallOfALifecycleFailsInTurnAndTheDriverEndsClean)
{
    SweepEveryDriverCall(
        [] {
            auto bed = std::make_unique<DriverTestBed>(PedometerDevice(), &SensorFactory::Default());
            bed->Host().Registry().Preload("KPX_PedometerSensor", "HistorySampleReportInterval", 1000);
            return bed;
        },
        PedometerCycle);
}

}  // namespace
}  // namespace testdriver
