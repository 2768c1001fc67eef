// Timers on the deterministic clock: ordering, re-arming, stop and delete.
#include <string>
#include <vector>

#include "host/framework/runtime.h"
#include "platform/system.h"
#include "tests/framework/test_support.h"

namespace host::framework::testing {
namespace {

struct TimerTag {
    int id;
    int reArmsLeft;
    ULONGLONG reArmMs;
    bool stopSelf;
    bool deleteSelf;
};
WDF_DECLARE_CONTEXT_TYPE_WITH_NAME(TimerTag, GetTimerTag)

struct Fired {
    int id;
    LONGLONG at;
};

std::vector<Fired>& FiredLog()
{
    static std::vector<Fired> log;
    return log;
}

void OnTimer(WDFTIMER timer)
{
    TimerTag* tag = GetTimerTag(timer);
    FILETIME now;
    GetSystemTimeAsFileTime(&now);
    FiredLog().push_back({tag->id, FileTimeToTicks(now)});
    if (tag->reArmsLeft > 0) {
        --tag->reArmsLeft;
        WdfTimerStart(timer, WDF_REL_TIMEOUT_IN_MS(tag->reArmMs));
    }
    if (tag->stopSelf)
        WdfTimerStop(timer, TRUE);  // must not wait for itself
    if (tag->deleteSelf)
        WdfObjectDelete(timer);
}

class TimerTest : public DeviceTest {
protected:
    void SetUp() override
    {
        DeviceTest::SetUp();
        FiredLog().clear();
        start = FileTimeToTicks(host_->Now());
    }

    WDFTIMER NewTimer(int id, ULONG periodMs = 0)
    {
        WDF_TIMER_CONFIG config;
        WDF_TIMER_CONFIG_INIT(&config, OnTimer);
        config.Period = periodMs;
        WDF_OBJECT_ATTRIBUTES attributes;
        WDF_OBJECT_ATTRIBUTES_INIT(&attributes);
        attributes.ParentObject = Device();
        attributes.ExecutionLevel = WdfExecutionLevelPassive;
        attributes.ContextTypeInfo = WDF_GET_CONTEXT_TYPE_INFO(TimerTag);
        WDFTIMER timer = nullptr;
        EXPECT_EQ(WdfTimerCreate(&config, &attributes, &timer), STATUS_SUCCESS);
        GetTimerTag(timer)->id = id;
        return timer;
    }

    LONGLONG Ms(LONGLONG ms) const { return start + ms * kTicksPerMillisecond; }

    std::vector<int> FiredIds() const
    {
        std::vector<int> ids;
        for (const Fired& fired : FiredLog())
            ids.push_back(fired.id);
        return ids;
    }

    LONGLONG start = 0;
};

TEST_F(TimerTest, TimersFireInDueOrderAtTheirDueTimeTiesInStartOrder)
{
    WDFTIMER late = NewTimer(1);
    WDFTIMER early = NewTimer(2);
    WDFTIMER tieA = NewTimer(3);
    WDFTIMER tieB = NewTimer(4);
    EXPECT_FALSE(WdfTimerStart(late, WDF_REL_TIMEOUT_IN_MS(300)));
    EXPECT_FALSE(WdfTimerStart(early, WDF_REL_TIMEOUT_IN_MS(100)));
    EXPECT_FALSE(WdfTimerStart(tieB, WDF_REL_TIMEOUT_IN_MS(200)));
    EXPECT_FALSE(WdfTimerStart(tieA, WDF_REL_TIMEOUT_IN_MS(200)));

    host_->Advance(99);
    EXPECT_TRUE(FiredLog().empty());
    host_->Advance(1000);
    EXPECT_EQ(FiredIds(), (std::vector<int>{2, 4, 3, 1}));
    EXPECT_EQ(FiredLog()[0].at, Ms(100));
    EXPECT_EQ(FiredLog()[1].at, Ms(200));
    EXPECT_EQ(FiredLog()[3].at, Ms(300));
    EXPECT_EQ(FileTimeToTicks(host_->Now()), Ms(1099));
}

TEST_F(TimerTest, ReArmingFromTheCallbackFiresAgainWithinTheSameAdvance)
{
    WDFTIMER timer = NewTimer(1);
    GetTimerTag(timer)->reArmsLeft = 3;
    GetTimerTag(timer)->reArmMs = 250;
    WdfTimerStart(timer, WDF_REL_TIMEOUT_IN_MS(100));
    host_->Advance(700);
    ASSERT_EQ(FiredLog().size(), 3u);  // 100, 350, 600; the one at 850 is still queued
    EXPECT_EQ(FiredLog()[2].at, Ms(600));
    host_->Advance(250);
    EXPECT_EQ(FiredLog().size(), 4u);
}

TEST_F(TimerTest, StartingAQueuedTimerReplacesItsDueTimeAndReportsIt)
{
    WDFTIMER timer = NewTimer(1);
    EXPECT_FALSE(WdfTimerStart(timer, WDF_REL_TIMEOUT_IN_MS(100)));
    EXPECT_TRUE(WdfTimerStart(timer, WDF_REL_TIMEOUT_IN_MS(500)));
    host_->Advance(400);
    EXPECT_TRUE(FiredLog().empty());
    host_->Advance(100);
    ASSERT_EQ(FiredLog().size(), 1u);
    EXPECT_FALSE(WdfTimerStart(timer, WDF_REL_TIMEOUT_IN_MS(1)));  // not queued after firing
}

TEST_F(TimerTest, AbsoluteAndZeroDueTimes)
{
    WDFTIMER absolute = NewTimer(1);
    WDFTIMER now = NewTimer(2);
    WDFTIMER past = NewTimer(3);
    WdfTimerStart(absolute, Ms(40));
    WdfTimerStart(now, 0);
    WdfTimerStart(past, start - 1);
    host_->RunPending();  // due now: no time needs to pass
    EXPECT_EQ(FiredIds(), (std::vector<int>{3, 2}));
    host_->Advance(40);
    EXPECT_EQ(FiredIds(), (std::vector<int>{3, 2, 1}));
    EXPECT_EQ(FiredLog()[2].at, Ms(40));
}

TEST_F(TimerTest, StopCancelsAQueuedDueTime)
{
    WDFTIMER timer = NewTimer(1);
    EXPECT_FALSE(WdfTimerStop(timer, TRUE));
    WdfTimerStart(timer, WDF_REL_TIMEOUT_IN_MS(10));
    EXPECT_TRUE(WdfTimerStop(timer, FALSE));
    host_->Advance(100);
    EXPECT_TRUE(FiredLog().empty());
}

TEST_F(TimerTest, StopWithWaitFromItsOwnCallbackReturnsAndCancelsTheReArm)
{
    WDFTIMER timer = NewTimer(1);
    GetTimerTag(timer)->reArmsLeft = 5;
    GetTimerTag(timer)->reArmMs = 10;
    GetTimerTag(timer)->stopSelf = true;
    WdfTimerStart(timer, WDF_REL_TIMEOUT_IN_MS(10));
    host_->Advance(100);
    EXPECT_EQ(FiredLog().size(), 1u);
}

TEST_F(TimerTest, TimerDeletedFromItsOwnCallbackIsGoneAndNeverFiresAgain)
{
    WDFTIMER timer = NewTimer(1);
    GetTimerTag(timer)->reArmsLeft = 1;
    GetTimerTag(timer)->reArmMs = 10;
    GetTimerTag(timer)->deleteSelf = true;
    WdfTimerStart(timer, WDF_REL_TIMEOUT_IN_MS(10));
    host_->Advance(100);
    EXPECT_EQ(FiredLog().size(), 1u);
    EXPECT_EQ(Object::FromHandle(timer), nullptr);
}

TEST_F(TimerTest, DeletingTheParentDeletesAQueuedTimerQuietly)
{
    WDFMEMORY parent = nullptr;
    ASSERT_EQ(WdfMemoryCreate(nullptr, PagedPool, 0, 4, &parent, nullptr), STATUS_SUCCESS);
    WDF_TIMER_CONFIG config;
    WDF_TIMER_CONFIG_INIT(&config, OnTimer);
    WDF_OBJECT_ATTRIBUTES attributes;
    WDF_OBJECT_ATTRIBUTES_INIT(&attributes);
    attributes.ParentObject = parent;
    attributes.ContextTypeInfo = WDF_GET_CONTEXT_TYPE_INFO(TimerTag);
    WDFTIMER timer = nullptr;
    ASSERT_EQ(WdfTimerCreate(&config, &attributes, &timer), STATUS_SUCCESS);
    EXPECT_EQ(WdfTimerGetParentObject(timer), parent);
    WdfTimerStart(timer, WDF_REL_TIMEOUT_IN_MS(5));
    WdfObjectDelete(parent);
    host_->Advance(10);
    EXPECT_TRUE(FiredLog().empty());
}

TEST_F(TimerTest, PeriodicTimerKeepsFiringUntilStopped)
{
    WDFTIMER timer = NewTimer(1, 100);
    WdfTimerStart(timer, WDF_REL_TIMEOUT_IN_MS(50));
    host_->Advance(360);
    ASSERT_EQ(FiredLog().size(), 4u);  // 50, 150, 250, 350
    EXPECT_EQ(FiredLog()[3].at, Ms(350));
    EXPECT_TRUE(WdfTimerStop(timer, TRUE));
    host_->Advance(1000);
    EXPECT_EQ(FiredLog().size(), 4u);
}

TEST_F(TimerTest, TimersOverdueAfterATimedOutSendFireAtTheNextRunPending)
{
    // Time jumps inside a send (a device that never answers); the timer then is
    // overdue and runs as soon as the host runs pending work, not inside the send.
    WDFTIMER timer = NewTimer(1);
    WdfTimerStart(timer, WDF_REL_TIMEOUT_IN_MS(1000));
    Runtime::Get().Clock().AdvanceTo(Ms(5000));
    EXPECT_TRUE(FiredLog().empty());
    host_->RunPending();
    ASSERT_EQ(FiredLog().size(), 1u);
    EXPECT_EQ(FiredLog()[0].at, Ms(5000));
}

void ReArmForNow(WDFTIMER timer)
{
    WdfTimerStart(timer, 0);
}

TEST_F(TimerTest, TimerThatReArmsForNowForeverIsCutOffNotLoopedOn)
{
    WDF_TIMER_CONFIG config;
    WDF_TIMER_CONFIG_INIT(&config, ReArmForNow);
    WDF_OBJECT_ATTRIBUTES attributes;
    WDF_OBJECT_ATTRIBUTES_INIT(&attributes);
    attributes.ParentObject = Device();
    WDFTIMER timer = nullptr;
    ASSERT_EQ(WdfTimerCreate(&config, &attributes, &timer), STATUS_SUCCESS);
    WdfTimerStart(timer, 0);
    host_->Advance(10);
    EXPECT_TRUE(HasViolation(*host_, "keeps re-arming itself"));
    EXPECT_EQ(FileTimeToTicks(host_->Now()), Ms(10));
    WdfObjectDelete(timer);
    ClearViolations();
}

TEST_F(TimerTest, CreationNeedsAConfigACallbackAndAParent)
{
    WDF_TIMER_CONFIG config;
    WDF_TIMER_CONFIG_INIT(&config, OnTimer);
    WDF_OBJECT_ATTRIBUTES attributes;
    WDF_OBJECT_ATTRIBUTES_INIT(&attributes);
    WDFTIMER timer = nullptr;
    EXPECT_EQ(WdfTimerCreate(&config, &attributes, &timer), STATUS_INVALID_PARAMETER);  // no parent
    attributes.ParentObject = Device();
    EXPECT_EQ(WdfTimerCreate(&config, nullptr, &timer), STATUS_INVALID_PARAMETER);
    EXPECT_EQ(WdfTimerCreate(nullptr, &attributes, &timer), STATUS_INVALID_PARAMETER);
    config.EvtTimerFunc = nullptr;
    EXPECT_EQ(WdfTimerCreate(&config, &attributes, &timer), STATUS_INVALID_PARAMETER);
    WDF_TIMER_CONFIG_INIT(&config, OnTimer);
    config.Size = 8;
    EXPECT_EQ(WdfTimerCreate(&config, &attributes, &timer), STATUS_INFO_LENGTH_MISMATCH);
    config.Size = sizeof(config);
    host::FaultInjector::Instance().FailNth(host::FaultPoint::TimerCreate, 1, STATUS_INSUFFICIENT_RESOURCES);
    EXPECT_EQ(WdfTimerCreate(&config, &attributes, &timer), STATUS_INSUFFICIENT_RESOURCES);
    EXPECT_EQ(timer, nullptr);
    EXPECT_EQ(WdfTimerCreate(&config, &attributes, &timer), STATUS_SUCCESS);
}

}  // namespace
}  // namespace host::framework::testing
