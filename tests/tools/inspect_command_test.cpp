#include "tools/hidsensor/inspect_command.h"

#include <gtest/gtest.h>

#include <fstream>
#include <string>

#include "host/hidparser/report_descriptor_parser.h"
#include "tools/hidsensor/collection_caps.h"

namespace hidsensor {
namespace {

std::string DataFile(const char* name) { return std::string(TEST_DATA_DIR) + "/" + name; }

std::string WriteTemp(const std::string& name, const std::string& contents)
{
    const std::string path = testing::TempDir() + name;
    std::ofstream(path, std::ios::binary) << contents;
    return path;
}

int Inspect(std::vector<std::string> args, std::string& out, std::string& err)
{
    out.clear();
    err.clear();
    return RunInspect(args, out, err);
}

TEST(Inspect, JsonOfCompositeDeviceHasOneEntryPerTopLevelCollection)
{
    std::string out, err;
    ASSERT_EQ(Inspect({"--json", DataFile("hutrr39-col2.hex")}, out, err), 0) << err;
    // Keyboard, sensor collection, mouse.
    EXPECT_NE(out.find("\"index\": 2"), std::string::npos);
    EXPECT_EQ(out.find("\"index\": 3"), std::string::npos);
    EXPECT_NE(out.find("\"UsagePage\": 32"), std::string::npos);
    EXPECT_NE(out.find("\"linkCollectionNodes\""), std::string::npos);
    EXPECT_NE(out.find("\"feature\""), std::string::npos);
}

TEST(Inspect, CollectionOptionPicksOneAndRejectsMissingOnes)
{
    std::string out, err;
    ASSERT_EQ(Inspect({"--json", "--collection", "1", DataFile("hutrr39-col2.hex")}, out, err), 0) << err;
    EXPECT_NE(out.find("\"index\": 1"), std::string::npos);
    EXPECT_EQ(out.find("\"index\": 0"), std::string::npos);

    EXPECT_EQ(Inspect({"--collection", "3", DataFile("hutrr39-col2.hex")}, out, err), 2);
    EXPECT_NE(err.find("no top-level collection 3"), std::string::npos);
    EXPECT_EQ(Inspect({"--collection", "x1", DataFile("hutrr39-col2.hex")}, out, err), 2);
    EXPECT_EQ(Inspect({"--collection"}, out, err), 2);
}

TEST(Inspect, MalformedDescriptorGivesOneLineWithOffsetAndStatus2)
{
    std::string out, err;
    // Collection never closed: the error names the end of the descriptor.
    const std::string path = WriteTemp("unbalanced.hex", "05 20 09 01 A1 01 09 E1 A1 00 C0");
    EXPECT_EQ(Inspect({path}, out, err), 2);
    EXPECT_TRUE(out.empty());
    ASSERT_FALSE(err.empty());
    EXPECT_EQ(err.find('\n'), err.size() - 1) << err;
    EXPECT_NE(err.find("offset"), std::string::npos) << err;
}

TEST(Inspect, AcceptsCommasPrefixesRecorderCapturesAndBinary)
{
    std::string out, err;
    const std::string plain = "05 20 09 E1 A1 01 0A 44 05 15 00 26 FF 00 75 08 95 01 81 02 C0";
    ASSERT_EQ(Inspect({WriteTemp("plain.hex", plain)}, out, err), 0) << err;
    const std::string expected = out;

    ASSERT_EQ(Inspect({WriteTemp("commas.hex", "0x05,0x20, 0x09,0xE1,0xA1,0x01,0x0A,0x44,0x05,0x15,0x00,0x26,0xFF,"
                                               "0x00,0x75,0x08,0x95,0x01,0x81,0x02,0xC0")},
                      out, err),
              0)
        << err;
    EXPECT_EQ(out, expected);

    ASSERT_EQ(Inspect({WriteTemp("capture.txt", "N: test\nR: 21 " + plain + "\nP: 0\n")}, out, err), 0) << err;
    EXPECT_EQ(out, expected);

    const std::string raw = {0x05, 0x20, 0x09, static_cast<char>(0xE1), static_cast<char>(0xA1), 0x01, 0x0A, 0x44,
                             0x05, 0x15, 0x00, 0x26, static_cast<char>(0xFF), 0x00, 0x75, 0x08,
                             static_cast<char>(0x95), 0x01, static_cast<char>(0x81), 0x02, static_cast<char>(0xC0)};
    ASSERT_EQ(Inspect({"--binary", WriteTemp("raw.bin", raw)}, out, err), 0) << err;
    EXPECT_EQ(out, expected);
}

TEST(Inspect, BadArgumentsAndFilesAreErrors)
{
    std::string out, err;
    EXPECT_EQ(Inspect({}, out, err), 2);
    EXPECT_EQ(Inspect({"--frobnicate", "x"}, out, err), 2);
    EXPECT_EQ(Inspect({"/nonexistent/descriptor.hex"}, out, err), 2);
    EXPECT_NE(err.find("cannot open"), std::string::npos);
    EXPECT_EQ(Inspect({WriteTemp("junk.hex", "05 2G")}, out, err), 2);
    EXPECT_FALSE(err.empty());
}

}  // namespace
}  // namespace hidsensor
