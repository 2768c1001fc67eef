// Status codes the driver returns or receives. Values are the platform's.
#pragma once

#include "platform/basetypes.h"

inline constexpr NTSTATUS STATUS_SUCCESS = 0x00000000;
inline constexpr NTSTATUS STATUS_TIMEOUT = 0x00000102;
inline constexpr NTSTATUS STATUS_PENDING = 0x00000103;
inline constexpr NTSTATUS STATUS_DEVICE_BUSY = static_cast<NTSTATUS>(0x80000011);
inline constexpr NTSTATUS STATUS_NO_MORE_ENTRIES = static_cast<NTSTATUS>(0x8000001A);
inline constexpr NTSTATUS STATUS_UNSUCCESSFUL = static_cast<NTSTATUS>(0xC0000001);
inline constexpr NTSTATUS STATUS_NOT_IMPLEMENTED = static_cast<NTSTATUS>(0xC0000002);
inline constexpr NTSTATUS STATUS_INFO_LENGTH_MISMATCH = static_cast<NTSTATUS>(0xC0000004);
inline constexpr NTSTATUS STATUS_INVALID_HANDLE = static_cast<NTSTATUS>(0xC0000008);
inline constexpr NTSTATUS STATUS_INVALID_PARAMETER = static_cast<NTSTATUS>(0xC000000D);
inline constexpr NTSTATUS STATUS_INVALID_DEVICE_REQUEST = static_cast<NTSTATUS>(0xC0000010);
inline constexpr NTSTATUS STATUS_NO_MEMORY = static_cast<NTSTATUS>(0xC0000017);
inline constexpr NTSTATUS STATUS_BUFFER_TOO_SMALL = static_cast<NTSTATUS>(0xC0000023);
inline constexpr NTSTATUS STATUS_OBJECT_NAME_NOT_FOUND = static_cast<NTSTATUS>(0xC0000034);
inline constexpr NTSTATUS STATUS_INSUFFICIENT_RESOURCES = static_cast<NTSTATUS>(0xC000009A);
inline constexpr NTSTATUS STATUS_IO_TIMEOUT = static_cast<NTSTATUS>(0xC00000B5);
inline constexpr NTSTATUS STATUS_NOT_SUPPORTED = static_cast<NTSTATUS>(0xC00000BB);
inline constexpr NTSTATUS STATUS_INVALID_DEVICE_STATE = static_cast<NTSTATUS>(0xC0000184);
inline constexpr NTSTATUS STATUS_IO_DEVICE_ERROR = static_cast<NTSTATUS>(0xC0000185);
inline constexpr NTSTATUS STATUS_DATA_NOT_ACCEPTED = static_cast<NTSTATUS>(0xC000021B);
inline constexpr NTSTATUS STATUS_CANCELLED = static_cast<NTSTATUS>(0xC0000120);
inline constexpr NTSTATUS STATUS_DEVICE_NOT_CONNECTED = static_cast<NTSTATUS>(0xC000009D);
inline constexpr NTSTATUS STATUS_OBJECT_NAME_EXISTS = 0x40000000;

// What the sensor history returns for a retrieval cancel with no retrieval
// running. Its contract calls this STATUS_INVALID_DEVICE_STATE but gives the
// number 0xC0000010 (the platform's STATUS_INVALID_DEVICE_REQUEST), and the
// number is what clients see. Not STATUS_INVALID_DEVICE_STATE (0xC0000184).
inline constexpr NTSTATUS STATUS_HISTORY_RETRIEVAL_NOT_RUNNING = STATUS_INVALID_DEVICE_REQUEST;
static_assert(STATUS_HISTORY_RETRIEVAL_NOT_RUNNING == static_cast<NTSTATUS>(0xC0000010));
static_assert(STATUS_HISTORY_RETRIEVAL_NOT_RUNNING != STATUS_INVALID_DEVICE_STATE);

// Win32 error codes and HRESULTs that cross the interfaces.
inline constexpr DWORD ERROR_SUCCESS = 0;
inline constexpr DWORD ERROR_INVALID_PARAMETER = 87;
inline constexpr HRESULT S_OK = 0;
inline constexpr HRESULT S_FALSE = 1;
inline constexpr HRESULT E_INVALIDARG = static_cast<HRESULT>(0x80070057);
inline constexpr HRESULT E_OUTOFMEMORY = static_cast<HRESULT>(0x8007000E);
inline constexpr HRESULT E_POINTER = static_cast<HRESULT>(0x80004003);
inline constexpr HRESULT E_FAIL = static_cast<HRESULT>(0x80004005);
inline constexpr HRESULT CO_E_CLASSSTRING = static_cast<HRESULT>(0x800401F3);
inline constexpr HRESULT TYPE_E_TYPEMISMATCH = static_cast<HRESULT>(0x80028CA0);
inline constexpr HRESULT HRESULT_ARITHMETIC_OVERFLOW = static_cast<HRESULT>(0x80070216);  // HRESULT_FROM_WIN32(ERROR_ARITHMETIC_OVERFLOW)
