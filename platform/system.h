// System services: time, threads, events, handles and the process heap.
#pragma once

#include "platform/basetypes.h"

struct SECURITY_ATTRIBUTES;
using LPSECURITY_ATTRIBUTES = SECURITY_ATTRIBUTES*;
using LPTHREAD_START_ROUTINE = DWORD (*)(void* lpThreadParameter);

inline constexpr DWORD INFINITE = 0xFFFFFFFF;
inline constexpr DWORD WAIT_OBJECT_0 = 0x00000000;
inline constexpr DWORD WAIT_TIMEOUT = 0x00000102;
inline constexpr DWORD WAIT_FAILED = 0xFFFFFFFF;
inline constexpr DWORD STILL_ACTIVE = 0x00000103;
inline constexpr DWORD HEAP_ZERO_MEMORY = 0x00000008;

extern "C" {
void GetSystemTimeAsFileTime(FILETIME* lpSystemTimeAsFileTime);

HANDLE CreateThread(LPSECURITY_ATTRIBUTES lpThreadAttributes, SIZE_T dwStackSize,
                    LPTHREAD_START_ROUTINE lpStartAddress, void* lpParameter,
                    DWORD dwCreationFlags, DWORD* lpThreadId);
BOOL GetExitCodeThread(HANDLE hThread, DWORD* lpExitCode);

HANDLE CreateEventW(LPSECURITY_ATTRIBUTES lpEventAttributes, BOOL bManualReset, BOOL bInitialState,
                    LPCWSTR lpName);
BOOL SetEvent(HANDLE hEvent);
BOOL ResetEvent(HANDLE hEvent);
DWORD WaitForSingleObjectEx(HANDLE hHandle, DWORD dwMilliseconds, BOOL bAlertable);
BOOL CloseHandle(HANDLE hObject);

// The process heap: the driver's own allocations go through it.
HANDLE GetProcessHeap();
void* HeapAlloc(HANDLE hHeap, DWORD dwFlags, SIZE_T dwBytes);
BOOL HeapFree(HANDLE hHeap, DWORD dwFlags, void* lpMem);
}
