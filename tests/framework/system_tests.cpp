// System services: the clock, events, threads, handles, the heap and wait locks.
#include <cstring>

#include "host/common/resource_ledger.h"
#include "host/framework/threads.h"
#include "platform/system.h"
#include "tests/framework/test_support.h"

namespace host::framework::testing {
namespace {

using SystemTest = DeviceTest;

TEST_F(SystemTest, SystemTimeIsTheHostClockAndMovesOnlyWhenAdvanced)
{
    FILETIME first;
    GetSystemTimeAsFileTime(&first);
    EXPECT_EQ(FileTimeToTicks(first), FileTimeToTicks(StartTime()));
    FILETIME again;
    GetSystemTimeAsFileTime(&again);
    EXPECT_EQ(FileTimeToTicks(again), FileTimeToTicks(first));
    host_->Advance(1500);
    GetSystemTimeAsFileTime(&again);
    EXPECT_EQ(FileTimeToTicks(again) - FileTimeToTicks(first), 1500 * kTicksPerMillisecond);
    // The two halves carry a value beyond 32 bits.
    EXPECT_NE(again.dwHighDateTime, 0u);
}

TEST_F(SystemTest, AutoResetEventReleasesOneWaitThenResets)
{
    HANDLE event = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    ASSERT_NE(event, nullptr);
    EXPECT_EQ(WaitForSingleObjectEx(event, 0, FALSE), WAIT_TIMEOUT);
    EXPECT_TRUE(SetEvent(event));
    EXPECT_EQ(WaitForSingleObjectEx(event, 0, FALSE), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObjectEx(event, 0, FALSE), WAIT_TIMEOUT);
    EXPECT_TRUE(CloseHandle(event));
}

TEST_F(SystemTest, ManualResetEventStaysSignalledUntilReset)
{
    HANDLE event = CreateEventW(nullptr, TRUE, TRUE, nullptr);
    EXPECT_EQ(WaitForSingleObjectEx(event, 0, FALSE), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObjectEx(event, 0, FALSE), WAIT_OBJECT_0);
    EXPECT_TRUE(ResetEvent(event));
    EXPECT_EQ(WaitForSingleObjectEx(event, 0, FALSE), WAIT_TIMEOUT);
    CloseHandle(event);
}

DWORD ExitAtOnce(void*)
{
    return 7;
}

DWORD WaitThenExit(void* parameter)
{
    WaitForSingleObjectEx(static_cast<HANDLE>(parameter), INFINITE, FALSE);
    return 42;
}

TEST_F(SystemTest, ThreadRunsItsRoutineAndReportsItsExitCode)
{
    HANDLE go = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    DWORD id = 0;
    HANDLE thread = CreateThread(nullptr, 0, WaitThenExit, go, 0, &id);
    ASSERT_NE(thread, nullptr);
    EXPECT_NE(id, 0u);
    DWORD code = 0;
    EXPECT_TRUE(GetExitCodeThread(thread, &code));
    EXPECT_EQ(code, STILL_ACTIVE);  // it cannot end before the event is set
    EXPECT_EQ(WaitForSingleObjectEx(thread, 0, FALSE), WAIT_TIMEOUT);
    SetEvent(go);
    EXPECT_EQ(WaitForSingleObjectEx(thread, INFINITE, FALSE), WAIT_OBJECT_0);
    EXPECT_TRUE(GetExitCodeThread(thread, &code));
    EXPECT_EQ(code, 42u);
    CloseHandle(thread);
    CloseHandle(go);
}

TEST_F(SystemTest, ThreadHandleMayBeClosedBeforeTheThreadEnds)
{
    HANDLE go = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    HANDLE thread = CreateThread(nullptr, 0, WaitThenExit, go, 0, nullptr);
    ASSERT_NE(thread, nullptr);
    EXPECT_TRUE(CloseHandle(thread));
    EXPECT_EQ(host::ResourceLedger::Instance().Live(host::ResourceKind::Thread), 1);
    SetEvent(go);
    JoinAllThreads();
    EXPECT_EQ(host::ResourceLedger::Instance().Live(host::ResourceKind::Thread), 0);
    CloseHandle(go);
}

TEST_F(SystemTest, HandlesAreAccountedAndDeadOnesRefused)
{
    const auto before = host::ResourceLedger::Instance().Live(host::ResourceKind::Handle);
    HANDLE event = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    EXPECT_EQ(host::ResourceLedger::Instance().Live(host::ResourceKind::Handle), before + 1);
    EXPECT_TRUE(CloseHandle(event));
    EXPECT_FALSE(CloseHandle(event));
    EXPECT_FALSE(SetEvent(event));
    EXPECT_EQ(WaitForSingleObjectEx(event, 0, FALSE), WAIT_FAILED);
    EXPECT_FALSE(CloseHandle(GetProcessHeap()));
    HANDLE thread = CreateThread(nullptr, 0, ExitAtOnce, nullptr, 0, nullptr);
    HANDLE other = CreateEventW(nullptr, TRUE, TRUE, nullptr);
    EXPECT_FALSE(SetEvent(thread));  // a thread is not an event
    WaitForSingleObjectEx(thread, INFINITE, FALSE);
    CloseHandle(thread);
    CloseHandle(other);
    EXPECT_EQ(host::ResourceLedger::Instance().Live(host::ResourceKind::Handle), before);
    EXPECT_EQ(host_->Violations().size(), 5u);
    ClearViolations();
}

TEST_F(SystemTest, HandleLeftOpenIsReportedAfterUnload)
{
    HANDLE event = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    host_->Unload();
    EXPECT_EQ(host_->Leaks(), "handles: 1");
    CloseHandle(event);
}

TEST_F(SystemTest, ThreadAndEventCreationFaults)
{
    auto& faults = host::FaultInjector::Instance();
    faults.FailNth(host::FaultPoint::EventCreate, 1, STATUS_INSUFFICIENT_RESOURCES);
    EXPECT_EQ(CreateEventW(nullptr, FALSE, FALSE, nullptr), nullptr);
    faults.FailNth(host::FaultPoint::ThreadCreate, 1, STATUS_INSUFFICIENT_RESOURCES);
    EXPECT_EQ(CreateThread(nullptr, 0, WaitThenExit, nullptr, 0, nullptr), nullptr);
    EXPECT_EQ(CreateThread(nullptr, 0, nullptr, nullptr, 0, nullptr), nullptr);
    EXPECT_EQ(CreateThread(nullptr, 0, WaitThenExit, nullptr, 4 /* suspended */, nullptr), nullptr);
    EXPECT_EQ(host::ResourceLedger::Instance().Live(host::ResourceKind::Thread), 0);
    ClearViolations();
}

TEST_F(SystemTest, HeapZeroesOnRequestAndRefusesBadFrees)
{
    HANDLE heap = GetProcessHeap();
    auto* block = static_cast<unsigned char*>(HeapAlloc(heap, HEAP_ZERO_MEMORY, 64));
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(block[63], 0);
    EXPECT_EQ(host::ResourceLedger::Instance().Live(host::ResourceKind::DriverHeap), 1);
    EXPECT_TRUE(HeapFree(heap, 0, block));
    EXPECT_FALSE(HeapFree(heap, 0, block));  // twice
    int local = 0;
    EXPECT_FALSE(HeapFree(heap, 0, &local));
    EXPECT_TRUE(HeapFree(heap, 0, nullptr));
    EXPECT_EQ(HeapAlloc(nullptr, 0, 8), nullptr);
    EXPECT_EQ(host_->Violations().size(), 3u);
    ClearViolations();

    host::FaultInjector::Instance().FailNth(host::FaultPoint::DriverHeap, 1, STATUS_NO_MEMORY);
    EXPECT_EQ(HeapAlloc(heap, 0, 8), nullptr);
}

TEST_F(SystemTest, HeapBlockLeftBehindIsReported)
{
    void* block = HeapAlloc(GetProcessHeap(), 0, 8);
    host_->Unload();
    EXPECT_EQ(host_->Leaks(), "driver heap blocks: 1");
    HeapFree(GetProcessHeap(), 0, block);
}

TEST_F(SystemTest, WaitLockTimesOutWhenHeldAndRefusesARecursiveAcquire)
{
    WDFWAITLOCK lock = nullptr;
    ASSERT_EQ(WdfWaitLockCreate(nullptr, &lock), STATUS_SUCCESS);
    EXPECT_EQ(WdfWaitLockAcquire(lock, nullptr), STATUS_SUCCESS);
    LONGLONG poll = 0;
    EXPECT_EQ(WdfWaitLockAcquire(lock, &poll), STATUS_TIMEOUT);
    EXPECT_EQ(WdfWaitLockAcquire(lock, nullptr), STATUS_INVALID_DEVICE_STATE);  // would deadlock
    WdfWaitLockRelease(lock);
    LONGLONG relative = -10'000;
    EXPECT_EQ(WdfWaitLockAcquire(lock, &relative), STATUS_SUCCESS);
    WdfWaitLockRelease(lock);
    WdfWaitLockRelease(lock);  // not held
    EXPECT_EQ(host_->Violations().size(), 2u);
    ClearViolations();

    host::FaultInjector::Instance().FailNth(host::FaultPoint::WaitLockCreate, 1, STATUS_INSUFFICIENT_RESOURCES);
    WDFWAITLOCK failed = nullptr;
    EXPECT_EQ(WdfWaitLockCreate(nullptr, &failed), STATUS_INSUFFICIENT_RESOURCES);
    EXPECT_EQ(failed, nullptr);
}

}  // namespace
}  // namespace host::framework::testing
