#include <gtest/gtest.h>

#include <limits>

#include "host/sensorscx/list_format.h"
#include "tests/sensorscx/fake_sensor_driver.h"

namespace host::sensorscx::testing {
namespace {

class ListFormatTest : public LedgerTest {};

TEST_F(ListFormatTest, ValuesInJson)
{
    BYTE bytes[] = {0x01, 0xAB};
    PROPVARIANT blob = Of(VT_BLOB);
    blob.blob = {2, bytes};
    const std::pair<PROPVARIANT, const char*> cases[] = {
        {R4(12.34f), "12.34"},  // floats: the shortest text that reads back
        {R8(std::numeric_limits<double>::quiet_NaN()), "\"NaN\""},
        {R8(-std::numeric_limits<double>::infinity()), "\"-Infinity\""},
        {Value(VT_BOOL, &PROPVARIANT::boolVal, VARIANT_BOOL{1}), "1"},  // neither VARIANT_TRUE nor VARIANT_FALSE
        {Value(VT_UI8, &PROPVARIANT::uhVal, ULONGLONG{18446744073709551615ull}), "18446744073709551615"},
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

}  // namespace
}  // namespace host::sensorscx::testing
