#include <gtest/gtest.h>

#include <limits>

#include "host/sensorscx/list_format.h"
#include "tests/sensorscx/fake_sensor_driver.h"

namespace host::sensorscx::testing {
namespace {

class ListFormatTest : public LedgerTest {};

PROPVARIANT R8(double v)
{
    PROPVARIANT p = Of(VT_R8);
    p.dblVal = v;
    return p;
}

TEST_F(ListFormatTest, ValuesInJson)
{
    BYTE bytes[] = {0x01, 0xAB};
    PROPVARIANT blob = Of(VT_BLOB);
    blob.blob = {2, bytes};
    PROPVARIANT b = Of(VT_BOOL), odd = Of(VT_BOOL), i8 = Of(VT_I8), u8 = Of(VT_UI8);
    b.boolVal = VARIANT_TRUE;
    odd.boolVal = 1;
    i8.hVal = -5;
    u8.uhVal = 18446744073709551615ull;
    const std::pair<PROPVARIANT, const char*> cases[] = {
        {R4(12.34f), "12.34"},  // floats: the shortest text that reads back
        {R4(2.0f), "2"},
        {R4(0.1f), "0.1"},
        {R4(-0.0f), "-0"},
        {R8(0.1), "0.1"},
        {R8(1e300), "1e+300"},
        {R8(std::numeric_limits<double>::quiet_NaN()), "\"NaN\""},
        {R8(-std::numeric_limits<double>::infinity()), "\"-Infinity\""},
        {b, "true"},
        {Of(VT_BOOL), "false"},
        {odd, "1"},
        {i8, "-5"},
        {u8, "18446744073709551615"},
        {FileTime(0x01DC000012345678ull), "133982089219692152"},
        {Of(VT_LPWSTR), "null"},
        {blob, "\"01 AB\""},
    };
    for (const auto& [value, json] : cases)
        EXPECT_EQ(ValueJson(value).value_or("(none)"), json);
    EXPECT_FALSE(ValueJson(Of(VT_EMPTY)).has_value());

    PROPVARIANT s = Str(u"a\"b\\c\n\x01\u00E9\U0001F600");
    EXPECT_EQ(*ValueJson(s), "\"a\\\"b\\\\c\\n\\u0001\xC3\xA9\xF0\x9F\x98\x80\"");
    PropVariantClear(&s);
    const char16_t lone[] = {0xD800, u'x', 0};
    EXPECT_EQ(JsonQuote(std::u16string_view(lone)), "\"\\uD800x\"");
}

TEST_F(ListFormatTest, KeysListsTypesAndStatuses)
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
    EXPECT_EQ(VarTypeName(VT_UI2), "UI2");
    EXPECT_EQ(VarTypeName(VT_VECTOR | VT_UI1), "0x1011");
    EXPECT_EQ(FormatStatus(STATUS_INVALID_PARAMETER), "0xC000000D");
    EXPECT_EQ(FormatStatus(STATUS_SUCCESS), "0x00000000");
}

}  // namespace
}  // namespace host::sensorscx::testing
