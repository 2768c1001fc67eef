// A whole lifecycle of a device with an accelerometer, an activity and a
// pedometer sensor, with the n-th platform call made by the driver failing,
// for every n, from one loop: whatever fails, the driver ends clean (nothing
// left, no contract broken), and a failure during discovery is a documented
// status or a skipped sensor, with the sensors that exist keeping the index
// of their collection.
#include <gtest/gtest.h>

#include <set>

#include "host/common/fault_injection.h"
#include "sensors/custom_sensor.h"
#include "tests/driver/driver_test_bed.h"

namespace testdriver {
namespace {

using host::FaultPoint;

struct SweepResult {
    std::set<NTSTATUS> statuses;
    int skippedSensors = 0;
    int unopenedIoctlTargets = 0;
};

// What prepare-hardware left, whatever failed in it.
void CheckDiscovery(DriverTestBed& bed, SweepResult& result)
{
    const ModuleState& module = Module();
    HidDevice* hid = bed.Hid();
    if (hid == nullptr)
        return;
    const NTSTATUS status = module.enumerateStatus;
    result.statuses.insert(status);
    // A history sensor whose record ring or lists cannot be allocated
    // reports STATUS_INSUFFICIENT_RESOURCES.
    EXPECT_TRUE(status == STATUS_SUCCESS || status == STATUS_NO_MEMORY || status == STATUS_UNSUCCESSFUL ||
                status == STATUS_INSUFFICIENT_RESOURCES)
        << std::hex << status;
    // An IOCTL target that could not be opened answers nothing: no sensor, no traffic.
    if (!NT_SUCCESS(module.openStatus) && hid->IsOpen()) {
        ++result.unopenedIoctlTargets;
        EXPECT_TRUE(bed.Traffic().empty());
    }
    ULONG previous = 0;
    for (ULONG i = 0; i < hid->SensorCount(); ++i) {
        const HidCollectionRecord& record = *hid->Sensor(i)->Record();
        EXPECT_TRUE(i == 0 || record.SensorIndex > previous);
        previous = record.SensorIndex;
        EXPECT_LE(record.SensorIndex, 2u);
        EXPECT_EQ(dynamic_cast<CustomSensor*>(hid->Sensor(i)) != nullptr, record.SensorIndex != 0);
        EXPECT_EQ(record.InstanceName[std::u16string(record.InstanceName).size() - 1], u'0' + record.SensorIndex);
    }
    if (NT_SUCCESS(status) && hid->SensorCount() < 3)
        ++result.skippedSensors;
}

TEST(PlatformCallSweep, EveryDriverCallOfALifecycleFailsInTurnAndTheDriverEndsClean)
{
    SweepResult result;
    // Load, add, prepare, D0 entry, D0 exit, release; whatever each step returns.
    const std::set<FaultPoint> failed = SweepEveryDriverCall(
        [] { return std::make_unique<DriverTestBed>(AccelerometerActivityPedometer(), nullptr); },
        [&](DriverTestBed& bed) {
            if (!NT_SUCCESS(bed.Load()))
                return;
            EXPECT_EQ(bed.Host().PrepareHardware(), STATUS_SUCCESS);
            CheckDiscovery(bed, result);
            bed.Start();
            bed.Stop();
            bed.Host().ReleaseHardware();
        });
    for (FaultPoint point : {FaultPoint::DriverHeap, FaultPoint::FrameworkMemory, FaultPoint::DeviceCreate,
                             FaultPoint::IoTargetCreate, FaultPoint::IoTargetOpen, FaultPoint::RequestCreate,
                             FaultPoint::RequestSend})
        EXPECT_TRUE(failed.count(point)) << host::FaultPointName(point) << " was never failed";
    EXPECT_TRUE(result.statuses.count(STATUS_NO_MEMORY));
    EXPECT_GT(result.skippedSensors, 0);
    EXPECT_GT(result.unopenedIoctlTargets, 0);
}

}  // namespace
}  // namespace testdriver
