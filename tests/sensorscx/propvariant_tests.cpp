#include <gtest/gtest.h>

#include <limits>

#include "host/common/fault_injection.h"
#include "platform/com.h"
#include "platform/propsys.h"
#include "platform/sensorsutils.h"
#include "tests/sensorscx/fake_sensor_driver.h"

namespace host::sensorscx::testing {
namespace {

class PropVariantTest : public LedgerTest {};

enum class To { UInt16, UInt32, Int64, Boolean, FileTime };

// The converted value widened to 64 bits; outputs start as 7 so a failure must clear them.
template <class T>
std::pair<HRESULT, LONGLONG> Run(HRESULT (*convert)(REFPROPVARIANT, T*), const PROPVARIANT& v)
{
    T out = 7;
    const HRESULT hr = convert(v, &out);
    return {hr, static_cast<LONGLONG>(out)};
}

std::pair<HRESULT, LONGLONG> Convert(const PROPVARIANT& v, To to)
{
    switch (to) {
    case To::UInt16: return Run(PropVariantToUInt16, v);
    case To::UInt32: return Run(PropVariantToUInt32, v);
    case To::Int64: return Run(PropVariantToInt64, v);
    case To::Boolean: return Run(PropVariantToBoolean, v);
    case To::FileTime: break;
    }
    FILETIME out{7, 7};
    const HRESULT hr = PropVariantToFileTime(v, PSTF_UTC, &out);
    return {hr, static_cast<LONGLONG>((ULONGLONG{out.dwHighDateTime} << 32) | out.dwLowDateTime)};
}

TEST_F(PropVariantTest, ConversionRules)
{
    constexpr LONGLONG kMax64 = std::numeric_limits<LONGLONG>::max();
    const HRESULT overflow = HRESULT_ARITHMETIC_OVERFLOW;
    struct Case {
        const char* what;
        PROPVARIANT value;
        To to;
        HRESULT hr;
        LONGLONG out;
    };
    const auto i4 = [](LONG v) { return Value(VT_I4, &PROPVARIANT::lVal, v); };
    const auto ui8 = [](ULONGLONG v) { return Value(VT_UI8, &PROPVARIANT::uhVal, v); };
    Case cases[] = {
        {"u16 fits", Ui4(65535), To::UInt16, S_OK, 65535},
        {"u16 too wide", Ui4(65536), To::UInt16, overflow, 0},
        {"u16 negative", i4(-1), To::UInt16, overflow, 0},
        {"empty u32", Of(VT_EMPTY), To::UInt32, E_INVALIDARG, 0},
        {"u64 past i64", ui8(static_cast<ULONGLONG>(kMax64) + 1), To::Int64, overflow, 0},
        {"2.5 to even", R4(2.5f), To::UInt32, S_OK, 2},
        {"3.5 to even", R4(3.5f), To::UInt32, S_OK, 4},
        {"-0.4 rounds to 0", R4(-0.4f), To::UInt32, S_OK, 0},
        {"-1.0", R4(-1.0f), To::UInt32, overflow, 0},
        {"r8 past u32", R8(4294967296.0), To::UInt32, overflow, 0},
        {"NaN", R8(std::numeric_limits<double>::quiet_NaN()), To::UInt32, overflow, 0},
        {"VARIANT_TRUE is 1", Value(VT_BOOL, &PROPVARIANT::boolVal, VARIANT_TRUE), To::UInt32, S_OK, 1},
        {"nonzero bool", Ui4(5), To::Boolean, S_OK, 1},
        {"\"TRUE\"", Str(u"TRUE"), To::Boolean, S_OK, 1},
        {"\"-12\" i64", Str(u"-12"), To::Int64, S_OK, -12},
        {"\"-12\" u32", Str(u"-12"), To::UInt32, overflow, 0},
        {"\"12a\" u32", Str(u"12a"), To::UInt32, TYPE_E_TYPEMISMATCH, 0},
        {"filetime", FileTime(0x0123456789ABCDEFull), To::FileTime, S_OK, 0x0123456789ABCDEF},
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
    EXPECT_EQ(PropVariantToFileTime(v, 7, &ft), E_INVALIDARG);
    EXPECT_EQ(PropVariantToUInt32(v, nullptr), E_POINTER);
}

TEST_F(PropVariantTest, InitCopiesClearFreesAndFailuresLeaveEmpty)
{
    char16_t text[] = u"abc";
    PROPVARIANT v{};
    ASSERT_EQ(InitPropVariantFromString(text, &v), S_OK);
    text[0] = u'X';
    EXPECT_EQ(std::u16string(v.pwszVal), u"abc");
    EXPECT_EQ(PropVariantClear(&v), S_OK);

    PROPVARIANT blob = Of(VT_BLOB);  // the ledger sees it freed
    blob.blob = {4, static_cast<BYTE*>(CoTaskMemAlloc(4))};
    EXPECT_EQ(PropVariantClear(&blob), S_OK);
    PROPVARIANT vector = Of(VT_VECTOR | VT_UI4);
    EXPECT_EQ(PropVariantClear(&vector), E_INVALIDARG);
    EXPECT_EQ(vector.vt, VT_VECTOR | VT_UI4);

    v = Ui4(3);
    EXPECT_EQ(InitPropVariantFromString(nullptr, &v), E_INVALIDARG);
    EXPECT_EQ(v.vt, VT_EMPTY);
    FaultInjector::Instance().FailNth(FaultPoint::CoTaskMem, 1, STATUS_NO_MEMORY);
    EXPECT_EQ(InitPropVariantFromString(u"x", &v), E_OUTOFMEMORY);
    EXPECT_EQ(v.vt, VT_EMPTY);
}

}  // namespace
}  // namespace host::sensorscx::testing
