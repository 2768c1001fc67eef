#include <gtest/gtest.h>

#include <string>

#include "driver/wide_string.h"

namespace {

std::u16string Text(const WCHAR* text) { return std::u16string(text); }

TEST(WideString, CopyAndAppendTruncateAndTerminate)
{
    WCHAR small[4], exact[4], fromNull[4] = {u'x', u'y', 0, 0};
    WideCopy(small, u"abcdef");
    WideCopy(exact, u"abc");
    WideCopy(fromNull, nullptr);
    EXPECT_EQ(Text(small) + u"|" + Text(exact) + u"|" + Text(fromNull), u"abc|abc|");
    WCHAR sensorString[kSensorStringChars];
    WideCopy(sensorString, std::u16string(400, u'M').c_str());
    EXPECT_EQ(Text(sensorString).size(), kSensorStringChars - 1);

    WCHAR buffer[8];
    WideCopy(buffer, u"abc");
    WideAppend(buffer, u"defghij");
    EXPECT_EQ(Text(buffer), u"abcdefg");
    WCHAR unterminated[4] = {u'a', u'b', u'c', u'd'};
    WideAppend(unterminated, u"x");  // cuts its last character
    EXPECT_EQ(Text(unterminated), u"abc");

    WCHAR guard[2] = {u'g', u'g'};  // capacity 0 writes nothing
    WideCopy(guard, 0, u"abc");
    WideAppend(guard, 0, u"abc");
    WideFormat(guard, 0, u"%s", {u"abc"});
    EXPECT_EQ(guard[0], u'g');
    EXPECT_EQ(guard[1], u'g');
}

TEST(WideString, Format)
{
    struct Case {
        const char16_t* format;
        std::initializer_list<WideFormatArg> args;
        const char16_t* expected;
    };
    const Case cases[] = {
        {u"%04X:", {static_cast<unsigned short>(0x0100)}, u"0100:"},  // the device tag
        {u"%04X:", {0x12345u}, u"12345:"},
        {u"#%s-%i", {u"0100:SN1", 2u}, u"#0100:SN1-2"},  // the instance suffix
        {u"[%s][%i][%X]", {5, u"text"}, u"[][][]"},  // missing or mismatched arguments
        {u"100%% %q%", {}, u"100% %q%"},
    };
    for (const Case& c : cases) {
        WCHAR buffer[kSensorStringChars];
        WideFormat(buffer, c.format, c.args);
        EXPECT_EQ(Text(buffer), c.expected) << std::string(c.format, c.format + std::char_traits<char16_t>::length(c.format));
    }
    WCHAR six[6];  // truncation inside an argument
    WideFormat(six, u"%s-%i", {u"abcd", 12});
    EXPECT_EQ(Text(six), u"abcd-");
    WideFormat(six, u"%i%i", {123, 456});
    EXPECT_EQ(Text(six), u"12345");
}

}  // namespace
