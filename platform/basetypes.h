// Integer widths, handles and small structures of the platform, as the driver
// sees them. ULONG and LONG are 32 bits on this 64-bit host, as they are on the
// platform; WCHAR is UTF-16.
#pragma once

#include <cstddef>
#include <cstdint>

using UCHAR = std::uint8_t;
using BYTE = std::uint8_t;
using CHAR = char;
using BOOLEAN = std::uint8_t;
using USHORT = std::uint16_t;
using WORD = std::uint16_t;
using SHORT = std::int16_t;
using ULONG = std::uint32_t;
using DWORD = std::uint32_t;
using LONG = std::int32_t;
using INT = std::int32_t;
using UINT = std::uint32_t;
using BOOL = std::int32_t;
using LONGLONG = std::int64_t;
using ULONGLONG = std::uint64_t;
using SIZE_T = std::size_t;
using ULONG_PTR = std::uintptr_t;
using WCHAR = char16_t;
using PWSTR = WCHAR*;
using PCWSTR = const WCHAR*;
using LPWSTR = WCHAR*;
using LPCWSTR = const WCHAR*;
using PVOID = void*;
using HANDLE = void*;
using NTSTATUS = LONG;
using HRESULT = LONG;

static_assert(sizeof(ULONG) == 4 && sizeof(LONG) == 4 && sizeof(BOOLEAN) == 1);
static_assert(sizeof(WCHAR) == 2);

inline constexpr BOOLEAN TRUE = 1;
inline constexpr BOOLEAN FALSE = 0;
inline const HANDLE INVALID_HANDLE_VALUE = reinterpret_cast<HANDLE>(static_cast<std::intptr_t>(-1));

constexpr bool NT_SUCCESS(NTSTATUS status) { return status >= 0; }
constexpr bool SUCCEEDED(HRESULT hr) { return hr >= 0; }
constexpr bool FAILED(HRESULT hr) { return hr < 0; }

struct GUID {
    std::uint32_t Data1;
    std::uint16_t Data2;
    std::uint16_t Data3;
    std::uint8_t Data4[8];
};
static_assert(sizeof(GUID) == 16);
using CLSID = GUID;
using IID = GUID;
using LPCLSID = CLSID*;
using REFCLSID = const CLSID&;
using REFGUID = const GUID&;

constexpr bool IsEqualGUID(const GUID& a, const GUID& b)
{
    if (a.Data1 != b.Data1 || a.Data2 != b.Data2 || a.Data3 != b.Data3) return false;
    for (int i = 0; i < 8; ++i)
        if (a.Data4[i] != b.Data4[i]) return false;
    return true;
}
constexpr bool operator==(const GUID& a, const GUID& b) { return IsEqualGUID(a, b); }

// 100-nanosecond intervals since 1601-01-01 UTC, split in two 32-bit halves.
struct FILETIME {
    DWORD dwLowDateTime;
    DWORD dwHighDateTime;
};
static_assert(sizeof(FILETIME) == 8);

union LARGE_INTEGER {
    struct {
        DWORD LowPart;
        LONG HighPart;
    } u;
    LONGLONG QuadPart;
};

struct UNICODE_STRING {
    USHORT Length;         // bytes, without terminator
    USHORT MaximumLength;  // bytes
    PWSTR Buffer;
};
using PUNICODE_STRING = UNICODE_STRING*;
using PCUNICODE_STRING = const UNICODE_STRING*;
static_assert(sizeof(UNICODE_STRING) == 16);
