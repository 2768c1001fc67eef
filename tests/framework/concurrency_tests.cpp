// The real-time host: framework threads, timer stop and delete against a
// running callback, close against a running completion, and the test driver's
// whole life with reports fed from another thread. Run under ThreadSanitizer.
#include <array>
#include <atomic>
#include <thread>
#include <vector>

#include "platform/system.h"
#include "tests/framework/test_driver.h"
#include "tests/framework/test_support.h"

namespace host::framework::testing {
namespace {

// Events the callbacks below block on, and what they observed.
struct Rendezvous {
    HANDLE entered = nullptr;  // the callback has started
    HANDLE release = nullptr;  // the callback may return
    std::atomic<bool> finished{false};
};

Rendezvous* rendezvous = nullptr;

void BlockingTimer(WDFTIMER)
{
    SetEvent(rendezvous->entered);
    WaitForSingleObjectEx(rendezvous->release, INFINITE, FALSE);
    rendezvous->finished.store(true);
}

class RealTimeTest : public DeviceTest {
protected:
    RealTimeTest() { mode_ = ClockMode::RealTime; }

    void SetUp() override
    {
        DeviceTest::SetUp();
        meeting.entered = CreateEventW(nullptr, FALSE, FALSE, nullptr);
        meeting.release = CreateEventW(nullptr, TRUE, FALSE, nullptr);
        rendezvous = &meeting;
    }

    void TearDown() override
    {
        // Every test has waited for its callbacks; the events can go before the leak check.
        CloseHandle(meeting.entered);
        CloseHandle(meeting.release);
        DeviceTest::TearDown();
    }

    WDFTIMER NewTimer(PFN_WDF_TIMER callback)
    {
        WDF_TIMER_CONFIG config;
        WDF_TIMER_CONFIG_INIT(&config, callback);
        WDF_OBJECT_ATTRIBUTES attributes;
        WDF_OBJECT_ATTRIBUTES_INIT(&attributes);
        attributes.ParentObject = Device();
        WDFTIMER timer = nullptr;
        EXPECT_EQ(WdfTimerCreate(&config, &attributes, &timer), STATUS_SUCCESS);
        return timer;
    }

    Rendezvous meeting;
};

TEST_F(RealTimeTest, TimerStopWithWaitReturnsOnlyAfterTheRunningCallback)
{
    WDFTIMER timer = NewTimer(BlockingTimer);
    WdfTimerStart(timer, 0);
    ASSERT_EQ(WaitForSingleObjectEx(meeting.entered, 20'000, FALSE), WAIT_OBJECT_0);
    std::atomic<bool> finishedWhenStopReturned{false};
    std::thread stopper([&] {
        WdfTimerStop(timer, TRUE);
        finishedWhenStopReturned.store(meeting.finished.load());
    });
    SetEvent(meeting.release);
    stopper.join();
    EXPECT_TRUE(finishedWhenStopReturned.load());
}

TEST_F(RealTimeTest, DeletingATimerWaitsForItsRunningCallback)
{
    WDFTIMER timer = NewTimer(BlockingTimer);
    WdfTimerStart(timer, 0);
    ASSERT_EQ(WaitForSingleObjectEx(meeting.entered, 20'000, FALSE), WAIT_OBJECT_0);
    std::atomic<bool> finishedWhenDeleteReturned{false};
    std::thread deleter([&] {
        WdfObjectDelete(timer);
        finishedWhenDeleteReturned.store(meeting.finished.load());
    });
    SetEvent(meeting.release);
    deleter.join();
    EXPECT_TRUE(finishedWhenDeleteReturned.load());
}

// The read completion below releases the blocked timer callback: with timers
// and completions on one thread this would never finish.
struct ReadState {
    std::array<BYTE, 16> buffer{};
    std::atomic<int> completions{0};
    bool blockInRoutine = false;
};

void ReleaseTimerOnRead(WDFREQUEST request, WDFIOTARGET, PWDF_REQUEST_COMPLETION_PARAMS, WDFCONTEXT context)
{
    auto& state = *static_cast<ReadState*>(context);
    if (state.blockInRoutine) {
        SetEvent(rendezvous->entered);
        WaitForSingleObjectEx(rendezvous->release, INFINITE, FALSE);
        rendezvous->finished.store(true);
    } else {
        SetEvent(rendezvous->release);
    }
    WdfObjectDelete(request);
    state.completions.fetch_add(1);
}

void SendRead(WDFIOTARGET target, ReadState& state)
{
    WDFREQUEST request = nullptr;
    ASSERT_EQ(WdfRequestCreate(nullptr, target, &request), STATUS_SUCCESS);
    WDF_OBJECT_ATTRIBUTES attributes;
    WDF_OBJECT_ATTRIBUTES_INIT(&attributes);
    attributes.ParentObject = request;
    WDFMEMORY memory = nullptr;
    ASSERT_EQ(WdfMemoryCreatePreallocated(&attributes, state.buffer.data(), state.buffer.size(), &memory),
              STATUS_SUCCESS);
    ASSERT_EQ(WdfIoTargetFormatRequestForRead(target, request, memory, nullptr, nullptr), STATUS_SUCCESS);
    WdfRequestSetCompletionRoutine(request, ReleaseTimerOnRead, &state);
    ASSERT_TRUE(WdfRequestSend(request, target, nullptr));
}

TEST_F(RealTimeTest, BlockedTimerCallbackDoesNotHoldUpReadCompletions)
{
    WDFTIMER timer = NewTimer(BlockingTimer);
    WdfTimerStart(timer, 0);
    ASSERT_EQ(WaitForSingleObjectEx(meeting.entered, 20'000, FALSE), WAIT_OBJECT_0);
    ReadState state;
    WDFIOTARGET target = OpenTarget();
    SendRead(target, state);
    endpoint_.Feed({1, 2, 3});
    WdfTimerStop(timer, TRUE);  // returns once the completion has released the callback
    EXPECT_TRUE(meeting.finished.load());
    host_->RunPending();
    EXPECT_EQ(state.completions.load(), 1);
}

TEST_F(RealTimeTest, CloseWaitsForACompletionRoutineRunningOnTheIoThread)
{
    ReadState state;
    state.blockInRoutine = true;
    WDFIOTARGET target = OpenTarget();
    SendRead(target, state);
    endpoint_.Feed({4});
    ASSERT_EQ(WaitForSingleObjectEx(meeting.entered, 20'000, FALSE), WAIT_OBJECT_0);
    std::atomic<bool> finishedWhenCloseReturned{false};
    std::thread closer([&] {
        WdfIoTargetClose(target);
        finishedWhenCloseReturned.store(meeting.finished.load());
    });
    SetEvent(meeting.release);
    closer.join();
    EXPECT_TRUE(finishedWhenCloseReturned.load());
    EXPECT_EQ(state.completions.load(), 1);
}

TEST(RealTimeLifecycleTest, TestDriverLivesOnFrameworkThreadsWithReportsFromAnotherThread)
{
    host::FaultInjector::Instance().Reset();
    Stats().Reset();
    FakeEndpoint endpoint;
    endpoint.SetIoctl(kInfoIoctl, {STATUS_SUCCESS, std::vector<BYTE>(12, 1), true});
    DriverHost host(ClockMode::RealTime, StartTime());
    ASSERT_EQ(host.LoadDriver(FxDriverEntryUm), STATUS_SUCCESS);
    ASSERT_EQ(host.AddDevice(endpoint), STATUS_SUCCESS);
    ASSERT_EQ(host.PrepareHardware(), STATUS_SUCCESS);
    for (int cycle = 0; cycle < 2; ++cycle) {
        ASSERT_EQ(host.D0Entry(), STATUS_SUCCESS);
        const int before = Stats().Reads();
        std::thread feeder([&] {
            for (int i = 0; i < 50; ++i)
                endpoint.Feed({static_cast<BYTE>(i), 1});
        });
        feeder.join();
        EXPECT_TRUE(Stats().WaitForReads(before + 50));
        EXPECT_TRUE(Stats().WaitForTicks(2 * (cycle + 1)));
        ASSERT_EQ(host.D0Exit(), STATUS_SUCCESS);
    }
    ASSERT_EQ(host.ReleaseHardware(), STATUS_SUCCESS);
    host.Unload();
    EXPECT_EQ(Stats().Reads(), 100);
    EXPECT_EQ(host.Leaks(), "");
    EXPECT_TRUE(host.Violations().empty());
}

}  // namespace
}  // namespace host::framework::testing
