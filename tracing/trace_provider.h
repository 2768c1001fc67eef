// The driver's trace provider: registration with the platform's event tracing
// and the enable state that every trace call checks first.
#pragma once

#include <atomic>

#include "platform/evntrace.h"

// {06C6C767-2179-40E1-8D39-9CD55AC6ABF8}
inline constexpr GUID kTraceControlGuid = {
    0x06C6C767, 0x2179, 0x40E1, {0x8D, 0x39, 0x9C, 0xD5, 0x5A, 0xC6, 0xAB, 0xF8}};

// Message classes: the flag a session enables and the level it needs.
enum class TraceClass : ULONG {
    EntryExit = 0x01,
    Data = 0x04,
    Information = 0x08,
    Warning = 0x10,
    Error = 0x20,
};

inline constexpr UCHAR kTraceLevelError = 2;
inline constexpr UCHAR kTraceLevelWarning = 3;
inline constexpr UCHAR kTraceLevelInformation = 4;
inline constexpr UCHAR kTraceLevelVerbose = 5;

// What one provider knows about its session. The callback that writes it may
// run on any thread, hence the atomics.
struct TraceControlBlock {
    TRACEHANDLE RegistrationHandle = 0;
    std::atomic<TRACEHANDLE> LoggerHandle{0};
    std::atomic<UCHAR> EnableLevel{0};
    std::atomic<ULONG> EnableFlags{0};
    // The classes both enabled by flag and admitted by level: the one value a
    // trace call loads before deciding to do anything.
    std::atomic<ULONG> ActiveClasses{0};
    TraceControlBlock* Next = nullptr;
};

// The driver's only provider.
extern TraceControlBlock g_TraceControlBlock;

// Registers every provider. `applicationName` is accepted for the caller's
// record and not used. Returns the first registration failure (a Win32 code)
// or ERROR_SUCCESS.
ULONG StartTracing(PCWSTR applicationName) noexcept;

// Unregisters every registered provider; no message is written afterwards.
void StopTracing() noexcept;

// The platform's control callback: enable (4) and disable (5) requests.
ULONG TraceControlCallback(WMIDPREQUESTCODE requestCode, void* requestContext, ULONG* bufferSize,
                           void* buffer);

// True while tracing is registered (the provider list is not at its mark).
bool TracingStarted() noexcept;

inline bool TraceClassEnabled(TraceClass traceClass) noexcept
{
    return (g_TraceControlBlock.ActiveClasses.load(std::memory_order_relaxed) &
            static_cast<ULONG>(traceClass)) != 0;
}
