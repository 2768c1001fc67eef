#include <gtest/gtest.h>

#include "host/common/fault_injection.h"
#include "host/sensorscx/list_format.h"
#include "host/sensorscx/violations.h"
#include "platform/sensorsutils.h"
#include "tests/sensorscx/fake_sensor_driver.h"

namespace host::sensorscx::testing {
namespace {

class ClassExtensionTest : public FakeDriverTest {};

TEST_F(ClassExtensionTest, SensorsBecomeVisibleInInitializationOrderWithTheirEnumeration)
{
    FakeDriver().sensorCount = 3;
    FakeDriver().initializeCount = 2;
    Start();
    const auto sensors = TheClient().Sensors();
    ASSERT_EQ(sensors.size(), 2u);
    EXPECT_EQ(sensors[0].handle, Sensor(0).handle);
    EXPECT_EQ(sensors[1].handle, Sensor(1).handle);
    EXPECT_EQ(TheClient().IndexOf(Sensor(2).handle), std::nullopt);
    EXPECT_EQ(TheClient().DriverIsPowerPolicyOwner(), WdfTrue);
    ASSERT_EQ(sensors[0].enumeration.Count(), 3u);
    EXPECT_EQ(std::u16string(sensors[0].enumeration[1].Value.pwszVal), u"Fake sensor zero");
    EXPECT_EQ(ViolationLog::Instance().Count(), 0u);
}

TEST_F(ClassExtensionTest, EnumerationIsADeepCopy)
{
    Start();
    PROPVARIANT& name = Sensor(0).enumeration.get()->List[1].Value;
    name.pwszVal[0] = u'X';
    EXPECT_EQ(std::u16string(TheClient().Sensors()[0].enumeration[1].Value.pwszVal), u"Fake sensor zero");
}

TEST_F(ClassExtensionTest, DataReadyDeliversACopyTakenAtTheCall)
{
    Start();
    SampleQueue queue(TheClient());
    std::vector<std::string> seen;
    Subscription subscription = TheClient().Subscribe([&](const Sample& s) { seen.push_back(EntryText(s.values[1].Key, s.values[1].Value)); });
    ASSERT_EQ(Sensor(1).Deliver(7, 1.5f), STATUS_SUCCESS);
    // The driver reuses its list at once, strings included.
    Sensor(1).data.Set(1, 7, Str(u"overwritten"));
    Sensor(1).data.get()->List[2].Value.fltVal = 99.0f;
    ASSERT_EQ(queue.Size(), 1u);
    const Sample sample = *queue.Pop();
    EXPECT_EQ(sample.sequence, 1u);
    EXPECT_EQ(sample.sensorIndex, 1u);
    EXPECT_EQ(sample.sensor, Sensor(1).handle);
    ASSERT_EQ(sample.values.Count(), 3u);
    EXPECT_EQ(sample.values[1].Value.ulVal, 7u);
    EXPECT_EQ(sample.values[2].Value.fltVal, 1.5f);
    ASSERT_EQ(seen.size(), 1u);
    EXPECT_NE(seen[0].find("UI4 7"), std::string::npos);
    EXPECT_EQ(TheClient().LastSample(1)->values[2].Value.fltVal, 1.5f);
    EXPECT_EQ(TheClient().LastSample(0), nullptr);
}

TEST_F(ClassExtensionTest, DataReadyCopiesOnlyCountEntriesIncludingStrings)
{
    Start();
    SampleQueue queue(TheClient());
    Sensor(0).data.Set(1, 7, Str(u"text"));
    Sensor(0).data.get()->Count = 2;
    ASSERT_EQ(SensorsCxSensorDataReady(Sensor(0).handle, Sensor(0).data.get()), STATUS_SUCCESS);
    Sensor(0).data.Set(1, 7, Str(u"changed"));
    const Sample sample = *queue.Pop();
    ASSERT_EQ(sample.values.Count(), 2u);
    EXPECT_EQ(std::u16string(sample.values[1].Value.pwszVal), u"text");
}

TEST_F(ClassExtensionTest, SubscriptionEndsWithItsToken)
{
    Start();
    int calls = 0;
    {
        Subscription subscription = TheClient().Subscribe([&](const Sample&) { ++calls; });
        Sensor(0).Deliver(1, 1);
    }
    Sensor(0).Deliver(2, 2);
    EXPECT_EQ(calls, 1);
}

TEST_F(ClassExtensionTest, CountBeyondTheAllocationIsRefusedAndReported)
{
    Start();
    SampleQueue queue(TheClient());
    Sensor(0).data.get()->Count = 4;  // the list holds 3
    EXPECT_EQ(SensorsCxSensorDataReady(Sensor(0).handle, Sensor(0).data.get()), STATUS_INVALID_PARAMETER);
    Sensor(0).data.get()->Count = 3;
    EXPECT_EQ(queue.Size(), 0u);
    const auto entries = ViolationLog::Instance().Entries();
    ASSERT_EQ(entries.size(), 1u);
    EXPECT_EQ(entries[0].kind, ViolationKind::ListCountExceedsSize);
    EXPECT_EQ(entries[0].what,
              "SensorsCxSensorDataReady on sensor 0: Count 4 needs 200 bytes, AllocatedSizeInBytes is 152");
    ViolationLog::Instance().Reset();
}

TEST_F(ClassExtensionTest, DataReadyForAnUninitializedSensorIsReported)
{
    FakeDriver().initializeCount = 1;
    Start();
    EXPECT_EQ(Sensor(1).Deliver(1, 1), STATUS_INVALID_DEVICE_STATE);
    ASSERT_EQ(ViolationLog::Instance().Count(), 1u);
    EXPECT_EQ(ViolationLog::Instance().Entries()[0].kind, ViolationKind::SensorNotInitialized);
    ViolationLog::Instance().Reset();
}

TEST_F(ClassExtensionTest, CallsOnADeletedSensorAreReportedNotFollowed)
{
    Start();
    const SENSOROBJECT gone = Sensor(0).handle;
    WdfObjectDelete(gone);
    EXPECT_EQ(TheClient().SensorCount(), 1u);
    EXPECT_EQ(TheClient().SensorHandle(0), Sensor(1).handle);
    EXPECT_EQ(SensorsCxSensorDataReady(gone, Sensor(0).data.get()), STATUS_INVALID_PARAMETER);
    EXPECT_EQ(SensorsCxSensorHistoryRetrievalComplete(gone, 8, STATUS_SUCCESS), STATUS_INVALID_PARAMETER);
    int local = 0;
    EXPECT_EQ(SensorsCxSensorDataReady(reinterpret_cast<SENSOROBJECT>(&local), Sensor(1).data.get()),
              STATUS_INVALID_PARAMETER);
    const auto entries = ViolationLog::Instance().Entries();
    ASSERT_EQ(entries.size(), 3u);
    EXPECT_EQ(entries[0].what, "SensorsCxSensorDataReady on a deleted SENSOROBJECT");
    EXPECT_EQ(entries[2].what, "SensorsCxSensorDataReady on a handle that is no SENSOROBJECT");
    ViolationLog::Instance().Reset();
}

TEST_F(ClassExtensionTest, InitializeTwiceAndBadConfigsAreReported)
{
    Start();
    SENSOR_CONFIG config{sizeof(SENSOR_CONFIG), Sensor(0).enumeration.get()};
    EXPECT_EQ(SensorsCxSensorInitialize(Sensor(0).handle, &config), STATUS_INVALID_DEVICE_STATE);
    config.Size = 8;
    EXPECT_EQ(SensorsCxSensorInitialize(Sensor(0).handle, &config), STATUS_INVALID_PARAMETER);
    EXPECT_EQ(SensorsCxSensorInitialize(Sensor(0).handle, nullptr), STATUS_INVALID_PARAMETER);
    SENSOR_CONTROLLER_CONFIG controller{};
    controller.Size = sizeof(controller);
    EXPECT_EQ(SensorsCxDeviceInitialize(host_->Device(), &controller), STATUS_INVALID_DEVICE_STATE);
    std::vector<ViolationKind> kinds;
    for (const Violation& v : ViolationLog::Instance().Entries())
        kinds.push_back(v.kind);
    ASSERT_GE(kinds.size(), 4u);
    EXPECT_EQ(kinds[0], ViolationKind::InitializedTwice);
    EXPECT_EQ(kinds[1], ViolationKind::BadConfigSize);
    EXPECT_EQ(kinds[2], ViolationKind::NullArgument);
    EXPECT_EQ(kinds.back(), ViolationKind::InitializedTwice);
    EXPECT_EQ(TheClient().SensorCount(), 2u);
    ViolationLog::Instance().Reset();
}

TEST_F(ClassExtensionTest, MissingCallbackIsReportedAndAnsweredNotImplemented)
{
    FakeDriver().nullCallback = 4;  // EvtSensorGetDataInterval
    Start();
    ASSERT_EQ(ViolationLog::Instance().Count(), 1u);
    EXPECT_EQ(ViolationLog::Instance().Entries()[0].what,
              "SensorsCxDeviceInitialize: EvtSensorGetDataInterval is null");
    EXPECT_EQ(TheClient().GetDataInterval(0).status, STATUS_NOT_IMPLEMENTED);
    EXPECT_EQ(TheClient().Start(0).status, STATUS_SUCCESS);
    ViolationLog::Instance().Reset();
}

TEST_F(ClassExtensionTest, WrongControllerConfigSizeFailsDeviceAdd)
{
    FakeDriver().configSize = 128;
    Start();
    EXPECT_FALSE(TheClient().Bound());
    EXPECT_TRUE(ViolationLog::Instance().Contains(ViolationKind::BadConfigSize));
    ViolationLog::Instance().Reset();
}

TEST_F(ClassExtensionTest, InitializeWithoutInitConfigIsOutOfOrder)
{
    FakeDriver().skipInitConfig = true;
    Start();
    EXPECT_FALSE(TheClient().Bound());
    EXPECT_TRUE(ViolationLog::Instance().Contains(ViolationKind::OutOfOrder));
    ViolationLog::Instance().Reset();
}

TEST_F(ClassExtensionTest, InjectedFaultsFailTheCallsWithoutSideEffects)
{
    FaultInjector::Instance().FailNth(FaultPoint::SensorsCxSensorInitialize, 2, STATUS_INSUFFICIENT_RESOURCES);
    Start();
    EXPECT_FALSE(TheClient().Bound());  // the failed sensor failed device add
    EXPECT_EQ(ViolationLog::Instance().Count(), 0u);
}

TEST_F(ClassExtensionTest, InjectedDataReadyFaultDeliversNothing)
{
    Start();
    SampleQueue queue(TheClient());
    FaultInjector::Instance().FailNth(FaultPoint::SensorsCxSensorDataReady, 1, STATUS_NO_MEMORY);
    EXPECT_EQ(Sensor(0).Deliver(1, 1), STATUS_NO_MEMORY);
    EXPECT_EQ(Sensor(0).Deliver(2, 2), STATUS_SUCCESS);
    ASSERT_EQ(queue.Size(), 1u);
    EXPECT_EQ(queue.Pop()->values[1].Value.ulVal, 2u);
}

TEST_F(ClassExtensionTest, SensorEventsReachListeners)
{
    FakeDriver().initializeCount = 1;
    Start();
    std::vector<std::size_t> announced;
    Subscription subscription = TheClient().OnSensorInitialized([&](const SensorInfo& info) {
        announced.push_back(info.index);
        EXPECT_EQ(info.enumeration.Count(), 3u);
    });
    SENSOR_CONFIG config{sizeof(SENSOR_CONFIG), Sensor(1).enumeration.get()};
    ASSERT_EQ(SensorsCxSensorInitialize(Sensor(1).handle, &config), STATUS_SUCCESS);
    EXPECT_EQ(announced, std::vector<std::size_t>{1});
}

}  // namespace
}  // namespace host::sensorscx::testing
