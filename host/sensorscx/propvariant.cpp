// PROPVARIANT lifetime (clear, init from CLSID/FILETIME/string) and the
// PropVariantTo* conversions.
//
// Conversion rules, one row per source type:
//
//   source                 | ToUInt32, ToUInt16, ToInt64          | ToBoolean                   | ToFileTime
//   -----------------------+--------------------------------------+-----------------------------+--------------------
//   EMPTY, NULL            | E_INVALIDARG                         | E_INVALIDARG                | E_INVALIDARG
//   I1 UI1 I2 UI2 I4 UI4   | the value if the target holds it,    | value != 0                  | TYPE_E_TYPEMISMATCH
//   I8 UI8 INT UINT        | else overflow (*)                    |                             |
//   BOOL                   | VARIANT_FALSE 0, any other value 1   | boolVal != 0                | TYPE_E_TYPEMISMATCH
//   R4, R8                 | rounded to nearest, ties to even;    | value != 0                  | TYPE_E_TYPEMISMATCH
//                          | out of range or NaN: overflow (*)    |                             |
//   LPWSTR                 | decimal digits with an optional sign,| "true"/"false" in any case, | TYPE_E_TYPEMISMATCH
//                          | range-checked (*); other text and a  | else as a number            |
//                          | null string: TYPE_E_TYPEMISMATCH     |                             |
//   FILETIME               | TYPE_E_TYPEMISMATCH                  | TYPE_E_TYPEMISMATCH         | the value
//   CLSID, BLOB, others    | TYPE_E_TYPEMISMATCH                  | TYPE_E_TYPEMISMATCH         | TYPE_E_TYPEMISMATCH
//
//   (*) overflow is HRESULT_FROM_WIN32(ERROR_ARITHMETIC_OVERFLOW), 0x80070216.
//
// A null output pointer gives E_POINTER. Every failure stores 0 (FALSE, a zero
// FILETIME) through the output. ToFileTime accepts PSTF_UTC and PSTF_LOCAL; the
// host keeps its clock in UTC, so both return the stored value; other flags
// give E_INVALIDARG.
#include <cmath>
#include <cstring>
#include <limits>
#include <string>
#include <type_traits>

#include "platform/com.h"
#include "platform/propsys.h"

namespace {

struct Number {
    enum class Kind { Signed, Unsigned, Real } kind = Kind::Signed;
    std::int64_t s = 0;
    std::uint64_t u = 0;
    double r = 0;
};

Number Signed(std::int64_t v) { return Number{Number::Kind::Signed, v, 0, 0}; }
Number Unsigned(std::uint64_t v) { return Number{Number::Kind::Unsigned, 0, v, 0}; }
Number Real(double v) { return Number{Number::Kind::Real, 0, 0, v}; }

HRESULT ParseDecimal(PCWSTR text, Number* out)
{
    if (text == nullptr)
        return TYPE_E_TYPEMISMATCH;
    bool negative = false;
    if (*text == u'-' || *text == u'+') {
        negative = *text == u'-';
        ++text;
    }
    if (*text == 0)
        return TYPE_E_TYPEMISMATCH;
    std::uint64_t magnitude = 0;
    bool overflow = false;
    for (; *text != 0; ++text) {
        if (*text < u'0' || *text > u'9')
            return TYPE_E_TYPEMISMATCH;
        const auto digit = static_cast<std::uint64_t>(*text - u'0');
        if (magnitude > (std::numeric_limits<std::uint64_t>::max() - digit) / 10)
            overflow = true;
        else
            magnitude = magnitude * 10 + digit;
    }
    if (overflow)
        return HRESULT_ARITHMETIC_OVERFLOW;
    if (!negative) {
        *out = Unsigned(magnitude);
        return S_OK;
    }
    constexpr auto kMinMagnitude = static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max()) + 1;
    if (magnitude > kMinMagnitude)
        return HRESULT_ARITHMETIC_OVERFLOW;
    *out = magnitude == kMinMagnitude ? Signed(std::numeric_limits<std::int64_t>::min())
                                      : Signed(-static_cast<std::int64_t>(magnitude));
    return S_OK;
}

HRESULT ExtractNumber(const PROPVARIANT& v, Number* out)
{
    switch (v.vt) {
    case VT_EMPTY:
    case VT_NULL: return E_INVALIDARG;
    case VT_I1: *out = Signed(v.cVal); return S_OK;
    case VT_UI1: *out = Unsigned(v.bVal); return S_OK;
    case VT_I2: *out = Signed(v.iVal); return S_OK;
    case VT_UI2: *out = Unsigned(v.uiVal); return S_OK;
    case VT_I4: *out = Signed(v.lVal); return S_OK;
    case VT_UI4: *out = Unsigned(v.ulVal); return S_OK;
    case VT_INT: *out = Signed(v.intVal); return S_OK;
    case VT_UINT: *out = Unsigned(v.uintVal); return S_OK;
    case VT_I8: *out = Signed(v.hVal); return S_OK;
    case VT_UI8: *out = Unsigned(v.uhVal); return S_OK;
    case VT_BOOL: *out = Unsigned(v.boolVal != VARIANT_FALSE ? 1 : 0); return S_OK;
    case VT_R4: *out = Real(v.fltVal); return S_OK;
    case VT_R8: *out = Real(v.dblVal); return S_OK;
    case VT_LPWSTR: return ParseDecimal(v.pwszVal, out);
    default: return TYPE_E_TYPEMISMATCH;
    }
}

template <class T>
HRESULT Narrow(const Number& n, T* out)
{
    using Limits = std::numeric_limits<T>;
    switch (n.kind) {
    case Number::Kind::Signed:
        if (n.s < 0 && (std::is_unsigned_v<T> || n.s < static_cast<std::int64_t>(Limits::min())))
            return HRESULT_ARITHMETIC_OVERFLOW;
        if (n.s > 0 && static_cast<std::uint64_t>(n.s) > static_cast<std::uint64_t>(Limits::max()))
            return HRESULT_ARITHMETIC_OVERFLOW;
        *out = static_cast<T>(n.s);
        return S_OK;
    case Number::Kind::Unsigned:
        if (n.u > static_cast<std::uint64_t>(Limits::max()))
            return HRESULT_ARITHMETIC_OVERFLOW;
        *out = static_cast<T>(n.u);
        return S_OK;
    case Number::Kind::Real: {
        if (std::isnan(n.r))
            return HRESULT_ARITHMETIC_OVERFLOW;
        const double rounded = std::nearbyint(n.r);  // default mode: to nearest, ties to even
        // Limits::max() + 1 is a power of two, exact as a double, unlike max() itself.
        const double upper = 2.0 * static_cast<double>(Limits::max() / 2 + 1);
        if (rounded < static_cast<double>(Limits::min()) || rounded >= upper)
            return HRESULT_ARITHMETIC_OVERFLOW;
        *out = static_cast<T>(rounded);
        return S_OK;
    }
    }
    return TYPE_E_TYPEMISMATCH;
}

template <class T>
HRESULT ToInteger(const PROPVARIANT& v, T* out)
{
    if (out == nullptr)
        return E_POINTER;
    *out = 0;
    Number n;
    HRESULT hr = ExtractNumber(v, &n);
    if (SUCCEEDED(hr))
        hr = Narrow(n, out);
    if (FAILED(hr))
        *out = 0;
    return hr;
}

bool EqualsIgnoringCase(PCWSTR text, const char* word)
{
    for (; *word != 0; ++text, ++word) {
        char16_t c = *text;
        if (c >= u'A' && c <= u'Z')
            c = static_cast<char16_t>(c - u'A' + u'a');
        if (c != static_cast<char16_t>(*word))
            return false;
    }
    return *text == 0;
}

}  // namespace

extern "C" HRESULT PropVariantClear(PROPVARIANT* pvar)
{
    if (pvar == nullptr)
        return S_OK;
    switch (pvar->vt) {
    case VT_LPWSTR: CoTaskMemFree(pvar->pwszVal); break;
    case VT_CLSID: CoTaskMemFree(pvar->puuid); break;
    case VT_BLOB: CoTaskMemFree(pvar->blob.pBlobData); break;
    case VT_EMPTY: case VT_NULL: case VT_I1: case VT_UI1: case VT_I2: case VT_UI2: case VT_I4:
    case VT_UI4: case VT_INT: case VT_UINT: case VT_I8: case VT_UI8: case VT_R4: case VT_R8:
    case VT_BOOL: case VT_FILETIME: break;
    default:
        // A type whose ownership is unknown here is left alone rather than leaked or double-freed.
        return E_INVALIDARG;
    }
    PropVariantInit(pvar);
    return S_OK;
}

extern "C" HRESULT InitPropVariantFromCLSID(REFCLSID clsid, PROPVARIANT* ppropvar)
{
    if (ppropvar == nullptr)
        return E_POINTER;
    PropVariantInit(ppropvar);
    auto* copy = static_cast<CLSID*>(CoTaskMemAlloc(sizeof(CLSID)));
    if (copy == nullptr)
        return E_OUTOFMEMORY;
    *copy = clsid;
    ppropvar->vt = VT_CLSID;
    ppropvar->puuid = copy;
    return S_OK;
}

extern "C" HRESULT InitPropVariantFromFileTime(const FILETIME* pftIn, PROPVARIANT* ppropvar)
{
    if (ppropvar == nullptr)
        return E_POINTER;
    PropVariantInit(ppropvar);
    if (pftIn == nullptr)
        return E_INVALIDARG;
    ppropvar->vt = VT_FILETIME;
    ppropvar->filetime = *pftIn;
    return S_OK;
}

extern "C" HRESULT InitPropVariantFromString(PCWSTR psz, PROPVARIANT* ppropvar)
{
    if (ppropvar == nullptr)
        return E_POINTER;
    PropVariantInit(ppropvar);
    if (psz == nullptr)
        return E_INVALIDARG;
    const std::size_t units = std::char_traits<char16_t>::length(psz) + 1;
    auto* copy = static_cast<LPWSTR>(CoTaskMemAlloc(units * sizeof(WCHAR)));
    if (copy == nullptr)
        return E_OUTOFMEMORY;
    std::memcpy(copy, psz, units * sizeof(WCHAR));
    ppropvar->vt = VT_LPWSTR;
    ppropvar->pwszVal = copy;
    return S_OK;
}

extern "C" HRESULT PropVariantToFileTime(REFPROPVARIANT propvarIn, PSTIME_FLAGS pstfOut, FILETIME* pftOut)
{
    if (pftOut == nullptr)
        return E_POINTER;
    *pftOut = FILETIME{};
    if (pstfOut != PSTF_UTC && pstfOut != PSTF_LOCAL)
        return E_INVALIDARG;
    if (propvarIn.vt == VT_EMPTY || propvarIn.vt == VT_NULL)
        return E_INVALIDARG;
    if (propvarIn.vt != VT_FILETIME)
        return TYPE_E_TYPEMISMATCH;
    *pftOut = propvarIn.filetime;
    return S_OK;
}

extern "C" HRESULT PropVariantToUInt32(REFPROPVARIANT propvarIn, ULONG* pulRet)
{
    return ToInteger(propvarIn, pulRet);
}

extern "C" HRESULT PropVariantToUInt16(REFPROPVARIANT propvarIn, USHORT* puiRet)
{
    return ToInteger(propvarIn, puiRet);
}

extern "C" HRESULT PropVariantToInt64(REFPROPVARIANT propvarIn, LONGLONG* pllRet)
{
    return ToInteger(propvarIn, pllRet);
}

extern "C" HRESULT PropVariantToBoolean(REFPROPVARIANT propvarIn, BOOL* pfRet)
{
    if (pfRet == nullptr)
        return E_POINTER;
    *pfRet = 0;
    if (propvarIn.vt == VT_LPWSTR && propvarIn.pwszVal != nullptr) {
        if (EqualsIgnoringCase(propvarIn.pwszVal, "true")) {
            *pfRet = 1;
            return S_OK;
        }
        if (EqualsIgnoringCase(propvarIn.pwszVal, "false"))
            return S_OK;
    }
    Number n;
    const HRESULT hr = ExtractNumber(propvarIn, &n);
    if (FAILED(hr))
        return hr;
    switch (n.kind) {
    case Number::Kind::Signed: *pfRet = n.s != 0; break;
    case Number::Kind::Unsigned: *pfRet = n.u != 0; break;
    case Number::Kind::Real: *pfRet = n.r != 0; break;
    }
    return S_OK;
}
