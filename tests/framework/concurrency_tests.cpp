// The real-time host: timer stop and delete against a running callback, close
// against a running completion, and the test driver's whole life with reports
// fed from another thread. Run under ThreadSanitizer.
#include <array>
#include <atomic>
#include <functional>
#include <thread>

#include "platform/system.h"
#include "tests/framework/test_driver.h"
#include "tests/framework/test_support.h"

namespace host::framework::testing {
namespace {

// Events a callback blocks on, and whether it has returned.
struct Rendezvous {
    HANDLE entered = nullptr;  // the callback has started
    HANDLE release = nullptr;  // the callback may return
    std::atomic<bool> finished{false};

    void Block()
    {
        SetEvent(entered);
        WaitForSingleObjectEx(release, INFINITE, FALSE);
        finished.store(true);
    }
};
Rendezvous* rendezvous = nullptr;

void BlockingTimer(WDFTIMER)
{
    rendezvous->Block();
}

// A read whose routine either blocks or releases the blocked timer callback.
struct ReadState {
    std::array<BYTE, 16> buffer{};
    std::atomic<int> completions{0};
    bool blockInRoutine = false;
};

void OnRead(WDFREQUEST request, WDFIOTARGET, PWDF_REQUEST_COMPLETION_PARAMS, WDFCONTEXT context)
{
    auto& state = *static_cast<ReadState*>(context);
    if (state.blockInRoutine)
        rendezvous->Block();
    else
        SetEvent(rendezvous->release);
    WdfObjectDelete(request);
    state.completions.fetch_add(1);
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

    WDFTIMER StartBlockingTimer()
    {
        WDF_TIMER_CONFIG config;
        WDF_TIMER_CONFIG_INIT(&config, BlockingTimer);
        WDF_OBJECT_ATTRIBUTES attributes = Attributes(Device());
        WDFTIMER timer = nullptr;
        EXPECT_EQ(WdfTimerCreate(&config, &attributes, &timer), STATUS_SUCCESS);
        WdfTimerStart(timer, 0);
        EXPECT_EQ(WaitForSingleObjectEx(meeting.entered, 20'000, FALSE), WAIT_OBJECT_0);
        return timer;
    }
    void SendRead(WDFIOTARGET target, ReadState& state)
    {
        WDFREQUEST request = nullptr;
        ASSERT_EQ(WdfRequestCreate(nullptr, target, &request), STATUS_SUCCESS);
        WDF_OBJECT_ATTRIBUTES attributes = Attributes(request);
        WDFMEMORY memory = nullptr;
        ASSERT_EQ(WdfMemoryCreatePreallocated(&attributes, state.buffer.data(), state.buffer.size(), &memory),
                  STATUS_SUCCESS);
        ASSERT_EQ(WdfIoTargetFormatRequestForRead(target, request, memory, nullptr, nullptr), STATUS_SUCCESS);
        WdfRequestSetCompletionRoutine(request, OnRead, &state);
        ASSERT_TRUE(WdfRequestSend(request, target, nullptr));
    }
    // Runs `call` on another thread and releases the blocked callback once that
    // thread is about to call; true when the callback had finished by the time
    // `call` returned.
    bool ReturnsOnlyAfterTheCallback(const std::function<void()>& call)
    {
        std::atomic<bool> finishedWhenReturned{false};
        HANDLE calling = CreateEventW(nullptr, TRUE, FALSE, nullptr);
        std::thread caller([&] {
            SetEvent(calling);
            call();
            finishedWhenReturned.store(meeting.finished.load());
        });
        WaitForSingleObjectEx(calling, INFINITE, FALSE);
        SetEvent(meeting.release);
        caller.join();
        CloseHandle(calling);
        return finishedWhenReturned.load();
    }

    Rendezvous meeting;
};

TEST_F(RealTimeTest, TimerStopWithWaitReturnsOnlyAfterTheRunningCallback)
{
    WDFTIMER timer = StartBlockingTimer();
    EXPECT_TRUE(ReturnsOnlyAfterTheCallback([&] { WdfTimerStop(timer, TRUE); }));
}

TEST_F(RealTimeTest, DeletingATimerWaitsForItsRunningCallback)
{
    WDFTIMER timer = StartBlockingTimer();
    EXPECT_TRUE(ReturnsOnlyAfterTheCallback([&] { WdfObjectDelete(timer); }));
}

TEST_F(RealTimeTest, BlockedTimerCallbackDoesNotHoldUpReadCompletions)
{
    // The read's routine releases the blocked timer callback: with timers and
    // completions on one thread this would never finish.
    WDFTIMER timer = StartBlockingTimer();
    ReadState state;
    SendRead(OpenTarget(), state);
    endpoint_.Feed({1, 2, 3});
    WdfTimerStop(timer, TRUE);
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
    EXPECT_TRUE(ReturnsOnlyAfterTheCallback([&] { WdfIoTargetClose(target); }));
    EXPECT_EQ(state.completions.load(), 1);
}

TEST(RealTimeLifecycleTest, TestDriverLivesOnFrameworkThreadsWithReportsFromAnotherThread)
{
    Faults().Reset();
    ResetStats();
    FakeEndpoint endpoint;
    endpoint.SetIoctl(kInfoIoctl, {STATUS_SUCCESS, std::vector<BYTE>(12, 1)});
    DriverHost host(ClockMode::RealTime, StartTime());
    ASSERT_EQ(host.LoadDriver(FxDriverEntryUm), STATUS_SUCCESS);
    ASSERT_EQ(host.AddDevice(endpoint), STATUS_SUCCESS);
    ASSERT_EQ(host.PrepareHardware(), STATUS_SUCCESS);
    for (int cycle = 1; cycle <= 2; ++cycle) {
        ASSERT_EQ(host.D0Entry(), STATUS_SUCCESS);
        std::thread feeder([&] {
            for (int i = 0; i < 50; ++i)
                endpoint.Feed({static_cast<BYTE>(i), 1});
        });
        feeder.join();
        EXPECT_TRUE(WaitForStats([&](const TestDriverStats& s) { return s.reads >= 50 * cycle; }));
        EXPECT_TRUE(WaitForStats([&](const TestDriverStats& s) { return s.ticks >= 2 * cycle; }));
        ASSERT_EQ(host.D0Exit(), STATUS_SUCCESS);
    }
    ASSERT_EQ(host.ReleaseHardware(), STATUS_SUCCESS);
    host.Unload();
    EXPECT_EQ(Stats().reads, 100);
    EXPECT_EQ(host.Leaks(), "");
    EXPECT_TRUE(host.Violations().empty());
}

}  // namespace
}  // namespace host::framework::testing
