// Reads of input reports: the pending read, the queue, cancellation and the
// read rules, over the amd-sfh-als collection (input report ID 4).
#include <gtest/gtest.h>

#include "hidsim_test_support.h"

namespace hidsim_test {
namespace {

using host::hidsim::DeviceRule;
using host::hidsim::RuleTrigger;

class Reads : public ::testing::Test {
protected:
    void SetUp() override { Make({}); }
    void Make(std::vector<DeviceRule> rules, std::size_t queueCapacity = 32)
    {
        HidDeviceConfig config;
        config.WithDescriptor(LoadDescriptor("amd-sfh-als"));
        config.rules = std::move(rules);
        config.readQueueCapacity = queueCapacity;
        device_ = MakeDevice(config);
        ASSERT_TRUE(device_);
    }
    HidCollectionEndpoint& Endpoint() { return device_->DriverEndpoint(); }
    void Feed(const Bytes& bytes) { device_->FeedInput(bytes); }

    std::unique_ptr<SimulatedHidDevice> device_;
    RecordingRead read_;
};

const Bytes kReportA{0x04, 0x02, 0x01, 0x10, 0x27, 0x00, 0x00};
const Bytes kReportB{0x04, 0x02, 0x01, 0x20, 0x4E, 0x00, 0x00};

TEST_F(Reads, PendingReadCompletesWhenInputArrives)
{
    Endpoint().SubmitRead(&read_, 4096);
    EXPECT_TRUE(read_.completions.empty());
    EXPECT_TRUE(device_->DriverCollection().HasPendingRead());
    Feed(kReportA);
    ASSERT_EQ(read_.completions.size(), 1u);
    EXPECT_EQ(read_.completions[0].status, STATUS_SUCCESS);
    EXPECT_EQ(read_.completions[0].data, kReportA);
    EXPECT_FALSE(device_->DriverCollection().HasPendingRead());
}

TEST_F(Reads, InputBeforeTheReadWaitsForIt)
{
    Feed(kReportA);
    Feed(kReportB);
    EXPECT_EQ(device_->DriverCollection().QueuedInputs(), 2u);
    Endpoint().SubmitRead(&read_, 4096);
    ASSERT_EQ(read_.completions.size(), 1u) << "completed inside SubmitRead";
    EXPECT_EQ(read_.completions[0].data, kReportA);
    Endpoint().SubmitRead(&read_, 4096);
    ASSERT_EQ(read_.completions.size(), 2u);
    EXPECT_EQ(read_.completions[1].data, kReportB);
    EXPECT_EQ(device_->DriverCollection().QueuedInputs(), 0u);
}

TEST_F(Reads, SeveralReportsInOneReadArriveTogether)
{
    Bytes both = kReportA;
    both.insert(both.end(), kReportB.begin(), kReportB.end());
    Endpoint().SubmitRead(&read_, 4096);
    Feed(both);
    ASSERT_EQ(read_.completions.size(), 1u);
    EXPECT_EQ(read_.completions[0].data, both);
}

TEST_F(Reads, ReaderThatReArmsInsideItsCompletionDrainsTheQueue)
{
    for (int i = 0; i < 3; ++i)
        Feed(kReportA);
    read_.onComplete = [this](RecordingRead& read) {
        if (read.completions.size() < 10)
            Endpoint().SubmitRead(&read, 4096);
    };
    Endpoint().SubmitRead(&read_, 4096);
    EXPECT_EQ(read_.completions.size(), 3u);
    EXPECT_TRUE(device_->DriverCollection().HasPendingRead());
}

TEST_F(Reads, CancelCompletesOnlyAPendingRead)
{
    EXPECT_FALSE(Endpoint().CancelRead(&read_));
    Endpoint().SubmitRead(&read_, 4096);
    EXPECT_TRUE(Endpoint().CancelRead(&read_));
    ASSERT_EQ(read_.completions.size(), 1u);
    EXPECT_EQ(read_.completions[0].status, STATUS_CANCELLED);
    EXPECT_TRUE(read_.completions[0].data.empty());
    EXPECT_FALSE(Endpoint().CancelRead(&read_));
    Feed(kReportA);
    EXPECT_EQ(read_.completions.size(), 1u);
    EXPECT_EQ(device_->DriverCollection().QueuedInputs(), 1u);
}

TEST_F(Reads, CancelOfAnotherReadLeavesThePendingOne)
{
    RecordingRead other;
    Endpoint().SubmitRead(&read_, 4096);
    EXPECT_FALSE(Endpoint().CancelRead(&other));
    EXPECT_TRUE(device_->DriverCollection().HasPendingRead());
}

TEST_F(Reads, SecondReadOrEmptyReadIsRefused)
{
    RecordingRead second;
    Endpoint().SubmitRead(&read_, 4096);
    Endpoint().SubmitRead(&second, 4096);
    ASSERT_EQ(second.completions.size(), 1u);
    EXPECT_EQ(second.completions[0].status, STATUS_INVALID_DEVICE_STATE);
    EXPECT_TRUE(read_.completions.empty());

    RecordingRead empty;
    Endpoint().SubmitRead(&empty, 0);
    ASSERT_EQ(empty.completions.size(), 1u);
    EXPECT_EQ(empty.completions[0].status, STATUS_INVALID_DEVICE_STATE);
    Endpoint().SubmitRead(nullptr, 4096);  // nothing to complete, nothing happens
}

TEST_F(Reads, ZeroCapacityIsTooSmall)
{
    Endpoint().SubmitRead(&read_, 0);
    ASSERT_EQ(read_.completions.size(), 1u);
    EXPECT_EQ(read_.completions[0].status, STATUS_BUFFER_TOO_SMALL);
    EXPECT_FALSE(device_->DriverCollection().HasPendingRead());
}

TEST_F(Reads, InputLongerThanTheReadIsCut)
{
    Endpoint().SubmitRead(&read_, 3);
    Feed(kReportA);
    ASSERT_EQ(read_.completions.size(), 1u);
    EXPECT_EQ(read_.completions[0].data, (Bytes{0x04, 0x02, 0x01}));
}

TEST_F(Reads, EmptyInputIsAnEmptyCompletedRead)
{
    Endpoint().SubmitRead(&read_, 4096);
    Feed({});
    ASSERT_EQ(read_.completions.size(), 1u);
    EXPECT_EQ(read_.completions[0].status, STATUS_SUCCESS);
    EXPECT_TRUE(read_.completions[0].data.empty());
}

TEST_F(Reads, FullQueueDropsTheOldestAndCounts)
{
    Make({}, 2);
    Feed({0x04, 0x01});
    Feed({0x04, 0x02});
    Feed({0x04, 0x03});
    EXPECT_EQ(device_->DriverCollection().QueuedInputs(), 2u);
    EXPECT_EQ(device_->DriverCollection().DroppedInputs(), 1u);
    Endpoint().SubmitRead(&read_, 4096);
    ASSERT_EQ(read_.completions.size(), 1u);
    EXPECT_EQ(read_.completions[0].data, (Bytes{0x04, 0x02}));
}

TEST_F(Reads, FailRuleCompletesWithTheStatusAndNoData)
{
    Make({DeviceRule::Fail(RuleTrigger::Read, STATUS_IO_DEVICE_ERROR).Times(1)});
    Endpoint().SubmitRead(&read_, 4096);
    Feed(kReportA);
    Endpoint().SubmitRead(&read_, 4096);
    Feed(kReportB);
    ASSERT_EQ(read_.completions.size(), 2u);
    EXPECT_EQ(read_.completions[0].status, STATUS_IO_DEVICE_ERROR);
    EXPECT_TRUE(read_.completions[0].data.empty());
    EXPECT_EQ(read_.completions[1].data, kReportB);
}

TEST_F(Reads, TimeoutRuleSwallowsInputAndTheReadStaysPending)
{
    Make({DeviceRule::Timeout(RuleTrigger::Read).ForReportId(4).Times(2)});
    Endpoint().SubmitRead(&read_, 4096);
    Feed(kReportA);
    Feed(kReportB);
    EXPECT_TRUE(read_.completions.empty());
    EXPECT_TRUE(device_->DriverCollection().HasPendingRead());
    Feed({0x04, 0x09});
    ASSERT_EQ(read_.completions.size(), 1u);
    EXPECT_EQ(read_.completions[0].data, (Bytes{0x04, 0x09}));
}

TEST_F(Reads, TimeoutRuleForeverEndsOnlyByCancel)
{
    Make({DeviceRule::Timeout(RuleTrigger::Read)});
    Endpoint().SubmitRead(&read_, 4096);
    Feed(kReportA);
    EXPECT_TRUE(read_.completions.empty());
    EXPECT_TRUE(Endpoint().CancelRead(&read_));
    ASSERT_EQ(read_.completions.size(), 1u);
    EXPECT_EQ(read_.completions[0].status, STATUS_CANCELLED);
}

TEST_F(Reads, ZerosAndAnswerReportIdShapeTheData)
{
    Make({DeviceRule::Zeros(RuleTrigger::Read).Times(1),
          DeviceRule::AnswerReportId(RuleTrigger::Read, 2).ForReportId(4)});
    Endpoint().SubmitRead(&read_, 4096);
    Feed(kReportA);
    Endpoint().SubmitRead(&read_, 4096);
    Feed(kReportA);
    Endpoint().SubmitRead(&read_, 4096);
    Feed({0x05, 0x01});
    ASSERT_EQ(read_.completions.size(), 3u);
    EXPECT_EQ(read_.completions[0].data, Bytes(kReportA.size(), 0));
    Bytes relabelled = kReportA;
    relabelled[0] = 2;
    EXPECT_EQ(read_.completions[1].data, relabelled);
    EXPECT_EQ(read_.completions[2].data, (Bytes{0x05, 0x01})) << "reportId filter: the rule skips ID 5";
}

TEST_F(Reads, RulesApplyWhenQueuedInputMeetsARead)
{
    Feed(kReportA);
    std::string error;
    ASSERT_TRUE(device_->SetRules({DeviceRule::Zeros(RuleTrigger::Read)}, error));
    Endpoint().SubmitRead(&read_, 4096);
    ASSERT_EQ(read_.completions.size(), 1u);
    EXPECT_EQ(read_.completions[0].data, Bytes(kReportA.size(), 0));
}

}  // namespace
}  // namespace hidsim_test
