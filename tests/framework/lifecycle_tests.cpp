// The test driver's whole life on the deterministic host with each framework
// failure it can meet injected in turn. (Its ordinary life is the real
// driver's, tested through the real driver.)
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

// One life of the driver that tolerates every failure on the way.
void RunLifecycle(World& world)
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
        host.D0Exit();
        host.D0Entry();
        host.D0Exit();
        host.ReleaseHardware();
    }
    host.Unload();
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
