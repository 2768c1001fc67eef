// The trace provider: enable and disable through the control callback and the
// message classes a session receives.
#include <gtest/gtest.h>

#include "host/common/fault_injection.h"
#include "tests/driver/driver_test_bed.h"
#include "tracing/trace.h"
#include "tracing/trace_provider.h"

namespace testdriver {
namespace {

constexpr GUID kTraceMessageGuid = {0x4A866E40, 0xE8C2, 0x4536, {0xB2, 0x9B, 0xF5, 0xAF, 0x42, 0x84, 0x0B, 0xFF}};

TEST(Tracing, SessionLevelAndFlagsSelectTheClassesAndUnloadUnregisters)
{
    DriverTestBed bed(HidDeviceConfig{}
                          .WithDescriptor(hs::BuildSensorContainer({Custom(1)}))
                          .WithFeature(1, FeatureReport(1, 100, {u"0x232"})));
    ASSERT_EQ(bed.Load(), STATUS_SUCCESS);
    EXPECT_TRUE(TracingStarted());
    EXPECT_EQ(g_TraceControlBlock.EnableLevel.load(), kTraceLevelVerbose);
    EXPECT_EQ(g_TraceControlBlock.EnableFlags.load(), 0x3Du);
    EXPECT_NE(g_TraceControlBlock.LoggerHandle.load(), 0u);
    bed.Session().Enable(kTraceControlGuid, kTraceLevelError, 0x3D);
    EXPECT_TRUE(TraceClassEnabled(TraceClass::Error));
    EXPECT_FALSE(TraceClassEnabled(TraceClass::Warning));
    EXPECT_FALSE(TraceClassEnabled(TraceClass::EntryExit));
    bed.Session().Enable(kTraceControlGuid, kTraceLevelVerbose, 0x08);
    EXPECT_TRUE(TraceClassEnabled(TraceClass::Information));
    EXPECT_FALSE(TraceClassEnabled(TraceClass::Error));

    // Errors only: every line starts with a failure status; one names the sensor.
    bed.Session().Enable(kTraceControlGuid, kTraceLevelError, 0x20);
    bed.Trace().Clear();
    host::FaultInjector::Instance().FailNth(host::FaultPoint::SensorsCxSensorCreate, 1, STATUS_DEVICE_NOT_CONNECTED);
    ASSERT_EQ(bed.Host().PrepareHardware(), STATUS_SUCCESS);
    bool namesTheSensor = false;
    for (const std::string& line : bed.Trace().Lines()) {
        const std::size_t status = line.find(' ', line.find(' ') + 1) + 1;
        EXPECT_EQ(line.compare(status, 3, "0xC"), 0) << line;
        namesTheSensor |= line.find("\"HID Sensor Collection V2: Activity-0\"") != std::string::npos &&
                          line.find("0xC000009D") != std::string::npos;
    }
    EXPECT_TRUE(namesTheSensor);

    bed.Session().Disable(kTraceControlGuid);
    EXPECT_FALSE(TraceClassEnabled(TraceClass::Error));
    EXPECT_EQ(g_TraceControlBlock.LoggerHandle.load(), 0u);
    // Without a session nothing is written and the arguments are not evaluated.
    int evaluated = 0;
    TRACE_ERROR(STATUS_UNSUCCESSFUL, ++evaluated);
    EXPECT_EQ(evaluated, 0);
    EXPECT_EQ(bed.UnloadAndCollectLeaks(), "");
    EXPECT_FALSE(TracingStarted());

    // The control callback refuses what is neither enable nor disable.
    TraceControlBlock block;
    EXPECT_EQ(TraceControlCallback(WMI_GET_ALL_DATA, &block, nullptr, nullptr), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(TraceControlCallback(WMI_ENABLE_COLLECTION, &block, nullptr, nullptr), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(TraceControlCallback(WMI_DISABLE_EVENTS, &block, nullptr, nullptr), ERROR_SUCCESS);
    EXPECT_EQ(block.EnableFlags.load(), 0u);
}

}  // namespace
}  // namespace testdriver
