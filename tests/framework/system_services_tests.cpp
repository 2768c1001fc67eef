// Events, threads and the process heap: the services a history worker and the
// driver's own allocations rest on.
#include "host/common/resource_ledger.h"
#include "host/framework/threads.h"
#include "platform/system.h"
#include "tests/framework/test_support.h"

namespace host::framework::testing {
namespace {

using SystemTest = DeviceTest;

std::int64_t Live(host::ResourceKind kind) { return host::ResourceLedger::Instance().Live(kind); }

DWORD WaitThenExit(void* event)
{
    WaitForSingleObjectEx(static_cast<HANDLE>(event), INFINITE, FALSE);
    return 42;
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
    EXPECT_TRUE(CloseHandle(autoReset));
    EXPECT_TRUE(CloseHandle(manual));
    EXPECT_FALSE(SetEvent(manual));  // closed
    EXPECT_EQ(WaitForSingleObjectEx(manual, 0, FALSE), WAIT_FAILED);
    ExpectViolations({}, 2);
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

TEST_F(SystemTest, HeapZeroesOnRequestAndRefusesBadFrees)
{
    HANDLE heap = GetProcessHeap();
    auto* block = static_cast<unsigned char*>(HeapAlloc(heap, HEAP_ZERO_MEMORY, 64));
    ASSERT_NE(block, nullptr);
    EXPECT_EQ(block[63], 0);
    EXPECT_EQ(Live(host::ResourceKind::DriverHeap), 1);
    EXPECT_TRUE(HeapFree(heap, 0, block));
    EXPECT_FALSE(HeapFree(heap, 0, block));  // twice
    EXPECT_TRUE(HeapFree(heap, 0, nullptr));
    EXPECT_EQ(Live(host::ResourceKind::DriverHeap), 0);
    ExpectViolations({}, 1);
}

}  // namespace
}  // namespace host::framework::testing
