// History retrieval: the driver's worker thread completes while the client
// waits. Waits use a generous real-time limit and never assert on time.
#include <gtest/gtest.h>

#include <chrono>
#include <thread>

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

TEST_F(HistoryRetrievalTest, CompletionCarriesTheRecordsAndASecondStartMeanwhileIsRefused)
{
    Sensor(0).holdWorker = true;
    ASSERT_EQ(TheClient().StartHistoryRetrieval(0, 8 + 5 * kRecordBytes).status, STATUS_SUCCESS);
    EXPECT_EQ(TheClient().StartHistoryRetrieval(0, 8 + 2 * kRecordBytes).status, STATUS_DEVICE_BUSY);
    EXPECT_FALSE(TheClient().WaitHistoryRetrieval(0, 0ms).has_value());
    Sensor(0).ReleaseWorker();
    const auto completion = TheClient().WaitHistoryRetrieval(0, kPatience);
    ASSERT_TRUE(completion.has_value());
    EXPECT_EQ(completion->status, STATUS_SUCCESS);
    EXPECT_EQ(completion->size, 8 + 2 * kRecordBytes);
    ASSERT_EQ(completion->list.Count(), 6u);
    EXPECT_EQ(completion->list[5].Value.uiVal, 51);
    Sensor(0).JoinWorker();
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
    EXPECT_EQ(TakeViolations(), std::vector<ViolationKind>{ViolationKind::NoAcceptedRetrieval});
}

TEST_F(HistoryRetrievalTest, StrayTwiceAndShortCompletionsAreReported)
{
    EXPECT_EQ(SensorsCxSensorHistoryRetrievalComplete(Sensor(1).handle, 8, STATUS_SUCCESS),
              STATUS_INVALID_DEVICE_STATE);
    EXPECT_EQ(ViolationLog::Instance().Entries().at(0).what,
              "SensorsCxSensorHistoryRetrievalComplete on sensor 1 without an accepted retrieval");
    Sensor(0).completeTwice = true;
    Sensor(1).reportShortSize = true;
    for (std::size_t i : {0, 1}) {
        ASSERT_EQ(TheClient().StartHistoryRetrieval(i, 8 + 2 * kRecordBytes).status, STATUS_SUCCESS);
        ASSERT_TRUE(TheClient().WaitHistoryRetrieval(i, kPatience).has_value());
        Sensor(i).JoinWorker();
    }
    EXPECT_EQ(TakeViolations(), (std::vector<ViolationKind>{ViolationKind::NoAcceptedRetrieval,
                                                            ViolationKind::NoAcceptedRetrieval,
                                                            ViolationKind::SizeTooSmall}));
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
