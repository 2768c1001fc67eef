// The test driver's whole life on the deterministic host, and the same life
// with each framework failure the driver can meet injected in turn.
#include <vector>

#include "tests/framework/test_driver.h"
#include "tests/framework/test_support.h"

namespace host::framework::testing {
namespace {

class LifecycleTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        Faults().Reset();
        ResetStats();
    }
    void TearDown() override { Faults().Reset(); }

    static void Configure(FakeEndpoint& endpoint)
    {
        endpoint.SetIoctl(kInfoIoctl, {STATUS_SUCCESS, {0x34, 0x12, 0x02, 0x00, 0x5A, 0x3C, 0x00, 0x02, 1, 0, 0, 0}});
    }
    // Loads the driver and takes its device to D0.
    void Start(DriverHost& host)
    {
        Configure(endpoint);
        ASSERT_EQ(host.LoadDriver(FxDriverEntryUm), STATUS_SUCCESS);
        ASSERT_EQ(host.AddDevice(endpoint), STATUS_SUCCESS);
        ASSERT_EQ(host.PrepareHardware(), STATUS_SUCCESS);
        ASSERT_EQ(host.D0Entry(), STATUS_SUCCESS);
    }
    static void ExpectClean(DriverHost& host)
    {
        EXPECT_EQ(host.Leaks(), "");
        const auto violations = host.Violations();
        EXPECT_TRUE(violations.empty()) << violations.front();
    }

    FakeEndpoint endpoint;
};

TEST_F(LifecycleTest, DriverGoesThroughItsWholeLifeWithoutLeakOrViolation)
{
    DriverHost host(ClockMode::Deterministic, StartTime());
    Start(host);
    EXPECT_EQ(Stats().ioctlStatus, STATUS_SUCCESS);
    EXPECT_EQ(endpoint.Counts().ioctls, 1);
    EXPECT_EQ(endpoint.Counts().pendingReads, 1);
    EXPECT_EQ(endpoint.Counts().lastReadCapacity, kReadBufferSize);
    endpoint.Feed({1, 2, 3});
    endpoint.Feed({4, 5});  // arrives while no read is pending: queued for the re-arm
    host.RunPending();
    EXPECT_EQ(Stats().reads, 2);
    EXPECT_EQ(Stats().bytes, 5u);
    EXPECT_EQ(endpoint.Counts().pendingReads, 1);

    host.Advance(kTickMs - 1);
    EXPECT_EQ(Stats().ticks, 0);
    host.Advance(1 + 3 * kTickMs);
    EXPECT_EQ(Stats().ticks, 4);
    ASSERT_EQ(host.D0Exit(), STATUS_SUCCESS);
    EXPECT_EQ(endpoint.Counts().pendingReads, 0);
    host.Advance(10 * kTickMs);
    EXPECT_EQ(Stats().ticks, 4);

    // Another D0 entry submits exactly one new read and restarts the ticks.
    const int submits = endpoint.Counts().submits;
    ASSERT_EQ(host.D0Entry(), STATUS_SUCCESS);
    EXPECT_EQ(endpoint.Counts().submits, submits + 1);
    host.Advance(kTickMs);
    EXPECT_EQ(Stats().ticks, 5);

    EXPECT_EQ(host.ReleaseHardware(), STATUS_INVALID_DEVICE_STATE) << "straight from D0";
    ASSERT_EQ(host.D0Exit(), STATUS_SUCCESS);
    ASSERT_EQ(host.ReleaseHardware(), STATUS_SUCCESS);
    host.Unload();
    EXPECT_TRUE(Stats().unloaded);
    ExpectClean(host);
}

TEST_F(LifecycleTest, UnloadFromD0TearsEverythingDown)
{
    DriverHost host(ClockMode::Deterministic, StartTime());
    Start(host);
    endpoint.Feed({9});
    host.Unload();
    ExpectClean(host);
}

// One life of the driver that tolerates every failure on the way.
void RunLifecycle(DriverHost& host, FakeEndpoint& endpoint)
{
    if (!NT_SUCCESS(host.LoadDriver(FxDriverEntryUm)))
        return;
    if (NT_SUCCESS(host.AddDevice(endpoint)) && NT_SUCCESS(host.PrepareHardware())) {
        host.D0Entry();
        endpoint.Feed({1, 2});
        endpoint.Feed({3});
        host.RunPending();
        host.Advance(2 * kTickMs + 1);
        host.D0Exit();
        host.D0Entry();
        host.D0Exit();
        host.ReleaseHardware();
    }
    host.Unload();
}

class FaultSweepTest : public LifecycleTest, public ::testing::WithParamInterface<FaultPoint> {};

TEST_P(FaultSweepTest, EachNthFailureEndsWithoutCrashLeakOrViolation)
{
    const FaultPoint point = GetParam();
    std::uint64_t calls = 0;
    {
        FakeEndpoint dryRun;
        Configure(dryRun);
        DriverHost host(ClockMode::Deterministic, StartTime());
        Faults().Reset();
        RunLifecycle(host, dryRun);
        calls = Faults().Calls(point);
        ASSERT_EQ(host.Leaks(), "");
    }
    ASSERT_GT(calls, 0u) << "the lifecycle never reaches " << FaultPointName(point);
    for (std::uint64_t n = 1; n <= calls; ++n) {
        SCOPED_TRACE("n = " + std::to_string(n));
        FakeEndpoint sweep;
        Configure(sweep);
        DriverHost host(ClockMode::Deterministic, StartTime());
        Faults().Reset();
        Faults().FailNth(point, n, STATUS_INSUFFICIENT_RESOURCES);
        RunLifecycle(host, sweep);
        EXPECT_EQ(Faults().Injected(), 1u);
        ExpectClean(host);
    }
}

INSTANTIATE_TEST_SUITE_P(Lifecycle, FaultSweepTest,
                         ::testing::Values(FaultPoint::FrameworkMemory, FaultPoint::DriverHeap,
                                           FaultPoint::IoTargetCreate, FaultPoint::IoTargetOpen,
                                           FaultPoint::RequestCreate, FaultPoint::RequestSend,
                                           FaultPoint::DriverCreate, FaultPoint::DeviceCreate,
                                           FaultPoint::WaitLockCreate, FaultPoint::TimerCreate),
                         [](const ::testing::TestParamInfo<FaultPoint>& param) {
                             return std::string(FaultPointName(param.param));
                         });

}  // namespace
}  // namespace host::framework::testing
