// The test driver's whole life on the deterministic host, and the same life
// with each framework failure the driver can meet injected in turn.
#include <ostream>
#include <vector>

#include "tests/framework/test_driver.h"
#include "tests/framework/test_support.h"

namespace host::framework::testing {
namespace {

constexpr BYTE kInfo[12] = {0x34, 0x12, 0x02, 0x00, 0x5A, 0x3C, 0x00, 0x02, 0x01, 0x00, 0x00, 0x00};

void ConfigureEndpoint(FakeEndpoint& endpoint)
{
    endpoint.SetIoctl(kInfoIoctl, {STATUS_SUCCESS, std::vector<BYTE>(std::begin(kInfo), std::end(kInfo)), true});
}

class LifecycleTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        host::FaultInjector::Instance().Reset();
        Stats().Reset();
        ConfigureEndpoint(endpoint);
    }
    void TearDown() override { host::FaultInjector::Instance().Reset(); }

    FakeEndpoint endpoint;
};

TEST_F(LifecycleTest, DriverGoesThroughItsWholeLifeWithoutLeakOrViolation)
{
    DriverHost host(ClockMode::Deterministic, StartTime());
    ASSERT_EQ(host.LoadDriver(FxDriverEntryUm), STATUS_SUCCESS);
    ASSERT_EQ(host.AddDevice(endpoint), STATUS_SUCCESS);
    ASSERT_EQ(host.PrepareHardware(), STATUS_SUCCESS);
    EXPECT_EQ(Stats().IoctlStatus(), STATUS_SUCCESS);
    EXPECT_EQ(endpoint.Ioctls(), 1);

    ASSERT_EQ(host.D0Entry(), STATUS_SUCCESS);
    EXPECT_EQ(endpoint.PendingReads(), 1);
    EXPECT_EQ(endpoint.LastReadCapacity(), kReadBufferSize);
    endpoint.Feed({1, 2, 3});
    endpoint.Feed({4, 5});  // arrives while no read is pending: queued for the re-arm
    host.RunPending();
    EXPECT_EQ(Stats().Reads(), 2);
    EXPECT_EQ(Stats().Bytes(), 5u);
    EXPECT_EQ(endpoint.PendingReads(), 1);

    host.Advance(kTickMs - 1);
    EXPECT_EQ(Stats().Ticks(), 0);
    host.Advance(1 + 3 * kTickMs);
    EXPECT_EQ(Stats().Ticks(), 4);

    ASSERT_EQ(host.D0Exit(), STATUS_SUCCESS);
    EXPECT_EQ(endpoint.PendingReads(), 0);
    host.Advance(10 * kTickMs);
    EXPECT_EQ(Stats().Ticks(), 4);

    // Another D0 entry submits exactly one new read and restarts the ticks.
    const int submits = endpoint.Submits();
    ASSERT_EQ(host.D0Entry(), STATUS_SUCCESS);
    EXPECT_EQ(endpoint.Submits(), submits + 1);
    host.Advance(kTickMs);
    EXPECT_EQ(Stats().Ticks(), 5);

    // Release-hardware straight from D0 is refused; the order is kept.
    EXPECT_EQ(host.ReleaseHardware(), STATUS_INVALID_DEVICE_STATE);
    ASSERT_EQ(host.D0Exit(), STATUS_SUCCESS);
    ASSERT_EQ(host.ReleaseHardware(), STATUS_SUCCESS);
    host.Unload();
    EXPECT_TRUE(Stats().Unloaded());
    EXPECT_EQ(host.Leaks(), "");
    EXPECT_TRUE(host.Violations().empty());
}

TEST_F(LifecycleTest, UnloadFromD0TearsEverythingDown)
{
    DriverHost host(ClockMode::Deterministic, StartTime());
    ASSERT_EQ(host.LoadDriver(FxDriverEntryUm), STATUS_SUCCESS);
    ASSERT_EQ(host.AddDevice(endpoint), STATUS_SUCCESS);
    ASSERT_EQ(host.PrepareHardware(), STATUS_SUCCESS);
    ASSERT_EQ(host.D0Entry(), STATUS_SUCCESS);
    endpoint.Feed({9});
    host.Unload();
    EXPECT_EQ(host.Leaks(), "");
    EXPECT_TRUE(host.Violations().empty());
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

struct SweepCase {
    host::FaultPoint point;
    const char* name;
};

void PrintTo(const SweepCase& sweep, std::ostream* out)
{
    *out << sweep.name;
}

class FaultSweepTest : public LifecycleTest, public ::testing::WithParamInterface<SweepCase> {};

TEST_P(FaultSweepTest, EachNthFailureEndsWithoutCrashLeakOrViolation)
{
    const host::FaultPoint point = GetParam().point;
    std::uint64_t calls = 0;
    {
        FakeEndpoint dryRunEndpoint;
        ConfigureEndpoint(dryRunEndpoint);
        DriverHost host(ClockMode::Deterministic, StartTime());
        host::FaultInjector::Instance().Reset();
        RunLifecycle(host, dryRunEndpoint);
        calls = host::FaultInjector::Instance().Calls(point);
        ASSERT_EQ(host.Leaks(), "");
    }
    ASSERT_GT(calls, 0u) << "the lifecycle never reaches " << GetParam().name;
    RecordProperty("calls", std::to_string(calls));
    for (std::uint64_t n = 1; n <= calls; ++n) {
        FakeEndpoint sweepEndpoint;
        ConfigureEndpoint(sweepEndpoint);
        DriverHost host(ClockMode::Deterministic, StartTime());
        host::FaultInjector::Instance().Reset();
        host::FaultInjector::Instance().FailNth(point, n, STATUS_INSUFFICIENT_RESOURCES);
        RunLifecycle(host, sweepEndpoint);
        EXPECT_EQ(host::FaultInjector::Instance().Injected(), 1u) << "n = " << n;
        EXPECT_EQ(host.Leaks(), "") << "n = " << n;
        const auto violations = host.Violations();
        EXPECT_TRUE(violations.empty()) << "n = " << n << ": " << violations.front();
    }
}

INSTANTIATE_TEST_SUITE_P(
    Lifecycle, FaultSweepTest,
    ::testing::Values(SweepCase{host::FaultPoint::FrameworkMemory, "FrameworkMemory"},
                      SweepCase{host::FaultPoint::DriverHeap, "DriverHeap"},
                      SweepCase{host::FaultPoint::IoTargetCreate, "IoTargetCreate"},
                      SweepCase{host::FaultPoint::IoTargetOpen, "IoTargetOpen"},
                      SweepCase{host::FaultPoint::RequestCreate, "RequestCreate"},
                      SweepCase{host::FaultPoint::RequestSend, "RequestSend"},
                      SweepCase{host::FaultPoint::DriverCreate, "DriverCreate"},
                      SweepCase{host::FaultPoint::DeviceCreate, "DeviceCreate"},
                      SweepCase{host::FaultPoint::WaitLockCreate, "WaitLockCreate"},
                      SweepCase{host::FaultPoint::TimerCreate, "TimerCreate"}),
    [](const ::testing::TestParamInfo<SweepCase>& param) { return std::string(param.param.name); });

}  // namespace
}  // namespace host::framework::testing
