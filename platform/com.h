// COM helpers: GUID strings, GUID generation and task memory.
#pragma once

#include "platform/basetypes.h"
#include "platform/ntstatus.h"

using OLECHAR = WCHAR;
using LPOLESTR = OLECHAR*;
using LPCOLESTR = const OLECHAR*;

extern "C" {
// Parses "{XXXXXXXX-XXXX-XXXX-XXXX-XXXXXXXXXXXX}" (braces required); anything else fails.
HRESULT CLSIDFromString(LPCOLESTR lpsz, LPCLSID pclsid);
HRESULT CoCreateGuid(GUID* pguid);
// Allocates the braced upper-case string with CoTaskMemAlloc.
HRESULT StringFromCLSID(REFCLSID rclsid, LPOLESTR* lplpsz);
void* CoTaskMemAlloc(SIZE_T cb);
void CoTaskMemFree(void* pv);
}
