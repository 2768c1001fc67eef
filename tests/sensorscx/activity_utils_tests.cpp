#include <gtest/gtest.h>

#include <utility>
#include <vector>

#include "platform/sensorsutils.h"
#include "tests/sensorscx/fake_sensor_driver.h"

namespace host::sensorscx::testing {
namespace {

constexpr ULONG kStationary = 0x02;
constexpr ULONG kWalking = 0x08;
constexpr ULONG kRunning = 0x10;
constexpr ULONG kInVehicle = 0x20;
using Activities = std::vector<std::pair<ULONG, USHORT>>;

class ActivityUtilsTest : public LedgerTest {};

// An activity sample: the timestamp, then (state, confidence) pairs; room for 7 pairs.
std::unique_ptr<DriverList> Sample(const Activities& activities)
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
    list->Set(0, 133, Value(VT_BOOL, &PROPVARIANT::boolVal, VARIANT_BOOL{stream ? VARIANT_TRUE : VARIANT_FALSE}), kDataFmtid);
    list->Set(1, 132, Ui4(subscribed), kDataFmtid);
    list->Set(2, 134, Ui2(confidence), kDataFmtid);
    return list;
}

Activities Pairs(const SENSOR_COLLECTION_LIST& list, ULONG upTo)
{
    Activities pairs;
    for (ULONG i = 1; i + 1 < upTo; i += 2)
        pairs.emplace_back(list.List[i].Value.ulVal, list.List[i + 1].Value.uiVal);
    return pairs;
}

NTSTATUS Sort(DriverList* thresholds, DriverList* data)
{
    return CollectionsListSortSubscribedActivitiesByConfidence(thresholds ? thresholds->get() : nullptr,
                                                               data ? data->get() : nullptr);
}

TEST_F(ActivityUtilsTest, SortKeepsSubscribedByConfidenceStablyAndMovesTheRestBehindCount)
{
    auto data = Sample({{kWalking, 40}, {kRunning, 70}, {kStationary, 40}, {kInVehicle, 90}});
    auto thresholds = Thresholds(false, kWalking | kRunning | kStationary, 30);
    ASSERT_EQ(Sort(thresholds.get(), data.get()), STATUS_SUCCESS);
    EXPECT_EQ(data->get()->Count, 7u);
    EXPECT_EQ(Pairs(*data->get(), 9), (Activities{{kRunning, 70}, {kWalking, 40}, {kStationary, 40}, {kInVehicle, 90}}));
    EXPECT_EQ(data->get()->List[0].Value.vt, VT_FILETIME);  // the timestamp stays first
}

TEST_F(ActivityUtilsTest, SortRefusesMalformedSamplesAndLeavesThemAlone)
{
    auto thresholds = Thresholds(false, 0x7F, 0);
    auto data = Sample({{kWalking, 10}, {kRunning, 20}});
    data->get()->Count = 4;  // half a pair
    EXPECT_EQ(Sort(thresholds.get(), data.get()), STATUS_INVALID_PARAMETER);
    data->get()->Count = 5;
    data->Set(2, 999, Ui2(10), kDataFmtid);  // confidence entry with a foreign key
    EXPECT_EQ(Sort(thresholds.get(), data.get()), STATUS_INVALID_PARAMETER);
    EXPECT_EQ(data->get()->List[1].Value.ulVal, kWalking);
    EXPECT_EQ(Sort(nullptr, data.get()), STATUS_INVALID_PARAMETER);
    data->get()->Count = 17;  // beyond its 728 bytes
    EXPECT_EQ(Sort(thresholds.get(), data.get()), STATUS_INVALID_PARAMETER);
    EXPECT_EQ(TakeViolations(), std::vector<ViolationKind>{ViolationKind::ListCountExceedsSize});
}

TEST_F(ActivityUtilsTest, EvaluateDeliversOnlyWhatAClientWouldSeeChange)
{
    struct Case {
        const char* what;
        Activities now, before;
        ULONG subscribed;
        bool deliver;
    };
    const Case cases[] = {
        {"same most likely", {{kWalking, 90}, {kRunning, 35}}, {{kWalking, 80}, {kRunning, 40}}, 0x7F, false},
        {"most likely changed", {{kRunning, 85}, {kWalking, 60}}, {{kWalking, 80}, {kRunning, 40}}, 0x7F, true},
        {"rose to threshold", {{kWalking, 80}, {kRunning, 30}}, {{kWalking, 80}, {kRunning, 29}}, 0x7F, true},
        {"fell below threshold", {{kWalking, 80}, {kRunning, 29}}, {{kWalking, 80}, {kRunning, 30}}, 0x7F, true},
        {"below then absent", {{kWalking, 80}}, {{kWalking, 80}, {kRunning, 29}}, 0x7F, false},
        {"unsubscribed changed", {{kRunning, 95}, {kWalking, 50}}, {{kWalking, 50}, {kRunning, 10}}, kWalking, false},
        {"first after empty", {{kWalking, 80}}, {}, 0x7F, true},
        {"empty after empty", {}, {}, 0x7F, false},
    };
    for (const Case& c : cases) {
        auto thresholds = Thresholds(false, c.subscribed, 30);
        EXPECT_EQ(EvaluateActivityThresholds(Sample(c.now)->get(), Sample(c.before)->get(), thresholds->get()),
                  c.deliver)
            << c.what;
    }
    auto stream = Thresholds(true, 0x7F, 30), sample = Sample({{kWalking, 80}});
    EXPECT_TRUE(EvaluateActivityThresholds(sample->get(), sample->get(), stream->get()));  // streaming: every sample
    EXPECT_TRUE(EvaluateActivityThresholds(sample->get(), nullptr, stream->get()));
    EXPECT_FALSE(EvaluateActivityThresholds(nullptr, sample->get(), stream->get()));
    EXPECT_FALSE(EvaluateActivityThresholds(sample->get(), sample->get(), nullptr));
}

}  // namespace
}  // namespace host::sensorscx::testing
