// Classic event tracing: provider registration, the session's enable state and TraceMessage.
#pragma once

#include "platform/basetypes.h"

using TRACEHANDLE = ULONGLONG;
using LPCGUID = const GUID*;

enum WMIDPREQUESTCODE : int {
    WMI_GET_ALL_DATA = 0,
    WMI_GET_SINGLE_INSTANCE = 1,
    WMI_SET_SINGLE_INSTANCE = 2,
    WMI_SET_SINGLE_ITEM = 3,
    WMI_ENABLE_EVENTS = 4,
    WMI_DISABLE_EVENTS = 5,
    WMI_ENABLE_COLLECTION = 6,
    WMI_DISABLE_COLLECTION = 7,
    WMI_REGINFO = 8,
    WMI_EXECUTE_METHOD = 9,
};

using WMIDPREQUEST = ULONG (*)(WMIDPREQUESTCODE RequestCode, void* RequestContext,
                               ULONG* BufferSize, void* Buffer);

struct TRACE_GUID_REGISTRATION {
    LPCGUID Guid;
    HANDLE RegHandle;
};
using PTRACE_GUID_REGISTRATION = TRACE_GUID_REGISTRATION*;

// TraceMessage flags.
inline constexpr ULONG TRACE_MESSAGE_SEQUENCE = 0x01;
inline constexpr ULONG TRACE_MESSAGE_GUID = 0x02;
inline constexpr ULONG TRACE_MESSAGE_COMPONENTID = 0x04;
inline constexpr ULONG TRACE_MESSAGE_TIMESTAMP = 0x08;
inline constexpr ULONG TRACE_MESSAGE_SYSTEMINFO = 0x20;

extern "C" {
ULONG RegisterTraceGuidsW(WMIDPREQUEST RequestAddress, void* RequestContext, LPCGUID ControlGuid,
                          ULONG GuidCount, PTRACE_GUID_REGISTRATION TraceGuidReg,
                          LPCWSTR MofImagePath, LPCWSTR MofResourceName,
                          TRACEHANDLE* RegistrationHandle);
ULONG UnregisterTraceGuids(TRACEHANDLE RegistrationHandle);
// Buffer is the one the control callback received with WMI_ENABLE_EVENTS.
TRACEHANDLE GetTraceLoggerHandle(void* Buffer);
UCHAR GetTraceEnableLevel(TRACEHANDLE TraceHandle);
ULONG GetTraceEnableFlags(TRACEHANDLE TraceHandle);
// Arguments follow as (const void* data, SIZE_T size) pairs, ended by a null pointer.
ULONG TraceMessage(TRACEHANDLE LoggerHandle, ULONG MessageFlags, LPCGUID MessageGuid,
                   USHORT MessageNumber, ...);
}
