// A whole lifecycle of a custom-sensor device with the n-th platform call made
// by the driver failing, for every n, from one loop: whatever fails, the
// driver ends clean (nothing left, no contract broken).
#include <gtest/gtest.h>

#include <set>

#include "host/common/fault_injection.h"
#include "tests/driver/driver_test_bed.h"

namespace testdriver {
namespace {

using host::FaultPoint;

// Load, add, prepare, D0 entry, D0 exit, release; whatever each step returns.
void Cycle(DriverTestBed& bed)
{
    if (!NT_SUCCESS(bed.Load()))
        return;
    bed.Host().PrepareHardware();
    bed.Start();
    bed.Stop();
    bed.Host().ReleaseHardware();
}

TEST(PlatformCallSweep, EveryDriverCallOfALifecycleFailsInTurnAndTheDriverEndsClean)
{
    const std::set<FaultPoint> failed = SweepEveryDriverCall(
        [] { return std::make_unique<DriverTestBed>(AccelerometerActivityPedometer(), nullptr); }, Cycle);
    for (FaultPoint point : {FaultPoint::DriverHeap, FaultPoint::FrameworkMemory, FaultPoint::DeviceCreate,
                             FaultPoint::IoTargetCreate, FaultPoint::IoTargetOpen, FaultPoint::RequestCreate,
                             FaultPoint::RequestSend})
        EXPECT_TRUE(failed.count(point)) << host::FaultPointName(point) << " was never failed";
}

}  // namespace
}  // namespace testdriver
