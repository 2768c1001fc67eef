// System services: the clock, events, threads, handles, the heap, wait locks,
// and what the leak report says about each.
#include "host/common/resource_ledger.h"
#include "host/framework/threads.h"
#include "platform/system.h"
#include "tests/framework/test_support.h"

namespace host::framework::testing {
namespace {

using SystemTest = DeviceTest;

LONGLONG SystemTicks()
{
    FILETIME now;
    GetSystemTimeAsFileTime(&now);
    return FileTimeToTicks(now);
}

std::int64_t Live(host::ResourceKind kind)
{
    return host::ResourceLedger::Instance().Live(kind);
}

DWORD WaitThenExit(void* event)
{
    WaitForSingleObjectEx(static_cast<HANDLE>(event), INFINITE, FALSE);
    return 42;
}

TEST_F(SystemTest, SystemTimeIsTheHostClockAndMovesOnlyWhenAdvanced)
{
    const LONGLONG first = SystemTicks();
    EXPECT_EQ(first, FileTimeToTicks(StartTime()));
    EXPECT_EQ(SystemTicks(), first);
    host_->Advance(1500);
    EXPECT_EQ(SystemTicks() - first, 1500 * kTicksPerMillisecond);
    FILETIME now;
    GetSystemTimeAsFileTime(&now);
    EXPECT_NE(now.dwHighDateTime, 0u) << "the two halves carry a value beyond 32 bits";
}

TEST_F(SystemTest, AutoResetEventReleasesOneWaitManualResetStaysSignalled)
{
    HANDLE autoReset = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    HANDLE manual = CreateEventW(nullptr, TRUE, TRUE, nullptr);
    EXPECT_EQ(WaitForSingleObjectEx(autoReset, 0, FALSE), WAIT_TIMEOUT);
    EXPECT_TRUE(SetEvent(autoReset));
    EXPECT_EQ(WaitForSingleObjectEx(autoReset, 0, FALSE), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObjectEx(autoReset, 0, FALSE), WAIT_TIMEOUT);
    EXPECT_EQ(WaitForSingleObjectEx(manual, 0, FALSE), WAIT_OBJECT_0);
    EXPECT_EQ(WaitForSingleObjectEx(manual, 0, FALSE), WAIT_OBJECT_0);
    EXPECT_TRUE(ResetEvent(manual));
    EXPECT_EQ(WaitForSingleObjectEx(manual, 0, FALSE), WAIT_TIMEOUT);
    CloseHandle(autoReset);
    CloseHandle(manual);
}

TEST_F(SystemTest, ThreadRunsItsRoutineReportsItsExitCodeAndOutlivesItsHandle)
{
    HANDLE go = CreateEventW(nullptr, TRUE, FALSE, nullptr);
    DWORD id = 0;
    HANDLE thread = CreateThread(nullptr, 0, WaitThenExit, go, 0, &id);
    HANDLE detached = CreateThread(nullptr, 0, WaitThenExit, go, 0, nullptr);
    ASSERT_NE(thread, nullptr);
    EXPECT_NE(id, 0u);
    DWORD code = 0;
    EXPECT_TRUE(GetExitCodeThread(thread, &code));
    EXPECT_EQ(code, STILL_ACTIVE);  // it cannot end before the event is set
    EXPECT_EQ(WaitForSingleObjectEx(thread, 0, FALSE), WAIT_TIMEOUT);
    EXPECT_TRUE(CloseHandle(detached));
    EXPECT_EQ(Live(host::ResourceKind::Thread), 2);
    SetEvent(go);
    EXPECT_EQ(WaitForSingleObjectEx(thread, INFINITE, FALSE), WAIT_OBJECT_0);
    EXPECT_TRUE(GetExitCodeThread(thread, &code));
    EXPECT_EQ(code, 42u);
    CloseHandle(thread);
    JoinAllThreads();
    EXPECT_EQ(Live(host::ResourceKind::Thread), 0);
    CloseHandle(go);
}

TEST_F(SystemTest, HandlesAreAccountedAndDeadOrWrongOnesRefused)
{
    const auto before = Live(host::ResourceKind::Handle);
    HANDLE event = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    EXPECT_EQ(Live(host::ResourceKind::Handle), before + 1);
    EXPECT_TRUE(CloseHandle(event));
    EXPECT_FALSE(CloseHandle(event));
    EXPECT_FALSE(SetEvent(event));
    EXPECT_EQ(WaitForSingleObjectEx(event, 0, FALSE), WAIT_FAILED);
    EXPECT_FALSE(CloseHandle(GetProcessHeap()));
    HANDLE thread = CreateThread(nullptr, 0, [](void*) -> DWORD { return 7; }, nullptr, 0, nullptr);
    EXPECT_FALSE(SetEvent(thread));  // a thread is not an event
    WaitForSingleObjectEx(thread, INFINITE, FALSE);
    CloseHandle(thread);
    EXPECT_EQ(Live(host::ResourceKind::Handle), before);
    EXPECT_EQ(CreateThread(nullptr, 0, nullptr, nullptr, 0, nullptr), nullptr);
    EXPECT_EQ(CreateThread(nullptr, 0, WaitThenExit, nullptr, 4 /* suspended */, nullptr), nullptr);
    EXPECT_EQ(Live(host::ResourceKind::Thread), 0);
    ExpectViolations({}, 6);
}

TEST_F(SystemTest, HeapZeroesOnRequestAndRefusesBadFrees)
{
    HANDLE heap = GetProcessHeap();
    auto* block = static_cast<unsigned char*>(HeapAlloc(heap, HEAP_ZERO_MEMORY, 64));
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(block[63], 0);
    EXPECT_EQ(Live(host::ResourceKind::DriverHeap), 1);
    EXPECT_TRUE(HeapFree(heap, 0, block));
    EXPECT_FALSE(HeapFree(heap, 0, block));  // twice
    int local = 0;
    EXPECT_FALSE(HeapFree(heap, 0, &local));
    EXPECT_TRUE(HeapFree(heap, 0, nullptr));
    EXPECT_EQ(HeapAlloc(nullptr, 0, 8), nullptr);
    ExpectViolations({}, 3);
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
    ExpectViolations({}, 2);
}

TEST_F(SystemTest, LeakReportNamesWhatIsLeftByKind)
{
    HANDLE event = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    void* block = HeapAlloc(GetProcessHeap(), 0, 8);
    host_->Unload();
    EXPECT_EQ(host_->Leaks(), "driver heap blocks: 1, handles: 1");
    CloseHandle(event);
    HeapFree(GetProcessHeap(), 0, block);
    // Created after unload, with no driver to parent it: a root nobody deletes.
    WDFMEMORY orphan = nullptr;
    ASSERT_EQ(WdfMemoryCreate(nullptr, PagedPool, 0, 8, &orphan, nullptr), STATUS_SUCCESS);
    EXPECT_EQ(host_->Leaks(), "framework memory: 1 (live objects: Memory 1)");
    WdfObjectDelete(orphan);
    EXPECT_EQ(host_->Leaks(), "");
}

}  // namespace
}  // namespace host::framework::testing
