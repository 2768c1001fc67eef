// The class extension as the fake driver sees it (registration, DataReady,
// contract violations) and as a client sees it (calls with each buffer mode).
#include <gtest/gtest.h>

#include <functional>

#include "host/common/fault_injection.h"
#include "host/sensorscx/list_format.h"
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
    Subscription subscription = TheClient().OnSensorInitialized([&](const SensorInfo& info) {
        announced.push_back(info.index);
        EXPECT_EQ(info.enumeration.Count(), 3u);
    });
    SENSOR_CONFIG config{sizeof(SENSOR_CONFIG), Sensor(1).enumeration.get()};
    ASSERT_EQ(SensorsCxSensorInitialize(Sensor(1).handle, &config), STATUS_SUCCESS);
    EXPECT_EQ(announced, std::vector<std::size_t>{1});
    Sensor(0).enumeration.get()->List[1].Value.pwszVal[0] = u'X';  // the copy must not follow

    const auto sensors = TheClient().Sensors();
    ASSERT_EQ(sensors.size(), 2u);
    EXPECT_EQ(sensors[0].handle, Sensor(0).handle);
    EXPECT_EQ(sensors[1].handle, Sensor(1).handle);
    EXPECT_EQ(TheClient().IndexOf(Sensor(2).handle), std::nullopt);
    EXPECT_EQ(TheClient().DriverIsPowerPolicyOwner(), WdfTrue);
    EXPECT_EQ(std::u16string(sensors[0].enumeration[1].Value.pwszVal), u"Fake sensor zero");
}

TEST_F(ClassExtensionTest, DataReadyDeliversADeepCopyOfCountEntriesTakenAtTheCall)
{
    Start();
    SampleQueue queue(TheClient());
    std::vector<std::string> seen;
    {
        Subscription subscription = TheClient().Subscribe(
            [&](const Sample& s) { seen.push_back(EntryText(s.values[1].Key, s.values[1].Value)); });
        ASSERT_EQ(Sensor(1).Deliver(7, 1.5f), STATUS_SUCCESS);
    }
    // The driver reuses its list at once, strings included.
    Sensor(1).data.Set(1, 7, Str(u"text"));
    Sensor(1).data.get()->List[2].Value.fltVal = 99.0f;
    Sensor(1).data.get()->Count = 2;
    ASSERT_EQ(SensorsCxSensorDataReady(Sensor(1).handle, Sensor(1).data.get()), STATUS_SUCCESS);
    Sensor(1).data.Set(1, 7, Str(u"changed"));

    const auto samples = queue.Drain();
    ASSERT_EQ(samples.size(), 2u);
    EXPECT_EQ(samples[0].sequence, 1u);
    EXPECT_EQ(samples[0].sensorIndex, 1u);
    EXPECT_EQ(samples[0].sensor, Sensor(1).handle);
    ASSERT_EQ(samples[0].values.Count(), 3u);
    EXPECT_EQ(samples[0].values[1].Value.ulVal, 7u);
    EXPECT_EQ(samples[0].values[2].Value.fltVal, 1.5f);
    ASSERT_EQ(samples[1].values.Count(), 2u);
    EXPECT_EQ(std::u16string(samples[1].values[1].Value.pwszVal), u"text");
    ASSERT_EQ(seen.size(), 1u);  // the subscription ended with its token
    EXPECT_NE(seen[0].find("UI4 7"), std::string::npos);
    EXPECT_EQ(std::u16string(TheClient().LastSample(1)->values[1].Value.pwszVal), u"text");
    EXPECT_EQ(TheClient().LastSample(0), nullptr);
}

TEST_F(ClassExtensionTest, BadDataReadyCallsAreRefusedReportedAndDeliverNothing)
{
    FakeDriver().sensorCount = 3;
    FakeDriver().initializeCount = 2;
    Start();
    SampleQueue queue(TheClient());
    Sensor(0).data.get()->Count = 4;  // the list holds 3
    EXPECT_EQ(SensorsCxSensorDataReady(Sensor(0).handle, Sensor(0).data.get()), STATUS_INVALID_PARAMETER);
    Sensor(0).data.get()->Count = 3;
    EXPECT_EQ(ViolationLog::Instance().Entries().at(0).what,
              "SensorsCxSensorDataReady on sensor 0: Count 4 needs 200 bytes, AllocatedSizeInBytes is 152");
    EXPECT_EQ(Sensor(2).Deliver(1, 1), STATUS_INVALID_DEVICE_STATE);

    const SENSOROBJECT gone = Sensor(1).handle;
    WdfObjectDelete(gone);
    EXPECT_EQ(TheClient().SensorCount(), 1u);
    EXPECT_EQ(SensorsCxSensorDataReady(gone, Sensor(0).data.get()), STATUS_INVALID_PARAMETER);
    EXPECT_EQ(SensorsCxSensorHistoryRetrievalComplete(gone, 8, STATUS_SUCCESS), STATUS_INVALID_PARAMETER);
    int local = 0;
    EXPECT_EQ(SensorsCxSensorDataReady(reinterpret_cast<SENSOROBJECT>(&local), Sensor(0).data.get()),
              STATUS_INVALID_PARAMETER);
    EXPECT_EQ(ViolationLog::Instance().Entries().at(2).what, "SensorsCxSensorDataReady on a deleted SENSOROBJECT");
    EXPECT_EQ(ViolationLog::Instance().Entries().at(4).what,
              "SensorsCxSensorDataReady on a handle that is no SENSOROBJECT");
    EXPECT_EQ(TakeViolations().size(), 5u);

    // An injected failure is no violation and leaves no trace either.
    FaultInjector::Instance().FailNth(FaultPoint::SensorsCxSensorDataReady, 1, STATUS_NO_MEMORY);
    EXPECT_EQ(Sensor(0).Deliver(1, 1), STATUS_NO_MEMORY);
    EXPECT_EQ(Sensor(0).Deliver(2, 2), STATUS_SUCCESS);
    const auto samples = queue.Drain();
    ASSERT_EQ(samples.size(), 1u);
    EXPECT_EQ(samples[0].values[1].Value.ulVal, 2u);
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
    const auto kinds = TakeViolations();
    ASSERT_GE(kinds.size(), 4u);
    EXPECT_EQ(std::vector<VK>(kinds.begin(), kinds.begin() + 3),
              (std::vector<VK>{VK::InitializedTwice, VK::BadConfigSize, VK::NullArgument}));
    EXPECT_EQ(kinds.back(), VK::InitializedTwice);
    EXPECT_EQ(TheClient().SensorCount(), 2u);
}

struct DeviceAddCase {
    const char* name;
    FakeDriverConfig config;
    std::uint64_t failInitialize;  // n-th SensorsCxSensorInitialize fails; 0: none
    bool bound;
    std::vector<VK> violations;
};

class DeviceAdd : public FakeDriverTest, public ::testing::WithParamInterface<DeviceAddCase> {};

TEST_P(DeviceAdd, BrokenSetupIsReportedOrFailsTheDevice)
{
    FakeDriver() = GetParam().config;
    if (GetParam().failInitialize != 0)
        FaultInjector::Instance().FailNth(FaultPoint::SensorsCxSensorInitialize, GetParam().failInitialize,
                                          STATUS_INSUFFICIENT_RESOURCES);
    Start();
    EXPECT_EQ(TheClient().Bound(), GetParam().bound);
    EXPECT_EQ(TakeViolations(), GetParam().violations);
    if (GetParam().bound) {  // a missing callback is answered by the class extension
        EXPECT_EQ(TheClient().GetDataInterval(0).status, STATUS_NOT_IMPLEMENTED);
        EXPECT_EQ(TheClient().Start(0).status, STATUS_SUCCESS);
    }
}

INSTANTIATE_TEST_SUITE_P(
    Cases, DeviceAdd,
    ::testing::Values(DeviceAddCase{"NullCallback", {.nullCallback = 4}, 0, true, {VK::MissingCallback}},
                      DeviceAddCase{"ConfigSize", {.configSize = 128}, 0, false, {VK::BadConfigSize}},
                      DeviceAddCase{"NoInitConfig", {.skipInitConfig = true}, 0, false, {VK::OutOfOrder}},
                      DeviceAddCase{"InjectedFault", {}, 2, false, {}}),
    [](const auto& p) { return std::string(p.param.name); });

class ClientTest : public FakeDriverTest {
protected:
    void SetUp() override
    {
        FakeDriverTest::SetUp();
        Start();
    }
};

struct ListCall {
    const char* name;
    std::function<CallResult(Client&, ListBuffer)> call;
    ULONG needed;
    std::size_t count;
};

std::size_t Returned(const CallResult& r)
{
    return r.list ? r.list->Count() : r.keys ? r.keys->size() : 0;
}

TEST_F(ClientTest, EveryListCallHonoursEachBufferMode)
{
    const ListCall calls[] = {
        {"properties", [](Client& c, ListBuffer b) { return c.GetProperties(0, b); }, 8 + 3 * 48 + 2 * 22, 3},
        {"thresholds", [](Client& c, ListBuffer b) { return c.GetDataThresholds(0, b); }, 8 + 48, 1},
        {"field properties", [](Client& c, ListBuffer b) { return c.GetDataFieldProperties(0, &kTimestampKey, b); },
         8 + 2 * 48, 2},
        {"fields", [](Client& c, ListBuffer b) { return c.GetSupportedDataFields(1, b); }, 8 + 2 * 20, 2},
    };
    for (const ListCall& c : calls) {
        SCOPED_TRACE(c.name);
        const CallResult query = c.call(TheClient(), ListBuffer::SizeQuery());
        EXPECT_EQ(query.status, STATUS_SUCCESS);
        EXPECT_EQ(query.size, c.needed);
        EXPECT_EQ(Returned(query), 0u);
        for (ListBuffer fits : {ListBuffer::Exact(), ListBuffer::OfBytes(c.needed)}) {
            const CallResult r = c.call(TheClient(), fits);
            EXPECT_EQ(r.status, STATUS_SUCCESS);
            EXPECT_EQ(r.size, c.needed);
            EXPECT_EQ(Returned(r), c.count);
        }
        const CallResult shortBuffer = c.call(TheClient(), ListBuffer::OfBytes(c.needed - 1));
        EXPECT_EQ(shortBuffer.status, STATUS_INSUFFICIENT_RESOURCES);
        EXPECT_EQ(shortBuffer.size, 0u);
        EXPECT_EQ(Returned(shortBuffer), 0u);
    }
    const CallResult properties = TheClient().GetProperties(0);
    EXPECT_EQ(std::u16string(properties.list->List().List[1].Value.pwszVal), u"Manufacturer \"quoted\"");
    const CallResult fields = TheClient().GetSupportedDataFields(1);
    EXPECT_EQ(PropertyListJson(fields.keys->data(), 2),
              "[\"{C458F8A7-4AE8-4777-9607-2E9BDD65110A} 2\",\"{C458F8A7-4AE8-4777-9607-2E9BDD65110A} 130\"]");
    const PROPERTYKEY other{kDataFmtid, 131};
    const CallResult unsupported = TheClient().GetDataFieldProperties(0, &other);
    EXPECT_EQ(unsupported.status, STATUS_NOT_SUPPORTED);
    EXPECT_EQ(unsupported.size, 0u);
    EXPECT_EQ(TheClient().GetDataFieldProperties(0, nullptr).status, STATUS_INVALID_PARAMETER);
}

TEST_F(ClientTest, NullOutputAndForeignHandlesAreRefusedByTheDriver)
{
    CallOptions nullOutput;
    nullOutput.nullOutput = true;
    const CallResult thresholds = TheClient().GetDataThresholds(0, ListBuffer::Exact(), nullOutput);
    EXPECT_EQ(thresholds.status, STATUS_INVALID_PARAMETER);
    EXPECT_FALSE(thresholds.size.has_value());
    const CallResult interval = TheClient().GetDataInterval(0, nullOutput);
    EXPECT_EQ(interval.status, STATUS_INVALID_PARAMETER);
    EXPECT_FALSE(interval.ms.has_value());
    EXPECT_EQ(TheClient().SetDataThresholds(0, CollectionListCopy(), nullOutput).status, STATUS_INVALID_PARAMETER);
    EXPECT_EQ(TheClient().CancelHistoryRetrieval(0, nullOutput).status, STATUS_INVALID_PARAMETER);

    CallOptions other;
    other.otherHandle = true;
    EXPECT_EQ(TheClient().Start(1, other).status, STATUS_UNSUCCESSFUL);
    EXPECT_EQ(Sensor(1).starts.load(), 0);
    const CallResult foreign = TheClient().GetDataThresholds(1, ListBuffer::SizeQuery(), other);
    EXPECT_EQ(foreign.status, STATUS_UNSUCCESSFUL);
    EXPECT_EQ(foreign.size, 0u);
    EXPECT_EQ(TheClient().StartHistoryRetrieval(1, 1000, other).status, STATUS_INVALID_PARAMETER);
    // The real handle still works, and the impostor left nothing behind.
    EXPECT_EQ(TheClient().Start(1).status, STATUS_SUCCESS);
    EXPECT_EQ(Sensor(1).starts.load(), 1);

    EXPECT_EQ(TheClient().Start(2).status, kNoSuchSensor);
    EXPECT_EQ(TheClient().GetProperties(7).status, kNoSuchSensor);
    EXPECT_EQ(TheClient().SensorHandle(2), nullptr);
    const CallResult ioctl = TheClient().DeviceIoControl(0, 0x00220003, 4, 16);
    EXPECT_EQ(ioctl.status, STATUS_SUCCESS);
    EXPECT_EQ(ioctl.requestStatus, STATUS_NOT_SUPPORTED);
}

TEST_F(ClientTest, IntervalsAndThresholdsRoundTripThroughTheClientsOwnCopy)
{
    EXPECT_EQ(TheClient().SetDataInterval(0, 49).status, STATUS_UNSUCCESSFUL);
    EXPECT_EQ(TheClient().SetDataInterval(0, 250).status, STATUS_SUCCESS);
    EXPECT_EQ(TheClient().GetDataInterval(0).ms, 250u);

    DriverList wanted(1);
    wanted.Set(0, 161, R4(2.5f), kDataFmtid);
    const CollectionListCopy thresholds = CollectionListCopy::FromList(*wanted.get());
    EXPECT_EQ(TheClient().SetDataThresholds(0, thresholds).status, STATUS_SUCCESS);
    ASSERT_TRUE(Sensor(0).lastThresholds.has_value());
    EXPECT_EQ((*Sensor(0).lastThresholds)[0].Value.fltVal, 2.5f);
    EXPECT_EQ(thresholds.Count(), 1u);  // the driver scribbled on its own copy only
    EXPECT_EQ(CollectionListJson(*TheClient().GetDataThresholds(0).list),
              "[{\"key\":\"{C458F8A7-4AE8-4777-9607-2E9BDD65110A} 161\",\"vt\":\"R4\",\"value\":0.5}]");
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
        {"overrun", {.overrun = true, .rewriteAllocated = true}, {}, STATUS_SUCCESS,
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
    std::vector<std::string> heard;
    ViolationLog::Instance().SetListener([&](const Violation& v) { heard.push_back(v.what); });
    Sensor(0).misbehave = {.sizeQueryShortBy = 1};
    TheClient().GetDataThresholds(0);
    ViolationLog::Instance().SetListener(nullptr);
    EXPECT_EQ(heard, std::vector<std::string>{"EvtSensorGetDataThresholds on sensor 0: refused a buffer of the 55 "
                                              "bytes its size query asked for"});
    TakeViolations();
}

}  // namespace
}  // namespace host::sensorscx::testing
