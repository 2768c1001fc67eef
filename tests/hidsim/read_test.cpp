// Reads of input reports over the amd-sfh-als collection (input report ID 4):
// the pending read, the queue, cancellation, and the rules on reads.
#include <gtest/gtest.h>

#include "hidsim_test_support.h"

namespace hidsim_test {
namespace {

const Bytes kReportA{0x04, 0x02, 0x01, 0x10, 0x27, 0x00, 0x00};
const Bytes kReportB{0x04, 0x02, 0x01, 0x20, 0x4E, 0x00, 0x00};

class Reads : public DeviceTest {
protected:
    void SetUp() override
    {
        HidDeviceConfig config = On("amd-sfh-als");
        config.readQueueCapacity = 4;
        Make(config);
    }
    RecordingRead read_;
};

TEST_F(Reads, PendingReadGetsTheInputCutToItsCapacityAndQueuedInputIsServedInOrder)
{
    Submit(read_);
    EXPECT_TRUE(read_.completions.empty());
    EXPECT_TRUE(Collection().HasPendingRead());
    Bytes both = kReportA;
    both.insert(both.end(), kReportB.begin(), kReportB.end());
    Feed(both);  // several reports in one read arrive together
    Submit(read_, 3);
    Feed(kReportA);
    Submit(read_);
    Feed({});
    ASSERT_EQ(read_.completions.size(), 3u);
    EXPECT_EQ(read_.completions[0].status, STATUS_SUCCESS);
    EXPECT_EQ(read_.completions[0].data, both);
    EXPECT_EQ(read_.completions[1].data, (Bytes{0x04, 0x02, 0x01}));
    EXPECT_EQ(read_.completions[2].status, STATUS_SUCCESS);
    EXPECT_TRUE(read_.completions[2].data.empty());
    EXPECT_FALSE(Collection().HasPendingRead());

    // Beyond the queue's capacity of 4 the oldest input goes.
    for (const Bytes& input : {kReportA, kReportB, kReportA, kReportB, Bytes{0x04, 0x05}})
        Feed(input);
    EXPECT_EQ(Collection().QueuedInputs(), 4u);
    EXPECT_EQ(Collection().DroppedInputs(), 1u);
    Submit(read_);
    ASSERT_EQ(read_.completions.size(), 4u) << "completed inside SubmitRead";
    read_.onComplete = [this](RecordingRead& read) { Submit(read); };
    Submit(read_);
    ASSERT_EQ(read_.completions.size(), 7u);
    EXPECT_EQ(read_.completions[3].data, kReportB);
    EXPECT_EQ(read_.completions[4].data, kReportA);
    EXPECT_EQ(read_.completions[6].data, (Bytes{0x04, 0x05}));
    EXPECT_TRUE(Collection().HasPendingRead()) << "the last re-arm waits";
}

TEST_F(Reads, CancelCompletesOnlyItsOwnPendingReadAndASecondReadIsRefused)
{
    RecordingRead other;
    Submit(other, 0);
    EXPECT_EQ(other.completions.at(0).status, STATUS_BUFFER_TOO_SMALL);
    EXPECT_FALSE(Collection().HasPendingRead());
    Submit(read_);
    Submit(other);
    EXPECT_EQ(other.completions.at(1).status, STATUS_INVALID_DEVICE_STATE);
    EXPECT_FALSE(Cancel(other));
    EXPECT_TRUE(read_.completions.empty());
    EXPECT_TRUE(Cancel(read_));
    ASSERT_EQ(read_.completions.size(), 1u);
    EXPECT_EQ(read_.completions[0].status, STATUS_CANCELLED);
    EXPECT_FALSE(Cancel(read_));
    Feed(kReportA);
    EXPECT_EQ(read_.completions.size(), 1u);
    EXPECT_EQ(Collection().QueuedInputs(), 1u);
    Endpoint().SubmitRead(nullptr, 4096);  // nothing to complete, nothing happens
}

TEST_F(Reads, RulesShapeReadsWithTimesAndReportIdFilters)
{
    Make(On("amd-sfh-als"), {DeviceRule::Fail(RuleTrigger::Read, STATUS_IO_DEVICE_ERROR).Times(1),
                             DeviceRule::Zeros(RuleTrigger::Read).Times(1),
                             DeviceRule::Timeout(RuleTrigger::Read).ForReportId(4).Times(2),
                             DeviceRule::AnswerReportId(RuleTrigger::Read, 2).ForReportId(4),
                             DeviceRule::Timeout(RuleTrigger::Read).ForReportId(6)});
    for (const Bytes& input : {kReportA, kReportA, kReportA}) {
        Submit(read_);
        Feed(input);
    }
    EXPECT_EQ(read_.completions.size(), 2u) << "a timeout swallows the input while the read stays pending";
    EXPECT_TRUE(Collection().HasPendingRead());
    Feed(kReportB);
    Feed(kReportA);
    Submit(read_);
    Feed({0x05, 0x01});
    Feed(kReportB);  // queued: the rules apply when it meets a read
    Submit(read_);
    Submit(read_);
    Feed({0x06, 0x01});
    Feed({0x06, 0x02});
    EXPECT_TRUE(Cancel(read_)) << "without times the rule never runs out";
    Bytes relabelled = kReportA;
    relabelled[0] = 2;
    ASSERT_EQ(read_.completions.size(), 6u);
    EXPECT_EQ(read_.completions[0].status, STATUS_IO_DEVICE_ERROR);
    EXPECT_TRUE(read_.completions[0].data.empty());
    EXPECT_EQ(read_.completions[1].data, Bytes(kReportA.size(), 0));
    EXPECT_EQ(read_.completions[2].data, relabelled);
    EXPECT_EQ(read_.completions[3].data, (Bytes{0x05, 0x01}));
    EXPECT_EQ(read_.completions[4].data, (Bytes{0x02, 0x02, 0x01, 0x20, 0x4E, 0x00, 0x00}));
    EXPECT_EQ(read_.completions[5].status, STATUS_CANCELLED);
}

}  // namespace
}  // namespace hidsim_test
