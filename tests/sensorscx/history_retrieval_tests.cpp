// History retrieval: the driver's worker thread completes while the client
// waits. Waits use a generous real-time limit and never assert on time.
#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "host/sensorscx/violations.h"
#include "tests/sensorscx/fake_sensor_driver.h"

namespace host::sensorscx::testing {
namespace {

using namespace std::chrono_literals;
constexpr auto kPatience = 30s;
constexpr ULONG kRecordBytes = 3 * 48;

class HistoryRetrievalTest : public FakeDriverTest {
protected:
    void SetUp() override
    {
        FakeDriverTest::SetUp();
        Start();
    }
};

TEST_F(HistoryRetrievalTest, CompletionCarriesTheRecordsAndSize)
{
    ASSERT_EQ(TheClient().StartHistoryRetrieval(0, 8 + 5 * kRecordBytes).status, STATUS_SUCCESS);
    const auto completion = TheClient().WaitHistoryRetrieval(0, kPatience);
    ASSERT_TRUE(completion.has_value());
    EXPECT_EQ(completion->status, STATUS_SUCCESS);
    EXPECT_EQ(completion->size, 8 + 2 * kRecordBytes);
    ASSERT_EQ(completion->list.Count(), 6u);
    EXPECT_EQ(completion->list[5].Value.uiVal, 51);
    EXPECT_EQ(ViolationLog::Instance().Count(), 0u);
    Sensor(0).JoinWorker();
}

TEST_F(HistoryRetrievalTest, SecondStartWhileRunningIsRefusedAndTheFirstStillCompletes)
{
    Sensor(0).holdWorker = true;
    ASSERT_EQ(TheClient().StartHistoryRetrieval(0, 8 + 2 * kRecordBytes).status, STATUS_SUCCESS);
    EXPECT_EQ(TheClient().StartHistoryRetrieval(0, 8 + 2 * kRecordBytes).status, STATUS_DEVICE_BUSY);
    EXPECT_FALSE(TheClient().WaitHistoryRetrieval(0, 0ms).has_value());
    Sensor(0).ReleaseWorker();
    const auto completion = TheClient().WaitHistoryRetrieval(0, kPatience);
    ASSERT_TRUE(completion.has_value());
    EXPECT_EQ(completion->list.Count(), 6u);
    Sensor(0).JoinWorker();
    EXPECT_EQ(ViolationLog::Instance().Count(), 0u);
}

TEST_F(HistoryRetrievalTest, CancelEndsTheRetrievalWithoutCompletion)
{
    Sensor(0).holdWorker = true;
    ASSERT_EQ(TheClient().StartHistoryRetrieval(0, 8 + 2 * kRecordBytes).status, STATUS_SUCCESS);
    const CallResult cancel = TheClient().CancelHistoryRetrieval(0);
    EXPECT_EQ(cancel.status, STATUS_SUCCESS);
    EXPECT_EQ(cancel.bytesWritten, 8u);
    EXPECT_FALSE(TheClient().WaitHistoryRetrieval(0, 0ms).has_value());
    // A completion now would be for a retrieval that no longer exists.
    EXPECT_EQ(SensorsCxSensorHistoryRetrievalComplete(Sensor(0).handle, 8, STATUS_SUCCESS),
              STATUS_INVALID_DEVICE_STATE);
    EXPECT_TRUE(ViolationLog::Instance().Contains(ViolationKind::NoAcceptedRetrieval));
    ViolationLog::Instance().Reset();
}

TEST_F(HistoryRetrievalTest, CompletionWithoutRetrievalAndTwiceAreReported)
{
    EXPECT_EQ(SensorsCxSensorHistoryRetrievalComplete(Sensor(1).handle, 8, STATUS_SUCCESS),
              STATUS_INVALID_DEVICE_STATE);
    Sensor(0).completeTwice = true;
    ASSERT_EQ(TheClient().StartHistoryRetrieval(0, 8 + 2 * kRecordBytes).status, STATUS_SUCCESS);
    ASSERT_TRUE(TheClient().WaitHistoryRetrieval(0, kPatience).has_value());
    Sensor(0).JoinWorker();
    const auto entries = ViolationLog::Instance().Entries();
    ASSERT_EQ(entries.size(), 2u);
    EXPECT_EQ(entries[0].what, "SensorsCxSensorHistoryRetrievalComplete on sensor 1 without an accepted retrieval");
    EXPECT_EQ(entries[1].kind, ViolationKind::NoAcceptedRetrieval);
    ViolationLog::Instance().Reset();
}

TEST_F(HistoryRetrievalTest, ShortCompletionSizeIsReported)
{
    Sensor(0).reportShortSize = true;
    ASSERT_EQ(TheClient().StartHistoryRetrieval(0, 8 + 2 * kRecordBytes).status, STATUS_SUCCESS);
    ASSERT_TRUE(TheClient().WaitHistoryRetrieval(0, kPatience).has_value());
    Sensor(0).JoinWorker();
    EXPECT_TRUE(ViolationLog::Instance().Contains(ViolationKind::SizeTooSmall));
    ViolationLog::Instance().Reset();
}

TEST_F(HistoryRetrievalTest, RefusedStartsLeaveNothingPending)
{
    EXPECT_EQ(TheClient().StartHistoryRetrieval(0, 8 + kRecordBytes - 1).status, STATUS_BUFFER_TOO_SMALL);
    CallOptions nullOutput;
    nullOutput.nullOutput = true;
    EXPECT_EQ(TheClient().StartHistoryRetrieval(0, 1000, nullOutput).status, STATUS_INVALID_PARAMETER);
    EXPECT_EQ(TheClient().CancelHistoryRetrieval(0).status, STATUS_INVALID_DEVICE_STATE);
    EXPECT_FALSE(TheClient().WaitHistoryRetrieval(0, 0ms).has_value());
}

TEST_F(HistoryRetrievalTest, SamplesFromAnotherThreadArriveInOrder)
{
    SampleQueue queue(TheClient());
    std::thread reader([this] {
        for (ULONG i = 1; i <= 50; ++i)
            Sensor(i % 2).Deliver(i, static_cast<float>(i));
    });
    reader.join();
    const auto samples = queue.Drain();
    ASSERT_EQ(samples.size(), 50u);
    for (ULONG i = 0; i < 50; ++i) {
        EXPECT_EQ(samples[i].sequence, i + 1);
        EXPECT_EQ(samples[i].values[1].Value.ulVal, i + 1);
        EXPECT_EQ(samples[i].sensorIndex, (i + 1) % 2);
    }
}

}  // namespace
}  // namespace host::sensorscx::testing
