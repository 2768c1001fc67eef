// Reads of input reports over the amd-sfh-als collection (input report ID 4):
// the pending read, the queue, cancellation, and the rules on reads.
#include <gtest/gtest.h>

#include "hidsim_test_support.h"

namespace hidsim_test {
namespace {

const Bytes kReportA{0x04, 0x02, 0x01, 0x10, 0x27, 0x00, 0x00};
const Bytes kReportB{0x04, 0x02, 0x01, 0x20, 0x4E, 0x00, 0x00};

class Reads : public ::testing::Test {
protected:
    void SetUp() override { Make({}); }
    void Make(std::vector<DeviceRule> rules, std::size_t queueCapacity = 32)
    {
        HidDeviceConfig config = On("amd-sfh-als");
        config.rules = std::move(rules);
        config.readQueueCapacity = queueCapacity;
        device_ = MakeDevice(config);
        ASSERT_TRUE(device_);
    }
    void Submit(RecordingRead& read, ULONG capacity = 4096) { device_->DriverEndpoint().SubmitRead(&read, capacity); }
    bool Cancel(RecordingRead& read) { return device_->DriverEndpoint().CancelRead(&read); }
    void Feed(const Bytes& bytes) { device_->FeedInput(bytes); }
    host::hidsim::SimulatedCollection& Collection() { return device_->DriverCollection(); }
    // Each input through a fresh read of `read_`; returns what the reads got.
    std::vector<Bytes> ReadEach(const std::vector<Bytes>& inputs)
    {
        for (const Bytes& input : inputs) {
            Submit(read_);
            Feed(input);
        }
        std::vector<Bytes> got;
        for (const auto& completion : read_.completions)
            got.push_back(completion.status == STATUS_SUCCESS ? completion.data : Bytes{0xEE});
        return got;
    }

    std::unique_ptr<SimulatedHidDevice> device_;
    RecordingRead read_;
};

TEST_F(Reads, PendingReadCompletesWithTheInputCutToItsCapacity)
{
    Submit(read_);
    EXPECT_TRUE(read_.completions.empty());
    EXPECT_TRUE(Collection().HasPendingRead());
    Bytes both = kReportA;
    both.insert(both.end(), kReportB.begin(), kReportB.end());
    Feed(both);  // several reports in one read arrive together
    ASSERT_EQ(read_.completions.size(), 1u);
    EXPECT_EQ(read_.completions[0].status, STATUS_SUCCESS);
    EXPECT_EQ(read_.completions[0].data, both);
    EXPECT_FALSE(Collection().HasPendingRead());
    Submit(read_, 3);
    Feed(kReportA);
    Submit(read_);
    Feed({});
    ASSERT_EQ(read_.completions.size(), 3u);
    EXPECT_EQ(read_.completions[1].data, (Bytes{0x04, 0x02, 0x01}));
    EXPECT_EQ(read_.completions[2].status, STATUS_SUCCESS);
    EXPECT_TRUE(read_.completions[2].data.empty());
}

TEST_F(Reads, QueuedInputIsServedInOrderInsideSubmitAndByAReArmingReader)
{
    for (const Bytes& input : {kReportA, kReportB, kReportA, kReportB})
        Feed(input);
    EXPECT_EQ(Collection().QueuedInputs(), 4u);
    Submit(read_);
    ASSERT_EQ(read_.completions.size(), 1u) << "completed inside SubmitRead";
    EXPECT_EQ(read_.completions[0].data, kReportA);
    read_.onComplete = [this](RecordingRead& read) { Submit(read); };
    Submit(read_);
    ASSERT_EQ(read_.completions.size(), 4u);
    EXPECT_EQ(read_.completions[1].data, kReportB);
    EXPECT_EQ(Collection().QueuedInputs(), 0u);
    EXPECT_TRUE(Collection().HasPendingRead()) << "the last re-arm waits";
}

TEST_F(Reads, FullQueueDropsTheOldestAndCounts)
{
    Make({}, 2);
    Feed({0x04, 0x01});
    Feed({0x04, 0x02});
    Feed({0x04, 0x03});
    EXPECT_EQ(Collection().QueuedInputs(), 2u);
    EXPECT_EQ(Collection().DroppedInputs(), 1u);
    Submit(read_);
    EXPECT_EQ(read_.completions.at(0).data, (Bytes{0x04, 0x02}));
}

TEST_F(Reads, CancelCompletesOnlyItsOwnPendingRead)
{
    RecordingRead other;
    EXPECT_FALSE(Cancel(read_));
    Submit(read_);
    EXPECT_FALSE(Cancel(other));
    EXPECT_TRUE(Collection().HasPendingRead());
    EXPECT_TRUE(Cancel(read_));
    ASSERT_EQ(read_.completions.size(), 1u);
    EXPECT_EQ(read_.completions[0].status, STATUS_CANCELLED);
    EXPECT_TRUE(read_.completions[0].data.empty());
    EXPECT_FALSE(Cancel(read_));
    Feed(kReportA);
    EXPECT_EQ(read_.completions.size(), 1u);
    EXPECT_EQ(Collection().QueuedInputs(), 1u);
}

TEST_F(Reads, SecondReadAndZeroCapacityAreRefusedAtOnce)
{
    RecordingRead second;
    RecordingRead empty;
    Submit(empty, 0);
    ASSERT_EQ(empty.completions.size(), 1u);
    EXPECT_EQ(empty.completions[0].status, STATUS_BUFFER_TOO_SMALL);
    EXPECT_FALSE(Collection().HasPendingRead());
    Submit(read_);
    Submit(second);
    Submit(empty, 0);
    ASSERT_EQ(second.completions.size(), 1u);
    EXPECT_EQ(second.completions[0].status, STATUS_INVALID_DEVICE_STATE);
    EXPECT_EQ(empty.completions.at(1).status, STATUS_INVALID_DEVICE_STATE);
    EXPECT_TRUE(read_.completions.empty());
    device_->DriverEndpoint().SubmitRead(nullptr, 4096);  // nothing to complete, nothing happens
}

TEST_F(Reads, FailZerosAndAnswerReportIdShapeReadsWithTimesAndReportIdFilters)
{
    Make({DeviceRule::Fail(RuleTrigger::Read, STATUS_IO_DEVICE_ERROR).Times(1),
          DeviceRule::Zeros(RuleTrigger::Read).Times(1),
          DeviceRule::AnswerReportId(RuleTrigger::Read, 2).ForReportId(4)});
    Bytes relabelled = kReportA;
    relabelled[0] = 2;
    const std::vector<Bytes> got = ReadEach({kReportA, kReportA, kReportA, {0x05, 0x01}});
    EXPECT_EQ(read_.completions.at(0).status, STATUS_IO_DEVICE_ERROR);
    EXPECT_TRUE(read_.completions.at(0).data.empty());
    EXPECT_EQ(got, (std::vector<Bytes>{{0xEE}, Bytes(kReportA.size(), 0), relabelled, {0x05, 0x01}}));
}

TEST_F(Reads, TimeoutSwallowsInputWhileTheReadStaysPendingUntilCancelled)
{
    Make({DeviceRule::Timeout(RuleTrigger::Read).ForReportId(4).Times(2), DeviceRule::Timeout(RuleTrigger::Read).ForReportId(6)});
    Submit(read_);
    Feed(kReportA);
    Feed(kReportB);
    EXPECT_TRUE(read_.completions.empty());
    EXPECT_TRUE(Collection().HasPendingRead());
    Feed({0x04, 0x09});
    EXPECT_EQ(read_.completions.at(0).data, (Bytes{0x04, 0x09}));
    Submit(read_);
    Feed({0x06, 0x01});
    Feed({0x06, 0x02});
    EXPECT_EQ(read_.completions.size(), 1u) << "without times the rule never runs out";
    EXPECT_TRUE(Cancel(read_));
    EXPECT_EQ(read_.completions.at(1).status, STATUS_CANCELLED);
}

TEST_F(Reads, RulesApplyWhenQueuedInputMeetsARead)
{
    Feed(kReportA);
    std::string error;
    ASSERT_TRUE(device_->SetRules({DeviceRule::Zeros(RuleTrigger::Read)}, error));
    Submit(read_);
    EXPECT_EQ(read_.completions.at(0).data, Bytes(kReportA.size(), 0));
}

}  // namespace
}  // namespace hidsim_test
