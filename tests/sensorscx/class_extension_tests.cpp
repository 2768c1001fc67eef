// The class extension as the fake driver sees it: registration, DataReady and
// the contract violations the real driver never commits (its ordinary calls
// are tested through the real driver).
#include <gtest/gtest.h>

#include "platform/sensorsutils.h"
#include "tests/sensorscx/fake_sensor_driver.h"

namespace host::sensorscx::testing {
namespace {

using VK = ViolationKind;

class ClassExtensionTest : public FakeDriverTest {};

TEST_F(ClassExtensionTest, SensorsAppearAsTheyAreInitializedWithACopyOfTheirEnumeration)
{
    FakeDriver().sensorCount = 3;
    FakeDriver().initializeCount = 1;
    Start();
    std::vector<std::size_t> announced;
    Subscription subscription = TheClient().OnSensorInitialized([&](const SensorInfo& i) { announced.push_back(i.index); });
    SENSOR_CONFIG config{sizeof(SENSOR_CONFIG), Sensor(1).enumeration.get()};
    ASSERT_EQ(SensorsCxSensorInitialize(Sensor(1).handle, &config), STATUS_SUCCESS);
    EXPECT_EQ(announced, std::vector<std::size_t>{1});
    Sensor(0).enumeration.get()->List[1].Value.pwszVal[0] = u'X';  // the copy must not follow

    const auto sensors = TheClient().Sensors();
    ASSERT_EQ(sensors.size(), 2u);
    EXPECT_EQ(sensors[1].handle, Sensor(1).handle);
    EXPECT_EQ(TheClient().IndexOf(Sensor(2).handle), std::nullopt);
    EXPECT_EQ(TheClient().Start(2).status, kNoSuchSensor);
    EXPECT_EQ(std::u16string(sensors[0].enumeration[1].Value.pwszVal), u"Fake sensor");
}

TEST_F(ClassExtensionTest, DataReadyDeliversADeepCopyOfCountEntriesTakenAtTheCall)
{
    Start();
    SampleQueue queue(TheClient());
    int seen = 0;
    {
        Subscription subscription = TheClient().Subscribe([&](const Sample&) { ++seen; });
        ASSERT_EQ(Sensor(1).Deliver(7, 1.5f), STATUS_SUCCESS);
    }
    // The driver reuses its list at once, strings included.
    Sensor(1).data.Set(1, 7, Str(u"text"));
    Sensor(1).data.get()->Count = 2;
    ASSERT_EQ(SensorsCxSensorDataReady(Sensor(1).handle, Sensor(1).data.get()), STATUS_SUCCESS);
    Sensor(1).data.Set(1, 7, Str(u"changed"));

    const auto samples = queue.Drain();
    ASSERT_EQ(samples.size(), 2u);
    EXPECT_EQ(samples[0].sensorIndex, 1u);
    ASSERT_EQ(samples[0].values.Count(), 3u);
    EXPECT_EQ(samples[0].values[1].Value.ulVal, 7u);
    EXPECT_EQ(samples[0].values[2].Value.fltVal, 1.5f);
    ASSERT_EQ(samples[1].values.Count(), 2u);
    EXPECT_EQ(std::u16string(samples[1].values[1].Value.pwszVal), u"text");
    EXPECT_EQ(seen, 1);  // the subscription ended with its token
    EXPECT_EQ(std::u16string(TheClient().LastSample(1)->values[1].Value.pwszVal), u"text");
}

TEST_F(ClassExtensionTest, BadDataReadyAndInitializeCallsAreRefusedAndReported)
{
    FakeDriver().sensorCount = 3;
    FakeDriver().initializeCount = 2;
    Start();
    SampleQueue queue(TheClient());
    Sensor(0).data.get()->Count = 4;  // the list holds 3
    EXPECT_EQ(SensorsCxSensorDataReady(Sensor(0).handle, Sensor(0).data.get()), STATUS_INVALID_PARAMETER);
    EXPECT_EQ(ViolationLog::Instance().Entries().at(0).what,
              "SensorsCxSensorDataReady on sensor 0: Count 4 needs 200 bytes, AllocatedSizeInBytes is 152");
    EXPECT_EQ(Sensor(2).Deliver(1, 1), STATUS_INVALID_DEVICE_STATE);

    const SENSOROBJECT gone = Sensor(1).handle;
    WdfObjectDelete(gone);
    EXPECT_EQ(TheClient().SensorCount(), 1u);
    EXPECT_EQ(SensorsCxSensorDataReady(gone, Sensor(0).data.get()), STATUS_INVALID_PARAMETER);
    int local = 0;
    EXPECT_EQ(SensorsCxSensorDataReady(reinterpret_cast<SENSOROBJECT>(&local), Sensor(0).data.get()),
              STATUS_INVALID_PARAMETER);
    EXPECT_EQ(TakeViolations().size(), 4u);
    EXPECT_TRUE(queue.Drain().empty());

    SENSOR_CONFIG config{sizeof(SENSOR_CONFIG), Sensor(0).enumeration.get()};
    EXPECT_EQ(SensorsCxSensorInitialize(Sensor(0).handle, &config), STATUS_INVALID_DEVICE_STATE);
    config.Size = 8;
    EXPECT_EQ(SensorsCxSensorInitialize(Sensor(0).handle, &config), STATUS_INVALID_PARAMETER);
    EXPECT_EQ(SensorsCxSensorInitialize(Sensor(0).handle, nullptr), STATUS_INVALID_PARAMETER);
    SENSOR_CONTROLLER_CONFIG controller{};
    controller.Size = sizeof(controller);
    EXPECT_EQ(SensorsCxDeviceInitialize(host_->Device(), &controller), STATUS_INVALID_DEVICE_STATE);
    const auto kinds = TakeViolations();
    ASSERT_GE(kinds.size(), 4u);
    EXPECT_EQ(std::vector<VK>(kinds.begin(), kinds.begin() + 3),
              (std::vector<VK>{VK::InitializedTwice, VK::BadConfigSize, VK::NullArgument}));
    EXPECT_EQ(kinds.back(), VK::InitializedTwice);
}

struct DeviceAddCase {
    const char* name;
    FakeDriverConfig config;
    bool bound;
    std::vector<VK> violations;
};

class DeviceAdd : public FakeDriverTest, public ::testing::WithParamInterface<DeviceAddCase> {};

TEST_P(DeviceAdd, BrokenSetupIsReportedOrFailsTheDevice)
{
    FakeDriver() = GetParam().config;
    Start();
    EXPECT_EQ(TheClient().Bound(), GetParam().bound);
    EXPECT_EQ(TakeViolations(), GetParam().violations);
    if (GetParam().bound) {  // a missing callback is answered by the class extension
        EXPECT_EQ(TheClient().Start(0).status, STATUS_NOT_IMPLEMENTED);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Cases, DeviceAdd,
    ::testing::Values(DeviceAddCase{"NullCallback", {.nullStart = true}, true, {VK::MissingCallback}},
                      DeviceAddCase{"ConfigSize", {.configSize = 128}, false, {VK::BadConfigSize}},
                      DeviceAddCase{"NoInitConfig", {.skipInitConfig = true}, false, {VK::OutOfOrder}}),
    [](const auto& p) { return std::string(p.param.name); });

class ClientTest : public StartedDriverTest {};

TEST_F(ClientTest, ThresholdsReachTheDriverAsACopyItMayScribbleOn)
{
    DriverList wanted(1);
    wanted.Set(0, 161, R4(2.5f), kDataFmtid);
    const CollectionListCopy thresholds = CollectionListCopy::FromList(*wanted.get());
    EXPECT_EQ(TheClient().SetDataThresholds(0, thresholds).status, STATUS_SUCCESS);
    ASSERT_TRUE(Sensor(0).lastThresholds.has_value());
    EXPECT_EQ((*Sensor(0).lastThresholds)[0].Value.fltVal, 2.5f);
    EXPECT_EQ(thresholds.Count(), 1u);
}

TEST_F(ClientTest, ListCallbacksThatBreakTheContractAreReported)
{
    struct Case {
        const char* name;
        Misbehaviour misbehave;
        ListBuffer buffer;
        NTSTATUS status;
        std::vector<VK> violations;
    };
    const Case cases[] = {
        {"size query short", {.sizeQueryShortBy = 2}, {}, STATUS_INSUFFICIENT_RESOURCES, {VK::SizeTooSmall}},
        {"count beyond", {.countBeyondBuffer = true}, ListBuffer::OfBytes(400), STATUS_SUCCESS,
         {VK::ListCountExceedsSize}},
        {"shallow copy", {.shallowCopy = true}, {}, STATUS_SUCCESS, {VK::ListContentOutsideBuffer}},
        {"overrun", {.overrun = true}, {}, STATUS_SUCCESS,
         {VK::AllocatedSizeChanged, VK::BufferOverrun}},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        Sensor(0).misbehave = c.misbehave;
        const CallResult result = TheClient().GetProperties(0, c.buffer);
        EXPECT_EQ(result.status, c.status);
        EXPECT_EQ(TakeViolations(), c.violations);
        if (c.misbehave.countBeyondBuffer) {  // only what the buffer holds is read
            EXPECT_EQ(result.list->Count(), (400u - 8) / 48);
        }
        if (c.misbehave.shallowCopy) {  // pointers out of the buffer are dropped
            EXPECT_EQ(result.list->List().List[1].Value.pwszVal, nullptr);
        }
    }
}

}  // namespace
}  // namespace host::sensorscx::testing
