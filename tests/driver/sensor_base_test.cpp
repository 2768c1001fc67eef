// The sensor base class: construction strings, the defaults of its operation
// table, Initialize and the lock and timer services.
#include <gtest/gtest.h>

#include <atomic>

#include "host/common/fault_injection.h"
#include "tests/driver/driver_test_bed.h"
#include "tests/driver/test_driver_module.h"

namespace testdriver {
namespace {

TEST(SensorConstruction, EmptyStringsTakeDefaultsLongOnesAreCutAndFailedAllocationsCreateNothing)
{
    const std::u16string longText(300, u'm');
    const SensorConstructionArgs args = {nullptr, nullptr, 19, 0x73, 0, 5, longText.c_str(), u"", nullptr, u"name"};
    HidSensor* sensor = nullptr;
    ASSERT_EQ(CreateSensorObject<HidSensor>(args, &sensor), STATUS_SUCCESS);
    const HidCollectionRecord& record = *sensor->Record();
    EXPECT_EQ(std::u16string(record.Manufacturer), longText.substr(0, kSensorStringChars - 1));
    EXPECT_EQ(std::u16string(record.Model), u"0002");
    EXPECT_EQ(std::u16string(record.SerialNumber), u"0000");
    EXPECT_EQ(std::u16string(record.InstanceName), u"name");
    EXPECT_EQ(std::u16string(sensor->GetFriendlyName()), u"Unknown");
    EXPECT_EQ(record.SensorIndex, 5u);
    EXPECT_EQ(record.forceDelivery.load(), 1u);
    delete sensor;

    host::FaultInjector::Instance().Reset();
    for (std::uint64_t n = 1; n <= 2; ++n) {
        host::FaultInjector::Instance().FailNth(host::FaultPoint::DriverHeap, n, 0);
        sensor = reinterpret_cast<HidSensor*>(1);
        EXPECT_EQ(CreateSensorObject<HidSensor>(args, &sensor), STATUS_NO_MEMORY);
        EXPECT_EQ(sensor, nullptr);
    }
    host::FaultInjector::Instance().Reset();
}

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

TEST_F(PlaceholderSensor, DefaultOperationsSucceedWithoutTouchingOutputs)
{
    const HidCollectionRecord& record = *sensor->Record();
    EXPECT_EQ(record.HasFeatureReport, 0u);  // no feature values
    EXPECT_EQ(record.FeatureReportId, 0);
    ULONG size = 77, interval = 77, written = 77;
    EXPECT_EQ(sensor->GetSupportedDataFields(nullptr, nullptr, &size), STATUS_SUCCESS);
    EXPECT_EQ(sensor->GetProperties(nullptr, nullptr, &size), STATUS_SUCCESS);
    EXPECT_EQ(sensor->GetDataFieldProperties(nullptr, nullptr, nullptr, &size), STATUS_SUCCESS);
    EXPECT_EQ(sensor->GetDataThresholds(nullptr, nullptr, &size), STATUS_SUCCESS);
    EXPECT_EQ(sensor->GetDataInterval(nullptr, &interval), STATUS_SUCCESS);
    EXPECT_EQ(size, 77u);
    EXPECT_EQ(interval, 77u);
    EXPECT_EQ(sensor->CancelHistoryRetrieval(nullptr, &written), STATUS_SUCCESS);
    EXPECT_EQ(written, 0u);
    WDFREQUEST request = nullptr;
    ASSERT_EQ(WdfRequestCreate(nullptr, nullptr, &request), STATUS_SUCCESS);
    EXPECT_EQ(sensor->DeviceIoControl(nullptr, request, 0, 0, 0x00220000), STATUS_NOT_SUPPORTED);
    EXPECT_EQ(WdfRequestGetStatus(request), STATUS_NOT_SUPPORTED);
    WdfObjectDelete(request);
}

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
    sensor->ReleaseLock();
    sensor->DeleteLock();
    EXPECT_EQ(sensor->Record()->WaitLock, nullptr);
    ASSERT_EQ(sensor->CreateLock(), STATUS_SUCCESS);  // one left behind is deleted with the sensor

    EXPECT_FALSE(sensor->StartTimer(10));
    EXPECT_FALSE(sensor->StopTimer());
    WDF_TIMER_CONFIG config;
    WDF_TIMER_CONFIG_INIT(&config, OnTimer);
    WDF_OBJECT_ATTRIBUTES attributes;
    WDF_OBJECT_ATTRIBUTES_INIT(&attributes);
    attributes.ParentObject = bed.Host().Device();
    EXPECT_EQ(sensor->CreateTimer(nullptr, &attributes), STATUS_INVALID_PARAMETER);
    EXPECT_EQ(sensor->CreateTimer(&config, nullptr), STATUS_INVALID_PARAMETER);
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
    // Registration is not there yet: Initialize says so, after reading the capabilities.
    EXPECT_EQ(Module().enumerateStatus, STATUS_NOT_IMPLEMENTED);
    EXPECT_EQ(record.CapabilitiesRead, 1u);
    EXPECT_EQ(bed.Sensor(0)->Uninitialize(), STATUS_SUCCESS);
    EXPECT_EQ(record.IsInitialized.load(), 1u);
    EXPECT_FALSE(record.InputValueCaps.Empty());
}

}  // namespace
}  // namespace testdriver
