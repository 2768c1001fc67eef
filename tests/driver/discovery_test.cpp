// Discovery through real descriptor bytes: which objects a HID collection
// yields, how custom collections are classified, their indices, names and
// the device traffic on the way.
#include <gtest/gtest.h>

#include <cstring>

#include "activity/activity_sensor.h"
#include "host/common/fault_injection.h"
#include "orientation/relative_orientation_sensor.h"
#include "orientation/simple_device_orientation_sensor.h"
#include "pedometer/pedometer_sensor.h"
#include "platform/hidclass.h"
#include "tests/driver/driver_test_bed.h"

namespace testdriver {
namespace {

using host::hidsim::DeviceRule;
using host::hidsim::RuleTrigger;
using IoctlResult = host::HidCollectionEndpoint::IoctlResult;

std::u16string Text(PCWSTR text) { return text != nullptr ? std::u16string(text) : u"(null)"; }
std::u16string Instance(const std::u16string& tag) { return std::u16string(kDevicePath) + u"#0100:" + tag; }
std::u16string Name(HidSensor* sensor) { return sensor != nullptr ? Text(sensor->GetFriendlyName()) : u"(none)"; }
std::u16string V2(const std::u16string& name) { return u"HID Sensor Collection V2: " + name; }

template <class T>
bool Is(const HidSensor* s)
{
    return dynamic_cast<const T*>(s) != nullptr;
}

TEST(Discovery, ContainerOfAccelerometerActivityAndPedometerGivesThreeObjectsOfTheirClassesInFixedTraffic)
{
    // A serial number that fills the whole buffer, without terminator: 126 characters.
    DriverTestBed bed(AccelerometerActivityPedometer().WithSerialNumber(std::u16string(200, u'S')),
                      &SensorFactory::Default());
    const std::u16string serial(126, u'S');
    ASSERT_EQ(bed.Prepare(), STATUS_SUCCESS);
    ASSERT_EQ(bed.Hid()->SensorCount(), 3u);
    const HidSensor* placeholder = bed.Sensor(0);
    EXPECT_TRUE(typeid(*placeholder) == typeid(HidSensor));
    EXPECT_TRUE(Is<ActivitySensor>(bed.Sensor(1)));
    EXPECT_TRUE(Is<PedometerSensor>(bed.Sensor(2)));
    const char16_t* names[] = {u"Unknown", u"HID Sensor Collection V2: Activity-1",
                               u"HID Sensor Collection V2: Pedometer-2"};
    const HIDP_LINK_COLLECTION_NODE* nodes = bed.Hid()->LinkCollectionNodes();
    for (ULONG i = 0; i < 3; ++i) {
        const HidCollectionRecord& record = *bed.Sensor(i)->Record();
        EXPECT_EQ(record.SensorIndex, i);
        EXPECT_EQ(Text(record.InstanceName), Instance(serial + u"-") + char16_t(u'0' + i));
        EXPECT_EQ(Text(record.FriendlyName), names[i]);
        EXPECT_EQ(Text(record.Manufacturer) + Text(record.Model) + Text(record.SerialNumber), u"ContosoHub" + serial);
        EXPECT_EQ(record.SensorObjectKind, i == 0 ? 19u : 17u);
        EXPECT_EQ(record.Usage, i == 0 ? 0x73u : 0xE1u);
        EXPECT_EQ(record.IsInitialized.load(), 1u);
        EXPECT_EQ(record.InputReportId, 1);
        EXPECT_EQ(record.FeatureReportId, 1);
        // The link-collection nodes of the children, selector collections in between.
        EXPECT_EQ(nodes[record.LinkCollection].Parent, 0);
        EXPECT_EQ(nodes[record.LinkCollection].LinkUsage, record.Usage);
    }
    // Each custom child is classified twice: by discovery, then for its name;
    // then Initialize reads each feature report and writes its interval back.
    EXPECT_EQ(FeatureIds(bed.Traffic()), (std::vector<int>{2, 2, 3, 3, 2, 2, 3, 3}));
    EXPECT_EQ(Module().enumerateStatus, STATUS_SUCCESS);

    const ULONG feature = bed.Hid()->Caps().FeatureReportByteLength;
    const std::vector<std::pair<ULONG, ULONG>> expected = {
        {IOCTL_HID_GET_COLLECTION_INFORMATION, 12}, {IOCTL_HID_GET_SERIALNUMBER_STRING, 252},
        {IOCTL_HID_GET_MANUFACTURER_STRING, 252}, {IOCTL_HID_GET_PRODUCT_STRING, 252},
        {IOCTL_HID_GET_COLLECTION_DESCRIPTOR, bed.Hid()->PreparsedDataLength()},
        {IOCTL_HID_GET_FEATURE, feature}, {IOCTL_HID_GET_FEATURE, feature},
        {IOCTL_HID_GET_FEATURE, feature}, {IOCTL_HID_GET_FEATURE, feature},
        {IOCTL_HID_GET_FEATURE, feature}, {IOCTL_HID_SET_FEATURE, feature}, {IOCTL_HID_GET_FEATURE, feature},
        {IOCTL_HID_GET_FEATURE, feature}, {IOCTL_HID_SET_FEATURE, feature}, {IOCTL_HID_GET_FEATURE, feature}};
    std::vector<std::pair<ULONG, ULONG>> seen;
    for (const EndpointShim::Call& call : bed.Shim().Calls()) {
        seen.emplace_back(call.ioctlCode, call.outputLength);
        EXPECT_EQ(call.inputLength, call.ioctlCode == IOCTL_HID_SET_FEATURE ? feature : 0u);
    }
    EXPECT_EQ(seen, expected);
}

TEST(Classification, EveryKindOfDescriptionCreatesItsClassAndName)
{
    struct Case {
        const char16_t* description;
        const char16_t* name;
        bool (*isExpectedClass)(const HidSensor*);
    };
    const Case cases[] = {
        {u"0x210", u"Gesture Tap", IsPlainCustomSensor},
        {u"0x211", u"Gesture Lift", IsPlainCustomSensor},
        {u"0x212", u"Zoom&Pan", IsPlainCustomSensor},
        {u"0x200", u"Relative Orientation", Is<RelativeOrientationSensor>},
        {u"0x205", u"Simple Device Orientation", Is<SimpleDeviceOrientationSensor>},
        // Near misses of 0x232 (activity).
        {u"0x232 ", u"Other", IsPlainCustomSensor},
        {u"0X232", u"Other", IsPlainCustomSensor},
        {u"0x0232", u"Other", IsPlainCustomSensor},
        {u"0x23", u"Other", IsPlainCustomSensor},
        {u"0x2320", u"Other", IsPlainCustomSensor},
    };
    std::vector<hs::SensorShape> children(std::size(cases), Custom());
    HidDeviceConfig config = HidDeviceConfig{}.WithDescriptor(hs::BuildSensorContainer(children));
    for (std::uint8_t id = 1; id <= std::size(cases); ++id)
        config.WithFeature(id, FeatureReport(id, 100, {cases[id - 1].description}));
    DriverTestBed bed(config);
    ASSERT_EQ(bed.Prepare(), STATUS_SUCCESS);
    ASSERT_EQ(bed.Hid()->SensorCount(), std::size(cases));
    for (ULONG i = 0; i < std::size(cases); ++i) {
        EXPECT_TRUE(cases[i].isExpectedClass(bed.Sensor(i))) << i;
        EXPECT_EQ(Name(bed.Sensor(i)), V2(cases[i].name) + u"-" + char16_t(u'0' + i));
    }
}

// Sensor 1 of a container (an accelerometer before it), whose feature report 2 says `description`.
HidDeviceConfig ContainerWithCustomSecond(const std::u16string& description)
{
    return HidDeviceConfig{}
        .WithDescriptor(hs::BuildSensorContainer({Accelerometer(), Custom(1)}))
        .WithFeature(2, FeatureReport(2, 100, {description}));
}

TEST(Classification, DeviceAnswersDecideTheKindAndTheNumberOfAttempts)
{
    struct Case {
        const char* what;
        DeviceRule rule;
        const char16_t* name;
        std::size_t getFeatures;  // discovery, the constructor and Initialize's feature report together
    };
    const Case cases[] = {
        {"other id: refused after one attempt", DeviceRule::AnswerReportId(RuleTrigger::GetFeature, 3), u"Other-1", 3},
        {"zeros once: the second attempt has it", DeviceRule::Zeros(RuleTrigger::GetFeature).Times(1), u"Activity-1", 4},
        {"zeros twice: no description", DeviceRule::Zeros(RuleTrigger::GetFeature), u"Other-1", 6},
        {"fails", DeviceRule::Fail(RuleTrigger::GetFeature, STATUS_IO_DEVICE_ERROR), u"Other-1", 6},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        DriverTestBed bed(ContainerWithCustomSecond(u"0x232").WithRule(c.rule));
        ASSERT_EQ(bed.Prepare(), STATUS_SUCCESS);
        EXPECT_EQ(Name(bed.Sensor(1)), V2(c.name));
        EXPECT_EQ(FeatureIds(bed.Traffic()).size(), c.getFeatures);
    }
}

TEST(Classification, ALaterMatchingDescriptionOverridesAnEarlierOne)
{
    // Two descriptions: the plain usage 0x308 and one with a modifier (0x2308), which classification strips.
    for (const auto& [second, name] : {std::pair{u"0x230", u"Pedometer-0"}, std::pair{u"nothing", u"Activity-0"}}) {
        hs::SensorShape sensor = hs::CustomSensor(8, {hs::CustomValue(1)});
        sensor.reportId = 1;
        sensor.features.push_back(hs::StringProperty(hs::Modified(hs::kDescription, hs::kModMaximum), 8));
        Bytes report = FeatureReport(1, 100, {u"0x232"}, 8);
        const Bytes tail = FeatureReport(1, 100, {second}, 8);
        report.insert(report.end(), tail.begin() + 7, tail.end());
        DriverTestBed bed(HidDeviceConfig{}.WithDescriptor(hs::BuildSingleSensor(sensor)).WithFeature(1, report));
        ASSERT_EQ(bed.Prepare(), STATUS_SUCCESS);
        EXPECT_EQ(Name(bed.Sensor(0)), V2(name));
    }
}

TEST(Classification, ReadsTheFeatureReportOfTheInputReportId)
{
    // A real head tracker: the description (8-bit characters) sits in feature
    // report 2, the inputs in report 1, which is the one classification reads.
    Bytes report(42, 0);
    report[0] = 2;
    const std::string text = "#AndroidHeadTracker#1.0";
    std::copy(text.begin(), text.end(), report.begin() + 1);
    DriverTestBed tracker(
        HidDeviceConfig{}.WithDescriptor(LoadDescriptor("android-headtracker-v2-le")).WithFeature(2, report));
    ASSERT_EQ(tracker.Prepare(), STATUS_SUCCESS);
    ASSERT_EQ(tracker.Hid()->SensorCount(), 1u);
    EXPECT_EQ(Name(tracker.Sensor(0)), V2(u"Other-0"));
    // Initialize then reads the sensor's own feature report, 2.
    EXPECT_EQ(FeatureIds(tracker.Traffic()), (std::vector<int>{1, 2}));
}

TEST(Discovery, GrandchildCollectionsAreNeitherSensorsNorIndexed)
{
    // Child 0 holds a nested custom collection; child 1 follows it.
    host::hid::DescriptorBuilder b;
    b.UsagePage(0x20).Usage(0x01).Collection(host::hid::CollectionType::Application);
    b.Usage(0x73).Collection(host::hid::CollectionType::Physical).ReportId(1);
    b.Usage(0xE1).Collection(host::hid::CollectionType::Physical);
    b.Usage(0x544).LogicalMinimum(0).LogicalMaximum(255).ReportSize(8).ReportCount(1).Input(0x02);
    b.EndCollection().EndCollection();
    b.Usage(0xE1).Collection(host::hid::CollectionType::Physical).ReportId(2);
    b.Usage(0x544).ReportSize(8).ReportCount(1).Input(0x02);
    b.Usage(0x308).ReportSize(16).ReportCount(8).Feature(0x02);
    b.EndCollection().EndCollection();
    DriverTestBed bed(HidDeviceConfig{}.WithDescriptor(b.Build()).WithFeature(2, {2, '0', 0, 'x', 0, '2', 0, '3', 0, '2', 0}));
    ASSERT_EQ(bed.Prepare(), STATUS_SUCCESS);
    ASSERT_EQ(bed.Hid()->SensorCount(), 2u);
    EXPECT_EQ(bed.Sensor(1)->Record()->SensorIndex, 1u);
    EXPECT_EQ(bed.Sensor(1)->Record()->LinkCollection, 3);
    EXPECT_TRUE(Is<ActivitySensor>(bed.Sensor(1)));
    // Initialize asks for report 3: feature report IDs follow the sensor index.
    EXPECT_EQ(FeatureIds(bed.Traffic()), (std::vector<int>{2, 2, 3}));
}

TEST(Discovery, SingleTopLevelCollections)
{
    {  // Custom: a plain custom sensor whatever its description, no serial number.
        hs::SensorShape custom = Custom();
        custom.reportId = 4;
        DriverTestBed bed(HidDeviceConfig{}
                              .WithDescriptor(hs::BuildSingleSensor(custom))
                              .WithFeature(4, FeatureReport(4, 100, {u"0x232"})));
        ASSERT_EQ(bed.Prepare(), STATUS_SUCCESS);
        ASSERT_EQ(bed.Hid()->SensorCount(), 1u);
        EXPECT_TRUE(IsPlainCustomSensor(bed.Sensor(0)));
        const HidCollectionRecord& record = *bed.Sensor(0)->Record();
        EXPECT_EQ(Text(record.FriendlyName), V2(u"Activity-0"));
        EXPECT_EQ(Text(record.InstanceName), Instance(u"-0"));  // no serial number: the tag is the version alone
        EXPECT_EQ(Text(record.SerialNumber) + Text(record.Manufacturer) + Text(record.Model), u"0000Orvex0002");
        // Classified once for its name, then Initialize: the report and its interval written back.
        EXPECT_EQ(FeatureIds(bed.Traffic()), (std::vector<int>{4, 4, 4}));
    }
    // Non-custom, a real one: one placeholder.
    DriverTestBed accel(HidDeviceConfig{}
                            .WithDescriptor(LoadDescriptor("amd-sfh-accel3d"))
                            .WithInformation({0x1022, 0x0001, 0x0203, false}));
    ASSERT_EQ(accel.Prepare(), STATUS_SUCCESS);
    ASSERT_EQ(accel.Hid()->SensorCount(), 1u);
    const HidSensor* placeholder = accel.Sensor(0);
    EXPECT_TRUE(typeid(*placeholder) == typeid(Recording<HidSensor>));
    EXPECT_EQ(Text(placeholder->Record()->InstanceName), std::u16string(kDevicePath) + u"#0203:-0");
    EXPECT_EQ(placeholder->Record()->HasFeatureReport, 1u);
    EXPECT_EQ(Module().enumerateStatus, STATUS_SUCCESS);
    EXPECT_TRUE(FeatureIds(accel.Traffic()).empty());
}

TEST(Discovery, RealCompositeDeviceYieldsTheChildrenOfItsSensorCollectionAndNothingElse)
{
    {  // Keyboard, sensor collection (accelerometer, gyrometer), mouse.
        DriverTestBed bed(HidDeviceConfig{}.WithDescriptor(LoadDescriptor("hutrr39-col2")).WithSerialNumber(u"A1"));
        ASSERT_EQ(bed.Prepare(), STATUS_SUCCESS);
        ASSERT_EQ(bed.Hid()->SensorCount(), 2u);
        EXPECT_EQ(bed.Sensor(0)->Record()->Usage, 0x73u);
        EXPECT_EQ(bed.Sensor(1)->Record()->Usage, 0x76u);
        EXPECT_EQ(Text(bed.Sensor(1)->Record()->InstanceName), Instance(u"A1-1"));
    }

    const HidDeviceConfig empty[] = {
        // The keyboard of the same device: usage page 0x01.
        HidDeviceConfig{}.WithDescriptor(LoadDescriptor("hutrr39-col2")).WithDriverCollection(0),
        // A sensor collection without children.
        HidDeviceConfig{}.WithDescriptor({0x05, 0x20, 0x09, 0x01, 0xA1, 0x01, 0xC0}),
    };
    for (const HidDeviceConfig& config : empty) {
        DriverTestBed other(config);
        ASSERT_EQ(other.Prepare(), STATUS_SUCCESS);
        EXPECT_EQ(Module().enumerateStatus, STATUS_SUCCESS);
        EXPECT_EQ(other.Hid()->SensorCount(), 0u);
    }
}

TEST(Discovery, FailingRequestsAndImpossibleAnswersCreateNoSensors)
{
    enum Tweak { None, NoProduct, GarbagePreparsed };
    struct Case {
        const char* what;
        ULONG failingIoctl;                   // fails once with STATUS_DEVICE_NOT_CONNECTED
        std::optional<ULONG> descriptorSize;  // answered instead of the device's
        Tweak tweak;
        NTSTATUS enumerate;
        std::size_t calls;  // that reached the device
    };
    const Case cases[] = {
        {"information fails", IOCTL_HID_GET_COLLECTION_INFORMATION, {}, None, STATUS_DEVICE_NOT_CONNECTED, 0},
        {"serial fails", IOCTL_HID_GET_SERIALNUMBER_STRING, {}, None, STATUS_SUCCESS, 14},
        {"manufacturer fails", IOCTL_HID_GET_MANUFACTURER_STRING, {}, None, STATUS_SUCCESS, 14},
        {"product fails", IOCTL_HID_GET_PRODUCT_STRING, {}, None, STATUS_SUCCESS, 14},
        {"descriptor fails", IOCTL_HID_GET_COLLECTION_DESCRIPTOR, {}, None, STATUS_DEVICE_NOT_CONNECTED, 4},
        {"size 0", 0, 0, None, STATUS_SUCCESS, 4},
        {"size 0, product fails", 0, 0, NoProduct, STATUS_INVALID_PARAMETER, 4},
        {"impossible size", 0, 0xFFFFFFFF, None, STATUS_NO_MEMORY, 4},
        {"preparsed data rejected", 0, {}, GarbagePreparsed, HIDP_STATUS_INVALID_PREPARSED_DATA, 5},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.what);
        HidDeviceConfig config = AccelerometerActivityPedometer();
        if (c.tweak == NoProduct)
            config.strings.product.reset();
        DriverTestBed bed(config);
        if (c.descriptorSize)
            bed.Shim().Override(IOCTL_HID_GET_COLLECTION_INFORMATION, [size = *c.descriptorSize](BYTE* out, ULONG n) {
                HID_COLLECTION_INFORMATION information = {};
                information.DescriptorSize = size;
                information.VersionNumber = 0x0100;
                std::memcpy(out, &information, std::min<ULONG>(n, sizeof(information)));
                return IoctlResult{STATUS_SUCCESS, sizeof(information), true};
            });
        if (c.tweak == GarbagePreparsed)
            bed.Shim().Override(IOCTL_HID_GET_COLLECTION_DESCRIPTOR, [](BYTE* output, ULONG length) {
                std::memset(output, 0xEE, length);
                return IoctlResult{STATUS_SUCCESS, length, true};
            });
        ASSERT_EQ(bed.Load(), STATUS_SUCCESS);
        if (c.failingIoctl != 0)
            host::FaultInjector::Instance().FailIoctl(c.failingIoctl, 1, STATUS_DEVICE_NOT_CONNECTED);
        ASSERT_EQ(bed.Host().PrepareHardware(), STATUS_SUCCESS);
        EXPECT_EQ(Module().enumerateStatus, c.enumerate);
        EXPECT_EQ(bed.Hid()->SensorCount(), c.calls == 14 ? 3u : 0u);
        EXPECT_EQ(bed.Shim().Calls().size(), c.calls);
    }
}

}  // namespace
}  // namespace testdriver
