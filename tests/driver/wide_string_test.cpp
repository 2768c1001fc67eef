#include <gtest/gtest.h>

#include <string>

#include "driver/wide_string.h"

namespace {

std::u16string Text(const WCHAR* text) { return std::u16string(text); }

TEST(WideString, CopyTruncatesAndTerminates)
{
    WCHAR small[4];
    WideCopy(small, u"abcdef");
    EXPECT_EQ(Text(small), u"abc");

    WCHAR exact[4];
    WideCopy(exact, u"abc");
    EXPECT_EQ(Text(exact), u"abc");

    WCHAR fromNull[4] = {u'x', u'y', 0, 0};
    WideCopy(fromNull, nullptr);
    EXPECT_EQ(Text(fromNull), u"");
}

TEST(WideString, CopyOfFullLengthSensorStringKeeps251Characters)
{
    std::u16string longText(400, u'M');
    WCHAR buffer[kSensorStringChars];
    WideCopy(buffer, longText.c_str());
    EXPECT_EQ(Text(buffer).size(), kSensorStringChars - 1);
}

TEST(WideString, CapacityZeroWritesNothing)
{
    WCHAR guard[2] = {u'g', u'g'};
    WideCopy(guard, 0, u"abc");
    WideAppend(guard, 0, u"abc");
    WideFormat(guard, 0, u"%s", {u"abc"});
    EXPECT_EQ(guard[0], u'g');
    EXPECT_EQ(guard[1], u'g');
}

TEST(WideString, AppendStopsAtCapacity)
{
    WCHAR buffer[8];
    WideCopy(buffer, u"abc");
    WideAppend(buffer, u"defghij");
    EXPECT_EQ(Text(buffer), u"abcdefg");
    WideAppend(buffer, u"xyz");
    EXPECT_EQ(Text(buffer), u"abcdefg");
}

TEST(WideString, AppendToUnterminatedBufferCutsItsLastCharacter)
{
    WCHAR buffer[4] = {u'a', u'b', u'c', u'd'};
    WideAppend(buffer, u"x");
    EXPECT_EQ(Text(buffer), u"abc");
}

TEST(WideString, FormatDeviceTagAndInstanceSuffix)
{
    WCHAR tag[kSensorStringChars];
    WideFormat(tag, u"%04X:", {static_cast<unsigned short>(0x0100)});
    EXPECT_EQ(Text(tag), u"0100:");
    WideFormat(tag, u"%04X:", {static_cast<unsigned short>(0xABCDu)});
    EXPECT_EQ(Text(tag), u"ABCD:");
    WideFormat(tag, u"%04X:", {0x12345u});
    EXPECT_EQ(Text(tag), u"12345:");

    WCHAR suffix[kSensorStringChars];
    WideFormat(suffix, u"#%s-%i", {u"0100:SN1", 2u});
    EXPECT_EQ(Text(suffix), u"#0100:SN1-2");
    WideFormat(suffix, u"%s-%i", {u"HID Sensor Collection V2: Other", -3});
    EXPECT_EQ(Text(suffix), u"HID Sensor Collection V2: Other--3");
}

TEST(WideString, FormatTruncatesInsideAnArgument)
{
    WCHAR buffer[6];
    WideFormat(buffer, u"%s-%i", {u"abcd", 12});
    EXPECT_EQ(Text(buffer), u"abcd-");
    WideFormat(buffer, u"%i%i", {123, 456});
    EXPECT_EQ(Text(buffer), u"12345");
}

TEST(WideString, FormatWithMissingOrMismatchedArgumentsWritesNothingForThem)
{
    WCHAR buffer[32];
    WideFormat(buffer, u"[%s][%i][%X]", {5, u"text"});
    EXPECT_EQ(Text(buffer), u"[][][]");
    WideFormat(buffer, u"100%% %q%", {});
    EXPECT_EQ(Text(buffer), u"100% %q%");
    WideFormat(buffer, u"%s", {static_cast<PCWSTR>(nullptr)});
    EXPECT_EQ(Text(buffer), u"");
}

TEST(WideString, FormatNumbers)
{
    WCHAR buffer[32];
    WideFormat(buffer, u"%u %x %X %08X", {4294967295u, 0xBEEFu, 0xBEEFu, static_cast<int>(0xC0000001u)});
    EXPECT_EQ(Text(buffer), u"4294967295 beef BEEF C0000001");
    WideFormat(buffer, u"%05i|%5i", {-42, -42});
    EXPECT_EQ(Text(buffer), u"-0042|  -42");
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
