// Timers on the deterministic clock: ordering, re-arming, stop and delete.
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
    bool operator==(const Fired&) const = default;
};
std::vector<Fired> fired;

void OnTimer(WDFTIMER timer)
{
    TimerTag* tag = GetTimerTag(timer);
    FILETIME now;
    GetSystemTimeAsFileTime(&now);
    fired.push_back({tag->id, FileTimeToTicks(now)});
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
        fired.clear();
        start = FileTimeToTicks(host_->Now());
    }
    WDFTIMER NewTimer(int id, TimerTag tag = {}, ULONG periodMs = 0, WDFOBJECT parent = nullptr,
                      PFN_WDF_TIMER callback = OnTimer)
    {
        WDF_TIMER_CONFIG config;
        WDF_TIMER_CONFIG_INIT(&config, callback);
        config.Period = periodMs;
        WDF_OBJECT_ATTRIBUTES attributes =
            Attributes(parent != nullptr ? parent : Device(), WDF_GET_CONTEXT_TYPE_INFO(TimerTag));
        attributes.ExecutionLevel = WdfExecutionLevelPassive;
        WDFTIMER timer = nullptr;
        EXPECT_EQ(WdfTimerCreate(&config, &attributes, &timer), STATUS_SUCCESS);
        *GetTimerTag(timer) = tag;
        GetTimerTag(timer)->id = id;
        return timer;
    }
    LONGLONG Ms(LONGLONG ms) const { return start + ms * kTicksPerMillisecond; }

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
    EXPECT_TRUE(fired.empty());
    host_->Advance(1000);
    EXPECT_EQ(fired, (std::vector<Fired>{{2, Ms(100)}, {4, Ms(200)}, {3, Ms(200)}, {1, Ms(300)}}));
    EXPECT_EQ(FileTimeToTicks(host_->Now()), Ms(1099));
}

TEST_F(TimerTest, AbsoluteZeroAndPastDueTimesAndRestartingAQueuedTimer)
{
    WDFTIMER absolute = NewTimer(1);
    WDFTIMER now = NewTimer(2);
    WDFTIMER past = NewTimer(3);
    WDFTIMER moved = NewTimer(4);
    WdfTimerStart(absolute, Ms(40));
    WdfTimerStart(now, 0);
    WdfTimerStart(past, start - 1);
    EXPECT_FALSE(WdfTimerStart(moved, WDF_REL_TIMEOUT_IN_MS(10)));
    EXPECT_TRUE(WdfTimerStart(moved, WDF_REL_TIMEOUT_IN_MS(50))) << "replaces the queued due time";
    host_->RunPending();  // due now: no time needs to pass
    EXPECT_EQ(fired, (std::vector<Fired>{{3, start}, {2, start}}));
    host_->Advance(50);
    EXPECT_EQ(fired, (std::vector<Fired>{{3, start}, {2, start}, {1, Ms(40)}, {4, Ms(50)}}));
    EXPECT_FALSE(WdfTimerStart(moved, WDF_REL_TIMEOUT_IN_MS(1))) << "not queued after firing";
}

TEST_F(TimerTest, ReArmingFromTheCallbackAndPeriodicTimersFireAgainWithinOneAdvance)
{
    WdfTimerStart(NewTimer(1, {0, 3, 250, false, false}), WDF_REL_TIMEOUT_IN_MS(100));
    WDFTIMER periodic = NewTimer(2, {}, 310);
    WdfTimerStart(periodic, WDF_REL_TIMEOUT_IN_MS(50));
    host_->Advance(700);
    // 100, 350, 600 (850 still queued); periodic at 50, 360, 670.
    EXPECT_EQ(fired, (std::vector<Fired>{{2, Ms(50)}, {1, Ms(100)}, {1, Ms(350)}, {2, Ms(360)}, {1, Ms(600)},
                                         {2, Ms(670)}}));
    EXPECT_TRUE(WdfTimerStop(periodic, TRUE));
    host_->Advance(1000);
    EXPECT_EQ(fired.size(), 7u);
}

TEST_F(TimerTest, StopAndDeleteCancelTheDueTimeAlsoFromTheTimersOwnCallback)
{
    WDFTIMER stopped = NewTimer(1);
    EXPECT_FALSE(WdfTimerStop(stopped, TRUE));
    WdfTimerStart(stopped, WDF_REL_TIMEOUT_IN_MS(10));
    EXPECT_TRUE(WdfTimerStop(stopped, FALSE));
    WdfTimerStart(NewTimer(2, {0, 5, 10, true, false}), WDF_REL_TIMEOUT_IN_MS(10));  // stops itself after re-arming
    WDFTIMER selfDeleting = NewTimer(3, {0, 1, 10, false, true});
    WdfTimerStart(selfDeleting, WDF_REL_TIMEOUT_IN_MS(20));
    WDFMEMORY parent = nullptr;
    ASSERT_EQ(WdfMemoryCreate(nullptr, PagedPool, 0, 4, &parent, nullptr), STATUS_SUCCESS);
    WDFTIMER child = NewTimer(4, {}, 0, parent);
    EXPECT_EQ(WdfTimerGetParentObject(child), parent);
    WdfTimerStart(child, WDF_REL_TIMEOUT_IN_MS(5));
    WdfObjectDelete(parent);  // takes the queued timer with it, quietly
    host_->Advance(100);
    EXPECT_EQ(fired, (std::vector<Fired>{{2, Ms(10)}, {3, Ms(20)}}));
    EXPECT_EQ(Object::FromHandle(selfDeleting), nullptr);
}

TEST_F(TimerTest, TimersOverdueAfterATimedOutSendFireAtTheNextRunPending)
{
    // Time jumps inside a send (a device that never answers); the timer then is
    // overdue and runs as soon as the host runs pending work, not inside the send.
    WdfTimerStart(NewTimer(1), WDF_REL_TIMEOUT_IN_MS(1000));
    Runtime::Get().Clock().AdvanceTo(Ms(5000));
    EXPECT_TRUE(fired.empty());
    host_->RunPending();
    EXPECT_EQ(fired, (std::vector<Fired>{{1, Ms(5000)}}));
}

TEST_F(TimerTest, TimerThatReArmsForNowForeverIsCutOffNotLoopedOn)
{
    WDFTIMER timer = NewTimer(1, {}, 0, nullptr, [](WDFTIMER self) { WdfTimerStart(self, 0); });
    WdfTimerStart(timer, 0);
    host_->Advance(10);
    EXPECT_EQ(FileTimeToTicks(host_->Now()), Ms(10));
    WdfObjectDelete(timer);
    ExpectViolations({"keeps re-arming itself"});
}

}  // namespace
}  // namespace host::framework::testing
