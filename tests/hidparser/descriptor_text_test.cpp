#include "host/hidparser/descriptor_text.h"

#include <gtest/gtest.h>

namespace host::hid {
namespace {

TEST(DescriptorText, AcceptsSeparatorsPrefixesRunsAndHidRecorderCaptures)
{
    const std::pair<const char*, std::vector<std::uint8_t>> cases[] = {
        {"05 20,0x09 0XE1,\n\ta1\r\n01 C0", {0x05, 0x20, 0x09, 0xE1, 0xA1, 0x01, 0xC0}},
        {"052009e1 0x0A4405", {0x05, 0x20, 0x09, 0xE1, 0x0A, 0x44, 0x05}},
        {"  \n ", {}},
        {"# Logitech mouse\nN: Logitech USB Optical Mouse\nI: 3 046d c077\nR: 7 05 01 09 02 a1 01 c0\n"
         "E: 0.000000 4 00 01 00 00\n",
         {0x05, 0x01, 0x09, 0x02, 0xA1, 0x01, 0xC0}},
    };
    for (const auto& [text, expected] : cases) {
        std::vector<std::uint8_t> bytes = {9};
        std::string error;
        ASSERT_TRUE(ParseHexDescriptor(text, bytes, error)) << text << ": " << error;
        EXPECT_EQ(bytes, expected) << text;
    }
}

TEST(DescriptorText, ExplainsWhatIsWrong)
{
    const std::pair<const char*, const char*> cases[] = {  // text, error
        {"05 20 0g", "bad token '0g' at line 1, column 7"},
        {"05 20\n  xyz", "bad token 'xyz' at line 2, column 3"},
        {"05 2", "odd number of hex digits in '2' at line 1, column 4"},
        {"0x5", "odd number of hex digits in '0x5' at line 1, column 1"},
        {"05 0x", "bad token '0x' at line 1, column 4: no hex digits"},
        {"R: 3 05 01", "R: line at line 1 gives 3 bytes but holds 2"},
        {"R: x 05", "bad byte count 'x' at line 1, column 4"},
        {"R:", "R: line without byte count at line 1"},
        {"R: 1 05\nR: 1 06", "more than one R: line (line 2)"},
        {"N: name\nR: 2 05 zz", "bad token 'zz' at line 2, column 9"},
    };
    for (const auto& [text, expected] : cases) {
        std::vector<std::uint8_t> bytes = {1, 2, 3};
        std::string error;
        EXPECT_FALSE(ParseHexDescriptor(text, bytes, error)) << text;
        EXPECT_EQ(error, expected) << text;
        EXPECT_TRUE(bytes.empty()) << text;
    }
}

TEST(DescriptorText, ShowsABadTokenShortAndEscaped)
{
    std::string hostile(900000, 'A');
    hostile[3] = '\x1b';
    hostile[5] = '\0';
    std::vector<std::uint8_t> bytes;
    std::string error;
    ASSERT_FALSE(ParseHexDescriptor("05 20 zz" + hostile, bytes, error));
    EXPECT_EQ(error, "bad token 'zzAAA\\x1bA\\x00AAAAAAAAAAAAAAAA...' at line 1, column 7");
}

TEST(DescriptorText, ReaderRefusesDescriptorsAboveItsLimit)
{
    const std::pair<std::vector<const char*>, const char*> cases[] = {
        {{"05 20 09", "E1"}, "descriptor longer than 3 bytes at line 2, column 1"},
        {{"R: 4 05 20 09 E1"}, "descriptor longer than 3 bytes: R: line at line 1 gives 4"},
        // Plain lines before a capture's R: line do not count.
        {{"E: 0.1 4 00 01 02 03", "R: 3 05 20 09"}, nullptr},
    };
    for (const auto& [lines, expected] : cases) {
        HexDescriptorReader reader(3);
        for (const char* line : lines) reader.AddLine(line);
        // A hex text past the limit is no capture: the reader needs no more.
        EXPECT_EQ(reader.AddLine("05"), expected == nullptr) << lines.front();
        std::vector<std::uint8_t> bytes;
        std::string error;
        EXPECT_EQ(reader.Finish(bytes, error), expected == nullptr) << lines.front();
        EXPECT_EQ(error, expected ? expected : "") << lines.front();
    }
}

}  // namespace
}  // namespace host::hid
