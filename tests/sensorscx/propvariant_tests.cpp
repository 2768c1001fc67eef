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

PROPVARIANT Of(VARTYPE vt)
{
    PROPVARIANT v{};
    v.vt = vt;
    return v;
}

TEST_F(PropVariantTest, UInt16NarrowsOnlyWhatFits)
{
    USHORT out = 7;
    EXPECT_EQ(PropVariantToUInt16(Ui4(65535), &out), S_OK);
    EXPECT_EQ(out, 65535);
    EXPECT_EQ(PropVariantToUInt16(Ui4(65536), &out), HRESULT_ARITHMETIC_OVERFLOW);
    EXPECT_EQ(out, 0);
    PROPVARIANT negative = Of(VT_I4);
    negative.lVal = -1;
    EXPECT_EQ(PropVariantToUInt16(negative, &out), HRESULT_ARITHMETIC_OVERFLOW);
}

TEST_F(PropVariantTest, EmptyAndNullAreInvalidArguments)
{
    ULONG u32 = 9;
    LONGLONG i64 = 9;
    BOOL b = 1;
    FILETIME ft{1, 1};
    for (VARTYPE vt : {VT_EMPTY, VT_NULL}) {
        EXPECT_EQ(PropVariantToUInt32(Of(vt), &u32), E_INVALIDARG);
        EXPECT_EQ(PropVariantToInt64(Of(vt), &i64), E_INVALIDARG);
        EXPECT_EQ(PropVariantToBoolean(Of(vt), &b), E_INVALIDARG);
        EXPECT_EQ(PropVariantToFileTime(Of(vt), PSTF_UTC, &ft), E_INVALIDARG);
    }
    EXPECT_EQ(u32, 0u);
    EXPECT_EQ(i64, 0);
    EXPECT_EQ(b, 0);
    EXPECT_EQ(ft.dwLowDateTime, 0u);
}

TEST_F(PropVariantTest, IntegersConvertAcrossWidthsWithRangeChecks)
{
    LONGLONG i64 = 0;
    PROPVARIANT big = Of(VT_UI8);
    big.uhVal = static_cast<ULONGLONG>(std::numeric_limits<LONGLONG>::max()) + 1;
    EXPECT_EQ(PropVariantToInt64(big, &i64), HRESULT_ARITHMETIC_OVERFLOW);
    big.uhVal -= 1;
    EXPECT_EQ(PropVariantToInt64(big, &i64), S_OK);
    EXPECT_EQ(i64, std::numeric_limits<LONGLONG>::max());

    PROPVARIANT minimum = Of(VT_I8);
    minimum.hVal = std::numeric_limits<LONGLONG>::min();
    EXPECT_EQ(PropVariantToInt64(minimum, &i64), S_OK);
    EXPECT_EQ(i64, std::numeric_limits<LONGLONG>::min());

    ULONG u32 = 0;
    PROPVARIANT wide = Of(VT_UI8);
    wide.uhVal = 0x100000000ull;
    EXPECT_EQ(PropVariantToUInt32(wide, &u32), HRESULT_ARITHMETIC_OVERFLOW);
    EXPECT_EQ(PropVariantToUInt32(Ui2(513), &u32), S_OK);
    EXPECT_EQ(u32, 513u);
}

TEST_F(PropVariantTest, FloatsRoundToNearestEvenAndRejectNaN)
{
    ULONG u32 = 0;
    EXPECT_EQ(PropVariantToUInt32(R4(2.5f), &u32), S_OK);
    EXPECT_EQ(u32, 2u);
    EXPECT_EQ(PropVariantToUInt32(R4(3.5f), &u32), S_OK);
    EXPECT_EQ(u32, 4u);
    EXPECT_EQ(PropVariantToUInt32(R4(-0.4f), &u32), S_OK);
    EXPECT_EQ(u32, 0u);
    EXPECT_EQ(PropVariantToUInt32(R4(-1.0f), &u32), HRESULT_ARITHMETIC_OVERFLOW);
    PROPVARIANT d = Of(VT_R8);
    d.dblVal = 4294967295.0;
    EXPECT_EQ(PropVariantToUInt32(d, &u32), S_OK);
    EXPECT_EQ(u32, 4294967295u);
    d.dblVal = 4294967296.0;
    EXPECT_EQ(PropVariantToUInt32(d, &u32), HRESULT_ARITHMETIC_OVERFLOW);
    d.dblVal = std::numeric_limits<double>::quiet_NaN();
    EXPECT_EQ(PropVariantToUInt32(d, &u32), HRESULT_ARITHMETIC_OVERFLOW);
    LONGLONG i64 = 0;
    d.dblVal = 9223372036854775808.0;  // 2^63
    EXPECT_EQ(PropVariantToInt64(d, &i64), HRESULT_ARITHMETIC_OVERFLOW);
}

TEST_F(PropVariantTest, BooleansAndStrings)
{
    BOOL b = 0;
    PROPVARIANT vb = Of(VT_BOOL);
    vb.boolVal = VARIANT_TRUE;
    EXPECT_EQ(PropVariantToBoolean(vb, &b), S_OK);
    EXPECT_EQ(b, 1);
    ULONG u32 = 0;
    EXPECT_EQ(PropVariantToUInt32(vb, &u32), S_OK);
    EXPECT_EQ(u32, 1u);  // VARIANT_TRUE counts as 1, not as 0xFFFF
    EXPECT_EQ(PropVariantToBoolean(Ui4(5), &b), S_OK);
    EXPECT_EQ(b, 1);

    PROPVARIANT text = Str(u"TRUE");
    EXPECT_EQ(PropVariantToBoolean(text, &b), S_OK);
    EXPECT_EQ(b, 1);
    PropVariantClear(&text);
    text = Str(u"-12");
    LONGLONG i64 = 0;
    EXPECT_EQ(PropVariantToInt64(text, &i64), S_OK);
    EXPECT_EQ(i64, -12);
    EXPECT_EQ(PropVariantToUInt32(text, &u32), HRESULT_ARITHMETIC_OVERFLOW);
    PropVariantClear(&text);
    text = Str(u"12a");
    EXPECT_EQ(PropVariantToUInt32(text, &u32), TYPE_E_TYPEMISMATCH);
    EXPECT_EQ(PropVariantToBoolean(text, &b), TYPE_E_TYPEMISMATCH);
    PropVariantClear(&text);
}

TEST_F(PropVariantTest, FileTimeOnlyFromFileTime)
{
    FILETIME ft{};
    PROPVARIANT v = FileTime(0x0123456789ABCDEFull);
    EXPECT_EQ(PropVariantToFileTime(v, PSTF_UTC, &ft), S_OK);
    EXPECT_EQ(ft.dwHighDateTime, 0x01234567u);
    EXPECT_EQ(ft.dwLowDateTime, 0x89ABCDEFu);
    EXPECT_EQ(PropVariantToFileTime(v, PSTF_LOCAL, &ft), S_OK);
    EXPECT_EQ(PropVariantToFileTime(v, 7, &ft), E_INVALIDARG);
    EXPECT_EQ(PropVariantToFileTime(Ui4(1), PSTF_UTC, &ft), TYPE_E_TYPEMISMATCH);
    ULONG u32 = 0;
    EXPECT_EQ(PropVariantToUInt32(v, &u32), TYPE_E_TYPEMISMATCH);
    EXPECT_EQ(PropVariantToUInt32(v, nullptr), E_POINTER);
}

TEST_F(PropVariantTest, InitFromStringCopiesAndClearFrees)
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
}

TEST_F(PropVariantTest, InitFailuresLeaveEmpty)
{
    PROPVARIANT v = Ui4(3);
    EXPECT_EQ(InitPropVariantFromString(nullptr, &v), E_INVALIDARG);
    EXPECT_EQ(v.vt, VT_EMPTY);
    FaultInjector::Instance().FailNth(FaultPoint::CoTaskMem, 1, STATUS_NO_MEMORY);
    EXPECT_EQ(InitPropVariantFromString(u"x", &v), E_OUTOFMEMORY);
    EXPECT_EQ(v.vt, VT_EMPTY);
    FaultInjector::Instance().FailNth(FaultPoint::CoTaskMem, 1, STATUS_NO_MEMORY);
    EXPECT_EQ(InitPropVariantFromCLSID(kDataFmtid, &v), E_OUTOFMEMORY);
    EXPECT_EQ(v.vt, VT_EMPTY);
    EXPECT_EQ(InitPropVariantFromFileTime(nullptr, &v), E_INVALIDARG);
}

TEST_F(PropVariantTest, ClearFreesClsidAndBlobAndRefusesUnknownTypes)
{
    PROPVARIANT clsid = Clsid(kDataFmtid);
    EXPECT_TRUE(IsEqualGUID(*clsid.puuid, kDataFmtid));
    EXPECT_EQ(PropVariantClear(&clsid), S_OK);
    PROPVARIANT blob = Of(VT_BLOB);
    blob.blob.cbSize = 4;
    blob.blob.pBlobData = static_cast<BYTE*>(CoTaskMemAlloc(4));
    EXPECT_EQ(PropVariantClear(&blob), S_OK);
    PROPVARIANT vector = Of(VT_VECTOR | VT_UI4);
    EXPECT_EQ(PropVariantClear(&vector), E_INVALIDARG);
    EXPECT_EQ(vector.vt, VT_VECTOR | VT_UI4);
    EXPECT_EQ(PropVariantClear(nullptr), S_OK);
}

TEST_F(PropVariantTest, InitFromFloatIsR4)
{
    PROPVARIANT v = Ui4(1);
    EXPECT_EQ(InitPropVariantFromFloat(1.25f, &v), STATUS_SUCCESS);
    EXPECT_EQ(v.vt, VT_R4);
    EXPECT_EQ(v.fltVal, 1.25f);
    EXPECT_EQ(InitPropVariantFromFloat(1.0f, nullptr), STATUS_INVALID_PARAMETER);
}

}  // namespace
}  // namespace host::sensorscx::testing
