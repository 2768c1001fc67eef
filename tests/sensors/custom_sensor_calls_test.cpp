// The class extension's calls on a custom sensor: the handle check, the
// size-query pattern of every list, intervals and thresholds.
#include <gtest/gtest.h>

#include <algorithm>

#include "host/common/fault_injection.h"
#include "tests/sensors/custom_sensor_test_support.h"

namespace testdriver {
namespace {

HidDeviceConfig GestureTap(std::uint32_t intervalMs = 100)
{
    return HidDeviceConfig{}
        .WithDescriptor(hs::BuildSensorContainer(
            {hs::CustomSensor(16, {hs::Property(hs::kCustomUsage, 16, 0, 0xFFFF), hs::CustomValue(1)})}))
        .WithFeature(1, FeatureReport(1, intervalMs, {u"0x210"}));
}

TEST(CustomSensorCalls, EveryListCallAnswersSizeQueryExactSizeAndOneByteShort)
{
    ClientBed t(GestureTap());
    ASSERT_EQ(t.client->SensorCount(), 1u);
    using Call = std::function<cx::CallResult(cx::ListBuffer)>;
    const std::pair<const char*, Call> calls[] = {
        {"supported data fields", [&](cx::ListBuffer b) { return t.client->GetSupportedDataFields(0, b); }},
        {"properties", [&](cx::ListBuffer b) { return t.client->GetProperties(0, b); }},
        {"thresholds", [&](cx::ListBuffer b) { return t.client->GetDataThresholds(0, b); }},
    };
    for (const auto& [what, call] : calls) {
        SCOPED_TRACE(what);
        const cx::CallResult query = call(cx::ListBuffer::SizeQuery());
        ASSERT_EQ(query.status, STATUS_SUCCESS);
        ASSERT_TRUE(query.size.has_value());
        const ULONG size = *query.size;
        const cx::CallResult exact = call(cx::ListBuffer::OfBytes(size));
        EXPECT_EQ(exact.status, STATUS_SUCCESS);
        EXPECT_EQ(exact.size, size);
        const cx::CallResult roomy = call(cx::ListBuffer::OfBytes(size + 64));
        EXPECT_EQ(roomy.status, STATUS_SUCCESS);
        EXPECT_EQ(roomy.size, size);
        const cx::CallResult shortBy1 = call(cx::ListBuffer::OfBytes(size - 1));
        EXPECT_EQ(shortBy1.status, STATUS_INSUFFICIENT_RESOURCES);
        EXPECT_EQ(shortBy1.size, 0u);
    }
    // Supported fields: timestamp, custom usage, custom value 1; thresholds: one entry.
    EXPECT_EQ(t.client->GetSupportedDataFields(0, cx::ListBuffer::SizeQuery()).size, 68u);
    EXPECT_EQ(t.client->GetDataThresholds(0, cx::ListBuffer::SizeQuery()).size, 56u);
}

TEST(CustomSensorCalls, AnotherHandleOrAbsentOutputIsRefusedAndChangesNothing)
{
    ClientBed t(GestureTap());
    ASSERT_EQ(t.client->SensorCount(), 1u);
    const cx::CallOptions impostor{.otherHandle = true};
    const cx::CallOptions noOutput{.nullOutput = true};
    cx::CollectionListCopy thresholds;
    // Nothing reaches the device, and the interval is unchanged.
    ExpectStatuses(t, {
        {"start", [&] { return t.client->Start(0, impostor); }, STATUS_UNSUCCESSFUL},
        {"stop", [&] { return t.client->Stop(0, impostor); }, STATUS_UNSUCCESSFUL},
        {"supported fields", [&] { return t.client->GetSupportedDataFields(0, {}, impostor); }, STATUS_UNSUCCESSFUL},
        {"properties", [&] { return t.client->GetProperties(0, {}, impostor); }, STATUS_UNSUCCESSFUL},
        {"get interval", [&] { return t.client->GetDataInterval(0, impostor); }, STATUS_UNSUCCESSFUL},
        {"set interval", [&] { return t.client->SetDataInterval(0, 500, impostor); }, STATUS_UNSUCCESSFUL},
        {"get thresholds", [&] { return t.client->GetDataThresholds(0, {}, impostor); }, STATUS_UNSUCCESSFUL},
        {"set thresholds", [&] { return t.client->SetDataThresholds(0, thresholds, impostor); }, STATUS_UNSUCCESSFUL},
        {"no size pointer", [&] { return t.client->GetProperties(0, cx::ListBuffer::SizeQuery(), noOutput); },
         STATUS_INVALID_PARAMETER},
        {"no fields size", [&] { return t.client->GetSupportedDataFields(0, cx::ListBuffer::SizeQuery(), noOutput); },
         STATUS_INVALID_PARAMETER},
        {"no thresholds size", [&] { return t.client->GetDataThresholds(0, cx::ListBuffer::SizeQuery(), noOutput); },
         STATUS_INVALID_PARAMETER},
        {"no interval output", [&] { return t.client->GetDataInterval(0, noOutput); }, STATUS_INVALID_PARAMETER},
        {"no thresholds list", [&] { return t.client->SetDataThresholds(0, thresholds, noOutput); },
         STATUS_INVALID_PARAMETER},
        // Data-field properties look at no handle and are never served.
        {"field properties", [&] { return t.client->GetDataFieldProperties(0, nullptr, {}, impostor); },
         STATUS_NOT_SUPPORTED},
    });
    EXPECT_EQ(t.Sensor(0)->Record()->CurrentReportInterval.load(), 100u);
    EXPECT_EQ(t.Sensor(0)->Record()->SensorProperties->List[3].Value.ulVal, 0u);
}

TEST(CustomSensorCalls, DeviceIoControlIsReportedHandledAndLeftOpen)
{
    ClientBed t(GestureTap());
    const cx::CallResult result = t.client->DeviceIoControl(0, 0x00220003, 0, 0);
    EXPECT_EQ(result.status, STATUS_SUCCESS);
    // Neither completed nor forwarded: the request still carries its initial status.
    ASSERT_TRUE(result.requestStatus.has_value());
    EXPECT_NE(*result.requestStatus, STATUS_NOT_SUPPORTED);
}

TEST(CustomSensorCalls, IntervalBelowTheMinimumIsRefusedAndTheMinimumAccepted)
{
    ClientBed t(GestureTap());
    HidCollectionRecord& record = *t.Sensor(0)->Record();
    record.forceDelivery.store(0);
    EXPECT_EQ(t.client->SetDataInterval(0, 49).status, STATUS_UNSUCCESSFUL);
    EXPECT_EQ(record.forceDelivery.load(), 0u);
    EXPECT_EQ(t.client->SetDataInterval(0, 50).status, STATUS_SUCCESS);
    EXPECT_EQ(record.forceDelivery.load(), 1u);
}

TEST(CustomSensorCalls, ThresholdOfCustomValue1IsStoredOnlyFromAFloat)
{
    ClientBed t(GestureTap());
    HidCollectionRecord& record = *t.Sensor(0)->Record();
    auto list = [](VARTYPE vt, float value) {
        PROPVARIANT threshold = Float(value);
        threshold.vt = vt;
        return ValueList({{DataKey(99), Float(9.0f)}, {DataKey(161), threshold}});
    };
    EXPECT_EQ(t.client->SetDataThresholds(0, list(VT_R4, 2.5f)).status, STATUS_SUCCESS);
    EXPECT_EQ(record.DataThresholds[3].load(), 2.5f);
    // Another type stores nothing, but the requested values still go to the device.
    t.bed.Sim().ClearTraffic();
    EXPECT_EQ(t.client->SetDataThresholds(0, list(VT_UI4, 7.0f)).status, STATUS_SUCCESS);
    EXPECT_EQ(record.DataThresholds[3].load(), 2.5f);
    std::vector<int> kinds;
    for (const host::hidsim::TrafficEvent& event : t.bed.Traffic())
        kinds.push_back(static_cast<int>(event.kind));
    EXPECT_FALSE(kinds.empty());
    EXPECT_EQ(kinds.front(), static_cast<int>(TrafficKind::GetFeature));
    EXPECT_NE(std::find(kinds.begin(), kinds.end(), static_cast<int>(TrafficKind::SetFeature)), kinds.end());
    // An entry with another key starts no write-back at all.
    t.bed.Sim().ClearTraffic();
    PROPVARIANT empty{};
    empty.vt = VT_R4;
    EXPECT_EQ(t.client->SetDataThresholds(0, ValueList({{DataKey(99), empty}})).status, STATUS_SUCCESS);
    EXPECT_TRUE(t.bed.Traffic().empty());
    for (ULONG position = 0; position < kThresholdPositions; ++position)
        EXPECT_EQ(record.DataThresholds[position].load(), position == 3 ? 2.5f : 0.0f);
}

TEST(CustomSensorCalls, RegistrationFailuresEndCleanlyWithTheirStatus)
{
    using host::FaultInjector;
    using host::FaultPoint;
    auto callsDuringPrepare = [](FaultPoint point) {
        return CallsDuringPrepare(GestureTap(), &SensorFactory::Default(), point);
    };
    // A string or CLSID that cannot be copied leaves its entry empty; the
    // sensor is still published with every list.
    const std::uint64_t copies = callsDuringPrepare(FaultPoint::CoTaskMem);
    ASSERT_GE(copies, 10u);
    for (std::uint64_t n = 1; n <= copies; ++n) {
        SCOPED_TRACE(n);
        DriverTestBed bed(GestureTap(), &SensorFactory::Default());
        ASSERT_EQ(bed.Load(), STATUS_SUCCESS);
        FaultInjector::Instance().FailNth(FaultPoint::CoTaskMem, n, 0);
        ASSERT_EQ(bed.Host().PrepareHardware(), STATUS_SUCCESS);
        EXPECT_EQ(Module().enumerateStatus, STATUS_SUCCESS);
        cx::Client client(bed.Host().Device());
        ASSERT_EQ(client.SensorCount(), 1u);
        const cx::CallResult properties = client.GetProperties(0);
        EXPECT_EQ(properties.status, STATUS_SUCCESS);
        int empty = 0;
        for (const std::string& line : Lines(client.Sensors()[0].enumeration))
            empty += line.ends_with(" EMPTY");
        for (const std::string& line : Lines(*properties.list))
            empty += line.ends_with(" EMPTY");
        EXPECT_EQ(empty, 1);
    }
    // The platform sensor, its context or a list cannot be made: the sensor
    // is not published and nothing is left behind.
    struct Case {
        FaultPoint point;
        std::uint64_t nth;  // 0: the last call of prepare-hardware
        NTSTATUS expected;
    };
    const Case cases[] = {
        {FaultPoint::SensorsCxSensorCreate, 1, STATUS_DEVICE_NOT_CONNECTED},
        {FaultPoint::SensorsCxSensorInitialize, 1, STATUS_DEVICE_NOT_CONNECTED},
        {FaultPoint::FrameworkMemory, 0, STATUS_INSUFFICIENT_RESOURCES},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(host::FaultPointName(c.point));
        const std::uint64_t nth = c.nth != 0 ? c.nth : callsDuringPrepare(c.point);
        DriverTestBed bed(GestureTap(), &SensorFactory::Default());
        ASSERT_EQ(bed.Load(), STATUS_SUCCESS);
        FaultInjector::Instance().FailNth(c.point, nth, STATUS_DEVICE_NOT_CONNECTED);
        ASSERT_EQ(bed.Host().PrepareHardware(), STATUS_SUCCESS);
        EXPECT_EQ(Module().enumerateStatus, c.expected);
        EXPECT_EQ(cx::Client(bed.Host().Device()).SensorCount(), 0u);
    }
}

}  // namespace
}  // namespace testdriver
