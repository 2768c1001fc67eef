// Every allocation and request of prepare-hardware made to fail in turn: each
// failure is a documented status or a skipped sensor, never a crash or leak.
#include <gtest/gtest.h>

#include <set>

#include "host/common/fault_injection.h"
#include "sensors/custom_sensor.h"
#include "tests/driver/driver_test_bed.h"

namespace testdriver {
namespace {

using host::FaultInjector;
using host::FaultPoint;

std::uint64_t CallsDuringPrepare(FaultPoint point)
{
    return testdriver::CallsDuringPrepare(AccelerometerActivityPedometer(), &kRecordingFactory, point);
}

struct SweepResult {
    std::set<NTSTATUS> statuses;
    int skippedSensors = 0;
    int unopenedIoctlTargets = 0;
};

// Fails the n-th call of `point` during prepare-hardware and checks what is left.
void FailOnce(FaultPoint point, std::uint64_t n, NTSTATUS injected, SweepResult& result)
{
    SCOPED_TRACE(testing::Message() << host::FaultPointName(point) << " call " << n);
    DriverTestBed bed(AccelerometerActivityPedometer());
    ASSERT_EQ(bed.Load(), STATUS_SUCCESS);
    FaultInjector::Instance().FailNth(point, n, injected);
    ASSERT_EQ(bed.Host().PrepareHardware(), STATUS_SUCCESS);

    const ModuleState& module = Module();
    HidDevice* hid = bed.Hid();
    if (hid != nullptr) {
        const NTSTATUS status = module.enumerateStatus;
        result.statuses.insert(status);
        // An IOCTL target that could not be opened answers nothing: no sensor, no traffic.
        const bool unopenedIoctlTarget = !NT_SUCCESS(module.openStatus) && hid->IsOpen();
        // A history sensor whose record ring or lists cannot be allocated
        // reports STATUS_INSUFFICIENT_RESOURCES.
        EXPECT_TRUE(status == STATUS_SUCCESS || status == STATUS_NO_MEMORY || status == STATUS_UNSUCCESSFUL ||
                    status == STATUS_INSUFFICIENT_RESOURCES || status == injected)
            << std::hex << status;
        if (unopenedIoctlTarget) {
            ++result.unopenedIoctlTargets;
            EXPECT_TRUE(bed.Traffic().empty());
        }
        // The sensors that exist keep the index of their collection.
        ULONG previous = 0;
        for (ULONG i = 0; i < hid->SensorCount(); ++i) {
            const HidCollectionRecord& record = *hid->Sensor(i)->Record();
            EXPECT_TRUE(i == 0 || record.SensorIndex > previous);
            previous = record.SensorIndex;
            EXPECT_LE(record.SensorIndex, 2u);
            EXPECT_EQ(dynamic_cast<CustomSensor*>(hid->Sensor(i)) != nullptr, record.SensorIndex != 0);
            EXPECT_EQ(record.InstanceName[std::u16string(record.InstanceName).size() - 1],
                      u'0' + record.SensorIndex);
        }
        if (NT_SUCCESS(status) && hid->SensorCount() < 3)
            ++result.skippedSensors;
    }
}

TEST(FaultSweep, EveryDriverHeapFailureOfDiscovery)
{
    const std::uint64_t calls = CallsDuringPrepare(FaultPoint::DriverHeap);
    ASSERT_GT(calls, 10u);
    SweepResult result;
    for (std::uint64_t n = 1; n <= calls; ++n)
        FailOnce(FaultPoint::DriverHeap, n, 0, result);
    EXPECT_TRUE(result.statuses.count(STATUS_NO_MEMORY));
    EXPECT_GT(result.skippedSensors, 0);
}

TEST(FaultSweep, EveryFrameworkFailureOfDiscovery)
{
    for (FaultPoint point : {FaultPoint::RequestCreate, FaultPoint::FrameworkMemory, FaultPoint::IoTargetCreate,
                             FaultPoint::IoTargetOpen}) {
        const std::uint64_t calls = CallsDuringPrepare(point);
        ASSERT_GT(calls, 0u) << host::FaultPointName(point);
        SweepResult result;
        for (std::uint64_t n = 1; n <= calls; ++n)
            FailOnce(point, n, STATUS_INSUFFICIENT_RESOURCES, result);
        EXPECT_TRUE(point != FaultPoint::IoTargetOpen || result.unopenedIoctlTargets > 0);
    }
}

}  // namespace
}  // namespace testdriver
