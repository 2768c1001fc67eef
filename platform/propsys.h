// Property keys, property variants and the property-system helpers the driver uses.
#pragma once

#include "platform/basetypes.h"
#include "platform/ntstatus.h"

struct PROPERTYKEY {
    GUID fmtid;
    DWORD pid;
};
using REFPROPERTYKEY = const PROPERTYKEY&;
static_assert(sizeof(PROPERTYKEY) == 20);

constexpr bool IsEqualPropertyKey(const PROPERTYKEY& a, const PROPERTYKEY& b)
{
    return a.pid == b.pid && IsEqualGUID(a.fmtid, b.fmtid);
}

using VARTYPE = USHORT;
using VARIANT_BOOL = SHORT;
inline constexpr VARIANT_BOOL VARIANT_TRUE = -1;
inline constexpr VARIANT_BOOL VARIANT_FALSE = 0;

enum VARENUM : VARTYPE {
    VT_EMPTY = 0,
    VT_NULL = 1,
    VT_I2 = 2,
    VT_I4 = 3,
    VT_R4 = 4,
    VT_R8 = 5,
    VT_BOOL = 11,
    VT_I1 = 16,
    VT_UI1 = 17,
    VT_UI2 = 18,
    VT_UI4 = 19,
    VT_I8 = 20,
    VT_UI8 = 21,
    VT_INT = 22,
    VT_UINT = 23,
    VT_LPWSTR = 31,
    VT_FILETIME = 64,
    VT_BLOB = 65,
    VT_CLSID = 72,
    VT_VECTOR = 0x1000,
};

struct BLOB {
    ULONG cbSize;
    BYTE* pBlobData;
};

struct PROPVARIANT {
    VARTYPE vt;
    WORD wReserved1;
    WORD wReserved2;
    WORD wReserved3;
    union {
        CHAR cVal;
        UCHAR bVal;
        SHORT iVal;
        USHORT uiVal;
        LONG lVal;
        ULONG ulVal;
        INT intVal;
        UINT uintVal;
        LONGLONG hVal;
        ULONGLONG uhVal;
        float fltVal;
        double dblVal;
        VARIANT_BOOL boolVal;
        FILETIME filetime;
        CLSID* puuid;
        LPWSTR pwszVal;
        BLOB blob;
    };
};
using REFPROPVARIANT = const PROPVARIANT&;
static_assert(sizeof(PROPVARIANT) == 24);

// PropVariantToFileTime flags.
using PSTIME_FLAGS = int;
inline constexpr PSTIME_FLAGS PSTF_UTC = 0;
inline constexpr PSTIME_FLAGS PSTF_LOCAL = 1;

inline void PropVariantInit(PROPVARIANT* pv) { *pv = PROPVARIANT{}; }

extern "C" {
// Frees what the variant owns (strings, CLSIDs, blobs; task memory) and sets it to VT_EMPTY.
HRESULT PropVariantClear(PROPVARIANT* pvar);
HRESULT InitPropVariantFromCLSID(REFCLSID clsid, PROPVARIANT* ppropvar);
HRESULT InitPropVariantFromFileTime(const FILETIME* pftIn, PROPVARIANT* ppropvar);
HRESULT InitPropVariantFromString(PCWSTR psz, PROPVARIANT* ppropvar);
HRESULT PropVariantToFileTime(REFPROPVARIANT propvarIn, PSTIME_FLAGS pstfOut, FILETIME* pftOut);
HRESULT PropVariantToUInt32(REFPROPVARIANT propvarIn, ULONG* pulRet);
HRESULT PropVariantToUInt16(REFPROPVARIANT propvarIn, USHORT* puiRet);
HRESULT PropVariantToInt64(REFPROPVARIANT propvarIn, LONGLONG* pllRet);
HRESULT PropVariantToBoolean(REFPROPVARIANT propvarIn, BOOL* pfRet);
}
