// The sensor base class: Initialize and the lock and timer services.
#include <gtest/gtest.h>

#include <atomic>

#include "host/common/fault_injection.h"
#include "tests/driver/driver_test_bed.h"

namespace testdriver {
namespace {

class PlaceholderSensor : public ::testing::Test {
protected:
    void SetUp() override
    {
        ASSERT_EQ(bed.Prepare(), STATUS_SUCCESS);
        sensor = bed.Sensor(0);
        ASSERT_NE(sensor, nullptr);
    }

    DriverTestBed bed{HidDeviceConfig{}.WithDescriptor(hs::BuildSingleSensor(Accelerometer()))};
    HidSensor* sensor = nullptr;
};

TEST_F(PlaceholderSensor, UninitializeFreesCapabilitiesAndInitializeReadsThemAgain)
{
    EXPECT_EQ(sensor->Record()->InputValueCaps.Count(), 1u);
    ASSERT_EQ(sensor->Uninitialize(), STATUS_SUCCESS);
    EXPECT_EQ(sensor->Record()->IsInitialized.load(), 0u);
    EXPECT_TRUE(sensor->Record()->InputValueCaps.Empty());
    ASSERT_EQ(sensor->Initialize(), STATUS_SUCCESS);
    EXPECT_EQ(sensor->Record()->InputValueCaps.Count(), 1u);

    // A capability array that cannot be allocated fails Initialize and frees the rest.
    ASSERT_EQ(sensor->Uninitialize(), STATUS_SUCCESS);
    host::FaultInjector::Instance().FailNth(host::FaultPoint::DriverHeap, 1, 0);
    EXPECT_EQ(sensor->Initialize(), STATUS_NO_MEMORY);
    EXPECT_EQ(sensor->Record()->IsInitialized.load(), 0u);
    EXPECT_TRUE(sensor->Record()->InputValueCaps.Empty());
}

std::atomic<int> g_timerFired{0};
void OnTimer(WDFTIMER) { g_timerFired.fetch_add(1); }

TEST_F(PlaceholderSensor, LockAndOneShotTimerServices)
{
    EXPECT_EQ(sensor->AcquireLock(), STATUS_INSUFFICIENT_RESOURCES);
    sensor->ReleaseLock();
    ASSERT_EQ(sensor->CreateLock(), STATUS_SUCCESS);
    EXPECT_EQ(sensor->AcquireLock(), STATUS_SUCCESS);
    sensor->ReleaseLock();  // the lock left behind is deleted with the sensor

    EXPECT_FALSE(sensor->StartTimer(10));
    EXPECT_FALSE(sensor->StopTimer());
    WDF_TIMER_CONFIG config;
    WDF_TIMER_CONFIG_INIT(&config, OnTimer);
    WDF_OBJECT_ATTRIBUTES attributes;
    WDF_OBJECT_ATTRIBUTES_INIT(&attributes);
    attributes.ParentObject = bed.Host().Device();
    ASSERT_EQ(sensor->CreateTimer(&config, &attributes), STATUS_SUCCESS);
    g_timerFired = 0;
    EXPECT_FALSE(sensor->StartTimer(1000));
    bed.Host().Advance(999);
    EXPECT_EQ(g_timerFired.load(), 0);
    bed.Host().Advance(1);
    EXPECT_EQ(g_timerFired.load(), 1);
    bed.Host().Advance(5000);
    EXPECT_EQ(g_timerFired.load(), 1);
    EXPECT_FALSE(sensor->StartTimer(1000));
    EXPECT_TRUE(sensor->StopTimer());
    bed.Host().Advance(2000);
    EXPECT_EQ(g_timerFired.load(), 1);
}

TEST(CustomSensorRecord, InitializeReadsCapabilitiesBeforeRegistrationAndUninitializeLeavesThemToTheDestructor)
{
    DriverTestBed bed(HidDeviceConfig{}.WithDescriptor(hs::BuildSingleSensor(Custom(1))));
    ASSERT_EQ(bed.Prepare(), STATUS_SUCCESS);
    const HidCollectionRecord& record = *bed.Sensor(0)->Record();
    EXPECT_EQ(record.CurrentReportInterval.load(), 100u);
    EXPECT_EQ(record.MinimumReportInterval.load(), 50u);
    // Registration is not there yet; the capabilities were read before it.
    EXPECT_EQ(record.CapabilitiesRead, 1u);
    EXPECT_EQ(bed.Sensor(0)->Uninitialize(), STATUS_SUCCESS);
    EXPECT_EQ(record.IsInitialized.load(), 1u);
    EXPECT_FALSE(record.InputValueCaps.Empty());
}

}  // namespace
}  // namespace testdriver
