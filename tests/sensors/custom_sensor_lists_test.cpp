// A device with a gesture tap, an "Other" sensor and a non-custom placeholder,
// as the class extension's client sees it: what is published, with which
// lists, and the samples its reports give.
#include <gtest/gtest.h>

#include "host/sensorscx/guid.h"
#include "tests/sensors/custom_sensor_test_support.h"

namespace testdriver {
namespace {

constexpr ULONGLONG kStartTicks = ULONGLONG{0x01DA0000} << 32;
constexpr ULONGLONG kTicksPerMs = 10'000;
const std::string kCustomType = Clsid("{E83AF229-8640-4D18-A213-E22675EBB2C3}");
const std::string kCustomCategory = Clsid("{2C90E7A9-F4C9-4FA2-AF37-56D471FE5A3D}");

// The change sensitivity of the tap's custom value 1, in hundredths.
const hs::ValueField kTapSensitivity = hs::Property(
    hs::Modified(hs::CustomValueUsage(1), hs::kModChangeSensitivityAbsolute), 16, 0, 0xFFFF, -2);

// The tap's feature report: selectors, interval, description, friendly name, sensitivity.
Bytes TapFeature(std::uint8_t reporting, std::uint8_t power, std::uint32_t intervalMs, std::uint16_t sensitivity)
{
    Bytes report = FeatureReport(2, intervalMs, {u"0x210", u"Tap"}, 16, reporting, power);
    PutLittleEndian(report, sensitivity, 2);
    return report;
}

// Sensor 0 (report 1): an accelerometer placeholder. Sensor 1 (report 2): a
// gesture tap with custom usage, custom value 1 (16 bits, exponent -2) and
// custom value 3 (8 bits), a friendly name and a sensitivity for value 1. Sensor 2 (report 3): "Other",
// custom values 1 and 2 of 16 bits.
HidDeviceConfig TapOtherAndPlaceholder()
{
    hs::SensorShape tap = CustomWithStrings(
        {hs::Property(hs::kCustomUsage, 16, 0, 0xFFFF), hs::CustomValue(1, 16, -32767, 32767, -2),
         hs::CustomValue(3, 8, -128, 127)},
        true);
    tap.features.push_back(kTapSensitivity);
    const hs::SensorShape other = CustomWithStrings({hs::CustomValue(1), hs::CustomValue(2)}, false);
    // The placeholder has a feature report too, so that feature report IDs
    // count from its own.
    hs::SensorShape accelerometer = Accelerometer(1);
    accelerometer.features = {hs::ReportIntervalProperty()};
    return HidDeviceConfig{}
        .WithDescriptor(hs::BuildSensorContainer({accelerometer, tap, other}))
        .WithManufacturer(u"Contoso")
        .WithProduct(u"Hub")
        .WithSerialNumber(u"SN-7")
        .WithFeature(2, TapFeature(1, 1, 100, 0))
        .WithFeature(3, FeatureReport(3, 100, {u"gizmo"}));
}

TEST(CustomSensorLists, TapAndOtherArePublishedWithTheirListsAndThePlaceholderIsNot)
{
    ClientBed t(TapOtherAndPlaceholder());
    EXPECT_EQ(Module().enumerateStatus, STATUS_SUCCESS);
    ASSERT_EQ(t.client->SensorCount(), 2u);
    EXPECT_EQ(std::u16string(t.Sensor(1)->GetFriendlyName()), u"HID Sensor Collection V2: Gesture Tap-1");
    EXPECT_EQ(std::u16string(t.Sensor(2)->GetFriendlyName()), u"HID Sensor Collection V2: Other-2");

    // Enumeration properties, as SensorsCxSensorInitialize got them.
    const std::vector<cx::SensorInfo> sensors = t.client->Sensors();
    const HidCollectionRecord& tap = *t.Sensor(1)->Record();
    const HidCollectionRecord& other = *t.Sensor(2)->Record();
    EXPECT_EQ(sensors[0].handle, tap.SensorObject);
    EXPECT_EQ(sensors[1].handle, other.SensorObject);
    EXPECT_EQ(tap.EnumerationProperties->AllocatedSizeInBytes, 344u);
    EXPECT_EQ(Lines(sensors[0].enumeration),
              (std::vector<std::string>{
                  Prop(2, kCustomType), Prop(6, Str("Tap")), Prop(7, Str("")), Prop(8, Str("")),
                  Prop(9, Clsid(host::com::FormatGuid(tap.PersistentUniqueId))), Prop(3, kCustomCategory),
                  Prop(10, Clsid("{00000210-766D-4333-8262-27E82DD158B1}"))}));
    // Without a custom usage field the description is not parsed.
    EXPECT_EQ(Lines(sensors[1].enumeration)[6], Prop(10, Clsid("{00000000-766D-4333-8262-27E82DD158B1}")));
    EXPECT_EQ(Lines(sensors[1].enumeration)[1], Prop(6, Str("")));
    // A new persistent ID per sensor, since instance names are no GUIDs.
    EXPECT_NE(host::com::FormatGuid(tap.PersistentUniqueId), host::com::FormatGuid(other.PersistentUniqueId));

    // Supported data fields: timestamp, custom usage, custom values 1 and 3.
    cx::CallResult fields = t.client->GetSupportedDataFields(0);
    ASSERT_EQ(fields.status, STATUS_SUCCESS);
    EXPECT_EQ(fields.size, 88u);
    EXPECT_EQ(KeyLines(*fields.keys), (std::vector<std::string>{Data(2, ""), Custom(5, ""), Custom(7, ""),
                                                                 Custom(9, "")}));
    fields = t.client->GetSupportedDataFields(1);
    EXPECT_EQ(fields.size, 68u);
    EXPECT_EQ(KeyLines(*fields.keys), (std::vector<std::string>{Data(2, ""), Custom(7, ""), Custom(8, "")}));

    // The data list before any report.
    EXPECT_EQ(tap.Data->AllocatedSizeInBytes, 200u);
    EXPECT_EQ(Lines(*tap.Data), (std::vector<std::string>{TimestampLine(kStartTicks), Custom(5, "R4 0"),
                                                           Custom(7, "R4 0"), Custom(9, "R4 0")}));

    // Sensor properties.
    const cx::CallResult properties = t.client->GetProperties(0);
    ASSERT_EQ(properties.status, STATUS_SUCCESS);
    const std::vector<std::string> tapProperties = {
        Dev(8, Str("")),  Dev(10, Str("0x210")), Dev(22, "UI4 528"), Prop(20, "UI4 0"),
        Prop(21, "UI4 50"), Prop(22, "UI4 200"), Prop(2, kCustomType)};
    EXPECT_EQ(Lines(*properties.list), tapProperties);
    EXPECT_EQ(Lines(*t.client->GetProperties(1).list),
              (std::vector<std::string>{Dev(8, Str("")), Dev(10, Str("gizmo")), Dev(22, "UI4 0"), Prop(20, "UI4 0"),
                                        Prop(21, "UI4 50"), Prop(22, "UI4 152"), Prop(2, kCustomType)}));

    // Data-field properties are built but not served; thresholds are.
    EXPECT_EQ(Lines(*tap.DataFieldProperties),
              (std::vector<std::string>{Prop(50, "R4 0.1"), Prop(51, "R4 0"), Prop(52, "R4 10000")}));
    EXPECT_EQ(tap.DataFieldProperties->AllocatedSizeInBytes, 152u);
    const PROPERTYKEY field = CustomKey(7);
    const cx::CallResult fieldProperties = t.client->GetDataFieldProperties(0, &field);
    EXPECT_EQ(fieldProperties.status, STATUS_NOT_SUPPORTED);
    const cx::CallResult thresholds = t.client->GetDataThresholds(0);
    EXPECT_EQ(thresholds.size, 56u);
    EXPECT_EQ(Lines(*thresholds.list), (std::vector<std::string>{Data(161, "R4 0")}));

    // Start: sensor state 2; stop: 1.
    EXPECT_EQ(t.client->Start(0).status, STATUS_SUCCESS);
    EXPECT_EQ(Lines(*t.client->GetProperties(0).list)[3], Prop(20, "UI4 2"));
    EXPECT_EQ(t.client->Stop(0).status, STATUS_SUCCESS);
    EXPECT_EQ(Lines(*t.client->GetProperties(0).list)[3], Prop(20, "UI4 1"));
}

TEST(CustomSensorLists, ReportsBecomeTheSamplesOfTheirSensorStartedOrNot)
{
    ClientBed t(TapOtherAndPlaceholder());
    ASSERT_EQ(t.client->SensorCount(), 2u);
    ASSERT_EQ(t.client->Start(0).status, STATUS_SUCCESS);

    // The tap's first report: custom usage announced, so the sample completes
    // before custom value 3; the "Other" sensor, never started, delivers too.
    t.bed.Host().Advance(7);
    Bytes read = InputReport(t.Hid(), 2, {0x210, 0xFB2E, 0xFB}, {2, 2, 1});
    const Bytes otherReport = InputReport(t.Hid(), 3, {0xFFFE, 12}, {2, 2});
    const Bytes placeholderReport = InputReport(t.Hid(), 1, {0x1234}, {2});
    read.insert(read.end(), otherReport.begin(), otherReport.end());
    read.insert(read.end(), placeholderReport.begin(), placeholderReport.end());
    std::vector<cx::Sample> samples = t.Feed(read);
    ASSERT_EQ(samples.size(), 2u);
    const ULONGLONG now = kStartTicks + 7 * kTicksPerMs;
    EXPECT_EQ(samples[0].sensorIndex, 0u);
    EXPECT_EQ(Lines(samples[0].values), (std::vector<std::string>{TimestampLine(now), Custom(5, "UI4 528"),
                                                                   Custom(7, "R4 -12.34"), Custom(9, "R4 0")}));
    EXPECT_EQ(samples[1].sensorIndex, 1u);
    EXPECT_EQ(Lines(samples[1].values),
              (std::vector<std::string>{TimestampLine(now), Custom(7, "UI4 65534"), Custom(8, "UI4 12")}));

    // Later reports: one sample each, every field of the report.
    t.bed.Host().Advance(3);
    samples = t.Feed(InputReport(t.Hid(), 2, {0x210, 100, 0xFB}, {2, 2, 1}));
    ASSERT_EQ(samples.size(), 1u);
    EXPECT_EQ(Lines(samples[0].values), (std::vector<std::string>{TimestampLine(now + 3 * kTicksPerMs),
                                                                   Custom(5, "UI4 528"), Custom(7, "R4 1"),
                                                                   Custom(9, "UI4 251")}));
}

TEST(CustomSensorLists, StartIntervalThresholdsAndStopReachTheDeviceInOrder)
{
    ClientBed t(TapOtherAndPlaceholder());
    ASSERT_EQ(t.client->SensorCount(), 2u);
    auto setFeatures = [&] {
        std::vector<Bytes> sent;
        for (const host::hidsim::TrafficEvent& event : t.bed.Traffic())
            if (event.kind == TrafficKind::SetFeature)
                sent.push_back(event.bytes);
        t.bed.Sim().ClearTraffic();
        return sent;
    };
    t.bed.Sim().ClearTraffic();

    // Start: reporting all events (selector 1) and full power (selector 1)
    // are what the device holds already; the interval is written back as it is.
    ASSERT_EQ(t.client->Start(0).status, STATUS_SUCCESS);
    EXPECT_EQ(setFeatures(), (std::vector<Bytes>{TapFeature(1, 1, 100, 0), TapFeature(1, 1, 100, 0)}));

    // The interval goes to the device; the device's value is the sensor's.
    ASSERT_EQ(t.client->SetDataInterval(0, 250).status, STATUS_SUCCESS);
    EXPECT_EQ(setFeatures(), (std::vector<Bytes>{TapFeature(1, 1, 250, 0), TapFeature(1, 1, 250, 0)}));
    EXPECT_EQ(t.client->GetDataInterval(0).ms, 250u);
    setFeatures();

    // The threshold of custom value 1 becomes its sensitivity field: 1.5 as 150.
    ASSERT_EQ(t.client->SetDataThresholds(0, ValueList({{DataKey(161), Float(1.5f)}})).status, STATUS_SUCCESS);
    // Interval, then the field's sensitivity, then reporting and power state.
    EXPECT_EQ(setFeatures(), (std::vector<Bytes>{TapFeature(1, 1, 250, 0), TapFeature(1, 1, 250, 150),
                                                 TapFeature(1, 1, 250, 150)}));
    EXPECT_EQ(Lines(*t.client->GetDataThresholds(0).list), (std::vector<std::string>{Data(161, "R4 1.5")}));

    // Stop: no events (selector 0) and low power (selector 2).
    ASSERT_EQ(t.client->Stop(0).status, STATUS_SUCCESS);
    EXPECT_EQ(setFeatures(), (std::vector<Bytes>{TapFeature(1, 1, 250, 150), TapFeature(0, 2, 250, 150)}));
    // The other sensor's report was never written.
    for (const host::hidsim::TrafficEvent& event : t.bed.Traffic())
        EXPECT_EQ(event.reportId, 2);
}

TEST(CustomSensorLists, IntervalTheDeviceHoldsBelowTheMinimumReadsAsTheDefault)
{
    // The device clamps every interval written to 20 ms; its minimum is 60 ms.
    hs::SensorShape sensor = hs::CustomSensor(16, {hs::CustomValue(1)});
    sensor.features.push_back(hs::Property(hs::kMinimumReportInterval, 16, 0, 0xFFFF));
    Bytes feature = FeatureReport(1, 20, {u"0x210"});
    feature.push_back(60);
    feature.push_back(0);
    ClientBed t(HidDeviceConfig{}
                    .WithDescriptor(hs::BuildSensorContainer({sensor}))
                    .WithFeature(1, feature)
                    .WithRule(host::hidsim::DeviceRule::Clamp(hs::kReportInterval, 10, 20)));
    ASSERT_EQ(t.client->SensorCount(), 1u);
    EXPECT_EQ(t.Sensor(0)->Record()->MinimumReportInterval.load(), 60u);
    EXPECT_EQ(Lines(*t.client->GetProperties(0).list)[4], Prop(21, "UI4 60"));
    EXPECT_EQ(t.client->SetDataInterval(0, 59).status, STATUS_UNSUCCESSFUL);
    EXPECT_EQ(t.client->SetDataInterval(0, 60).status, STATUS_SUCCESS);
    EXPECT_EQ(t.Sensor(0)->Record()->CurrentReportInterval.load(), 20u);
    EXPECT_EQ(t.client->GetDataInterval(0).ms, 100u);
}

}  // namespace
}  // namespace testdriver
