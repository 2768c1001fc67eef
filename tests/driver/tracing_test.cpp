// The trace provider: enable and disable through the control callback, the
// message classes a session receives and how arguments are written.
#include <gtest/gtest.h>

#include "tests/driver/driver_test_bed.h"
#include "tracing/trace.h"

namespace testdriver {
namespace {

constexpr GUID kTraceMessageGuid = {0x4A866E40, 0xE8C2, 0x4536, {0xB2, 0x9B, 0xF5, 0xAF, 0x42, 0x84, 0x0B, 0xFF}};

HidDeviceConfig ActivityContainer()
{
    return HidDeviceConfig{}
        .WithDescriptor(hs::BuildSensorContainer({Custom(1)}))
        .WithFeature(1, CustomFeatureReport(1, u"0x232", 16));
}

bool AnyLineHas(const std::vector<std::string>& lines, const std::string& a, const std::string& b)
{
    for (const std::string& line : lines)
        if (line.find(a) != std::string::npos && line.find(b) != std::string::npos)
            return true;
    return false;
}

TEST(Tracing, SessionEnablesTheRegisteredProviderAndUnloadUnregistersIt)
{
    DriverTestBed bed(ActivityContainer());
    ASSERT_EQ(bed.Prepare(), STATUS_SUCCESS);
    EXPECT_TRUE(TracingStarted());
    EXPECT_EQ(g_TraceControlBlock.EnableLevel.load(), kTraceLevelVerbose);
    EXPECT_EQ(g_TraceControlBlock.EnableFlags.load(), 0x3Du);
    EXPECT_NE(g_TraceControlBlock.LoggerHandle.load(), 0u);
    // A failure names the sensor and its status.
    EXPECT_TRUE(AnyLineHas(bed.Trace().Lines(), "\"HID Sensor Collection V2: Activity-0\"", "0xC0000002"));
    EXPECT_EQ(bed.UnloadAndCollectLeaks(), "");
    EXPECT_FALSE(TracingStarted());
    EXPECT_FALSE(TraceClassEnabled(TraceClass::Error));

    // The control callback refuses what is neither enable nor disable.
    TraceControlBlock block;
    EXPECT_EQ(TraceControlCallback(WMI_GET_ALL_DATA, &block, nullptr, nullptr), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(TraceControlCallback(WMI_ENABLE_COLLECTION, &block, nullptr, nullptr), ERROR_INVALID_PARAMETER);
    EXPECT_EQ(TraceControlCallback(WMI_DISABLE_EVENTS, &block, nullptr, nullptr), ERROR_SUCCESS);
    EXPECT_EQ(block.EnableFlags.load(), 0u);
}

TEST(Tracing, LevelAndFlagsSelectTheClasses)
{
    DriverTestBed bed(ActivityContainer());
    ASSERT_EQ(bed.Load(), STATUS_SUCCESS);
    bed.EnableTracing(kTraceLevelError, 0x3D);
    EXPECT_TRUE(TraceClassEnabled(TraceClass::Error));
    EXPECT_FALSE(TraceClassEnabled(TraceClass::Warning));
    EXPECT_FALSE(TraceClassEnabled(TraceClass::EntryExit));
    bed.EnableTracing(kTraceLevelVerbose, 0x08);
    EXPECT_TRUE(TraceClassEnabled(TraceClass::Information));
    EXPECT_FALSE(TraceClassEnabled(TraceClass::Error));

    // Errors only: every line starts with a failure status.
    bed.EnableTracing(kTraceLevelError, 0x20);
    bed.Trace().Clear();
    ASSERT_EQ(bed.Host().PrepareHardware(), STATUS_SUCCESS);
    const std::vector<std::string> lines = bed.Trace().Lines();
    ASSERT_FALSE(lines.empty());
    for (const std::string& line : lines) {
        const std::size_t status = line.find(' ', line.find(' ') + 1) + 1;
        EXPECT_EQ(line.compare(status, 3, "0xC"), 0) << line;
    }

    bed.DisableTracing();
    EXPECT_FALSE(TraceClassEnabled(TraceClass::Error));
    EXPECT_EQ(g_TraceControlBlock.LoggerHandle.load(), 0u);
}

TEST(Tracing, ArgumentsAreWrittenInTheirFixedForms)
{
    DriverTestBed bed(ActivityContainer());
    ASSERT_EQ(bed.Load(), STATUS_SUCCESS);
    bed.Trace().Clear();
    // (A string of 1 or 3 characters has the size of a number: the sink
    // renders by size alone, so this one has 2.)
    TRACE_INFO(static_cast<PCWSTR>(nullptr), u"", u"xy", 2.5f, 7u, static_cast<NTSTATUS>(0xC0000001));
    const std::vector<std::string> lines = bed.Trace().Lines();
    ASSERT_EQ(lines.size(), 1u);
    EXPECT_NE(lines[0].find("{4A866E40-E8C2-4536-B29B-F5AF42840BFF}"), std::string::npos) << lines[0];
    EXPECT_NE(lines[0].find("\"NULL\" \"<NULL>\" \"xy\" 2.5 0x00000007 0xC0000001"), std::string::npos) << lines[0];
    EXPECT_EQ(bed.UnloadAndCollectLeaks(), "");

    // Without a session nothing is written and the arguments are not evaluated.
    int evaluated = 0;
    TRACE_ERROR(STATUS_UNSUCCESSFUL, ++evaluated);
    EXPECT_EQ(evaluated, 0);
}

}  // namespace
}  // namespace testdriver
