#include <gtest/gtest.h>

#include <limits>

#include "host/common/fault_injection.h"
#include "host/common/resource_ledger.h"
#include "platform/com.h"
#include "platform/propsys.h"
#include "platform/sensorsutils.h"
#include "tests/sensorscx/fake_sensor_driver.h"

namespace host::sensorscx::testing {
namespace {

class PropVariantTest : public LedgerTest {};

enum class To { UInt16, UInt32, Int64, Boolean, FileTime };

// The converted value widened to 64 bits; outputs start as 7 so a failure must clear them.
std::pair<HRESULT, LONGLONG> Convert(const PROPVARIANT& v, To to)
{
    switch (to) {
    case To::UInt16: {
        USHORT out = 7;
        return {PropVariantToUInt16(v, &out), out};
    }
    case To::UInt32: {
        ULONG out = 7;
        return {PropVariantToUInt32(v, &out), out};
    }
    case To::Int64: {
        LONGLONG out = 7;
        return {PropVariantToInt64(v, &out), out};
    }
    case To::Boolean: {
        BOOL out = 7;
        return {PropVariantToBoolean(v, &out), out};
    }
    case To::FileTime: {
        FILETIME out{7, 7};
        const HRESULT hr = PropVariantToFileTime(v, PSTF_UTC, &out);
        return {hr, static_cast<LONGLONG>((ULONGLONG{out.dwHighDateTime} << 32) | out.dwLowDateTime)};
    }
    }
    return {E_FAIL, 0};
}

PROPVARIANT I4(LONG v)
{
    PROPVARIANT p = Of(VT_I4);
    p.lVal = v;
    return p;
}
PROPVARIANT I8(LONGLONG v)
{
    PROPVARIANT p = Of(VT_I8);
    p.hVal = v;
    return p;
}
PROPVARIANT Ui8(ULONGLONG v)
{
    PROPVARIANT p = Of(VT_UI8);
    p.uhVal = v;
    return p;
}
PROPVARIANT R8(double v)
{
    PROPVARIANT p = Of(VT_R8);
    p.dblVal = v;
    return p;
}
PROPVARIANT Bool(VARIANT_BOOL v)
{
    PROPVARIANT p = Of(VT_BOOL);
    p.boolVal = v;
    return p;
}

TEST_F(PropVariantTest, ConversionRules)
{
    constexpr LONGLONG kMax64 = std::numeric_limits<LONGLONG>::max();
    constexpr LONGLONG kMin64 = std::numeric_limits<LONGLONG>::min();
    const HRESULT overflow = HRESULT_ARITHMETIC_OVERFLOW;
    struct Case {
        const char* what;
        PROPVARIANT value;
        To to;
        HRESULT hr;
        LONGLONG out;
    };
    Case cases[] = {
        {"u16 fits", Ui4(65535), To::UInt16, S_OK, 65535},
        {"u16 too wide", Ui4(65536), To::UInt16, overflow, 0},
        {"u16 negative", I4(-1), To::UInt16, overflow, 0},
        {"empty u32", Of(VT_EMPTY), To::UInt32, E_INVALIDARG, 0},
        {"null i64", Of(VT_NULL), To::Int64, E_INVALIDARG, 0},
        {"empty bool", Of(VT_EMPTY), To::Boolean, E_INVALIDARG, 0},
        {"null filetime", Of(VT_NULL), To::FileTime, E_INVALIDARG, 0},
        {"u64 past i64", Ui8(static_cast<ULONGLONG>(kMax64) + 1), To::Int64, overflow, 0},
        {"u64 at i64 max", Ui8(kMax64), To::Int64, S_OK, kMax64},
        {"i64 min", I8(kMin64), To::Int64, S_OK, kMin64},
        {"u64 past u32", Ui8(0x100000000ull), To::UInt32, overflow, 0},
        {"u16 widens", Ui2(513), To::UInt32, S_OK, 513},
        {"2.5 to even", R4(2.5f), To::UInt32, S_OK, 2},
        {"3.5 to even", R4(3.5f), To::UInt32, S_OK, 4},
        {"-0.4 rounds to 0", R4(-0.4f), To::UInt32, S_OK, 0},
        {"-1.0", R4(-1.0f), To::UInt32, overflow, 0},
        {"r8 u32 max", R8(4294967295.0), To::UInt32, S_OK, 4294967295},
        {"r8 past u32", R8(4294967296.0), To::UInt32, overflow, 0},
        {"NaN", R8(std::numeric_limits<double>::quiet_NaN()), To::UInt32, overflow, 0},
        {"2^63", R8(9223372036854775808.0), To::Int64, overflow, 0},
        {"VARIANT_TRUE is 1", Bool(VARIANT_TRUE), To::UInt32, S_OK, 1},
        {"VARIANT_TRUE bool", Bool(VARIANT_TRUE), To::Boolean, S_OK, 1},
        {"nonzero bool", Ui4(5), To::Boolean, S_OK, 1},
        {"\"TRUE\"", Str(u"TRUE"), To::Boolean, S_OK, 1},
        {"\"-12\" i64", Str(u"-12"), To::Int64, S_OK, -12},
        {"\"-12\" u32", Str(u"-12"), To::UInt32, overflow, 0},
        {"\"12a\" u32", Str(u"12a"), To::UInt32, TYPE_E_TYPEMISMATCH, 0},
        {"\"12a\" bool", Str(u"12a"), To::Boolean, TYPE_E_TYPEMISMATCH, 0},
        {"filetime", FileTime(0x0123456789ABCDEFull), To::FileTime, S_OK, 0x0123456789ABCDEF},
        {"u4 to filetime", Ui4(1), To::FileTime, TYPE_E_TYPEMISMATCH, 0},
        {"filetime to u32", FileTime(1), To::UInt32, TYPE_E_TYPEMISMATCH, 0},
    };
    for (const Case& c : cases) {
        const auto [hr, out] = Convert(c.value, c.to);
        EXPECT_EQ(hr, c.hr) << c.what;
        EXPECT_EQ(out, c.out) << c.what;
    }
    for (Case& c : cases)
        PropVariantClear(&c.value);

    PROPVARIANT v = FileTime(1);
    FILETIME ft{};
    EXPECT_EQ(PropVariantToFileTime(v, PSTF_LOCAL, &ft), S_OK);
    EXPECT_EQ(PropVariantToFileTime(v, 7, &ft), E_INVALIDARG);
    ULONG u32 = 0;
    EXPECT_EQ(PropVariantToUInt32(v, nullptr), E_POINTER);
    EXPECT_EQ(PropVariantToUInt32(Ui4(1), &u32), S_OK);
}

TEST_F(PropVariantTest, InitCopiesClearFreesAndFailuresLeaveEmpty)
{
    char16_t text[] = u"abc";
    PROPVARIANT v{};
    ASSERT_EQ(InitPropVariantFromString(text, &v), S_OK);
    text[0] = u'X';
    EXPECT_EQ(v.vt, VT_LPWSTR);
    EXPECT_EQ(std::u16string(v.pwszVal), u"abc");
    EXPECT_EQ(ResourceLedger::Instance().Live(ResourceKind::CoTaskMem), 1);
    EXPECT_EQ(PropVariantClear(&v), S_OK);
    EXPECT_EQ(v.vt, VT_EMPTY);
    EXPECT_EQ(ResourceLedger::Instance().Live(ResourceKind::CoTaskMem), 0);

    PROPVARIANT clsid = Clsid(kDataFmtid);
    EXPECT_TRUE(IsEqualGUID(*clsid.puuid, kDataFmtid));
    EXPECT_EQ(PropVariantClear(&clsid), S_OK);
    PROPVARIANT blob = Of(VT_BLOB);
    blob.blob = {4, static_cast<BYTE*>(CoTaskMemAlloc(4))};
    EXPECT_EQ(PropVariantClear(&blob), S_OK);
    PROPVARIANT vector = Of(VT_VECTOR | VT_UI4);
    EXPECT_EQ(PropVariantClear(&vector), E_INVALIDARG);
    EXPECT_EQ(vector.vt, VT_VECTOR | VT_UI4);
    EXPECT_EQ(PropVariantClear(nullptr), S_OK);

    v = Ui4(3);
    EXPECT_EQ(InitPropVariantFromString(nullptr, &v), E_INVALIDARG);
    EXPECT_EQ(v.vt, VT_EMPTY);
    FaultInjector::Instance().FailNth(FaultPoint::CoTaskMem, 1, STATUS_NO_MEMORY);
    EXPECT_EQ(InitPropVariantFromString(u"x", &v), E_OUTOFMEMORY);
    EXPECT_EQ(v.vt, VT_EMPTY);
    FaultInjector::Instance().FailNth(FaultPoint::CoTaskMem, 1, STATUS_NO_MEMORY);
    EXPECT_EQ(InitPropVariantFromCLSID(kDataFmtid, &v), E_OUTOFMEMORY);
    EXPECT_EQ(v.vt, VT_EMPTY);
    EXPECT_EQ(InitPropVariantFromFileTime(nullptr, &v), E_INVALIDARG);
    EXPECT_EQ(InitPropVariantFromFloat(1.25f, &v), STATUS_SUCCESS);
    EXPECT_EQ(v.vt, VT_R4);
    EXPECT_EQ(v.fltVal, 1.25f);
    EXPECT_EQ(InitPropVariantFromFloat(1.0f, nullptr), STATUS_INVALID_PARAMETER);
}

}  // namespace
}  // namespace host::sensorscx::testing
