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
    WideAppend(buffer, u"xyz");
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
        {u"%04X:", {static_cast<unsigned short>(0xABCDu)}, u"ABCD:"},
        {u"%04X:", {0x12345u}, u"12345:"},
        {u"#%s-%i", {u"0100:SN1", 2u}, u"#0100:SN1-2"},  // the instance suffix
        {u"%s-%i", {u"HID Sensor Collection V2: Other", -3}, u"HID Sensor Collection V2: Other--3"},
        {u"[%s][%i][%X]", {5, u"text"}, u"[][][]"},  // missing or mismatched arguments
        {u"100%% %q%", {}, u"100% %q%"},
        {u"%s", {static_cast<PCWSTR>(nullptr)}, u""},
        {u"%u %x %X %08X", {4294967295u, 0xBEEFu, 0xBEEFu, static_cast<int>(0xC0000001u)},
         u"4294967295 beef BEEF C0000001"},
        {u"%05i|%5i", {-42, -42}, u"-0042|  -42"},
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

TEST(WideString, LengthAndEquality)
{
    EXPECT_EQ(WideLength(nullptr, 10), 0u);
    EXPECT_EQ(WideLength(u"abcdef", 4), 4u);
    EXPECT_EQ(WideLength(u"ab", 4), 2u);
    EXPECT_TRUE(WideEquals(u"0x232", u"0x232"));
    EXPECT_FALSE(WideEquals(u"0x232", u"0x232 "));
    EXPECT_FALSE(WideEquals(u"0x232", u"0X232"));
    EXPECT_FALSE(WideEquals(u"0x23", u"0x232"));
    EXPECT_FALSE(WideEquals(u"", nullptr));
    EXPECT_TRUE(WideEquals(nullptr, nullptr));
}

}  // namespace
