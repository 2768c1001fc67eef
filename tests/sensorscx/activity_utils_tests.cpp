#include <gtest/gtest.h>

#include <utility>
#include <vector>

#include "host/sensorscx/violations.h"
#include "platform/sensorsutils.h"
#include "tests/sensorscx/fake_sensor_driver.h"

namespace host::sensorscx::testing {
namespace {

constexpr ULONG kWalking = 0x08;
constexpr ULONG kRunning = 0x10;
constexpr ULONG kStationary = 0x02;
constexpr ULONG kInVehicle = 0x20;

class ActivityUtilsTest : public LedgerTest {};

// An activity sample: the timestamp, then (state, confidence) pairs; room for 7 pairs.
std::unique_ptr<DriverList> Sample(const std::vector<std::pair<ULONG, USHORT>>& activities)
{
    auto list = std::make_unique<DriverList>(15);
    list->Set(0, 2, FileTime(5), kDataFmtid);
    ULONG slot = 1;
    for (const auto& [state, confidence] : activities) {
        list->Set(slot++, 130, Ui4(state), kDataFmtid);
        list->Set(slot++, 131, Ui2(confidence), kDataFmtid);
    }
    return list;
}

std::unique_ptr<DriverList> Thresholds(bool stream, ULONG subscribed, USHORT confidence)
{
    auto list = std::make_unique<DriverList>(3);
    PROPVARIANT b{};
    b.vt = VT_BOOL;
    b.boolVal = stream ? VARIANT_TRUE : VARIANT_FALSE;
    list->Set(0, 133, b, kDataFmtid);
    list->Set(1, 132, Ui4(subscribed), kDataFmtid);
    list->Set(2, 134, Ui2(confidence), kDataFmtid);
    return list;
}

std::vector<std::pair<ULONG, USHORT>> Pairs(const SENSOR_COLLECTION_LIST& list, ULONG upTo)
{
    std::vector<std::pair<ULONG, USHORT>> pairs;
    for (ULONG i = 1; i + 1 < upTo; i += 2)
        pairs.emplace_back(list.List[i].Value.ulVal, list.List[i + 1].Value.uiVal);
    return pairs;
}

TEST_F(ActivityUtilsTest, SortKeepsSubscribedByConfidenceStablyAndMovesTheRestBehindCount)
{
    auto data = Sample({{kWalking, 40}, {kRunning, 70}, {kStationary, 40}, {kInVehicle, 90}});
    auto thresholds = Thresholds(false, kWalking | kRunning | kStationary, 30);
    ASSERT_EQ(CollectionsListSortSubscribedActivitiesByConfidence(thresholds->get(), data->get()), STATUS_SUCCESS);
    EXPECT_EQ(data->get()->Count, 7u);
    using P = std::pair<ULONG, USHORT>;
    EXPECT_EQ(Pairs(*data->get(), 9),
              (std::vector<P>{{kRunning, 70}, {kWalking, 40}, {kStationary, 40}, {kInVehicle, 90}}));
    EXPECT_EQ(data->get()->List[0].Value.vt, VT_FILETIME);  // the timestamp stays first
}

TEST_F(ActivityUtilsTest, SortWithoutSubscriptionKeepsEverything)
{
    auto data = Sample({{kWalking, 10}, {kRunning, 20}});
    DriverList none(1);
    none.Set(0, 134, Ui2(50), kDataFmtid);  // a confidence threshold does not filter the sort
    ASSERT_EQ(CollectionsListSortSubscribedActivitiesByConfidence(none.get(), data->get()), STATUS_SUCCESS);
    EXPECT_EQ(data->get()->Count, 5u);
    EXPECT_EQ(data->get()->List[1].Value.ulVal, kRunning);
}

TEST_F(ActivityUtilsTest, SortRefusesMalformedSamplesAndLeavesThemAlone)
{
    auto thresholds = Thresholds(false, 0x7F, 0);
    auto data = Sample({{kWalking, 10}, {kRunning, 20}});
    data->get()->Count = 4;  // half a pair
    EXPECT_EQ(CollectionsListSortSubscribedActivitiesByConfidence(thresholds->get(), data->get()),
              STATUS_INVALID_PARAMETER);
    data->get()->Count = 5;
    data->Set(2, 999, Ui2(10), kDataFmtid);  // confidence entry with a foreign key
    EXPECT_EQ(CollectionsListSortSubscribedActivitiesByConfidence(thresholds->get(), data->get()),
              STATUS_INVALID_PARAMETER);
    EXPECT_EQ(data->get()->List[1].Value.ulVal, kWalking);
    EXPECT_EQ(CollectionsListSortSubscribedActivitiesByConfidence(nullptr, data->get()), STATUS_INVALID_PARAMETER);
    EXPECT_EQ(CollectionsListSortSubscribedActivitiesByConfidence(thresholds->get(), nullptr),
              STATUS_INVALID_PARAMETER);
    data->get()->Count = 17;  // beyond its 728 bytes
    EXPECT_EQ(CollectionsListSortSubscribedActivitiesByConfidence(thresholds->get(), data->get()),
              STATUS_INVALID_PARAMETER);
    EXPECT_TRUE(ViolationLog::Instance().Contains(ViolationKind::ListCountExceedsSize));
    data->get()->Count = 5;
    ViolationLog::Instance().Reset();
}

TEST_F(ActivityUtilsTest, EvaluateDeliversWhenTheMostLikelyActivityChanges)
{
    auto thresholds = Thresholds(false, 0x7F, 30);
    auto before = Sample({{kWalking, 80}, {kRunning, 40}});
    auto same = Sample({{kWalking, 90}, {kRunning, 35}});
    auto swapped = Sample({{kRunning, 85}, {kWalking, 60}});
    EXPECT_FALSE(EvaluateActivityThresholds(same->get(), before->get(), thresholds->get()));
    EXPECT_TRUE(EvaluateActivityThresholds(swapped->get(), before->get(), thresholds->get()));
}

TEST_F(ActivityUtilsTest, EvaluateDeliversWhenAnActivityCrossesTheConfidenceThreshold)
{
    auto thresholds = Thresholds(false, 0x7F, 30);
    auto before = Sample({{kWalking, 80}, {kRunning, 29}});
    auto risen = Sample({{kWalking, 80}, {kRunning, 30}});
    auto gone = Sample({{kWalking, 80}});
    EXPECT_TRUE(EvaluateActivityThresholds(risen->get(), before->get(), thresholds->get()));
    EXPECT_TRUE(EvaluateActivityThresholds(before->get(), risen->get(), thresholds->get()));
    // Below the threshold before and absent now: nothing a client sees changed.
    EXPECT_FALSE(EvaluateActivityThresholds(gone->get(), before->get(), thresholds->get()));
}

TEST_F(ActivityUtilsTest, EvaluateIgnoresUnsubscribedActivities)
{
    auto thresholds = Thresholds(false, kWalking, 0);
    auto before = Sample({{kWalking, 50}, {kRunning, 10}});
    auto after = Sample({{kRunning, 95}, {kWalking, 50}});
    EXPECT_FALSE(EvaluateActivityThresholds(after->get(), before->get(), thresholds->get()));
}

TEST_F(ActivityUtilsTest, EvaluateStreamAndMissingSamples)
{
    auto stream = Thresholds(true, 0x7F, 30);
    auto filtered = Thresholds(false, 0x7F, 30);
    auto sample = Sample({{kWalking, 80}});
    EXPECT_TRUE(EvaluateActivityThresholds(sample->get(), sample->get(), stream->get()));
    EXPECT_FALSE(EvaluateActivityThresholds(sample->get(), sample->get(), filtered->get()));
    EXPECT_TRUE(EvaluateActivityThresholds(sample->get(), nullptr, filtered->get()));
    EXPECT_FALSE(EvaluateActivityThresholds(nullptr, sample->get(), filtered->get()));
    EXPECT_FALSE(EvaluateActivityThresholds(sample->get(), sample->get(), nullptr));
    // The first sample after nothing counted: an empty sample before, a recognised activity now.
    auto empty = Sample({});
    EXPECT_TRUE(EvaluateActivityThresholds(sample->get(), empty->get(), filtered->get()));
    EXPECT_FALSE(EvaluateActivityThresholds(empty->get(), empty->get(), filtered->get()));
}

TEST_F(ActivityUtilsTest, SortThenEvaluateAsTheActivitySensorUsesThem)
{
    auto thresholds = Thresholds(false, 0x7F, 30);
    auto lastDelivered = Sample({{kStationary, 100}});
    auto next = Sample({{kWalking, 20}, {kStationary, 95}});
    ASSERT_EQ(CollectionsListSortSubscribedActivitiesByConfidence(thresholds->get(), next->get()), STATUS_SUCCESS);
    EXPECT_FALSE(EvaluateActivityThresholds(next->get(), lastDelivered->get(), thresholds->get()));
    auto moving = Sample({{kWalking, 60}, {kStationary, 50}});
    ASSERT_EQ(CollectionsListSortSubscribedActivitiesByConfidence(thresholds->get(), moving->get()), STATUS_SUCCESS);
    EXPECT_TRUE(EvaluateActivityThresholds(moving->get(), lastDelivered->get(), thresholds->get()));
}

}  // namespace
}  // namespace host::sensorscx::testing
