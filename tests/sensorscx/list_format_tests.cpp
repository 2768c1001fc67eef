#include <gtest/gtest.h>

#include <limits>

#include "host/sensorscx/list_format.h"
#include "tests/sensorscx/fake_sensor_driver.h"

namespace host::sensorscx::testing {
namespace {

class ListFormatTest : public LedgerTest {};

PROPVARIANT Of(VARTYPE vt)
{
    PROPVARIANT v{};
    v.vt = vt;
    return v;
}

TEST_F(ListFormatTest, KeysAreUpperCaseBracedGuidAndDecimalPid)
{
    EXPECT_EQ(FormatPropertyKey({kDataFmtid, 131}), "{C458F8A7-4AE8-4777-9607-2E9BDD65110A} 131");
}

TEST_F(ListFormatTest, FloatsUseTheShortestTextThatReadsBack)
{
    EXPECT_EQ(*ValueJson(R4(12.34f)), "12.34");
    EXPECT_EQ(*ValueJson(R4(2.0f)), "2");
    EXPECT_EQ(*ValueJson(R4(0.1f)), "0.1");
    EXPECT_EQ(*ValueJson(R4(-0.0f)), "-0");
    PROPVARIANT d = Of(VT_R8);
    d.dblVal = 0.1;
    EXPECT_EQ(*ValueJson(d), "0.1");
    d.dblVal = 1e300;
    EXPECT_EQ(*ValueJson(d), "1e+300");
    d.dblVal = std::numeric_limits<double>::quiet_NaN();
    EXPECT_EQ(*ValueJson(d), "\"NaN\"");
    d.dblVal = -std::numeric_limits<double>::infinity();
    EXPECT_EQ(*ValueJson(d), "\"-Infinity\"");
}

TEST_F(ListFormatTest, BooleansIntegersAndFileTimes)
{
    PROPVARIANT b = Of(VT_BOOL);
    b.boolVal = VARIANT_TRUE;
    EXPECT_EQ(*ValueJson(b), "true");
    b.boolVal = VARIANT_FALSE;
    EXPECT_EQ(*ValueJson(b), "false");
    b.boolVal = 1;
    EXPECT_EQ(*ValueJson(b), "1");
    PROPVARIANT i8 = Of(VT_I8);
    i8.hVal = -5;
    EXPECT_EQ(*ValueJson(i8), "-5");
    PROPVARIANT u8 = Of(VT_UI8);
    u8.uhVal = 18446744073709551615ull;
    EXPECT_EQ(*ValueJson(u8), "18446744073709551615");
    EXPECT_EQ(*ValueJson(FileTime(0x01DC000012345678ull)), "133982089219692152");
    EXPECT_FALSE(ValueJson(Of(VT_EMPTY)).has_value());
}

TEST_F(ListFormatTest, StringsAreJsonEscapedUtf8)
{
    PROPVARIANT s = Str(u"a\"b\\c\n\x01\u00E9\U0001F600");
    EXPECT_EQ(*ValueJson(s), "\"a\\\"b\\\\c\\n\\u0001\xC3\xA9\xF0\x9F\x98\x80\"");
    PropVariantClear(&s);
    const char16_t lone[] = {0xD800, u'x', 0};
    EXPECT_EQ(JsonQuote(std::u16string_view(lone)), "\"\\uD800x\"");
    PROPVARIANT nullString = Of(VT_LPWSTR);
    EXPECT_EQ(*ValueJson(nullString), "null");
}

TEST_F(ListFormatTest, EntriesAndListsInJsonAndText)
{
    DriverList list(3);
    list.Set(0, 2, Clsid(kPropertyFmtid));
    list.Set(1, 20, Ui4(2));
    list.Set(2, 5, Of(VT_EMPTY));
    EXPECT_EQ(CollectionListJson(*list.get()),
              "[{\"key\":\"{D4247382-969D-4F24-BB14-FB9671870BBF} 2\",\"vt\":\"CLSID\","
              "\"value\":\"{D4247382-969D-4F24-BB14-FB9671870BBF}\"},"
              "{\"key\":\"{D4247382-969D-4F24-BB14-FB9671870BBF} 20\",\"vt\":\"UI4\",\"value\":2},"
              "{\"key\":\"{D4247382-969D-4F24-BB14-FB9671870BBF} 5\",\"vt\":\"EMPTY\"}]");
    EXPECT_EQ(CollectionListText(*list.get()),
              "{D4247382-969D-4F24-BB14-FB9671870BBF} 2 CLSID \"{D4247382-969D-4F24-BB14-FB9671870BBF}\"\n"
              "{D4247382-969D-4F24-BB14-FB9671870BBF} 20 UI4 2\n"
              "{D4247382-969D-4F24-BB14-FB9671870BBF} 5 EMPTY");
    const PROPERTYKEY keys[] = {kTimestampKey, {kDataFmtid, 130}};
    EXPECT_EQ(PropertyListJson(keys, 2),
              "[\"{C458F8A7-4AE8-4777-9607-2E9BDD65110A} 2\",\"{C458F8A7-4AE8-4777-9607-2E9BDD65110A} 130\"]");
}

TEST_F(ListFormatTest, OtherTypesAndStatuses)
{
    EXPECT_EQ(VarTypeName(VT_UI2), "UI2");
    EXPECT_EQ(VarTypeName(VT_VECTOR | VT_UI1), "0x1011");
    BYTE bytes[] = {0x01, 0xAB};
    PROPVARIANT blob = Of(VT_BLOB);
    blob.blob = {2, bytes};
    EXPECT_EQ(*ValueJson(blob), "\"01 AB\"");
    EXPECT_EQ(FormatStatus(STATUS_INVALID_PARAMETER), "0xC000000D");
    EXPECT_EQ(FormatStatus(STATUS_SUCCESS), "0x00000000");
}

}  // namespace
}  // namespace host::sensorscx::testing
