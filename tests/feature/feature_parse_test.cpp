// Parsing a custom sensor's feature report into its SensorPropertyCache.
#include <gtest/gtest.h>

#include "feature/feature_report.h"
#include "tests/feature/feature_test_bed.h"

namespace featuretest {
namespace {

using hs::Modified;
using hs::Property;

std::u16string Text(const CachedString& text)
{
    return std::u16string(text.Text);
}

// Parses the report without writing anything back.
NTSTATUS Parse(FeatureBed& bed)
{
    Bytes buffer(kMaxFeatureReportBytes, 0);
    FeatureReportContext context = MakeFeatureReportContext(bed.Sensor(), bed.Cache(), buffer.data(), 0);
    return FetchAndParseFeatureReport(context);
}

TEST(FeatureParse, StandardPropertiesVendorValuesAndSelectors)
{
    hs::SensorShape shape;
    shape.featureSelectors = {hs::ReportingStateSelector(), hs::PowerStateSelector(), hs::ConnectionTypeSelector()};
    shape.features = {
        Property(0x303, 8, 0, 255),
        Property(0x304, 16, 0, 0xFFFF),
        hs::ReportIntervalProperty(),
        Property(Modified(0x30E, 0x5000), 32, 0, 0xFFFFFFFF),  // lands in the report interval: the later wins
        Property(0x30F, 16, 0, 0xFFFF, -2),
        Property(0x314, 16, -32767, 32767, -1),
        Property(0x315, 16, -32767, 32767, -1),
        Property(0x316, 8, 0, 5),
        Property(0x319, 8, 0, 5),
        Property(0xF029, 16, -32768, 32767),
        Property(0xF02A, 8, 0, 255),
        Property(0xF08D, 16, -32768, 32767),
        hs::StringProperty(0x305, 8),
    };
    const Bytes report = ReportBytes(1)
                             .U8(4).U8(3).U8(2)  // selectors 0x844, 0x853, 0x832
                             .U8(5).U16(16).U32(100).U32(250).U16(1234).U16(256).U16(0xFF00)
                             .U8(1).U8(2).U16(0xFFFE).U8(127).U16(0x8000)
                             .Text(u"Orvex", 8);
    FeatureBed bed(shape, report);
    ASSERT_TRUE(bed.Ready());
    // Initialize wrote its settings back; the device states the report again.
    ASSERT_TRUE(bed.Bed().Sim().SetFeature(1, report));
    ASSERT_EQ(Parse(bed), STATUS_SUCCESS);
    const SensorPropertyCache& cache = bed.Cache();

    EXPECT_EQ(cache.ReportingStateSelector.Get(), 2u);
    EXPECT_EQ(cache.PowerStateSelector.Get(), 1u);  // D2 counts as D0
    EXPECT_EQ(cache.ConnectionTypeSelector.Get(), 2u);
    EXPECT_EQ(cache.SensorStatus.Get(), 5u);
    EXPECT_EQ(cache.MinimumReportInterval.Get(), 16u);
    EXPECT_EQ(bed.Record().MinimumReportInterval.load(), 16u);
    EXPECT_EQ(cache.ReportInterval.Get(), 250u);
    EXPECT_EQ(cache.ChangeSensitivity.Get(), 12.34f);
    EXPECT_EQ(cache.Maximum.Get(), static_cast<float>(256 * static_cast<double>(0.1f)));
    EXPECT_EQ(cache.Minimum.Get(), static_cast<float>(-256 * static_cast<double>(0.1f)));
    EXPECT_EQ(cache.ReportingState.Get(), 1u);
    EXPECT_EQ(cache.PowerState.Get(), 2u);
    EXPECT_EQ(cache.VendorF029.Get(), -2);
    EXPECT_EQ(cache.VendorValues[VendorValueIndex(0xF02A)].Get(), 127);
    EXPECT_EQ(cache.VendorValues[VendorValueIndex(0xF08D)].Get(), -32768);
    EXPECT_EQ(cache.VendorValues[VendorValueIndex(0xF03D)].IsPresent(), 0u);
    EXPECT_EQ(cache.Manufacturer.Present, 1u);
    EXPECT_EQ(Text(cache.Manufacturer), u"Orvex");
    EXPECT_EQ(cache.Model.Present, 0u);
    EXPECT_EQ(cache.Accuracy.IsPresent(), 0u);
    // Requested vendor values are the sensor kinds', not the device's.
    EXPECT_EQ(cache.RequestedVendorValues[static_cast<ULONG>(RequestedVendor::AltitudeFloorH)].load(), 450u);
}

TEST(FeatureParse, CollectionWideValueAndFieldSpecificValueInBothOrders)
{
    const USAGE wide = Modified(0x543, 0x1000);
    const USAGE first = Modified(0x544, 0x1000);
    struct Case {
        const char* what;
        USAGE a, b;
        std::uint32_t rawA, rawB;
        float slot1, slot2;
        ULONG slot1Present;
    };
    const Case cases[] = {
        // The collection-wide value read later replaces the values of every slot.
        {"field then wide", first, wide, 10, 25, 2.5f, 2.5f, 1},
        // A field-specific value read later keeps its own.
        {"wide then field", wide, first, 25, 10, 1.0f, 2.5f, 1},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        hs::SensorShape shape;
        shape.features = {Property(c.a, 16, 0, 0xFFFF, -1), Property(c.b, 16, 0, 0xFFFF, -1)};
        FeatureBed bed(shape, ReportBytes(1).U16(c.rawA).U16(c.rawB));
        ASSERT_TRUE(bed.Ready());
        ASSERT_EQ(Parse(bed), STATUS_SUCCESS);
        const SensorPropertyCache& cache = bed.Cache();
        EXPECT_FLOAT_EQ(cache.FieldChangeSensitivity[1].Get(), c.slot1);
        EXPECT_EQ(cache.FieldChangeSensitivity[1].IsPresent(), c.slot1Present);
        EXPECT_FLOAT_EQ(cache.FieldChangeSensitivity[2].Get(), c.slot2);
        EXPECT_EQ(cache.FieldChangeSensitivity[2].IsPresent(), 0u);  // values only, not presence
        EXPECT_FLOAT_EQ(cache.FieldChangeSensitivity[28].Get(), 2.5f);
        EXPECT_FLOAT_EQ(cache.FieldChangeSensitivity[0].Get(), 2.5f);
        EXPECT_EQ(cache.FieldChangeSensitivity[0].IsPresent(), 1u);
    }
}

TEST(FeatureParse, DataFieldModifiersSelectTheirArrayOnlyWithoutUnits)
{
    hs::SensorShape shape;
    shape.features = {
        Property(Modified(0x545, 0x2000), 8, 0, 255),
        Property(Modified(0x545, 0x3000), 8, 0, 255),
        Property(Modified(0x545, 0x4000), 8, 0, 255),
        Property(Modified(0x545, 0x5000), 8, 0, 255),
        WithUnit(Property(Modified(0x546, 0x2000), 8, 0, 255), 0x19),  // units: not a bound
        Property(0x547, 8, 0, 255),                                     // no modifier: nothing
    };
    FeatureBed bed(shape, ReportBytes(1).U8(20).U8(2).U8(1).U8(3).U8(99).U8(7));
    ASSERT_TRUE(bed.Ready());
    ASSERT_EQ(Parse(bed), STATUS_SUCCESS);
    const SensorPropertyCache& cache = bed.Cache();
    EXPECT_EQ(cache.FieldMaximum[2].Get(), 20.0f);
    EXPECT_EQ(cache.FieldMinimum[2].Get(), 2.0f);
    EXPECT_EQ(cache.FieldAccuracy[2].Get(), 1.0f);
    EXPECT_EQ(cache.FieldResolution[2].Get(), 3.0f);
    EXPECT_EQ(cache.FieldMaximum[3].IsPresent(), 0u);
    EXPECT_EQ(cache.FieldMaximum[3].Get(), 0.0f);
    EXPECT_EQ(cache.FieldChangeSensitivity[4].IsPresent(), 0u);
}

TEST(FeatureParse, StringsUpToTheLengthLimit)
{
    hs::SensorShape shape;
    shape.features = {hs::StringProperty(0x301, 64)};
    const std::u16string short62(62, u'a');
    const std::u16string long63(63, u'b');
    FeatureBed bed(shape, ReportBytes(1).Text(short62, 64));
    ASSERT_TRUE(bed.Ready());
    ASSERT_EQ(Parse(bed), STATUS_SUCCESS);
    EXPECT_EQ(Text(bed.Cache().FriendlyName), short62);

    // 63 characters and more fill the field: present, but the old text stays.
    for (std::size_t length : {63, 64}) {
        ASSERT_TRUE(bed.Bed().Sim().SetFeature(1, ReportBytes(1).Text(std::u16string(length, u'b'), 64)));
        ASSERT_EQ(Parse(bed), STATUS_SUCCESS);
        EXPECT_EQ(bed.Cache().FriendlyName.Present, 1u);
        EXPECT_EQ(Text(bed.Cache().FriendlyName), short62) << length;
    }
}

TEST(FeatureParse, MultiElementValueStandsForItsFirstElement)
{
    hs::SensorShape shape;
    shape.features = {Property(0x303, 8, 0, 255), Property(0x30F, 16, 0, 0xFFFF, -1)};
    shape.features[1].count = 3;
    const Bytes report = ReportBytes(1).U8(9).U16(25).U16(7).U16(8);
    FeatureBed bed(shape, report);
    ASSERT_TRUE(bed.Ready());
    ASSERT_TRUE(bed.Bed().Sim().SetFeature(1, report));
    ASSERT_EQ(Parse(bed), STATUS_SUCCESS);
    EXPECT_EQ(bed.Cache().ChangeSensitivity.Get(), static_cast<float>(25 * static_cast<double>(0.1f)));
}

TEST(FeatureParse, SelectorStates)
{
    struct Case {
        hs::SelectorField selector;
        std::uint8_t index;
        CachedEntry<ULONG> SensorPropertyCache::*entry;
        ULONG expected;
    };
    const Case cases[] = {
        {hs::ReportingStateSelector(), 0, &SensorPropertyCache::ReportingStateSelector, 1},  // 0x840
        {hs::ReportingStateSelector(), 3, &SensorPropertyCache::ReportingStateSelector, 1},  // 0x843
        {hs::ReportingStateSelector(), 1, &SensorPropertyCache::ReportingStateSelector, 2},  // 0x841
        {hs::ReportingStateSelector(), 5, &SensorPropertyCache::ReportingStateSelector, 2},  // 0x845
        {hs::PowerStateSelector(), 0, &SensorPropertyCache::PowerStateSelector, 1},          // 0x850
        {hs::PowerStateSelector(), 1, &SensorPropertyCache::PowerStateSelector, 2},          // 0x851
        {hs::PowerStateSelector(), 2, &SensorPropertyCache::PowerStateSelector, 3},          // 0x852
        {hs::PowerStateSelector(), 4, &SensorPropertyCache::PowerStateSelector, 1},          // 0x854
        {hs::PowerStateSelector(), 5, &SensorPropertyCache::PowerStateSelector, 6},          // 0x855
        {hs::SensorStateSelector(), 6, &SensorPropertyCache::SensorStateSelector, 7},        // 0x806
        {hs::ConnectionTypeSelector(), 1, &SensorPropertyCache::ConnectionTypeSelector, 1},  // 0x831
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(testing::Message() << std::hex << c.selector.firstSelector + c.index);
        hs::SensorShape shape;
        shape.featureSelectors = {c.selector};
        shape.features = {hs::ReportIntervalProperty()};
        FeatureBed bed(shape, ReportBytes(1).U8(c.index).U32(100));
        ASSERT_TRUE(bed.Ready());
        ASSERT_EQ(Parse(bed), STATUS_SUCCESS);
        EXPECT_EQ((bed.Cache().*c.entry).IsPresent(), 1u);
        EXPECT_EQ((bed.Cache().*c.entry).Get(), c.expected);
    }
}

// The status of the last value of the report decides whether the write-back runs.
TEST(FeatureParse, LastFieldStatusDecidesTheWriteBack)
{
    struct Case {
        const char* what;
        std::vector<hs::ValueField> features;
        NTSTATUS parse;
        std::size_t requests;  // the fetch, then one SET and GET per write
    };
    const hs::ValueField interval = hs::ReportIntervalProperty(8);
    const Case cases[] = {
        {"unlisted vendor usage last", {interval, Property(0xF123, 8, 0, 255)}, STATUS_INVALID_PARAMETER, 1},
        {"unlisted vendor usage first", {Property(0xF123, 8, 0, 255), interval}, STATUS_SUCCESS, 3},
        {"data field without a type last", {interval, Property(0x401, 8, 0, 255)}, STATUS_UNSUCCESSFUL, 1},
        {"typed data field last", {interval, Property(0x4D1, 8, 0, 255)}, STATUS_SUCCESS, 3},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        hs::SensorShape shape;
        shape.features = c.features;
        FeatureBed bed(shape, ReportBytes(1).U8(100).U8(100));
        ASSERT_TRUE(bed.Ready());
        NTSTATUS status = 0;
        EXPECT_EQ(bed.Read(0, &status).size(), c.requests);
        EXPECT_EQ(status, c.parse);
    }
}

TEST(FeatureParse, ReportIdFollowsTheSensorIndex)
{
    hs::SensorShape a;
    a.features = {hs::ReportIntervalProperty(8)};
    hs::SensorShape b = a;
    const HidDeviceConfig config = HidDeviceConfig{}
                                       .WithDescriptor(hs::BuildSensorContainer({a, b}, 5))
                                       .WithFeature(5, ReportBytes(5).U8(100))
                                       .WithFeature(6, ReportBytes(6).U8(200));
    FeatureBed bed(config, 1);
    ASSERT_TRUE(bed.Ready());
    const std::vector<std::string> traffic = bed.Read(0);
    ASSERT_FALSE(traffic.empty());
    // Initialize already wrote the record's 100 ms over the device's 200.
    EXPECT_EQ(traffic[0], "get 06 64");
}

TEST(FeatureParse, CollectionWithoutFeatureValuesFetchesNothing)
{
    hs::SensorShape shape;
    shape.inputs = {hs::CustomValue(1)};
    shape.reportId = 1;
    FeatureBed bed(HidDeviceConfig{}.WithDescriptor(hs::BuildSingleSensor(shape)));
    ASSERT_TRUE(bed.Ready());
    NTSTATUS status = 1;
    EXPECT_TRUE(bed.Read(1, &status).empty());
    EXPECT_EQ(status, STATUS_SUCCESS);
}

TEST(FeatureParse, FetchFailureKeepsTheCacheAndWritesNothing)
{
    hs::SensorShape shape;
    shape.features = {hs::ReportIntervalProperty(8)};
    FeatureBed bed(shape, ReportBytes(1).U8(100));
    ASSERT_TRUE(bed.Ready());
    ASSERT_EQ(bed.Cache().ReportInterval.Get(), 100u);
    bed.Rules({DeviceRule::Fail(RuleTrigger::GetFeature, STATUS_IO_DEVICE_ERROR)});
    NTSTATUS status = 0;
    EXPECT_EQ(bed.Read(1, &status).size(), 2u);  // two attempts at the fetch
    EXPECT_EQ(status, STATUS_IO_DEVICE_ERROR);
    EXPECT_EQ(bed.Cache().ReportInterval.Get(), 100u);
}

// A real head tracker: its first feature field is in report 2 (description and
// unique ID, 8-bit characters), its interval and selectors in report 1, which
// this sensor never asks for.
TEST(FeatureParse, RealHeadTrackerReadsReportTwoOnly)
{
    Bytes report(42, 0);
    report[0] = 2;
    const std::string text = "#AndroidHeadTracker#1.0";
    std::copy(text.begin(), text.end(), report.begin() + 1);
    FeatureBed bed(HidDeviceConfig{}.WithDescriptor(testdriver::LoadDescriptor("android-headtracker-v2-le"))
                       .WithFeature(2, report));
    ASSERT_TRUE(bed.Ready());
    NTSTATUS status = 0;
    const std::vector<std::string> traffic = bed.Read(1, &status);
    EXPECT_EQ(status, STATUS_SUCCESS);
    ASSERT_EQ(traffic.size(), 1u);  // no batch-interval field: nothing else is written
    EXPECT_EQ(traffic[0].substr(0, 12), "get 02 23 41");
    const SensorPropertyCache& cache = bed.Cache();
    EXPECT_EQ(cache.Description.Present, 1u);
    EXPECT_EQ(cache.PersistentUniqueId.Present, 1u);
    // 8-bit characters are taken two to a UTF-16 unit, as the field holds them.
    EXPECT_EQ(cache.Description.Text[0], static_cast<WCHAR>('#' | ('A' << 8)));
    EXPECT_EQ(cache.ReportInterval.IsPresent(), 0u);
}

}  // namespace
}  // namespace featuretest
