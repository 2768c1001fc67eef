// The relative and simple device orientation sensors on one simulated device,
// as the class extension's client sees them: their lists, the samples their
// input reports give, their thresholds and the calls they refuse.
#include <gtest/gtest.h>

#include <functional>

#include "host/common/fault_injection.h"
#include "host/sensorscx/guid.h"
#include "orientation/relative_orientation_sensor.h"
#include "orientation/simple_device_orientation_sensor.h"
#include "tests/sensors/custom_sensor_test_support.h"

namespace testdriver {
namespace {

constexpr ULONGLONG kStartTicks = ULONGLONG{0x01DA0000} << 32;
constexpr ULONGLONG kTicksPerMs = 10'000;

const std::string kRelativeType = Clsid("{40993B51-4706-44DC-98D5-C920C037FFAB}");
const std::string kSimpleType = Clsid("{86A19291-0482-402C-BF4C-ADDAC52B1C39}");
const std::string kMotion = Clsid("{CD09DAF1-3B2E-4C3D-B598-B5E5FF93FD46}");
const std::string kOther = Clsid("{2C90E7A9-F4C9-4FA2-AF37-56D471FE5A3D}");

// Published sensor 0 (report 2): relative orientation, custom values 1 to 4
// in thousandths (16 bits, exponent -3), or with value 4 unscaled. Published
// sensor 1 (report 3): simple device orientation, custom value 1 of 32 bits.
// Report 1 is an accelerometer that is never published.
HidDeviceConfig OrientationDevice(bool fourthUnscaled = false)
{
    hs::SensorShape relative = CustomWithStrings(
        {hs::CustomValue(1, 16, -1000, 1000, -3), hs::CustomValue(2, 16, -1000, 1000, -3),
         hs::CustomValue(3, 16, -1000, 1000, -3), hs::CustomValue(4, 16, -1000, 1000, fourthUnscaled ? 0 : -3)},
        true);
    const hs::SensorShape simple = CustomWithStrings({hs::CustomValue(1, 32, 0, 0x7FFFFFFF)}, true);
    hs::SensorShape accelerometer = Accelerometer(1);
    accelerometer.features = {hs::ReportIntervalProperty()};
    return HidDeviceConfig{}
        .WithDescriptor(hs::BuildSensorContainer({accelerometer, relative, simple}))
        .WithManufacturer(u"Contoso")
        .WithFeature(2, FeatureReport(2, 100, {u"0x200", u"Tilt"}))
        .WithFeature(3, FeatureReport(3, 100, {u"0x205", u"Turn"}));
}

Bytes RelativeReport(HidDevice& hid, std::int16_t x, std::int16_t y, std::int16_t z, std::int16_t w)
{
    return InputReport(hid, 2,
                       {static_cast<std::uint16_t>(x), static_cast<std::uint16_t>(y), static_cast<std::uint16_t>(z),
                        static_cast<std::uint16_t>(w)},
                       {2, 2, 2, 2});
}

Bytes SimpleReport(HidDevice& hid, std::uint32_t orientation) { return InputReport(hid, 3, {orientation}, {4}); }

std::vector<std::string> Values(const cx::Sample& sample)
{
    std::vector<std::string> lines = Lines(sample.values);
    lines.erase(lines.begin());  // the timestamp
    return lines;
}

TEST(OrientationSensors, ArePublishedWithTheirOwnLists)
{
    ClientBed t(OrientationDevice());
    ASSERT_EQ(t.client->SensorCount(), 2u);
    auto* relative = dynamic_cast<RelativeOrientationSensor*>(t.bed.Sensor(1));
    auto* simple = dynamic_cast<SimpleDeviceOrientationSensor*>(t.bed.Sensor(2));
    ASSERT_NE(relative, nullptr);
    ASSERT_NE(simple, nullptr);
    EXPECT_EQ(std::u16string(relative->GetFriendlyName()), u"HID Sensor Collection V2: Relative Orientation-1");
    EXPECT_EQ(std::u16string(simple->GetFriendlyName()), u"HID Sensor Collection V2: Simple Device Orientation-2");

    const std::vector<cx::SensorInfo> sensors = t.client->Sensors();
    const HidCollectionRecord& r = *relative->Record();
    const HidCollectionRecord& s = *simple->Record();
    EXPECT_EQ(Lines(sensors[0].enumeration),
              (std::vector<std::string>{Prop(2, kRelativeType), Prop(6, Str("Tilt")), Prop(7, Str("")),
                                        Prop(8, Str("")), Prop(9, Clsid(host::com::FormatGuid(r.PersistentUniqueId))),
                                        Prop(3, kMotion)}));
    EXPECT_EQ(Lines(sensors[1].enumeration),
              (std::vector<std::string>{Prop(2, kSimpleType), Prop(6, Str("Turn")), Prop(7, Str("")),
                                        Prop(8, Str("")), Prop(9, Clsid(host::com::FormatGuid(s.PersistentUniqueId))),
                                        Prop(3, kOther), Prop(5, "BOOL true")}));

    cx::CallResult fields = t.client->GetSupportedDataFields(0);
    EXPECT_EQ(fields.size, 108u);
    EXPECT_EQ(KeyLines(*fields.keys),
              (std::vector<std::string>{Data(2, ""), Data(71, ""), Data(72, ""), Data(73, ""), Data(70, "")}));
    fields = t.client->GetSupportedDataFields(1);
    EXPECT_EQ(fields.size, 48u);
    EXPECT_EQ(KeyLines(*fields.keys), (std::vector<std::string>{Data(2, ""), Data(120, "")}));

    EXPECT_EQ(Lines(*r.Data), (std::vector<std::string>{TimestampLine(kStartTicks), Data(71, "R4 0"), Data(72, "R4 0"),
                                                         Data(73, "R4 0"), Data(70, "R4 0")}));
    EXPECT_EQ(Lines(*s.Data), (std::vector<std::string>{TimestampLine(kStartTicks), Data(120, "UI4 0")}));

    EXPECT_EQ(Lines(*t.client->GetProperties(0).list),
              (std::vector<std::string>{Dev(8, Str("")), Dev(10, Str("0x200")), Prop(20, "UI4 0"), Prop(21, "UI4 50"),
                                        Prop(22, "UI4 248"), Prop(2, kRelativeType)}));
    EXPECT_EQ(Lines(*t.client->GetProperties(1).list),
              (std::vector<std::string>{Dev(8, Str("")), Dev(10, Str("0x205")), Prop(20, "UI4 0"), Prop(21, "UI4 50"),
                                        Prop(22, "UI4 104"), Prop(2, kSimpleType)}));

    // Data-field properties are built but never served.
    EXPECT_EQ(Lines(*r.DataFieldProperties),
              (std::vector<std::string>{Prop(50, "R4 0.001"), Prop(51, "R4 -1"), Prop(52, "R4 1")}));
    EXPECT_EQ(Lines(*s.DataFieldProperties),
              (std::vector<std::string>{Prop(50, "R4 1"), Prop(51, "R4 0"), Prop(52, "R4 10000")}));
    const PROPERTYKEY component = DataKey(71);
    for (std::size_t sensor : {0u, 1u}) {
        const cx::CallResult properties = t.client->GetDataFieldProperties(sensor, &component);
        EXPECT_EQ(properties.status, STATUS_NOT_SUPPORTED);
        EXPECT_EQ(properties.size, 0u);
    }

    const cx::CallResult thresholds = t.client->GetDataThresholds(0);
    EXPECT_EQ(thresholds.size, 200u);
    EXPECT_EQ(Lines(*thresholds.list), (std::vector<std::string>{Data(71, "R4 0.2"), Data(72, "R4 0.2"),
                                                                  Data(73, "R4 0.2"), Data(70, "R4 0.2")}));
    // The simple sensor's list is empty: its header only.
    EXPECT_EQ(t.client->GetDataThresholds(1, cx::ListBuffer::SizeQuery()).size, 8u);
    EXPECT_TRUE(Lines(*t.client->GetDataThresholds(1).list).empty());
    EXPECT_EQ(r.historySupported, 0u);
    EXPECT_EQ(s.minRetrievalSize, 0u);
}

TEST(OrientationSensors, StartAndStopSetTheThirdPropertyAndTheDeviceState)
{
    ClientBed t(OrientationDevice());
    for (std::size_t sensor : {0u, 1u}) {
        SCOPED_TRACE(sensor);
        const std::uint8_t reportId = static_cast<std::uint8_t>(sensor + 2);
        EXPECT_EQ(t.client->Start(sensor).status, STATUS_SUCCESS);
        EXPECT_EQ(Lines(*t.client->GetProperties(sensor).list)[2], Prop(20, "UI4 2"));
        // Reporting all events (1) and full power (1) reach the device.
        EXPECT_EQ(t.bed.Sim().Feature(reportId).value()[1], 1u);
        EXPECT_EQ(t.bed.Sim().Feature(reportId).value()[2], 1u);
        EXPECT_EQ(t.client->Stop(sensor).status, STATUS_SUCCESS);
        EXPECT_EQ(Lines(*t.client->GetProperties(sensor).list)[2], Prop(20, "UI4 1"));
        EXPECT_EQ(t.bed.Sim().Feature(reportId).value()[1], 0u);
        EXPECT_EQ(t.bed.Sim().Feature(reportId).value()[2], 2u);
    }
}

TEST(OrientationSensors, FourScaledComponentsMakeASampleStartedOrNot)
{
    ClientBed t(OrientationDevice());
    t.bed.Host().Advance(5);
    std::vector<cx::Sample> samples = t.Feed(RelativeReport(t.Hid(), 100, 200, 300, 500));
    ASSERT_EQ(samples.size(), 1u);
    EXPECT_EQ(Lines(samples[0].values),
              (std::vector<std::string>{TimestampLine(kStartTicks + 5 * kTicksPerMs), Data(71, "R4 0.1"),
                                        Data(72, "R4 0.2"), Data(73, "R4 0.3"), Data(70, "R4 0.5")}));
    // No clamp: the range is descriptive only.
    samples = t.Feed(RelativeReport(t.Hid(), -1000, 0, 1000, -500));
    ASSERT_EQ(samples.size(), 1u);
    EXPECT_EQ(Values(samples[0]), (std::vector<std::string>{Data(71, "R4 -1"), Data(72, "R4 0"), Data(73, "R4 1"),
                                                             Data(70, "R4 -0.5")}));
    EXPECT_EQ(t.Sensor(1)->Record()->forceDelivery.load(), 0u);
}

TEST(OrientationSensors, AnUnscaledComponentIsNeitherTakenNorCounted)
{
    ClientBed t(OrientationDevice(true));
    ULONG& pending = t.Sensor(1)->PropertyCache()->PendingFieldCount;
    // Three components per report count. Within one read the fourth taken
    // one, in the second report, completes the sample with what the entries
    // hold at that point.
    Bytes read = RelativeReport(t.Hid(), 100, 200, 300, 7);
    const Bytes second = RelativeReport(t.Hid(), 400, 500, 600, 7);
    read.insert(read.end(), second.begin(), second.end());
    std::vector<cx::Sample> samples = t.Feed(read);
    ASSERT_EQ(samples.size(), 1u);
    EXPECT_EQ(Values(samples[0]), (std::vector<std::string>{Data(71, "R4 0.4"), Data(72, "R4 0.2"),
                                                             Data(73, "R4 0.3"), Data(70, "R4 0")}));
    EXPECT_EQ(pending, 2u);
    // A new read starts the count afresh: three is not enough.
    EXPECT_TRUE(t.Feed(RelativeReport(t.Hid(), 10, 20, 30, 7)).empty());
    EXPECT_EQ(pending, 3u);
}

TEST(OrientationSensors, EachSimpleOrientationValueIsDeliveredAtOnce)
{
    ClientBed t(OrientationDevice());
    for (std::uint32_t orientation : {0u, 1u, 5u, 0x7FFFFFFFu}) {
        SCOPED_TRACE(orientation);
        const std::vector<cx::Sample> samples = t.Feed(SimpleReport(t.Hid(), orientation));
        ASSERT_EQ(samples.size(), 1u);
        EXPECT_EQ(samples[0].sensorIndex, 1u);
        EXPECT_EQ(Values(samples[0]), (std::vector<std::string>{Data(120, "UI4 " + std::to_string(orientation))}));
    }
    // Only custom value 1 as VT_UI4 is taken.
    SimpleDeviceOrientationSensor& simple = dynamic_cast<SimpleDeviceOrientationSensor&>(*t.bed.Sensor(2));
    const PROPERTYKEY value1 = CustomKey(7);
    const PROPERTYKEY value2 = CustomKey(8);
    const PROPVARIANT asFloat = Float(3.0f);
    const PROPVARIANT asUInt = UInt(3);
    EXPECT_EQ(simple.UpdateDataField(&value1, &asFloat), STATUS_SUCCESS);
    EXPECT_EQ(simple.UpdateDataField(&value2, &asUInt), STATUS_SUCCESS);
    EXPECT_EQ(t.samples->Size(), 0u);
    EXPECT_EQ(simple.PropertyCache()->PendingFieldCount, 0u);
}

TEST(OrientationSensors, ComponentThresholdsAreStoredAsFloatBitsAndFilterNothing)
{
    ClientBed t(OrientationDevice());
    const std::size_t trafficBefore = t.bed.Traffic().size();
    const PROPERTYKEY w = DataKey(70);
    const PROPERTYKEY x = DataKey(71);
    const PROPERTYKEY unrelated = DataKey(161);
    PROPVARIANT asDouble{};
    asDouble.vt = VT_R8;
    asDouble.dblVal = 1.0;  // low 32 bits zero
    struct Case {
        const char* what;
        cx::CollectionListCopy list;
        std::vector<std::string> expected;
    };
    const Case cases[] = {
        {"float for W", ValueList({{w, Float(0.5f)}}),
         {Data(71, "R4 0.2"), Data(72, "R4 0.2"), Data(73, "R4 0.2"), Data(70, "R4 0.5")}},
        {"integer bits for X", ValueList({{x, UInt(1065353216)}}),
         {Data(71, "R4 1"), Data(72, "R4 0.2"), Data(73, "R4 0.2"), Data(70, "R4 0.5")}},
        {"other keys ignored, a double's low half taken", ValueList({{unrelated, Float(9.0f)}, {w, asDouble}}),
         {Data(71, "R4 1"), Data(72, "R4 0.2"), Data(73, "R4 0.2"), Data(70, "R4 0")}},
        {"an empty list changes nothing", ValueList({}),
         {Data(71, "R4 1"), Data(72, "R4 0.2"), Data(73, "R4 0.2"), Data(70, "R4 0")}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        EXPECT_EQ(t.client->SetDataThresholds(0, c.list).status, STATUS_SUCCESS);
        EXPECT_EQ(Lines(*t.client->GetDataThresholds(0).list), c.expected);
    }
    EXPECT_EQ(t.bed.Traffic().size(), trafficBefore);
    // A change far below the threshold is still delivered.
    EXPECT_EQ(t.Feed(RelativeReport(t.Hid(), 0, 0, 0, 0)).size(), 1u);
    EXPECT_EQ(t.Feed(RelativeReport(t.Hid(), 0, 0, 0, 1)).size(), 1u);
}

TEST(OrientationSensors, RefusedCallsAndHistoryCallbacks)
{
    ClientBed t(OrientationDevice());
    const cx::CallOptions impostor{.otherHandle = true};
    const cx::CallOptions noOutput{.nullOutput = true};
    const cx::CollectionListCopy list = ValueList({{DataKey(70), Float(0.5f)}});
    ExpectStatuses(t, {
        {"relative start", [&] { return t.client->Start(0, impostor); }, STATUS_UNSUCCESSFUL},
        {"relative stop", [&] { return t.client->Stop(0, impostor); }, STATUS_UNSUCCESSFUL},
        {"relative get thresholds", [&] { return t.client->GetDataThresholds(0, {}, impostor); }, STATUS_UNSUCCESSFUL},
        {"relative set thresholds", [&] { return t.client->SetDataThresholds(0, list, impostor); },
         STATUS_UNSUCCESSFUL},
        {"relative no list", [&] { return t.client->SetDataThresholds(0, list, noOutput); }, STATUS_INVALID_PARAMETER},
        {"relative no size", [&] { return t.client->GetDataThresholds(0, cx::ListBuffer::SizeQuery(), noOutput); },
         STATUS_INVALID_PARAMETER},
        {"relative one byte short", [&] { return t.client->GetDataThresholds(0, cx::ListBuffer::OfBytes(199)); },
         STATUS_INSUFFICIENT_RESOURCES},
        {"simple start", [&] { return t.client->Start(1, impostor); }, STATUS_UNSUCCESSFUL},
        {"simple get thresholds", [&] { return t.client->GetDataThresholds(1, {}, impostor); }, STATUS_UNSUCCESSFUL},
        {"simple set thresholds", [&] { return t.client->SetDataThresholds(1, list); }, STATUS_NOT_SUPPORTED},
        {"simple set thresholds, other handle", [&] { return t.client->SetDataThresholds(1, list, impostor); },
         STATUS_NOT_SUPPORTED},
        {"simple set thresholds, no list", [&] { return t.client->SetDataThresholds(1, list, noOutput); },
         STATUS_NOT_SUPPORTED},
        {"start history", [&] { return t.client->StartHistory(0); }, STATUS_SUCCESS},
        {"stop history", [&] { return t.client->StopHistory(1); }, STATUS_SUCCESS},
        {"clear history", [&] { return t.client->ClearHistory(0); }, STATUS_SUCCESS},
        {"retrieve history", [&] { return t.client->StartHistoryRetrieval(1, 1000); }, STATUS_SUCCESS},
        {"cancel retrieval", [&] { return t.client->CancelHistoryRetrieval(0); }, STATUS_SUCCESS},
    });
    EXPECT_EQ(Lines(*t.client->GetDataThresholds(0).list)[3], Data(70, "R4 0.2"));
    EXPECT_EQ(Lines(*t.client->GetProperties(0).list)[2], Prop(20, "UI4 0"));
}

TEST(OrientationSensors, ARegistrationFailureLeavesTheSensorUnpublished)
{
    using host::FaultInjector;
    using host::FaultPoint;
    // Framework memory: the device's objects, then per sensor its lists.
    const std::uint64_t calls =
        CallsDuringPrepare(OrientationDevice(), &SensorFactory::Default(), FaultPoint::FrameworkMemory);
    // The last allocations are the simple sensor's six lists.
    for (std::uint64_t n = calls - 5; n <= calls; ++n) {
        SCOPED_TRACE(n);
        DriverTestBed bed(OrientationDevice(), &SensorFactory::Default());
        ASSERT_EQ(bed.Load(), STATUS_SUCCESS);
        FaultInjector::Instance().FailNth(FaultPoint::FrameworkMemory, n, STATUS_DEVICE_NOT_CONNECTED);
        ASSERT_EQ(bed.Host().PrepareHardware(), STATUS_SUCCESS);
        EXPECT_EQ(Module().enumerateStatus, STATUS_INSUFFICIENT_RESOURCES);
        // The platform sensor stays with the sensor object until it goes.
        EXPECT_NE(bed.Sensor(2)->Record()->SensorObject, nullptr);
        cx::Client client(bed.Host().Device());
        ASSERT_EQ(client.SensorCount(), 1u);
        EXPECT_EQ(client.Sensors()[0].handle, bed.Sensor(1)->Record()->SensorObject);
    }
}

}  // namespace
}  // namespace testdriver
