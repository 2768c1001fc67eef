// The deterministic clock and its timers: ordering, re-arming, stop and delete.
#include <vector>

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

LONGLONG SystemTicks()
{
    FILETIME now;
    GetSystemTimeAsFileTime(&now);
    return FileTimeToTicks(now);
}

void OnTimer(WDFTIMER timer)
{
    TimerTag* tag = GetTimerTag(timer);
    fired.push_back({tag->id, SystemTicks()});
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
        start = SystemTicks();  // the host clock, as the driver sees it
        EXPECT_EQ(start, FileTimeToTicks(StartTime()));
    }
    WDFTIMER NewTimer(int id, TimerTag tag = {}, ULONG periodMs = 0, WDFOBJECT parent = nullptr)
    {
        WDF_TIMER_CONFIG config;
        WDF_TIMER_CONFIG_INIT(&config, OnTimer);
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
    EXPECT_FALSE(WdfTimerStart(early, WDF_REL_TIMEOUT_IN_MS(10)));
    EXPECT_TRUE(WdfTimerStart(early, WDF_REL_TIMEOUT_IN_MS(100))) << "replaces the queued due time";
    WdfTimerStart(tieB, WDF_REL_TIMEOUT_IN_MS(200));
    WdfTimerStart(tieA, WDF_REL_TIMEOUT_IN_MS(200));
    WdfTimerStart(NewTimer(5), Ms(250));    // absolute
    WdfTimerStart(NewTimer(6), start - 1);  // already past
    host_->RunPending();                    // due now: no time needs to pass
    EXPECT_EQ(fired, (std::vector<Fired>{{6, start}}));
    host_->Advance(99);
    EXPECT_EQ(fired.size(), 1u);
    host_->Advance(1000);
    EXPECT_EQ(fired, (std::vector<Fired>{{6, start}, {2, Ms(100)}, {4, Ms(200)}, {3, Ms(200)}, {5, Ms(250)},
                                         {1, Ms(300)}}));
    EXPECT_EQ(FileTimeToTicks(host_->Now()), Ms(1099));
    EXPECT_FALSE(WdfTimerStart(early, WDF_REL_TIMEOUT_IN_MS(1))) << "not queued after firing";
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
    WdfTimerStart(child, WDF_REL_TIMEOUT_IN_MS(5));
    WdfObjectDelete(parent);  // takes the queued timer with it, quietly
    host_->Advance(100);
    EXPECT_EQ(fired, (std::vector<Fired>{{2, Ms(10)}, {3, Ms(20)}}));
    EXPECT_EQ(Object::FromHandle(selfDeleting), nullptr);
}

}  // namespace
}  // namespace host::framework::testing
