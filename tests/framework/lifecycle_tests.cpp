// The test driver's whole life on the deterministic host, and the same life
// with each framework failure the driver can meet injected in turn.
#include "tests/framework/test_driver.h"
#include "tests/framework/test_support.h"

namespace host::framework::testing {
namespace {

// A device answering the driver's IOCTL, on a fresh deterministic host, with
// no faults armed.
struct World {
    World()
    {
        Faults().Reset();
        ResetStats();
        endpoint.SetIoctl(kInfoIoctl, {STATUS_SUCCESS, {0x34, 0x12, 0x02, 0x00, 0x5A, 0x3C, 0x00, 0x02, 1, 0, 0, 0}});
    }
    ~World() { Faults().Reset(); }
    void ExpectClean()
    {
        EXPECT_EQ(host.Leaks(), "");
        EXPECT_TRUE(host.Violations().empty()) << host.Violations().front();
    }
    FakeEndpoint endpoint;
    DriverHost host{ClockMode::Deterministic, StartTime()};
};

TEST(LifecycleTest, DriverGoesThroughItsWholeLifeWithoutLeakOrViolation)
{
    World world;
    DriverHost& host = world.host;
    FakeEndpoint& endpoint = world.endpoint;
    ASSERT_EQ(host.LoadDriver(FxDriverEntryUm), STATUS_SUCCESS);
    ASSERT_EQ(host.AddDevice(endpoint), STATUS_SUCCESS);
    ASSERT_EQ(host.PrepareHardware(), STATUS_SUCCESS);
    ASSERT_EQ(host.D0Entry(), STATUS_SUCCESS);
    EXPECT_EQ(Stats().ioctlStatus, STATUS_SUCCESS);
    EXPECT_EQ(endpoint.Counts().ioctls, 1);
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
    ASSERT_EQ(host.D0Exit(), STATUS_SUCCESS);
    ASSERT_EQ(host.ReleaseHardware(), STATUS_SUCCESS);
    host.Unload();
    EXPECT_TRUE(Stats().unloaded);
    world.ExpectClean();
}

// One life of the driver that tolerates every failure on the way; `fromD0`
// unloads straight from D0 instead of stepping down.
void RunLifecycle(World& world, bool fromD0 = false)
{
    DriverHost& host = world.host;
    if (!NT_SUCCESS(host.LoadDriver(FxDriverEntryUm)))
        return;
    if (NT_SUCCESS(host.AddDevice(world.endpoint)) && NT_SUCCESS(host.PrepareHardware())) {
        host.D0Entry();
        world.endpoint.Feed({1, 2});
        world.endpoint.Feed({3});
        host.RunPending();
        host.Advance(2 * kTickMs + 1);
        if (!fromD0) {
            host.D0Exit();
            host.D0Entry();
            host.D0Exit();
            host.ReleaseHardware();
        }
    }
    host.Unload();
}

TEST(LifecycleTest, UnloadFromD0TearsEverythingDown)
{
    World world;
    RunLifecycle(world, true);
    EXPECT_EQ(Stats().reads, 2);
    EXPECT_TRUE(Stats().unloaded);
    world.ExpectClean();
}

class FaultSweepTest : public ::testing::TestWithParam<FaultPoint> {};

TEST_P(FaultSweepTest, EachNthFailureEndsWithoutCrashLeakOrViolation)
{
    const FaultPoint point = GetParam();
    std::uint64_t calls = 0;
    {
        World dryRun;
        RunLifecycle(dryRun);
        calls = Faults().Calls(point);
        dryRun.ExpectClean();
    }
    ASSERT_GT(calls, 0u) << "the lifecycle never reaches " << FaultPointName(point);
    for (std::uint64_t n = 1; n <= calls; ++n) {
        SCOPED_TRACE("n = " + std::to_string(n));
        World sweep;
        Faults().Reset();
        Faults().FailNth(point, n, STATUS_INSUFFICIENT_RESOURCES);
        RunLifecycle(sweep);
        EXPECT_EQ(Faults().Injected(), 1u);
        sweep.ExpectClean();
    }
}

INSTANTIATE_TEST_SUITE_P(Lifecycle, FaultSweepTest,
                         ::testing::Values(FaultPoint::FrameworkMemory,
                                           FaultPoint::IoTargetCreate, FaultPoint::IoTargetOpen,
                                           FaultPoint::RequestCreate, FaultPoint::RequestSend,
                                           FaultPoint::DriverCreate, FaultPoint::DeviceCreate,
                                           FaultPoint::WaitLockCreate, FaultPoint::TimerCreate),
                         [](const ::testing::TestParamInfo<FaultPoint>& param) {
                             return std::string(FaultPointName(param.param));
                         });

}  // namespace
}  // namespace host::framework::testing
