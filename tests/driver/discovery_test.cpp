// Discovery through real descriptor bytes: which objects a HID collection
// yields, their indices, names and the device traffic on the way.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "activity/activity_sensor.h"
#include "host/common/fault_injection.h"
#include "orientation/relative_orientation_sensor.h"
#include "orientation/simple_device_orientation_sensor.h"
#include "pedometer/pedometer_sensor.h"
#include "platform/hidclass.h"
#include "sensors/custom_sensor.h"
#include "tests/driver/driver_test_bed.h"
#include "tests/driver/recording_sensors.h"
#include "tests/driver/test_driver_module.h"

namespace testdriver {
namespace {

namespace hs = host::hid::sensor;
using host::hidsim::HidDeviceConfig;
using host::hidsim::TrafficKind;

std::u16string Text(PCWSTR text) { return text != nullptr ? std::u16string(text) : u"(null)"; }

hs::SensorSpec Accelerometer()
{
    hs::SensorSpec accel;
    accel.usage = hs::kAccelerometer3D;
    accel.features = {hs::ReportIntervalProperty()};
    accel.inputs = {hs::Property(0x453, 16, -32767, 32767), hs::Property(0x454, 16, -32767, 32767)};
    return accel;
}

hs::SensorSpec Custom() { return hs::CustomSensor(16, {hs::CustomValue(1), hs::CustomValue(2)}); }

HidDeviceConfig ThreeSensorDevice()
{
    return HidDeviceConfig{}
        .WithDescriptor(hs::BuildSensorContainer({Accelerometer(), Custom(), Custom()}))
        .WithSerialNumber(u"SN-7")
        .WithManufacturer(u"Contoso")
        .WithProduct(u"Hub")
        .WithFeature(2, CustomFeatureReport(2, u"0x232", 16))
        .WithFeature(3, CustomFeatureReport(3, u"0x230", 16));
}

std::vector<ULONG> IoctlCodes(const std::vector<host::hidsim::TrafficEvent>& traffic)
{
    std::vector<ULONG> codes;
    for (const auto& event : traffic)
        codes.push_back(event.ioctlCode);
    return codes;
}

std::vector<int> FeatureIds(const std::vector<host::hidsim::TrafficEvent>& traffic)
{
    std::vector<int> ids;
    for (const auto& event : traffic)
        if (event.kind == TrafficKind::GetFeature)
            ids.push_back(event.reportId.value_or(-1));
    return ids;
}

TEST(Discovery, ContainerOfAccelerometerActivityAndPedometerGivesThreeObjectsOfTheirClasses)
{
    DriverTestBed bed(ThreeSensorDevice(), &SensorFactory::Default());
    ASSERT_EQ(bed.Prepare(), STATUS_SUCCESS);
    HidDevice* hid = bed.Hid();
    ASSERT_NE(hid, nullptr);
    ASSERT_EQ(hid->SensorCount(), 3u);

    HidSensor* accel = bed.Sensor(0);
    EXPECT_EQ(dynamic_cast<CustomSensor*>(accel), nullptr);
    EXPECT_NE(dynamic_cast<ActivitySensor*>(bed.Sensor(1)), nullptr);
    EXPECT_NE(dynamic_cast<PedometerSensor*>(bed.Sensor(2)), nullptr);

    const char16_t* names[] = {u"Unknown", u"HID Sensor Collection V2: Activity-1",
                               u"HID Sensor Collection V2: Pedometer-2"};
    for (ULONG i = 0; i < 3; ++i) {
        const HidCollectionRecord& record = *bed.Sensor(i)->Record();
        EXPECT_EQ(record.SensorIndex, i);
        EXPECT_EQ(Text(record.InstanceName), std::u16string(kDevicePath) + u"#0100:SN-7-" + char16_t(u'0' + i));
        EXPECT_EQ(Text(record.FriendlyName), names[i]);
        EXPECT_EQ(Text(record.Manufacturer), u"Contoso");
        EXPECT_EQ(Text(record.Model), u"Hub");
        EXPECT_EQ(Text(record.SerialNumber), u"SN-7");
        EXPECT_EQ(record.SensorObjectKind, i == 0 ? 19u : 17u);
        EXPECT_EQ(record.Usage, i == 0 ? 0x73u : 0xE1u);
        EXPECT_EQ(record.IsInitialized.load(), 1u);
        EXPECT_EQ(record.InputReportId, 1);
        EXPECT_EQ(record.FeatureReportId, 1);
    }
    // The link-collection nodes of the children, selector collections in between.
    const HIDP_LINK_COLLECTION_NODE* nodes = hid->LinkCollectionNodes();
    for (ULONG i = 0; i < 3; ++i) {
        const USHORT node = bed.Sensor(i)->Record()->LinkCollection;
        EXPECT_EQ(nodes[node].Parent, 0);
        EXPECT_EQ(nodes[node].LinkUsage, i == 0 ? 0x73 : 0xE1);
    }
    // Each custom child is classified twice: by discovery, then for its name.
    EXPECT_EQ(FeatureIds(bed.Traffic()), (std::vector<int>{2, 2, 3, 3}));
    // The custom sensors cannot register yet, and say so.
    EXPECT_EQ(testdriver::Module().enumerateStatus, STATUS_NOT_IMPLEMENTED);
    EXPECT_EQ(bed.UnloadAndCollectLeaks(), "");
}

TEST(Discovery, DeviceTrafficComesInItsFixedOrder)
{
    DriverTestBed bed(ThreeSensorDevice());
    ASSERT_EQ(bed.Prepare(), STATUS_SUCCESS);
    EXPECT_EQ(IoctlCodes(bed.Traffic()),
              (std::vector<ULONG>{IOCTL_HID_GET_COLLECTION_INFORMATION, IOCTL_HID_GET_SERIALNUMBER_STRING,
                                  IOCTL_HID_GET_MANUFACTURER_STRING, IOCTL_HID_GET_PRODUCT_STRING,
                                  IOCTL_HID_GET_COLLECTION_DESCRIPTOR, IOCTL_HID_GET_FEATURE,
                                  IOCTL_HID_GET_FEATURE, IOCTL_HID_GET_FEATURE, IOCTL_HID_GET_FEATURE}));
    EXPECT_EQ(bed.UnloadAndCollectLeaks(), "");
}

TEST(Discovery, EveryKindOfDescriptionCreatesItsClassAndName)
{
    struct Case {
        const char16_t* description;
        const char16_t* name;
        bool (*isExpectedClass)(HidSensor*);
    };
    const auto plainCustom = [](HidSensor* s) { return IsPlainCustomSensor(s); };
    const Case cases[] = {
        {u"0x210", u"Gesture Tap", plainCustom},
        {u"0x211", u"Gesture Lift", plainCustom},
        {u"0x212", u"Zoom&Pan", plainCustom},
        {u"0x200", u"Relative Orientation",
         [](HidSensor* s) { return dynamic_cast<RelativeOrientationSensor*>(s) != nullptr; }},
        {u"0x205", u"Simple Device Orientation",
         [](HidSensor* s) { return dynamic_cast<SimpleDeviceOrientationSensor*>(s) != nullptr; }},
        {u"0x999", u"Other", plainCustom},
    };
    std::vector<hs::SensorSpec> children(std::size(cases), Custom());
    HidDeviceConfig config = HidDeviceConfig{}.WithDescriptor(hs::BuildSensorContainer(children));
    for (std::uint8_t i = 0; i < std::size(cases); ++i)
        {
        const auto id = static_cast<std::uint8_t>(i + 1);
        config.WithFeature(id, CustomFeatureReport(id, cases[i].description, 16));
    }
    DriverTestBed bed(config);
    ASSERT_EQ(bed.Prepare(), STATUS_SUCCESS);
    ASSERT_EQ(bed.Hid()->SensorCount(), std::size(cases));
    for (ULONG i = 0; i < std::size(cases); ++i) {
        SCOPED_TRACE(i);
        EXPECT_TRUE(cases[i].isExpectedClass(bed.Sensor(i)));
        EXPECT_EQ(Text(bed.Sensor(i)->GetFriendlyName()),
                  std::u16string(u"HID Sensor Collection V2: ") + cases[i].name + u"-" + char16_t(u'0' + i));
    }
    EXPECT_EQ(bed.UnloadAndCollectLeaks(), "");
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
    EXPECT_NE(dynamic_cast<ActivitySensor*>(bed.Sensor(1)), nullptr);
    EXPECT_EQ(FeatureIds(bed.Traffic()), (std::vector<int>{2, 2}));
    EXPECT_EQ(bed.UnloadAndCollectLeaks(), "");
}

TEST(Discovery, TopLevelCustomCollectionIsAPlainCustomSensorWhateverItsDescription)
{
    hs::SensorSpec sensor = Custom();
    sensor.reportId = 4;
    DriverTestBed bed(HidDeviceConfig{}
                          .WithDescriptor(hs::BuildSingleSensor(sensor))
                          .WithFeature(4, CustomFeatureReport(4, u"0x232", 16)));
    ASSERT_EQ(bed.Prepare(), STATUS_SUCCESS);
    ASSERT_EQ(bed.Hid()->SensorCount(), 1u);
    EXPECT_TRUE(IsPlainCustomSensor(bed.Sensor(0)));
    const HidCollectionRecord& record = *bed.Sensor(0)->Record();
    EXPECT_EQ(Text(record.FriendlyName), u"HID Sensor Collection V2: Activity-0");
    // No serial number: the tag is the version alone.
    EXPECT_EQ(Text(record.InstanceName), std::u16string(kDevicePath) + u"#0100:-0");
    EXPECT_EQ(Text(record.SerialNumber), u"0000");
    EXPECT_EQ(Text(record.Manufacturer), u"Orvex");
    EXPECT_EQ(Text(record.Model), u"0002");
    EXPECT_EQ(record.LinkCollection, 0);
    EXPECT_EQ(FeatureIds(bed.Traffic()), (std::vector<int>{4}));
    EXPECT_EQ(bed.UnloadAndCollectLeaks(), "");
}

TEST(Discovery, RealTopLevelAccelerometerIsOnePlaceholder)
{
    DriverTestBed bed(HidDeviceConfig{}
                          .WithDescriptor(LoadDescriptor("amd-sfh-accel3d"))
                          .WithInformation({0x1022, 0x0001, 0x0203, false}));
    ASSERT_EQ(bed.Prepare(), STATUS_SUCCESS);
    ASSERT_EQ(bed.Hid()->SensorCount(), 1u);
    const HidCollectionRecord& record = *bed.Sensor(0)->Record();
    EXPECT_EQ(dynamic_cast<CustomSensor*>(bed.Sensor(0)), nullptr);
    EXPECT_EQ(record.Usage, 0x73u);
    EXPECT_EQ(record.SensorObjectKind, 19u);
    EXPECT_EQ(Text(record.InstanceName), std::u16string(kDevicePath) + u"#0203:-0");
    EXPECT_EQ(record.HasFeatureReport, 1u);
    EXPECT_EQ(record.FeatureReportId, 1);
    EXPECT_EQ(record.IsInitialized.load(), 1u);
    EXPECT_EQ(testdriver::Module().enumerateStatus, STATUS_SUCCESS);
    EXPECT_EQ(FeatureIds(bed.Traffic()), std::vector<int>{});
    EXPECT_EQ(bed.UnloadAndCollectLeaks(), "");
}

TEST(Discovery, RealCompositeDeviceYieldsTheChildrenOfItsSensorCollection)
{
    // Keyboard, sensor collection (accelerometer, gyrometer), mouse.
    DriverTestBed bed(HidDeviceConfig{}.WithDescriptor(LoadDescriptor("hutrr39-col2")).WithSerialNumber(u"A1"));
    ASSERT_EQ(bed.Prepare(), STATUS_SUCCESS);
    ASSERT_EQ(bed.Hid()->SensorCount(), 2u);
    EXPECT_EQ(bed.Sensor(0)->Record()->Usage, 0x73u);
    EXPECT_EQ(bed.Sensor(1)->Record()->Usage, 0x76u);
    EXPECT_EQ(Text(bed.Sensor(1)->Record()->InstanceName), std::u16string(kDevicePath) + u"#0100:A1-1");
    EXPECT_EQ(bed.UnloadAndCollectLeaks(), "");
}

TEST(Discovery, CollectionsThatHoldNoSensorSucceedWithoutObjects)
{
    const HidDeviceConfig configs[] = {
        // The keyboard of a composite device: usage page 0x01.
        HidDeviceConfig{}.WithDescriptor(LoadDescriptor("hutrr39-col2")).WithDriverCollection(0),
        // A sensor collection without children.
        HidDeviceConfig{}.WithDescriptor({0x05, 0x20, 0x09, 0x01, 0xA1, 0x01, 0xC0}),
    };
    for (const HidDeviceConfig& config : configs) {
        DriverTestBed bed(config);
        ASSERT_EQ(bed.Prepare(), STATUS_SUCCESS);
        EXPECT_EQ(testdriver::Module().enumerateStatus, STATUS_SUCCESS);
        EXPECT_EQ(bed.Hid()->SensorCount(), 0u);
        EXPECT_EQ(bed.UnloadAndCollectLeaks(), "");
    }
}

host::HidCollectionEndpoint::IoctlResult AnswerInformation(BYTE* output, ULONG length, ULONG descriptorSize)
{
    HID_COLLECTION_INFORMATION information = {};
    information.DescriptorSize = descriptorSize;
    information.VersionNumber = 0x0100;
    std::memcpy(output, &information, std::min<ULONG>(length, sizeof(information)));
    return {STATUS_SUCCESS, sizeof(information), true};
}

TEST(Discovery, DescriptorSizeZeroCreatesNothingAndReportsOnlyAFailedProductString)
{
    for (const bool productFails : {false, true}) {
        HidDeviceConfig config = ThreeSensorDevice();
        if (productFails)
            config.strings.product.reset();
        DriverTestBed bed(config);
        bed.Shim().Override(IOCTL_HID_GET_COLLECTION_INFORMATION,
                            [](BYTE* output, ULONG length) { return AnswerInformation(output, length, 0); });
        ASSERT_EQ(bed.Prepare(), STATUS_SUCCESS);
        EXPECT_EQ(testdriver::Module().enumerateStatus, productFails ? STATUS_INVALID_PARAMETER : STATUS_SUCCESS);
        EXPECT_EQ(bed.Hid()->SensorCount(), 0u);
        EXPECT_EQ(bed.Shim().Calls().size(), 4u);
        EXPECT_EQ(bed.UnloadAndCollectLeaks(), "");
    }
}

TEST(Discovery, AnImpossibleDescriptorSizeIsRefusedAsOutOfMemory)
{
    DriverTestBed bed(ThreeSensorDevice());
    bed.Shim().Override(IOCTL_HID_GET_COLLECTION_INFORMATION,
                        [](BYTE* output, ULONG length) { return AnswerInformation(output, length, 0xFFFFFFFF); });
    ASSERT_EQ(bed.Prepare(), STATUS_SUCCESS);
    EXPECT_EQ(testdriver::Module().enumerateStatus, STATUS_NO_MEMORY);
    EXPECT_EQ(bed.UnloadAndCollectLeaks(), "");
}

TEST(Discovery, RequestsUseTheirExactBufferLengthsAndStringsStopAt126Characters)
{
    DriverTestBed bed(ThreeSensorDevice());
    // A serial number that fills the whole buffer, without terminator.
    bed.Shim().Override(IOCTL_HID_GET_SERIALNUMBER_STRING, [](BYTE* output, ULONG length) {
        for (ULONG i = 0; i + 1 < length; i += 2) {
            output[i] = 'S';
            output[i + 1] = 0;
        }
        return host::HidCollectionEndpoint::IoctlResult{STATUS_SUCCESS, length, true};
    });
    ASSERT_EQ(bed.Prepare(), STATUS_SUCCESS);
    const std::u16string serial(126, u'S');
    EXPECT_EQ(Text(bed.Sensor(0)->Record()->SerialNumber), serial);
    EXPECT_EQ(Text(bed.Sensor(2)->Record()->InstanceName), std::u16string(kDevicePath) + u"#0100:" + serial + u"-2");

    const HIDP_CAPS& caps = bed.Hid()->Caps();
    const std::vector<EndpointShim::Call> calls = bed.Shim().Calls();
    ASSERT_EQ(calls.size(), 9u);
    const ULONG expectedOutput[] = {12, 252, 252, 252, bed.Hid()->PreparsedDataLength(),
                                    caps.FeatureReportByteLength, caps.FeatureReportByteLength,
                                    caps.FeatureReportByteLength, caps.FeatureReportByteLength};
    for (std::size_t i = 0; i < calls.size(); ++i) {
        EXPECT_EQ(calls[i].outputLength, expectedOutput[i]) << i;
        EXPECT_EQ(calls[i].inputLength, 0u) << i;
    }
    EXPECT_EQ(bed.UnloadAndCollectLeaks(), "");
}

TEST(Discovery, FailuresBeforeTheDescriptorIsParsedAreReturnedWithoutSensors)
{
    struct Case {
        ULONG ioctl;
        NTSTATUS status;
        std::size_t trafficAfter;
    };
    const Case cases[] = {
        {IOCTL_HID_GET_COLLECTION_INFORMATION, STATUS_IO_DEVICE_ERROR, 0},
        {IOCTL_HID_GET_COLLECTION_DESCRIPTOR, STATUS_DEVICE_NOT_CONNECTED, 4},
    };
    for (const Case& c : cases) {
        DriverTestBed bed(ThreeSensorDevice());
        ASSERT_EQ(bed.Load(), STATUS_SUCCESS);
        host::FaultInjector::Instance().FailIoctl(c.ioctl, 1, c.status);
        ASSERT_EQ(bed.Host().PrepareHardware(), STATUS_SUCCESS);
        EXPECT_EQ(testdriver::Module().enumerateStatus, c.status);
        EXPECT_EQ(bed.Hid()->SensorCount(), 0u);
        EXPECT_EQ(bed.Traffic().size(), c.trafficAfter);
        EXPECT_EQ(bed.UnloadAndCollectLeaks(), "");
    }
}

TEST(Discovery, PreparsedDataTheParserRejectsFailsDiscovery)
{
    DriverTestBed bed(ThreeSensorDevice());
    bed.Shim().Override(IOCTL_HID_GET_COLLECTION_DESCRIPTOR, [](BYTE* output, ULONG length) {
        std::memset(output, 0xEE, length);
        return host::HidCollectionEndpoint::IoctlResult{STATUS_SUCCESS, length, true};
    });
    ASSERT_EQ(bed.Prepare(), STATUS_SUCCESS);
    EXPECT_EQ(testdriver::Module().enumerateStatus, HIDP_STATUS_INVALID_PREPARSED_DATA);
    EXPECT_EQ(bed.Hid()->SensorCount(), 0u);
    EXPECT_EQ(bed.UnloadAndCollectLeaks(), "");
}

TEST(Discovery, UnopenedIoctlTargetLooksLikeAnEmptyCollection)
{
    DriverTestBed bed(ThreeSensorDevice());
    ASSERT_EQ(bed.Load(), STATUS_SUCCESS);
    // The reader target opens first; the IOCTL target's open fails.
    host::FaultInjector::Instance().FailNth(host::FaultPoint::IoTargetOpen, 2, STATUS_DEVICE_NOT_CONNECTED);
    ASSERT_EQ(bed.Host().PrepareHardware(), STATUS_SUCCESS);
    EXPECT_EQ(testdriver::Module().openStatus, STATUS_DEVICE_NOT_CONNECTED);
    // Its IOCTLs succeed without data: DescriptorSize 0, no sensor.
    EXPECT_EQ(testdriver::Module().enumerateStatus, STATUS_SUCCESS);
    EXPECT_EQ(bed.Hid()->SensorCount(), 0u);
    EXPECT_TRUE(bed.Traffic().empty());
    BYTE report[8] = {};
    EXPECT_EQ(bed.Hid()->GetFeatureReport(7, report, sizeof(report), u"Test"), STATUS_SUCCESS);
    EXPECT_EQ(report[0], 7);
    EXPECT_EQ(bed.UnloadAndCollectLeaks(), "");
}

}  // namespace
}  // namespace testdriver
