// The real-time host: timer stop against a running callback, close against a
// running completion, and the test driver's whole life with reports fed from
// another thread. Run under ThreadSanitizer.
#include <array>
#include <atomic>
#include <functional>
#include <thread>

#include "platform/system.h"
#include "tests/framework/test_driver.h"
#include "tests/framework/test_support.h"

namespace host::framework::testing {
namespace {

// A callback that blocks until released, and whether it has returned.
HANDLE entered = nullptr;  // the callback has started
HANDLE release = nullptr;  // the callback may return
std::atomic<bool> finished{false};

void Block()
{
    SetEvent(entered);
    WaitForSingleObjectEx(release, INFINITE, FALSE);
    finished.store(true);
}

class RealTimeTest : public DeviceTest {
protected:
    RealTimeTest() { mode_ = ClockMode::RealTime; }
    void SetUp() override
    {
        DeviceTest::SetUp();
        entered = CreateEventW(nullptr, FALSE, FALSE, nullptr);
        release = CreateEventW(nullptr, TRUE, FALSE, nullptr);
        finished.store(false);
    }
    void TearDown() override
    {
        // Every test has waited for its callbacks; the events can go before the leak check.
        CloseHandle(entered);
        CloseHandle(release);
        DeviceTest::TearDown();
    }
    // Runs `call` on another thread and releases the blocked callback once that
    // thread is about to call; true when the callback had finished by the time
    // `call` returned.
    bool ReturnsOnlyAfterTheCallback(const std::function<void()>& call)
    {
        EXPECT_EQ(WaitForSingleObjectEx(entered, 20'000, FALSE), WAIT_OBJECT_0);
        std::atomic<bool> finishedWhenReturned{false};
        HANDLE calling = CreateEventW(nullptr, TRUE, FALSE, nullptr);
        std::thread caller([&] {
            SetEvent(calling);
            call();
            finishedWhenReturned.store(finished.load());
        });
        WaitForSingleObjectEx(calling, INFINITE, FALSE);
        SetEvent(release);
        caller.join();
        CloseHandle(calling);
        return finishedWhenReturned.load();
    }
};

TEST_F(RealTimeTest, TimerStopWithWaitReturnsOnlyAfterTheRunningCallback)
{
    WDF_TIMER_CONFIG config;
    WDF_TIMER_CONFIG_INIT(&config, [](WDFTIMER) { Block(); });
    WDF_OBJECT_ATTRIBUTES attributes = Attributes(Device());
    WDFTIMER timer = nullptr;
    ASSERT_EQ(WdfTimerCreate(&config, &attributes, &timer), STATUS_SUCCESS);
    WdfTimerStart(timer, 0);
    EXPECT_TRUE(ReturnsOnlyAfterTheCallback([&] { WdfTimerStop(timer, TRUE); }));
}

TEST_F(RealTimeTest, CloseWaitsForACompletionRoutineRunningOnTheIoThread)
{
    WDFIOTARGET target = OpenTarget();
    WDFREQUEST request = nullptr;
    ASSERT_EQ(WdfRequestCreate(nullptr, target, &request), STATUS_SUCCESS);
    WDF_OBJECT_ATTRIBUTES attributes = Attributes(request);
    std::array<BYTE, 16> buffer{};
    WDFMEMORY memory = nullptr;
    ASSERT_EQ(WdfMemoryCreatePreallocated(&attributes, buffer.data(), buffer.size(), &memory), STATUS_SUCCESS);
    ASSERT_EQ(WdfIoTargetFormatRequestForRead(target, request, memory, nullptr, nullptr), STATUS_SUCCESS);
    std::atomic<int> completions{0};
    WdfRequestSetCompletionRoutine(
        request,
        [](WDFREQUEST r, WDFIOTARGET, PWDF_REQUEST_COMPLETION_PARAMS, WDFCONTEXT context) {
            Block();
            WdfObjectDelete(r);
            static_cast<std::atomic<int>*>(context)->fetch_add(1);
        },
        &completions);
    ASSERT_TRUE(WdfRequestSend(request, target, nullptr));
    endpoint_.Feed({4});
    EXPECT_TRUE(ReturnsOnlyAfterTheCallback([&] { WdfIoTargetClose(target); }));
    EXPECT_EQ(completions.load(), 1);
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
