#include "tools/hidsensor/descriptor_input.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <string>

#include "tests/tools/tool_test_files.h"

namespace hidsensor {
namespace {

// Every refusal is one line naming the input.
void ExpectOneLine(const std::string& err, const std::string& path, const std::string& reason)
{
    EXPECT_EQ(err.rfind(path + ": ", 0), 0u) << err;
    EXPECT_NE(err.find(reason), std::string::npos) << err;
    EXPECT_EQ(std::count(err.begin(), err.end(), '\n'), 1) << err;
    EXPECT_LT(err.size(), 200u);
}

constexpr DescriptorInputLimits kSmall{1024, 4096};

TEST(DescriptorInput, UnreadableInputsAreRefusedInOneLine)
{
    const std::string dir = testing::TempDir() + "descriptor_input_dir";
    std::filesystem::create_directories(dir);
    const std::string big = WriteTemp("big.bin", std::string(5000, '\x05'));
    const std::string longLine = WriteTemp("long_line.txt", "05 01 " + std::string(5000, '0'));
    const struct {
        std::string path;
        bool binary;
        const char* reason;
    } cases[] = {
        {dir, false, "is a directory"},
        {dir, true, "is a directory"},
        {testing::TempDir() + "no-such-file", false, "cannot open: No such file or directory"},
        {big, true, "longer than 1024 bytes; not a report descriptor"},
        {longLine, false, "line 1 longer than 4096 bytes"},
        // Endless inputs: reading stops at the limit.
        {"/dev/zero", true, "longer than 1024 bytes"},
        {"/dev/zero", false, "line 1 longer than 4096 bytes"},
    };
    for (const auto& c : cases) {
        std::vector<std::uint8_t> descriptor = {1};
        std::string err;
        EXPECT_FALSE(ReadDescriptorInput(c.path, c.binary, descriptor, err, kSmall)) << c.path;
        ExpectOneLine(err, c.path, c.reason);
        EXPECT_TRUE(descriptor.empty());
    }
}

TEST(DescriptorInput, TextIsCappedByItsDescriptorNotByItsLength)
{
    std::string capture = "N: sensor hub\nR: 4 05 20 09 01\n";
    for (int i = 0; i < 2000; ++i) capture += "E: 0.001 4 01 02 03 04\n";
    const std::string path = WriteTemp("capture.txt", capture);
    ASSERT_GT(capture.size(), kSmall.maxDescriptorBytes * 10);
    std::vector<std::uint8_t> descriptor;
    std::string err;
    ASSERT_TRUE(ReadDescriptorInput(path, false, descriptor, err, kSmall)) << err;
    EXPECT_EQ(descriptor, (std::vector<std::uint8_t>{0x05, 0x20, 0x09, 0x01}));

    std::string plain;
    for (int i = 0; i < 600; ++i) plain += "05 20\n";  // 1200 bytes
    const std::string plainPath = WriteTemp("plain.txt", plain);
    EXPECT_FALSE(ReadDescriptorInput(plainPath, false, descriptor, err, kSmall));
    ExpectOneLine(err, plainPath, "descriptor longer than 1024 bytes at line 513, column 1");
}

TEST(DescriptorInput, HostileTokensAndNamesAreShownShortAndEscaped)
{
    std::string line = "05 01 \x1b[2J";
    line += std::string(900000, 'Z');
    line += '\0';
    const std::string path = WriteTemp("hostile.txt", line + "\n");
    std::vector<std::uint8_t> descriptor;
    std::string err;
    ASSERT_FALSE(ReadDescriptorInput(path, false, descriptor, err));
    ExpectOneLine(err, path, "bad token '\\x1b[2JZZZZ");
    EXPECT_EQ(std::count_if(err.begin(), err.end(), [](char c) { return c != '\n' && (c < 0x20 || c == 0x7F); }), 0);

    EXPECT_FALSE(ReadDescriptorInput(testing::TempDir() + "a\x1b" "b", false, descriptor, err));
    EXPECT_NE(err.find("a\\x1bb: cannot open"), std::string::npos) << err;
}

}  // namespace
}  // namespace hidsensor
