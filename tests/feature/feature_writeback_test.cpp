// The write-back of ReadFeatureReport: the bytes of every SET_FEATURE, the
// round trips, and the record following the device's read-back.
#include <gtest/gtest.h>

#include "host/common/fault_injection.h"
#include "tests/feature/feature_test_bed.h"

namespace featuretest {
namespace {

using hs::Modified;
using hs::Property;
using Traffic = std::vector<std::string>;

const hs::ValueField kBatchInterval = Property(0x530E, 32, 0, 0xFFFFFFFF);

// Reporting and power state selectors, report interval, a 2-character
// description and the batch interval: "01 RR PP | interval | text | batch".
hs::SensorShape SelectorSensor()
{
    hs::SensorShape shape = hs::CustomSensor(2, {});
    shape.features.push_back(kBatchInterval);
    return shape;
}

TEST(FeatureWriteBack, ReportingAndPowerSelectorsFollowTheRequest)
{
    const std::string tail = " 64 00 00 00 31 00 32 00 00 00 00 00";
    FeatureBed bed(SelectorSensor(), ReportBytes(1).U8(1).U8(1).U32(100).Text(u"12", 2).U32(0));
    ASSERT_TRUE(bed.Ready());
    struct Case {
        ULONG reporting, power;
        std::string selectors;  // what the last SET carries
    };
    const Case cases[] = {
        {0, 1, "01 00 02"},  // stop: no events (0x840), low power (0x852)
        {1, 2, "01 01 01"},  // start: all events (0x841), full power (0x851)
        {0, 0, "01 00 05"},  // power off: 0x855
        {7, 9, "01 00 05"},  // requests the device has no selector for leave both alone
    };
    std::string current = "01 00 05";  // Initialize wrote the requests of a new sensor: none, off
    for (const Case& c : cases) {
        SCOPED_TRACE(c.selectors);
        bed.Record().RequestedReportingState = c.reporting;
        bed.Record().RequestedPowerState = c.power;
        bed.Record().SettingsApplied = 0;
        // Interval and batch interval each cost a round trip, unchanged; the
        // states go last.
        const std::string before = current + tail;
        const std::string after = c.selectors + tail;
        EXPECT_EQ(bed.Read(0), (Traffic{"get " + before, "set " + before, "get " + before, "set " + before,
                                         "get " + before, "set " + after, "get " + after}));
        EXPECT_EQ(bed.Record().SettingsApplied.load(), 1u);
        current = c.selectors;
    }
}

TEST(FeatureWriteBack, ReportingAndPowerValues)
{
    hs::SensorShape shape;
    shape.features = {Property(0x316, 8, 0, 5), Property(0x319, 8, 0, 5), kBatchInterval};
    FeatureBed bed(shape, ReportBytes(1).U8(0).U8(0).U32(0));
    ASSERT_TRUE(bed.Ready());
    struct Case {
        ULONG reporting, power;
        std::string sent;
    };
    const Case cases[] = {
        {1, 2, "01 01 01 00 00 00 00"},
        {0, 1, "01 00 02 00 00 00 00"},
        {0, 0, "01 00 05 00 00 00 00"},
        {1, 3, "01 01 05 00 00 00 00"},  // an undefined power request leaves the field as it was
    };
    for (const Case& c : cases) {
        bed.Record().RequestedReportingState = c.reporting;
        bed.Record().RequestedPowerState = c.power;
        const Traffic traffic = bed.Read(0);
        ASSERT_EQ(traffic.size(), 5u);
        EXPECT_EQ(traffic[3], "set " + c.sent);
        EXPECT_EQ(traffic[4], "get " + c.sent);
    }
}

// Interval 100 by default; the device keeps what its rule allows and the record follows.
TEST(FeatureWriteBack, RecordFollowsTheIntervalTheDeviceKept)
{
    struct Case {
        const char* what;
        ULONG current;
        DeviceRule rule;
        Traffic expected;
        ULONG kept;
    };
    const Case cases[] = {
        {"kept as sent", 0, DeviceRule::Clamp(0x30E, 0, 1000),
         {"get 01 64 00 00 00", "set 01 64 00 00 00", "get 01 64 00 00 00"}, 100},
        // An answer that differs from the report sent is asked for twice.
        {"clamped", 0, DeviceRule::Clamp(0x30E, 10, 96),
         {"get 01 64 00 00 00", "set 01 64 00 00 00", "get 01 60 00 00 00", "set 01 64 00 00 00",
          "get 01 60 00 00 00"},
         96},
        {"rounded", 50, DeviceRule::Round(0x30E, 8),
         {"get 01 64 00 00 00", "set 01 32 00 00 00", "get 01 30 00 00 00", "set 01 32 00 00 00",
          "get 01 30 00 00 00"},
         48},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        hs::SensorShape shape;
        shape.features = {hs::ReportIntervalProperty()};
        FeatureBed bed(shape, ReportBytes(1).U32(100));
        ASSERT_TRUE(bed.Ready());
        bed.Record().CurrentReportInterval = c.current;
        bed.Rules({c.rule});
        NTSTATUS status = 1;
        EXPECT_EQ(bed.Read(0, &status), c.expected);
        EXPECT_EQ(status, STATUS_SUCCESS);
        EXPECT_EQ(bed.Record().CurrentReportInterval.load(), c.kept);
        EXPECT_EQ(bed.Cache().ReportInterval.Get(), c.kept);
    }
}

TEST(FeatureWriteBack, IntervalUnitsAreCheckedBeforeAnythingIsSent)
{
    struct Case {
        std::uint32_t unit;
        Traffic expected;
        ULONG cached;
    };
    const Case cases[] = {
        {0x19, {"get 01 64 00 00 00", "set 01 32 00 00 00", "get 01 32 00 00 00"}, 50},
        {0x1001, {"get 01 64 00 00 00"}, 0},
    };
    for (const Case& c : cases) {
        hs::SensorShape shape;
        shape.features = {WithUnit(hs::ReportIntervalProperty(), c.unit)};
        FeatureBed bed(shape, ReportBytes(1).U32(100));
        ASSERT_TRUE(bed.Ready());
        bed.Record().CurrentReportInterval = 50;
        EXPECT_EQ(bed.Read(0), c.expected) << std::hex << c.unit;
        EXPECT_EQ(bed.Cache().ReportInterval.Get(), c.cached);
        EXPECT_EQ(bed.Record().CurrentReportInterval.load(), 50u);
    }
}

// What the device answers to the SET_FEATURE + GET_FEATURE of one write.
TEST(FeatureWriteBack, SendAttemptsAndAnswers)
{
    const std::string sent = "01 64 00 00 00";
    struct Case {
        const char* what;
        std::vector<DeviceRule> rules;
        Traffic afterFetch;
        ULONG recordInterval;
    };
    const Case cases[] = {
        // A refused SET leaves the answer buffer as sent, which matches: no retry.
        {"set fails", {DeviceRule::Fail(RuleTrigger::SetFeature, STATUS_IO_DEVICE_ERROR).Times(1)},
         {"set " + sent + " ! 0xC0000185"}, 0},
        {"set fails always", {DeviceRule::Fail(RuleTrigger::SetFeature, STATUS_IO_DEVICE_ERROR)},
         {"set " + sent + " ! 0xC0000185"}, 0},
        {"another report ID once", {DeviceRule::AnswerReportId(RuleTrigger::SetFeature, 2).Times(1)},
         {"set " + sent, "get 02 64 00 00 00", "set " + sent, "get " + sent}, 100},
        {"another report ID twice", {DeviceRule::AnswerReportId(RuleTrigger::SetFeature, 2).Times(2)},
         {"set " + sent, "get 02 64 00 00 00", "set " + sent, "get 02 64 00 00 00"}, 0},
        {"zeros once", {DeviceRule::Zeros(RuleTrigger::SetFeature).Times(1)},
         {"set " + sent, "get 00 00 00 00 00", "set " + sent, "get " + sent}, 100},
        // After a real first answer, an empty second one is taken as it stands;
        // two empty answers are no read-back: the write counts as failed.
        {"another report ID, then zeros",
         {DeviceRule::AnswerReportId(RuleTrigger::SetFeature, 2).Times(1),
          DeviceRule::Zeros(RuleTrigger::SetFeature).Times(1)},
         {"set " + sent, "get 02 64 00 00 00", "set " + sent, "get 00 00 00 00 00"}, 100},
        {"zeros twice", {DeviceRule::Zeros(RuleTrigger::SetFeature).Times(2)},
         {"set " + sent, "get 00 00 00 00 00", "set " + sent, "get 00 00 00 00 00"}, 0},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        hs::SensorShape shape;
        shape.features = {hs::ReportIntervalProperty()};
        FeatureBed bed(shape, ReportBytes(1).U32(100));
        ASSERT_TRUE(bed.Ready());
        bed.Record().CurrentReportInterval = 0;
        bed.Rules(c.rules);
        Traffic expected = {"get " + sent};
        expected.insert(expected.end(), c.afterFetch.begin(), c.afterFetch.end());
        EXPECT_EQ(bed.Read(0), expected);
        EXPECT_EQ(bed.Record().CurrentReportInterval.load(), c.recordInterval);
    }
}

// The answer is compared with the report sent over the report ID and the whole
// bytes of its fields: a narrower field that the device adjusts is read back
// without a second attempt.
TEST(FeatureWriteBack, CompareLengthCoversWholeBytesOfValueFields)
{
    struct Case {
        std::uint8_t bitSize;
        Traffic sensitivity;
    };
    const Case cases[] = {
        {4, {"set 01 64 09", "get 01 64 03"}},
        {8, {"set 01 64 09", "get 01 64 03", "set 01 64 09", "get 01 64 03"}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(static_cast<int>(c.bitSize));
        hs::SensorShape shape;
        shape.features = {hs::ReportIntervalProperty(8), Property(Modified(0x544, 0x1000), c.bitSize, 0, 15)};
        if (c.bitSize == 4)
            shape.features.push_back(Property(0xF029, 4, 0, 15));  // fills the byte; read-only vendor value
        FeatureBed bed(shape, ReportBytes(1).U8(100).U8(2));
        ASSERT_TRUE(bed.Ready());
        bed.SeeField(1, 9.0f);
        bed.Rules({DeviceRule::Clamp(Modified(0x544, 0x1000), 0, 3)});
        Traffic expected = {"get 01 64 02", "set 01 64 02", "get 01 64 02"};
        expected.insert(expected.end(), c.sensitivity.begin(), c.sensitivity.end());
        expected.insert(expected.end(), {"set 01 64 03", "get 01 64 03"});
        EXPECT_EQ(bed.Read(1), expected);
        EXPECT_EQ(bed.Cache().FieldChangeSensitivity[1].Get(), 3.0f);
    }
}

TEST(FeatureWriteBack, FieldSensitivityFromTheThreshold)
{
    struct Case {
        const char* what;
        hs::ValueField field;
        float threshold;
        std::string fetched, written;
        float readBack;
    };
    const Case cases[] = {
        {"0.5 with exponent -2", Property(Modified(0x544, 0x1000), 16, 0, 0xFFFF, -2), 0.5f, "01 64 00",
         "01 32 00", 0.5f},
        {"-1 into 8 bits", Property(Modified(0x544, 0x1000), 8, -127, 127), -1.0f, "01 05", "01 FF", -1.0f},
        // Relative percent has no cache entry of its own: halves round up, nothing is read back.
        {"relative percent", Property(Modified(0x544, 0xE000), 8, 0, 100), 12.5f, "01 05", "01 0D", 0.0f},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        hs::SensorShape shape;
        shape.features = {c.field};
        FeatureBed bed(shape, c.field.bitSize == 8 ? Bytes(ReportBytes(1).U8(5)) : Bytes(ReportBytes(1).U16(100)));
        ASSERT_TRUE(bed.Ready());
        bed.SeeField(1, c.threshold);

        // Without writeSettings the sensitivity is not written; the states still are.
        EXPECT_EQ(bed.Read(0), (Traffic{"get " + c.fetched, "set " + c.fetched, "get " + c.fetched}));
        EXPECT_EQ(bed.Read(1), (Traffic{"get " + c.fetched, "set " + c.written, "get " + c.written,
                                        "set " + c.written, "get " + c.written}));
        EXPECT_FLOAT_EQ(bed.Cache().FieldChangeSensitivity[1].Get(), c.readBack);
    }
}

TEST(FeatureWriteBack, CollectionWideSensitivityTakesEverySeenFieldInTurn)
{
    hs::SensorShape shape;
    shape.features = {Property(Modified(0x543, 0x1000), 16, 0, 0xFFFF)};
    FeatureBed bed(shape, ReportBytes(1).U16(5));
    ASSERT_TRUE(bed.Ready());
    bed.SeeField(1, 1.0f);
    bed.SeeField(2, 2.0f);
    EXPECT_EQ(bed.Read(1), (Traffic{"get 01 05 00", "set 01 01 00", "get 01 01 00", "set 01 02 00", "get 01 02 00",
                                    "set 01 02 00", "get 01 02 00"}));
    EXPECT_EQ(bed.Cache().FieldChangeSensitivity[0].Get(), 2.0f);
}

TEST(FeatureWriteBack, FieldAndCollectionWideSensitivityEachCostARoundTrip)
{
  {
    hs::SensorShape shape;
    shape.features = {Property(Modified(0x544, 0x1000), 8, 0, 255), Property(Modified(0x543, 0x1000), 8, 0, 255),
                     Property(0x30F, 8, 0, 255)};
    FeatureBed bed(shape, ReportBytes(1).U8(1).U8(2).U8(3));
    ASSERT_TRUE(bed.Ready());
    bed.SeeField(1, 9.0f);
    EXPECT_EQ(bed.Read(1), (Traffic{"get 01 01 02 03", "set 01 09 02 03", "get 01 09 02 03", "set 01 09 09 03",
                                    "get 01 09 09 03", "set 01 09 09 09", "get 01 09 09 09", "set 01 09 09 09",
                                    "get 01 09 09 09"}));
    EXPECT_EQ(bed.Cache().FieldChangeSensitivity[1].Get(), 9.0f);
    // With the field's own entry present, the collection-wide field reads back into it.
    EXPECT_EQ(bed.Cache().FieldChangeSensitivity[0].Get(), 2.0f);
    EXPECT_EQ(bed.Cache().ChangeSensitivity.Get(), 9.0f);
  }

    // A sensor-wide sensitivity with units stops the step before it is written;
    // the bound refresh after it succeeds, so the states are still written.
    hs::SensorShape withUnits;
    withUnits.features = {Property(Modified(0x544, 0x1000), 8, 0, 255), WithUnit(Property(0x30F, 8, 0, 255), 0x19)};
    FeatureBed second(withUnits, ReportBytes(1).U8(1).U8(3));
    ASSERT_TRUE(second.Ready());
    second.SeeField(1, 4.0f);
    EXPECT_EQ(second.Read(1),
              (Traffic{"get 01 01 03", "set 01 04 03", "get 01 04 03", "set 01 04 03", "get 01 04 03"}));
}

TEST(FeatureWriteBack, BoundRefreshWithUnitsFailsAndSkipsTheStates)
{
    struct Case {
        std::uint32_t unit;
        std::size_t requests;
    };
    // Batch interval, then (with a good status) the states.
    for (const Case& c : {Case{0, 5}, Case{0x19, 3}}) {
        hs::SensorShape shape;
        shape.features = {kBatchInterval, WithUnit(Property(0x313, 8, 0, 255), c.unit),
                         WithUnit(Property(Modified(0x544, 0x2000), 8, 0, 255), 0x19), Property(0x314, 8, 0, 255)};
        FeatureBed bed(shape, ReportBytes(1).U32(0).U8(1).U8(50).U8(60));
        ASSERT_TRUE(bed.Ready());
        bed.SeeField(1, 0.0f);
        EXPECT_EQ(bed.Read(0).size(), c.requests) << c.unit;
        EXPECT_EQ(bed.Cache().FieldMaximum[1].IsPresent(), 0u);
        EXPECT_EQ(bed.Cache().FieldMaximum[1].Get(), 0.0f);
        EXPECT_EQ(bed.Cache().Maximum.Get(), 60.0f);
    }
}

TEST(FeatureWriteBack, VendorValuesOnlyWithWriteSettingsAndOnlyWhenChanged)
{
    hs::SensorShape shape;
    shape.features = {Property(0xF02A, 8, 0, 255), Property(0xF03D, 8, 0, 255), Property(0xF08E, 8, 0, 255)};
    FeatureBed bed(shape, ReportBytes(1).U8(127).U8(0).U8(0));
    ASSERT_TRUE(bed.Ready());
    SensorPropertyCache& cache = bed.Cache();
    cache.RequestedVendorValues[static_cast<ULONG>(RequestedVendor::GflickClsmask)] = kVendorLeaveAlone;
    cache.RequestedVendorValues[static_cast<ULONG>(RequestedVendor::PedoReset)] = 1;

    // No batch-interval field: without vendor writes the states are not written either.
    EXPECT_EQ(bed.Read(0), (Traffic{"get 01 7F 00 00"}));
    // 0xF02A is already 127, 0xF03D is left alone: the reset alone is written.
    EXPECT_EQ(bed.Read(1), (Traffic{"get 01 7F 00 00", "set 01 7F 00 01", "get 01 7F 00 01", "set 01 7F 00 01",
                                    "get 01 7F 00 01"}));
    EXPECT_EQ(cache.VendorValues[VendorValueIndex(0xF08E)].Get(), 1);
    // Again with the device at 1: nothing to write, the states still go.
    EXPECT_EQ(bed.Read(1), (Traffic{"get 01 7F 00 01", "set 01 7F 00 01", "get 01 7F 00 01"}));
}


// A real custom sensor (HUTRR39 example): no report ID, connection type,
// reporting, power and sensor state selectors, the interval, and sensitivity
// and bounds of the custom-data group (0x1540, 0x2540, 0x3540), which are no
// data field of the driver's and are left alone.
TEST(FeatureWriteBack, RealCustomSensorStopsAndStarts)
{
    const Bytes report = ReportBytes(0).U8(1).U8(1).U8(1).U8(2).U32(100).U16(50).U16(10000).U16(0xD8F0);
    FeatureBed bed(HidDeviceConfig{}.WithDescriptor(testdriver::LoadDescriptor("hutrr39-cus4")).WithFeature(0, report));
    ASSERT_TRUE(bed.Ready());
    ASSERT_TRUE(bed.Bed().Sim().SetFeature(0, report));
    const std::string values = " 64 00 00 00 32 00 10 27 F0 D8";
    const std::string running = "00 01 01 01 02" + values;
    const std::string stopped = "00 01 00 02 02" + values;

    // Without a batch-interval field and without seen data fields the interval is all that is written.
    EXPECT_EQ(bed.Read(0), (Traffic{"get " + running, "set " + running, "get " + running}));
    const SensorPropertyCache& cache = bed.Cache();
    EXPECT_EQ(cache.ConnectionTypeSelector.Get(), 1u);
    EXPECT_EQ(cache.ReportingStateSelector.Get(), 2u);
    EXPECT_EQ(cache.PowerStateSelector.Get(), 2u);
    EXPECT_EQ(cache.SensorStateSelector.Get(), 3u);
    EXPECT_EQ(cache.ReportInterval.Get(), 100u);
    EXPECT_EQ(cache.FieldChangeSensitivity[0].IsPresent(), 0u);

    // With custom value 1 seen, the bound refresh lets the states through.
    bed.SeeField(1, 0.25f);
    bed.Record().RequestedReportingState = 0;
    bed.Record().RequestedPowerState = 1;
    EXPECT_EQ(bed.Read(1), (Traffic{"get " + running, "set " + running, "get " + running, "set " + stopped,
                                    "get " + stopped}));
    bed.Record().RequestedReportingState = 1;
    bed.Record().RequestedPowerState = 2;
    EXPECT_EQ(bed.Read(0), (Traffic{"get " + stopped, "set " + stopped, "get " + stopped, "set " + running,
                                    "get " + running}));
}


TEST(FeatureWriteBack, AllocationFailures)
{
    hs::SensorShape shape;
    shape.features = {hs::ReportIntervalProperty(8)};
    FeatureBed bed(shape, ReportBytes(1).U8(100));
    ASSERT_TRUE(bed.Ready());
    bed.Record().CurrentReportInterval = 50;
    // The report buffer: nothing is fetched.
    host::FaultInjector::Instance().FailNth(host::FaultPoint::DriverHeap, 1, 0);
    NTSTATUS status = 0;
    EXPECT_TRUE(bed.Read(0, &status).empty());
    EXPECT_EQ(status, STATUS_NO_MEMORY);
    // A send buffer: the write fails before anything is sent; the record keeps its interval.
    host::FaultInjector::Instance().FailNth(host::FaultPoint::DriverHeap, 2, 0);
    EXPECT_EQ(bed.Read(0, &status), (Traffic{"get 01 64"}));
    EXPECT_EQ(status, STATUS_SUCCESS);
    EXPECT_EQ(bed.Cache().ReportInterval.Get(), 50u);
    EXPECT_EQ(bed.Record().CurrentReportInterval.load(), 50u);
    host::FaultInjector::Instance().Reset();
    EXPECT_EQ(bed.Read(0), (Traffic{"get 01 64", "set 01 32", "get 01 32"}));
}

}  // namespace
}  // namespace featuretest
