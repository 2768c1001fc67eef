#include <gtest/gtest.h>

#include "host/sensorscx/list_format.h"
#include "host/sensorscx/violations.h"
#include "platform/sensorsutils.h"
#include "tests/sensorscx/fake_sensor_driver.h"

namespace host::sensorscx::testing {
namespace {

class ClientTest : public FakeDriverTest {
protected:
    void SetUp() override
    {
        FakeDriverTest::SetUp();
        Start();
    }

    std::vector<ViolationKind> Kinds()
    {
        std::vector<ViolationKind> kinds;
        for (const Violation& v : ViolationLog::Instance().Entries())
            kinds.push_back(v.kind);
        ViolationLog::Instance().Reset();
        return kinds;
    }

    // Properties of a fake sensor: three entries, one string of 22 units.
    static constexpr ULONG kPropertiesSize = 8 + 3 * 48 + 2 * 22;
};

TEST_F(ClientTest, SizeQueryExactAndTooSmallBuffers)
{
    const CallResult query = TheClient().GetProperties(0, ListBuffer::SizeQuery());
    EXPECT_EQ(query.status, STATUS_SUCCESS);
    EXPECT_EQ(query.size, kPropertiesSize);
    EXPECT_FALSE(query.list.has_value());

    const CallResult exact = TheClient().GetProperties(0, ListBuffer::Exact());
    ASSERT_EQ(exact.status, STATUS_SUCCESS);
    EXPECT_EQ(exact.size, kPropertiesSize);
    ASSERT_TRUE(exact.list.has_value());
    EXPECT_EQ(exact.list->Count(), 3u);
    EXPECT_EQ(std::u16string(exact.list->List().List[1].Value.pwszVal), u"Manufacturer \"quoted\"");

    const CallResult shortBuffer = TheClient().GetProperties(0, ListBuffer::OfBytes(kPropertiesSize - 1));
    EXPECT_EQ(shortBuffer.status, STATUS_INSUFFICIENT_RESOURCES);
    EXPECT_EQ(shortBuffer.size, 0u);
    EXPECT_FALSE(shortBuffer.list.has_value());
    EXPECT_TRUE(Kinds().empty());
}

TEST_F(ClientTest, SupportedDataFieldsComeBackAsKeys)
{
    const CallResult fields = TheClient().GetSupportedDataFields(1);
    ASSERT_EQ(fields.status, STATUS_SUCCESS);
    EXPECT_EQ(fields.size, 8u + 2 * 20);
    ASSERT_TRUE(fields.keys.has_value());
    EXPECT_EQ(PropertyListJson(fields.keys->data(), 2),
              "[\"{C458F8A7-4AE8-4777-9607-2E9BDD65110A} 2\",\"{C458F8A7-4AE8-4777-9607-2E9BDD65110A} 130\"]");
    EXPECT_EQ(TheClient().GetSupportedDataFields(1, ListBuffer::OfBytes(47)).status, STATUS_INSUFFICIENT_RESOURCES);
}

TEST_F(ClientTest, NullOutputPassesNoOutputPointer)
{
    CallOptions nullOutput;
    nullOutput.nullOutput = true;
    CallResult thresholds = TheClient().GetDataThresholds(0, ListBuffer::Exact(), nullOutput);
    EXPECT_EQ(thresholds.status, STATUS_INVALID_PARAMETER);
    EXPECT_FALSE(thresholds.size.has_value());
    CallResult interval = TheClient().GetDataInterval(0, nullOutput);
    EXPECT_EQ(interval.status, STATUS_INVALID_PARAMETER);
    EXPECT_FALSE(interval.ms.has_value());
    EXPECT_EQ(TheClient().SetDataThresholds(0, CollectionListCopy(), nullOutput).status, STATUS_INVALID_PARAMETER);
    EXPECT_EQ(TheClient().CancelHistoryRetrieval(0, nullOutput).status, STATUS_INVALID_PARAMETER);
}

TEST_F(ClientTest, OtherHandleReachesTheSensorObjectWithAForeignHandle)
{
    CallOptions other;
    other.otherHandle = true;
    EXPECT_EQ(TheClient().Start(1, other).status, STATUS_UNSUCCESSFUL);
    EXPECT_EQ(Sensor(1).starts.load(), 0);
    CallResult thresholds = TheClient().GetDataThresholds(1, ListBuffer::SizeQuery(), other);
    EXPECT_EQ(thresholds.status, STATUS_UNSUCCESSFUL);
    EXPECT_EQ(thresholds.size, 0u);
    EXPECT_EQ(TheClient().StartHistoryRetrieval(1, 1000, other).status, STATUS_INVALID_PARAMETER);
    // The real handle still works, and the impostor left nothing behind.
    EXPECT_EQ(TheClient().Start(1).status, STATUS_SUCCESS);
    EXPECT_EQ(Sensor(1).starts.load(), 1);
    EXPECT_TRUE(Kinds().empty());
}

TEST_F(ClientTest, IntervalsAndThresholdsRoundTrip)
{
    EXPECT_EQ(TheClient().SetDataInterval(0, 49).status, STATUS_UNSUCCESSFUL);
    EXPECT_EQ(TheClient().SetDataInterval(0, 250).status, STATUS_SUCCESS);
    const CallResult interval = TheClient().GetDataInterval(0);
    EXPECT_EQ(interval.ms, 250u);

    DriverList wanted(1);
    wanted.Set(0, 161, R4(2.5f), kDataFmtid);
    const CollectionListCopy thresholds = CollectionListCopy::FromList(*wanted.get());
    EXPECT_EQ(TheClient().SetDataThresholds(0, thresholds).status, STATUS_SUCCESS);
    ASSERT_TRUE(Sensor(0).lastThresholds.has_value());
    EXPECT_EQ((*Sensor(0).lastThresholds)[0].Value.fltVal, 2.5f);
    EXPECT_EQ(thresholds.Count(), 1u);  // the driver scribbled on its own copy only

    const CallResult back = TheClient().GetDataThresholds(0);
    ASSERT_TRUE(back.list.has_value());
    EXPECT_EQ(CollectionListJson(*back.list),
              "[{\"key\":\"{C458F8A7-4AE8-4777-9607-2E9BDD65110A} 161\",\"vt\":\"R4\",\"value\":0.5}]");
}

TEST_F(ClientTest, DataFieldPropertiesWithAndWithoutKey)
{
    const CallResult properties = TheClient().GetDataFieldProperties(0, &kTimestampKey);
    ASSERT_EQ(properties.status, STATUS_SUCCESS);
    EXPECT_EQ(properties.list->Count(), 2u);
    const PROPERTYKEY other{kDataFmtid, 131};
    const CallResult unsupported = TheClient().GetDataFieldProperties(0, &other);
    EXPECT_EQ(unsupported.status, STATUS_NOT_SUPPORTED);
    EXPECT_EQ(unsupported.size, 0u);
    EXPECT_EQ(TheClient().GetDataFieldProperties(0, nullptr).status, STATUS_INVALID_PARAMETER);
}

TEST_F(ClientTest, DeviceIoControlCarriesARequest)
{
    const CallResult result = TheClient().DeviceIoControl(0, 0x00220003, 4, 16);
    EXPECT_EQ(result.status, STATUS_SUCCESS);
    EXPECT_EQ(result.requestStatus, STATUS_NOT_SUPPORTED);
}

TEST_F(ClientTest, NoSuchSensor)
{
    EXPECT_EQ(TheClient().Start(2).status, kNoSuchSensor);
    EXPECT_EQ(TheClient().GetProperties(7).status, kNoSuchSensor);
    EXPECT_EQ(TheClient().SensorHandle(2), nullptr);
}

TEST_F(ClientTest, SizeQueryThatUnderstatesIsReported)
{
    Sensor(0).misbehave.sizeQueryShortBy = 2;
    const CallResult result = TheClient().GetProperties(0);
    EXPECT_EQ(result.status, STATUS_INSUFFICIENT_RESOURCES);
    EXPECT_EQ(Kinds(), std::vector<ViolationKind>{ViolationKind::SizeTooSmall});
}

TEST_F(ClientTest, CountBeyondTheCallersBufferIsReportedAndNotRead)
{
    Sensor(0).misbehave.countBeyondBuffer = true;
    const CallResult result = TheClient().GetProperties(0, ListBuffer::OfBytes(400));
    ASSERT_EQ(result.status, STATUS_SUCCESS);
    EXPECT_EQ(result.list->Count(), (400u - 8) / 48);
    EXPECT_EQ(Kinds(), std::vector<ViolationKind>{ViolationKind::ListCountExceedsSize});
}

TEST_F(ClientTest, UnmarshalledPointersAreReportedAndDropped)
{
    Sensor(0).misbehave.shallowCopy = true;
    const CallResult result = TheClient().GetProperties(0);
    ASSERT_EQ(result.status, STATUS_SUCCESS);
    EXPECT_EQ(result.list->List().List[1].Value.pwszVal, nullptr);
    EXPECT_EQ(Kinds(), std::vector<ViolationKind>{ViolationKind::ListContentOutsideBuffer});
}

TEST_F(ClientTest, OverrunAndRewrittenAllocatedSizeAreReported)
{
    Sensor(0).misbehave.overrun = true;
    Sensor(0).misbehave.rewriteAllocated = true;
    TheClient().GetDataThresholds(0);
    EXPECT_EQ(Kinds(), (std::vector<ViolationKind>{ViolationKind::AllocatedSizeChanged, ViolationKind::BufferOverrun}));
}

TEST_F(ClientTest, ViolationListenerSeesEachReport)
{
    std::vector<std::string> heard;
    ViolationLog::Instance().SetListener([&](const Violation& v) { heard.push_back(v.what); });
    Sensor(0).misbehave.sizeQueryShortBy = 1;
    TheClient().GetDataThresholds(0);
    ViolationLog::Instance().SetListener(nullptr);
    ASSERT_EQ(heard.size(), 1u);
    EXPECT_EQ(heard[0], "EvtSensorGetDataThresholds on sensor 0: refused a buffer of the 55 bytes its size query asked for");
    ViolationLog::Instance().Reset();
}

}  // namespace
}  // namespace host::sensorscx::testing
