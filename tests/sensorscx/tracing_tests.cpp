#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "host/sensorscx/tracing.h"
#include "tests/sensorscx/fake_sensor_driver.h"

namespace host::sensorscx::testing {
namespace {

constexpr GUID kControl = {0x06C6C767, 0x2179, 0x40E1, {0x8D, 0x39, 0x9C, 0xD5, 0x5A, 0xC6, 0xAB, 0xF8}};
constexpr GUID kMessage = {0x11111111, 0x2222, 0x3333, {0x44, 0x44, 0x55, 0x55, 0x55, 0x55, 0x55, 0x55}};

// A provider's control block, as the driver's tracing keeps it.
struct ControlBlock {
    TRACEHANDLE logger = 0;
    UCHAR level = 0;
    ULONG flags = 0;
    int calls = 0;
};

ULONG ControlCallback(WMIDPREQUESTCODE code, void* context, ULONG*, void* buffer)
{
    auto* block = static_cast<ControlBlock*>(context);
    ++block->calls;
    if (code != WMI_ENABLE_EVENTS && code != WMI_DISABLE_EVENTS)
        return ERROR_INVALID_PARAMETER;
    block->logger = code == WMI_ENABLE_EVENTS ? GetTraceLoggerHandle(buffer) : 0;
    block->level = GetTraceEnableLevel(block->logger);
    block->flags = GetTraceEnableFlags(block->logger);
    return ERROR_SUCCESS;
}

class TracingTest : public LedgerTest {
protected:
    TRACEHANDLE Register(ControlBlock& block)
    {
        TRACE_GUID_REGISTRATION registration{&kControl, nullptr};
        TRACEHANDLE handle = 0;
        EXPECT_EQ(RegisterTraceGuidsW(ControlCallback, &block, &kControl, 1, &registration, nullptr, nullptr, &handle),
                  ERROR_SUCCESS);
        return handle;
    }

    std::shared_ptr<tracing::MemoryTraceSink> sink_ = std::make_shared<tracing::MemoryTraceSink>();
};

TEST_F(TracingTest, EnableHandsLevelFlagsAndLoggerThroughTheCallbackAndMessagesFlowOnlyWhileEnabled)
{
    ControlBlock block;
    const TRACEHANDLE registration = Register(block);
    {
        tracing::TraceSession session(sink_);
        session.Enable(kControl, 4, 0x28);
        EXPECT_EQ(block.level, 4);
        EXPECT_EQ(block.flags, 0x28u);
        EXPECT_EQ(block.logger, session.LoggerHandle(kControl));
        const ULONG status = 0xC0000001;
        EXPECT_EQ(TraceMessage(block.logger, 0x2B, &kMessage, 12, &status, sizeof(status), nullptr), ERROR_SUCCESS);
        EXPECT_EQ(sink_->Lines(), std::vector<std::string>{"{11111111-2222-3333-4444-555555555555} 12 0xC0000001"});

        session.Enable(kControl, 5, 0x01);  // new level and flags reach the provider
        EXPECT_EQ(block.level, 5);
        EXPECT_EQ(block.flags, 0x01u);

        const TRACEHANDLE stale = block.logger;
        session.Enable(kControl, 0, 0x3F);  // level 0 disables
        EXPECT_EQ(block.logger, 0u);
        EXPECT_NE(TraceMessage(stale, 0x2B, &kMessage, 13, nullptr), ERROR_SUCCESS);
        EXPECT_EQ(sink_->Lines().size(), 1u);
        session.Enable(kControl, 2, 0x20);
    }
    // The session's end disables what it still enabled.
    EXPECT_EQ(block.logger, 0u);
    EXPECT_EQ(block.calls, 5);
    EXPECT_EQ(UnregisterTraceGuids(registration), ERROR_SUCCESS);
    EXPECT_EQ(UnregisterTraceGuids(registration), ERROR_INVALID_PARAMETER);

    // A provider registering after the enable is enabled at once.
    tracing::TraceSession later(sink_);
    later.Enable(kControl, 3, 0x10);
    ControlBlock late;
    const TRACEHANDLE lateRegistration = Register(late);
    EXPECT_EQ(late.level, 3);
    EXPECT_EQ(late.flags, 0x10u);
    EXPECT_EQ(UnregisterTraceGuids(lateRegistration), ERROR_SUCCESS);
    int notABuffer = 0;
    EXPECT_EQ(GetTraceLoggerHandle(&notABuffer), ~TRACEHANDLE{0});
}

}  // namespace
}  // namespace host::sensorscx::testing
