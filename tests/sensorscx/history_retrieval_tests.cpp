// History retrieval completed on another thread while the client waits, on a
// real-time host (waits use a generous real-time limit and never assert on
// time), and the completions a driver must not make.
#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "tests/sensorscx/fake_sensor_driver.h"

namespace host::sensorscx::testing {
namespace {

using namespace std::chrono_literals;
constexpr auto kPatience = 30s;
constexpr ULONG kRecordBytes = 3 * 48;

class HistoryRetrievalTest : public StartedDriverTest {
protected:
    HistoryRetrievalTest() { mode_ = framework::ClockMode::RealTime; }
};

TEST_F(HistoryRetrievalTest, CancelAndRefusedStartsLeaveNoRetrieval)
{
    ASSERT_EQ(TheClient().StartHistoryRetrieval(0, 8 + 2 * kRecordBytes).status, STATUS_SUCCESS);
    const CallResult cancel = TheClient().CancelHistoryRetrieval(0);
    EXPECT_EQ(cancel.status, STATUS_SUCCESS);
    EXPECT_EQ(cancel.bytesWritten, 8u);
    EXPECT_FALSE(TheClient().WaitHistoryRetrieval(0, 0ms).has_value());
    // A completion now would be for a retrieval that no longer exists.
    EXPECT_EQ(SensorsCxSensorHistoryRetrievalComplete(Sensor(0).handle, 8, STATUS_SUCCESS),
              STATUS_INVALID_DEVICE_STATE);
    EXPECT_EQ(TakeViolations(), std::vector<ViolationKind>{ViolationKind::NoAcceptedRetrieval});
    // Refused starts leave nothing pending either.
    EXPECT_EQ(TheClient().StartHistoryRetrieval(0, 8 + kRecordBytes - 1).status, STATUS_BUFFER_TOO_SMALL);
    CallOptions nullOutput;
    nullOutput.nullOutput = true;
    EXPECT_EQ(TheClient().StartHistoryRetrieval(0, 1000, nullOutput).status, STATUS_INVALID_PARAMETER);
    EXPECT_EQ(TheClient().CancelHistoryRetrieval(0, nullOutput).status, STATUS_INVALID_PARAMETER);
    EXPECT_EQ(TheClient().CancelHistoryRetrieval(0).status, STATUS_INVALID_DEVICE_STATE);
}

TEST_F(HistoryRetrievalTest, StrayTwiceAndShortCompletionsAreReported)
{
    EXPECT_EQ(SensorsCxSensorHistoryRetrievalComplete(Sensor(1).handle, 8, STATUS_SUCCESS),
              STATUS_INVALID_DEVICE_STATE);
    for (std::size_t i : {0, 1}) {
        ASSERT_EQ(TheClient().StartHistoryRetrieval(i, 8 + 2 * kRecordBytes).status, STATUS_SUCCESS);
        std::thread worker([this, i] { i == 0 ? Sensor(0).CompleteHistory(2, 0, 2) : Sensor(1).CompleteHistory(2, 1); });
        ASSERT_TRUE(TheClient().WaitHistoryRetrieval(i, kPatience).has_value());
        worker.join();
    }
    EXPECT_EQ(TakeViolations(), (std::vector<ViolationKind>{ViolationKind::NoAcceptedRetrieval,
                                                            ViolationKind::NoAcceptedRetrieval,
                                                            ViolationKind::SizeTooSmall}));
}

// A completion call that fails (injected) still ends the retrieval on the
// host's side: the driver's next start is no overlap.
TEST_F(HistoryRetrievalTest, FailedCompletionEndsTheRetrievalBeforeTheNextStart)
{
    ASSERT_EQ(TheClient().StartHistoryRetrieval(0, 8 + 2 * kRecordBytes).status, STATUS_SUCCESS);
    FaultInjector::Instance().FailNth(FaultPoint::SensorsCxHistoryRetrievalComplete, 1, STATUS_INSUFFICIENT_RESOURCES);
    PSENSOR_COLLECTION_LIST list = Sensor(0).historyList;
    Sensor(0).historyList = nullptr;
    EXPECT_EQ(SensorsCxSensorHistoryRetrievalComplete(Sensor(0).handle, 8, STATUS_SUCCESS),
              STATUS_INSUFFICIENT_RESOURCES);
    EXPECT_NE(list, nullptr);
    EXPECT_FALSE(TheClient().WaitHistoryRetrieval(0, 0ms).has_value()) << "the failed call delivered nothing";
    ASSERT_EQ(TheClient().StartHistoryRetrieval(0, 8 + 2 * kRecordBytes).status, STATUS_SUCCESS);
    Sensor(0).CompleteHistory(1);
    const auto completion = TheClient().WaitHistoryRetrieval(0, kPatience);
    ASSERT_TRUE(completion.has_value());
    EXPECT_EQ(completion->list.Count(), 3u);
    EXPECT_EQ(TakeViolations(), std::vector<ViolationKind>{});
}

}  // namespace
}  // namespace host::sensorscx::testing
