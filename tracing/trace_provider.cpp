#include "tracing/trace_provider.h"

#include "platform/ntstatus.h"

TraceControlBlock g_TraceControlBlock;

namespace {

// Head of the provider list. While it points at itself tracing is not
// started; StartTracing points it at the first block.
std::atomic<void*> g_TraceProviders{&g_TraceProviders};

ULONG ClassesAdmitted(ULONG flags, UCHAR level)
{
    struct ClassLevel {
        TraceClass traceClass;
        UCHAR minimumLevel;
    };
    static constexpr ClassLevel kClasses[] = {
        {TraceClass::EntryExit, kTraceLevelVerbose},   {TraceClass::Data, kTraceLevelVerbose},
        {TraceClass::Information, kTraceLevelInformation}, {TraceClass::Warning, kTraceLevelWarning},
        {TraceClass::Error, kTraceLevelError},
    };
    ULONG admitted = 0;
    for (const ClassLevel& entry : kClasses) {
        const ULONG bit = static_cast<ULONG>(entry.traceClass);
        if ((flags & bit) != 0 && level >= entry.minimumLevel)
            admitted |= bit;
    }
    return admitted;
}

void ClearEnableState(TraceControlBlock& block)
{
    block.ActiveClasses.store(0, std::memory_order_relaxed);
    block.LoggerHandle.store(0, std::memory_order_relaxed);
    block.EnableLevel.store(0, std::memory_order_relaxed);
    block.EnableFlags.store(0, std::memory_order_relaxed);
}

}  // namespace

ULONG TraceControlCallback(WMIDPREQUESTCODE requestCode, void* requestContext, ULONG* /*bufferSize*/,
                           void* buffer)
{
    auto* block = static_cast<TraceControlBlock*>(requestContext);
    if (block == nullptr)
        return ERROR_INVALID_PARAMETER;
    switch (requestCode) {
    case WMI_ENABLE_EVENTS: {
        const TRACEHANDLE logger = GetTraceLoggerHandle(buffer);
        const UCHAR level = GetTraceEnableLevel(logger);
        const ULONG flags = GetTraceEnableFlags(logger);
        block->LoggerHandle.store(logger, std::memory_order_relaxed);
        block->EnableLevel.store(level, std::memory_order_relaxed);
        block->EnableFlags.store(flags, std::memory_order_relaxed);
        block->ActiveClasses.store(ClassesAdmitted(flags, level), std::memory_order_relaxed);
        return ERROR_SUCCESS;
    }
    case WMI_DISABLE_EVENTS:
        ClearEnableState(*block);
        return ERROR_SUCCESS;
    default:
        return ERROR_INVALID_PARAMETER;
    }
}

ULONG StartTracing(PCWSTR /*applicationName*/) noexcept
{
    ULONG result = ERROR_SUCCESS;
    for (TraceControlBlock* block = &g_TraceControlBlock; block != nullptr; block = block->Next) {
        TRACE_GUID_REGISTRATION registration = {&kTraceControlGuid, nullptr};
        const ULONG status =
            RegisterTraceGuidsW(TraceControlCallback, block, &kTraceControlGuid, 1, &registration,
                                nullptr, nullptr, &block->RegistrationHandle);
        if (status != ERROR_SUCCESS) {
            block->RegistrationHandle = 0;
            if (result == ERROR_SUCCESS)
                result = status;
        }
    }
    g_TraceProviders.store(&g_TraceControlBlock, std::memory_order_release);
    return result;
}

void StopTracing() noexcept
{
    if (!TracingStarted())
        return;
    for (TraceControlBlock* block = &g_TraceControlBlock; block != nullptr; block = block->Next) {
        if (block->RegistrationHandle != 0) {
            UnregisterTraceGuids(block->RegistrationHandle);
            block->RegistrationHandle = 0;
        }
        ClearEnableState(*block);
    }
    g_TraceProviders.store(&g_TraceProviders, std::memory_order_release);
}

bool TracingStarted() noexcept
{
    return g_TraceProviders.load(std::memory_order_acquire) != &g_TraceProviders;
}
