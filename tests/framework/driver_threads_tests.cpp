// Driver threads on a deterministic host: they run only when the host lets
// them, one at a time, in a reproducible order; their time-outs are virtual;
// a hold point stops a worker at a known call.
#include <string>
#include <vector>

#include "host/framework/threads.h"
#include "platform/system.h"
#include "tests/framework/test_support.h"

namespace host::framework::testing {
namespace {

using ThreadTest = DeviceTest;

// What the test workers share with the test. Only one of them runs at a time
// and only while the test waits, so plain fields are race-free here.
struct Shared {
    HANDLE ping = nullptr;  // auto-reset
    HANDLE pong = nullptr;  // auto-reset
    WDFWAITLOCK lock = nullptr;
    DWORD waitResult = 0;
    NTSTATUS lockStatus = STATUS_PENDING;
    std::vector<std::string> log;
};

DWORD Pinger(void* context)
{
    auto& shared = *static_cast<Shared*>(context);
    for (int i = 0; i < 3; ++i) {
        shared.log.push_back("ping " + std::to_string(i));
        SetEvent(shared.ping);
        WaitForSingleObjectEx(shared.pong, INFINITE, FALSE);
    }
    return 1;
}

DWORD Ponger(void* context)
{
    auto& shared = *static_cast<Shared*>(context);
    for (int i = 0; i < 3; ++i) {
        WaitForSingleObjectEx(shared.ping, INFINITE, FALSE);
        shared.log.push_back("pong " + std::to_string(i));
        SetEvent(shared.pong);
    }
    return 2;
}

DWORD WaitFiftyMs(void* context)
{
    auto& shared = *static_cast<Shared*>(context);
    shared.waitResult = WaitForSingleObjectEx(shared.ping, 50, FALSE);
    return 0;
}

DWORD TakeLock(void* context)
{
    auto& shared = *static_cast<Shared*>(context);
    shared.lockStatus = WdfWaitLockAcquire(shared.lock, nullptr);
    shared.log.push_back("locked");
    WdfWaitLockRelease(shared.lock);
    return 0;
}

// Takes the lock, then signals with the lock held.
DWORD LockThenSignal(void* context)
{
    auto& shared = *static_cast<Shared*>(context);
    WdfWaitLockAcquire(shared.lock, nullptr);
    SetEvent(shared.ping);
    WdfWaitLockRelease(shared.lock);
    return 0;
}

DWORD Forever(void* context)
{
    WaitForSingleObjectEx(static_cast<Shared*>(context)->ping, INFINITE, FALSE);
    return 0;
}

class Events {
public:
    explicit Events(Shared& shared) : shared_(shared)
    {
        shared.ping = CreateEventW(nullptr, FALSE, FALSE, nullptr);
        shared.pong = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    }
    ~Events()
    {
        CloseHandle(shared_.ping);
        CloseHandle(shared_.pong);
    }

private:
    Shared& shared_;
};

DriverThreadState StateOf(HANDLE thread)
{
    for (const DriverThreadInfo& info : DriverThreads()) {
        if (info.handle == thread)
            return info.state;
    }
    return DriverThreadState::Finished;
}

TEST_F(ThreadTest, ThreadsRunOnlyWhenLetAndTakeTurnsInOneOrder)
{
    Shared shared;
    Events events(shared);
    HANDLE pinger = CreateThread(nullptr, 0, Pinger, &shared, 0, nullptr);
    HANDLE ponger = CreateThread(nullptr, 0, Ponger, &shared, 0, nullptr);
    host_->Advance(1000);
    host_->RunPending();
    EXPECT_TRUE(shared.log.empty()) << "nothing runs before the host lets it";
    EXPECT_EQ(StateOf(pinger), DriverThreadState::NotStarted);
    EXPECT_EQ(host_->RunThreads(), 7u);
    EXPECT_EQ(shared.log, (std::vector<std::string>{"ping 0", "pong 0", "ping 1", "pong 1", "ping 2", "pong 2"}));
    DWORD code = 0;
    EXPECT_TRUE(GetExitCodeThread(ponger, &code));
    EXPECT_EQ(code, 2u);
    EXPECT_EQ(WaitForSingleObjectEx(pinger, INFINITE, FALSE), WAIT_OBJECT_0);
    CloseHandle(pinger);
    CloseHandle(ponger);
}

TEST_F(ThreadTest, AWaitOnTheHandleRunsTheThreadAndAWorkersTimeOutIsVirtual)
{
    Shared shared;
    Events events(shared);
    HANDLE waiter = CreateThread(nullptr, 0, WaitFiftyMs, &shared, 0, nullptr);
    EXPECT_EQ(WaitForSingleObjectEx(waiter, 20, FALSE), WAIT_TIMEOUT) << "it waits on the virtual clock";
    EXPECT_EQ(StateOf(waiter), DriverThreadState::Waiting);
    host_->Advance(49);
    EXPECT_EQ(WaitForSingleObjectEx(waiter, 1, FALSE), WAIT_TIMEOUT);
    host_->Advance(1);
    EXPECT_EQ(WaitForSingleObjectEx(waiter, 0, FALSE), WAIT_TIMEOUT) << "a poll does not let threads run";
    EXPECT_EQ(WaitForSingleObjectEx(waiter, 1, FALSE), WAIT_OBJECT_0);
    EXPECT_EQ(shared.waitResult, static_cast<DWORD>(WAIT_TIMEOUT));

    // Signalled before the deadline: the wait ends with the signal.
    HANDLE second = CreateThread(nullptr, 0, WaitFiftyMs, &shared, 0, nullptr);
    ASSERT_EQ(host_->Threads().size(), 2u) << "a finished thread is still listed";
    EXPECT_EQ(host_->Threads()[0].state, DriverThreadState::Finished);
    EXPECT_TRUE(host_->RunThread(second));
    SetEvent(shared.ping);
    EXPECT_EQ(WaitForSingleObjectEx(second, 1, FALSE), WAIT_OBJECT_0);
    EXPECT_EQ(shared.waitResult, static_cast<DWORD>(WAIT_OBJECT_0));
    CloseHandle(waiter);
    CloseHandle(second);
}

TEST_F(ThreadTest, AWorkerParksOnAHeldWaitLockUntilTheHostReleasesIt)
{
    Shared shared;
    ASSERT_EQ(WdfWaitLockCreate(nullptr, &shared.lock), STATUS_SUCCESS);
    ASSERT_EQ(WdfWaitLockAcquire(shared.lock, nullptr), STATUS_SUCCESS);
    HANDLE worker = CreateThread(nullptr, 0, TakeLock, &shared, 0, nullptr);
    host_->RunThreads();
    EXPECT_EQ(StateOf(worker), DriverThreadState::Waiting);
    EXPECT_TRUE(shared.log.empty());
    WdfWaitLockRelease(shared.lock);
    host_->RunThreads();
    EXPECT_EQ(shared.lockStatus, STATUS_SUCCESS);
    EXPECT_EQ(shared.log, std::vector<std::string>{"locked"});
    EXPECT_EQ(StateOf(worker), DriverThreadState::Finished);
    CloseHandle(worker);
}

TEST_F(ThreadTest, AHoldStopsAWorkerBeforeItsCallUntilReleased)
{
    Shared shared;
    Events events(shared);
    HANDLE pinger = CreateThread(nullptr, 0, Pinger, &shared, 0, nullptr);
    HANDLE ponger = CreateThread(nullptr, 0, Ponger, &shared, 0, nullptr);
    host_->HoldThreadAt(FaultPoint::EventSet);  // the pinger's first SetEvent
    host_->RunThreads();
    EXPECT_EQ(shared.log, std::vector<std::string>{"ping 0"});
    const auto threads = host_->Threads();
    ASSERT_EQ(threads.size(), 2u);
    EXPECT_EQ(threads[0].state, DriverThreadState::Held);
    EXPECT_EQ(threads[0].heldAt, FaultPoint::EventSet);
    EXPECT_EQ(threads[1].state, DriverThreadState::Waiting);
    EXPECT_EQ(WaitForSingleObjectEx(ponger, 20, FALSE), WAIT_TIMEOUT) << "a held thread stays held";
    EXPECT_FALSE(host_->ReleaseThread(ponger)) << "not held";
    EXPECT_TRUE(host_->ReleaseThread(pinger));
    EXPECT_EQ(WaitForSingleObjectEx(ponger, 20, FALSE), WAIT_OBJECT_0);
    EXPECT_EQ(shared.log.size(), 6u);
    CloseHandle(pinger);
    CloseHandle(ponger);
}

TEST_F(ThreadTest, AnEndlessWaitForWhatNoThreadCanBringIsADeadlockNotAHang)
{
    Shared shared;
    Events events(shared);
    HANDLE stuck = CreateThread(nullptr, 0, Forever, &shared, 0, nullptr);
    EXPECT_EQ(WaitForSingleObjectEx(stuck, INFINITE, FALSE), static_cast<DWORD>(WAIT_FAILED));
    EXPECT_EQ(WaitForSingleObjectEx(shared.pong, INFINITE, FALSE), static_cast<DWORD>(WAIT_FAILED));
    ExpectViolations({"deadlock"}, 2);
    SetEvent(shared.ping);
    EXPECT_EQ(WaitForSingleObjectEx(stuck, INFINITE, FALSE), WAIT_OBJECT_0);
    CloseHandle(stuck);
}

TEST_F(ThreadTest, TheHostMeetingALockAHeldWorkerKeepsTimesOutOrReportsADeadlock)
{
    Shared shared;
    Events events(shared);
    ASSERT_EQ(WdfWaitLockCreate(nullptr, &shared.lock), STATUS_SUCCESS);
    HANDLE worker = CreateThread(nullptr, 0, LockThenSignal, &shared, 0, nullptr);
    host_->HoldThreadAt(FaultPoint::EventSet);
    host_->RunThreads();
    LONGLONG tenMs = WDF_REL_TIMEOUT_IN_MS(10);
    EXPECT_EQ(WdfWaitLockAcquire(shared.lock, &tenMs), STATUS_TIMEOUT);
    EXPECT_EQ(WdfWaitLockAcquire(shared.lock, nullptr), STATUS_INVALID_DEVICE_STATE);
    ExpectViolations({"WdfWaitLockAcquire", "deadlock"}, 1);
    EXPECT_TRUE(host_->ReleaseThread(worker));
    EXPECT_EQ(WdfWaitLockAcquire(shared.lock, nullptr), STATUS_SUCCESS) << "the worker runs and lets go";
    WdfWaitLockRelease(shared.lock);
    EXPECT_EQ(WaitForSingleObjectEx(shared.ping, 0, FALSE), WAIT_OBJECT_0);
    CloseHandle(worker);
}

}  // namespace
}  // namespace host::framework::testing
