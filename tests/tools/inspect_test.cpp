// What inspect shows a HID engineer: usage names, decoded item values, the
// byte layout of every report (checked against the parser's own HidP_ calls),
// the item listing, warnings, the inputs people paste and the errors of bad
// arguments, checked byte for byte against goldens on the real descriptors.
#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>

#include "host/hidparser/report_descriptor_parser.h"
#include "tests/tools/tool_test_files.h"
#include "tools/hidsensor/collection_caps.h"
#include "tools/hidsensor/descriptor_input.h"
#include "tools/hidsensor/inspect_command.h"
#include "tools/hidsensor/item_values.h"
#include "tools/hidsensor/report_layout.h"
#include "tools/hidsensor/usage_names.h"

namespace hidsensor {
namespace {

int Inspect(std::vector<std::string> args, std::string& out, std::string& err)
{
    out.clear();
    err.clear();
    return RunInspect(args, out, err);
}

std::vector<std::string> DataFiles()
{
    std::vector<std::string> files;
    for (const auto& entry : std::filesystem::directory_iterator(TEST_DATA_DIR)) {
        if (entry.path().extension() == ".hex") files.push_back(entry.path().string());
    }
    std::sort(files.begin(), files.end());
    return files;
}

std::vector<std::uint8_t> ReadDescriptor(const std::string& path)
{
    std::vector<std::uint8_t> bytes;
    std::string err;
    EXPECT_TRUE(ReadDescriptorInput(path, false, bytes, err)) << err;
    return bytes;
}

// Names the goldens of the real descriptors do not show.
TEST(UsageNames, NamesComeFromTheTablesAndUnknownOnesAreEmpty)
{
    const struct {
        USAGE page;
        USAGE usage;
        const char* name;
    } cases[] = {
        {0x20, 0x2544, "Custom Value 1 [Maximum]"},
        {0x20, 0x355F, "Custom Value 28 [Minimum]"},
        {0x20, 0x4452, "Acceleration [Accuracy]"},
        {0x20, 0x5452, "Acceleration [Resolution]"},
        {0x20, 0xE433, "Relative Humidity [Change Sensitivity Relative Percent]"},
        {0x20, 0x0FFE, ""},
        {0x07, 0x0004, "Keyboard a"},
        {0x07, 0x0027, "Keyboard 0"},
        {0x07, 0x0045, "Keyboard F12"},
        {0x07, 0x00E1, "LeftShift"},
        {0x08, 0x0002, "Caps Lock"},
        {0x09, 0x0003, "Button 3"},
        {0x0C, 0x00CD, "Play/Pause"},
        {0x0D, 0x0042, "Tip Switch"},
        {0xFF01, 0x0002, "Vendor-defined 0x0002"},
        {0x0F, 0x0001, ""},
    };
    for (const auto& c : cases)
        EXPECT_EQ(UsageName(c.page, c.usage), c.name) << std::hex << c.page << ":" << c.usage;
    EXPECT_EQ(UsageLabel(0x20, 0x0FFE), "0x20:0x0FFE");
    EXPECT_EQ(UsagePageName(0x20), "Sensors");
    EXPECT_EQ(UsagePageName(0xFF00), "Vendor-defined 0xFF00");
    EXPECT_EQ(UsagePageName(0x3F), "");
}

TEST(ItemValues, UnitsExponentsAndFlagsAreDecoded)
{
    const struct {
        std::uint32_t unit;
        const char* name;
    } units[] = {
        {0x0, ""}, {0x1001, "s"}, {0x11, "cm"}, {0xE011, "cm/s^2"}, {0xF011, "cm/s"}, {0x12, "rad"},
        {0xF012, "rad/s"}, {0x14, "deg"}, {0x10001, "K"}, {0x10003, "F"}, {0x101, "g"},
        {0xE121, "cm^2*g/s^2"}, {0x00E1, "1/cm^2"}, {0x1, "0x1"}, {0x5, "0x5"}, {0xF0000011, "0xF0000011"},
    };
    for (const auto& c : units) EXPECT_EQ(UnitName(c.unit), c.name) << std::hex << c.unit;
    EXPECT_EQ(UnitExponent(0x0E), -2);
    EXPECT_EQ(UnitExponent(0xFE), -2);
    EXPECT_EQ(UnitExponent(0x07), 7);
    EXPECT_EQ(UnitExponent(0x08), -8);
    EXPECT_EQ(MainItemFlags(0x02, false), "Data,Var,Abs");
    EXPECT_EQ(MainItemFlags(0x1FE, true), "Data,Var,Rel,Wrap,NLin,NPrf,Null,Vol,Buf");
    EXPECT_EQ(MainItemFlags(0x82, false), "Data,Var,Abs");
}

// The layout's offsets against the parser's own placement: a value set
// through HidP_SetUsageValue must land exactly on the field's bits.
TEST(ReportLayout, OffsetsAgreeWithTheParserOnEveryRealDescriptor)
{
    std::size_t checked = 0;
    for (const std::string& path : DataFiles()) {
        const std::vector<std::uint8_t> descriptor = ReadDescriptor(path);
        std::vector<host::hid::PreparsedBlob> blobs;
        host::hid::ParseError error;
        ASSERT_TRUE(host::hid::ParseReportDescriptor(descriptor, blobs, error)) << path;
        const DescriptorLayout layout = ReadDescriptorLayout(descriptor);
        ASSERT_EQ(layout.collections.size(), blobs.size()) << path;
        for (std::size_t c = 0; c < blobs.size(); ++c) {
            CollectionCaps caps;
            std::string capsError;
            ASSERT_TRUE(ReadCollectionCaps(blobs[c], caps, capsError));
            const USHORT lengths[] = {caps.caps.InputReportByteLength, caps.caps.OutputReportByteLength,
                                      caps.caps.FeatureReportByteLength};
            // Usages seen more than once in a report type cannot be addressed alone.
            std::map<std::pair<std::size_t, std::uint32_t>, int> seen;
            std::size_t longest[3] = {};
            for (const ReportLayout& report : layout.collections[c]) {
                longest[report.type] = std::max<std::size_t>(longest[report.type], report.byteLength);
                for (const LayoutField& field : report.fields)
                    for (const UsageSpan& span : field.usages) ++seen[{report.type, span.first}];
            }
            for (std::size_t t = 0; t < 3; ++t) EXPECT_EQ(longest[t], lengths[t]) << path;
            for (const ReportLayout& report : layout.collections[c]) {
                for (const LayoutField& field : report.fields) {
                    if (!field.Variable() || field.usages.size() != field.reportCount || field.bitSize > 32) continue;
                    for (std::size_t i = 0; i < field.usages.size(); ++i) {
                        const UsageSpan& span = field.usages[i];
                        if (span.first != span.last || seen[{report.type, span.first}] != 1) continue;
                        std::vector<char> buffer(lengths[report.type], 0);
                        buffer[0] = static_cast<char>(report.reportId);
                        const ULONG ones = field.bitSize == 32 ? 0xFFFFFFFFu : (1u << field.bitSize) - 1;
                        auto* data = reinterpret_cast<PHIDP_PREPARSED_DATA>(blobs[c].data());
                        ASSERT_EQ(HidP_SetUsageValue(kReportTypes[report.type], static_cast<USAGE>(span.first >> 16), 0,
                                                     static_cast<USAGE>(span.first & 0xFFFF), ones, data,
                                                     buffer.data(), static_cast<ULONG>(buffer.size())),
                                  HIDP_STATUS_SUCCESS)
                            << path << " usage " << std::hex << span.first;
                        const std::uint32_t first = field.bitOffset + static_cast<std::uint32_t>(i) * field.bitSize;
                        for (std::uint32_t bit = 8; bit < buffer.size() * 8; ++bit) {
                            const bool set = (static_cast<unsigned char>(buffer[bit / 8]) >> (bit % 8)) & 1;
                            ASSERT_EQ(set, bit >= first && bit < first + field.bitSize)
                                << path << " usage " << std::hex << span.first << std::dec << " bit " << bit;
                        }
                        ++checked;
                    }
                }
            }
        }
    }
    EXPECT_GT(checked, 100u);
}

TEST(ReportLayout, PaddingAndSharedReportIdsArePlaced)
{
    // Two top-level collections share input report 1: the second one's field
    // follows the first one's; 4 bits of padding sit between two fields.
    const std::vector<std::uint8_t> descriptor = {
        0x05, 0x20, 0x09, 0x01, 0xA1, 0x01, 0x85, 0x01, 0x0A, 0x44, 0x05, 0x15, 0x00, 0x25, 0x0F, 0x75, 0x04,
        0x95, 0x01, 0x81, 0x02, 0x81, 0x03, 0x75, 0x10, 0x0A, 0x45, 0x05, 0x81, 0x02, 0xC0, 0x09, 0x01, 0xA1,
        0x01, 0x85, 0x01, 0x75, 0x08, 0x0A, 0x46, 0x05, 0x81, 0x02, 0xC0};
    const DescriptorLayout layout = ReadDescriptorLayout(descriptor);
    ASSERT_EQ(layout.collections.size(), 2u);
    ASSERT_EQ(layout.collections[0].size(), 1u);
    const ReportLayout& first = layout.collections[0][0];
    EXPECT_EQ(first.reportId, 1);
    EXPECT_EQ(first.byteLength, 5u);  // ID, 4+4 bits, 16 bits, then the other collection's 8 bits
    ASSERT_EQ(first.fields.size(), 3u);
    EXPECT_EQ(first.fields[0].bitOffset, 8u);
    EXPECT_EQ(first.fields[1].bitOffset, 12u);
    EXPECT_TRUE(first.fields[1].Constant());
    EXPECT_TRUE(first.fields[1].usages.empty());
    EXPECT_EQ(first.fields[2].bitOffset, 16u);
    ASSERT_EQ(layout.collections[1].size(), 1u);
    EXPECT_EQ(layout.collections[1][0].fields[0].bitOffset, 32u);
}

// Whole listings are pinned by the goldens of the real descriptors.
TEST(Inspect, ItemsOfABrokenDescriptorStopAtTheBreakAndNameItsOffset)
{
    std::string out, err;
    ASSERT_EQ(Inspect({"--items", WriteTemp("items_cut.hex", "05 20 09 01 A1 01 26 FF")}, out, err), 2);
    EXPECT_NE(out.find("     4  a1 01             Collection (Application)"), std::string::npos) << out;
    EXPECT_NE(err.find("byte offset 6"), std::string::npos) << err;
}

TEST(Inspect, WarningsFireOnDoubtfulDescriptorsWithoutChangingTheStatus)
{
    const std::string clean = "05 20 09 01 A1 01 0A 44 05 15 00 25 7F 75 08 95 01 81 02 C0";
    const struct {
        const char* name;
        std::string hex;
        const char* warning;  // nullptr: none
    } cases[] = {
        {"clean", clean, nullptr},
        {"min_above_max", "05 20 09 01 A1 01 0A 44 05 15 0A 25 05 75 08 95 01 81 02 C0",
         "byte offset 17: warning: Logical Minimum 10 is above Logical Maximum 5"},
        {"no_page", "09 01 A1 01 09 30 15 00 25 7F 75 08 95 01 81 02 C0", "no Usage Page was given"},
        {"shared_id",
         "05 20 09 01 A1 01 85 01 0A 44 05 15 00 25 7F 75 08 95 01 81 02 C0 "
         "09 01 A1 01 85 01 0A 45 05 81 02 C0",
         "report ID 1 is used by top-level collections 0 and 1"},
        {"physical_top", "05 20 09 01 A1 00 0A 44 05 15 00 25 7F 75 08 95 01 81 02 C0",
         "byte offset 4: warning: top-level collection 0 is a Physical collection"},
        {"count_zero", "05 20 09 01 A1 01 0A 44 05 15 00 25 7F 75 08 95 00 81 02 95 01 81 02 C0",
         "byte offset 17: warning: Input item with Report Count 0"},
        {"carried_unit",
         "05 20 09 01 A1 01 0A 44 05 15 00 25 7F 75 08 95 01 66 01 10 81 02 0A 01 02 81 02 C0",
         "byte offset 25: warning: Unit s set at byte offset 17 is carried over to Sensor State"},
        {"trailing_zeros", clean + " 00 00 00",
         "byte offset 20: warning: 3 zero bytes after the last End Collection, ignored"},
    };
    for (const auto& c : cases) {
        std::string out, err;
        EXPECT_EQ(Inspect({WriteTemp(std::string(c.name) + ".hex", c.hex)}, out, err), 0) << c.name << err;
        EXPECT_FALSE(out.empty()) << c.name;
        if (c.warning == nullptr) {
            EXPECT_EQ(err, "") << c.name;
        } else {
            EXPECT_NE(err.find(c.warning), std::string::npos) << c.name << ": " << err;
        }
    }
}


TEST(Inspect, AcceptsWhatPeoplePaste)
{
    const std::string plain = "05 20 09 E1 A1 01 0A 44 05 15 00 26 FF 00 75 08 95 01 81 02 C0";
    std::string out, err;
    ASSERT_EQ(Inspect({WriteTemp("paste_plain.hex", plain)}, out, err), 0) << err;
    const std::string expected = out;
    const std::string raw = {0x05, 0x20, 0x09, '\xE1', '\xA1', 0x01, 0x0A, 0x44, 0x05, 0x15, 0x00,
                             0x26, '\xFF', 0x00, 0x75, 0x08, '\x95', 0x01, '\x81', 0x02, '\xC0'};
    const struct {
        const char* name;
        std::string contents;
        bool binaryFlag;
    } cases[] = {
        {"raw_without_flag", raw, false},
        {"raw_with_flag", raw, true},
        {"bom", "\xEF\xBB\xBF" + plain + "\n", false},
        {"commas", "0x05,0x20, 0x09,0xE1,0xA1,0x01,0x0A,0x44,0x05,0x15,0x00,0x26,0xFF,0x00,0x75,0x08,0x95,0x01,0x81,"
                   "0x02,0xC0", false},
        {"comments", "# a custom sensor\n05 20 09 E1  // Usage Page, Usage\nA1 01 /* Collection */ 0A 44 05\n"
                     "15 00 26 FF 00 # logical\n75 08 95 01 81 02 C0\n", false},
        {"c_array", "static const uint8_t d[] = {\n  0x05, 0x20, 0x09, 0xE1, 0xA1, 0x01, // head\n"
                    "  0x0A, 0x44, 0x05, 0x15, 0x00, 0x26, 0xFF, 0x00,\n  0x75, 0x08, 0x95, 0x01, 0x81, 0x02, 0xC0\n};\n",
         false},
        {"c_array_brace_below", "const unsigned char d[] =\n{ 0x05, 0x20, 0x09, 0xE1, 0xA1, 0x01, 0x0A, 0x44, 0x05, "
                                "0x15, 0x00, 0x26, 0xFF, 0x00, 0x75, 0x08, 0x95, 0x01, 0x81, 0x02, 0xC0 };\n", false},
        {"recorder", "N: test\nR: 21 " + plain + "\nP: 0\n", false},
        {"usbhid_dump", "001:004:000:DESCRIPTOR         1357510667.911657\n 05 20 09 E1 A1 01 0A 44 05 15 00 26 FF 00 "
                        "75 08\n 95 01 81 02 C0\n\n001:004:000:STREAM             1357510668.000000\n 01 02 03\n", false},
    };
    for (const auto& c : cases) {
        std::vector<std::string> args;
        if (c.binaryFlag) args.push_back("--binary");
        args.push_back(WriteTemp(std::string("paste_") + c.name, c.contents));
        ASSERT_EQ(Inspect(args, out, err), 0) << c.name << err;
        EXPECT_EQ(out, expected) << c.name;
    }
}

TEST(Inspect, BadArgumentsFilesAndDescriptorsAreErrors)
{
    const std::string composite = std::string(TEST_DATA_DIR) + "/hutrr39-col2.hex";
    std::string out, err;
    ASSERT_EQ(Inspect({"--json", "--collection", "1", composite}, out, err), 0) << err;
    EXPECT_NE(out.find("\"index\": 1"), std::string::npos);
    EXPECT_EQ(out.find("\"index\": 0"), std::string::npos);

    const struct {
        std::vector<std::string> args;
        const char* error;  // a part of it
    } cases[] = {
        {{}, ""},
        {{"--frobnicate", "x"}, ""},
        {{"--collection"}, ""},
        {{"--collection", "3", composite}, "no top-level collection 3"},
        {{"--collection", "x1", composite}, ""},
        {{"/nonexistent/descriptor.hex"}, "cannot open"},
        {{WriteTemp("junk.hex", "05 2G")}, ""},
        // A collection never closed: one line naming the offset, nothing on stdout.
        {{WriteTemp("unbalanced.hex", "05 20 09 01 A1 01 09 E1 A1 00 C0")}, "offset"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.args.empty() ? "no arguments" : c.args.front());
        EXPECT_EQ(Inspect(c.args, out, err), 2);
        EXPECT_FALSE(err.empty());
        EXPECT_NE(err.find(c.error), std::string::npos) << err;
    }
    EXPECT_TRUE(out.empty());
    EXPECT_EQ(err.find('\n'), err.size() - 1) << err;
}

TEST(Inspect, CapturesOfSeveralDevicesShowEachOrThePickedOne)
{
    const std::string plain = "05 20 09 E1 A1 01 0A 44 05 15 00 26 FF 00 75 08 95 01 81 02 C0";
    const std::string path = WriteTemp("two_devices.txt",
                                       "D: 0\nR: 21 " + plain + "\nN: Sensor Hub A\nP: usb-0000\nI: 3 1234 5678\n"
                                       "D: 1\nR: 8 05 01 09 02 A1 01 09 01\nN: Broken B\nI: 3 abcd 0001\n"
                                       "D: 2\nR: 21 " + plain + "\nN: Sensor Hub C\nI: 18 04f3 0c00\n"
                                       "D: 0\nE: 0.000001 2 01 02\n");
    std::string out, err;
    // Device 1 has an unbalanced collection: status 2, the others still shown.
    EXPECT_EQ(Inspect({path}, out, err), 2);
    EXPECT_NE(out.find("Device 0: N: Sensor Hub A  I: 3 1234 5678\nCollection 0: Other: Custom"), std::string::npos)
        << out;
    EXPECT_NE(out.find("Device 2: N: Sensor Hub C  I: 18 04f3 0c00\nCollection 0"), std::string::npos) << out;
    EXPECT_NE(err.find("device 1: byte offset"), std::string::npos) << err;

    EXPECT_EQ(Inspect({"--json", path}, out, err), 2);
    const nlohmann::json json = nlohmann::json::parse(out);
    ASSERT_EQ(json.at("devices").size(), 3u);
    EXPECT_EQ(json["devices"][0]["name"], "Sensor Hub A");
    EXPECT_EQ(json["devices"][0]["ids"], "3 1234 5678");
    EXPECT_EQ(json["devices"][0]["collections"][0]["caps"]["UsagePage"], 0x20);
    EXPECT_TRUE(json["devices"][1]["collections"].is_null());
    EXPECT_EQ(json["devices"][2]["device"], 2);

    ASSERT_EQ(Inspect({"--device", "2", path}, out, err), 0) << err;
    EXPECT_EQ(out.find("Device "), std::string::npos);
    std::string single;
    ASSERT_EQ(Inspect({WriteTemp("one_device.hex", plain)}, single, err), 0);
    EXPECT_EQ(out, single);

    EXPECT_EQ(Inspect({"--device", "3", path}, out, err), 2);
    EXPECT_NE(err.find("no device 3 (the input has 3)"), std::string::npos) << err;
}

TEST(Inspect, JsonReportsListPaddingAndOnlyTheUsagesThatTakeElements)
{
    // Report 1: a 4-bit value, 4 bits of padding, then one 8-bit element of a
    // variable field that names the range Custom Value 1..28.
    const std::string path = WriteTemp("json_reports.hex",
                                       "05 20 09 01 A1 01 85 01 0A 44 05 15 00 25 0F 75 04 95 01 81 02 81 03 "
                                       "75 08 1A 44 05 2A 5F 05 81 02 C0");
    std::string out, err;
    ASSERT_EQ(Inspect({"--json", path}, out, err), 0) << err;
    const nlohmann::json reports = nlohmann::json::parse(out)["collections"][0]["reports"];
    const nlohmann::json expected = nlohmann::json::parse(R"([{"type": "input", "reportId": 1, "byteLength": 3,
        "fields": [
          {"bitOffset": 8, "bitSize": 4, "reportCount": 1, "constant": false, "usagePage": 32, "usages": [1348]},
          {"bitOffset": 12, "bitSize": 4, "reportCount": 1, "constant": true, "usagePage": 32, "usages": []},
          {"bitOffset": 16, "bitSize": 8, "reportCount": 1, "constant": false, "usagePage": 32, "usages": [1348]}
        ]}])");
    EXPECT_EQ(reports, expected) << reports.dump(2);
}

TEST(ReportLayout, UsagesTakeTheirOwnPageOrTheOneInForce)
{
    // Usage Page 0xFFFF, then a 4-byte usage naming Sensors:Custom Value 1,
    // then a short usage on page 0xFFFF.
    const std::vector<std::uint8_t> descriptor = {0x06, 0xFF, 0xFF, 0x09, 0x01, 0xA1, 0x01, 0x0B, 0x44, 0x05,
                                                  0x20, 0x00, 0x15, 0x00, 0x25, 0x7F, 0x75, 0x08, 0x95, 0x01,
                                                  0x81, 0x02, 0x09, 0x02, 0x81, 0x02, 0xC0};
    const DescriptorLayout layout = ReadDescriptorLayout(descriptor);
    ASSERT_EQ(layout.collections.size(), 1u);
    ASSERT_EQ(layout.collections[0].size(), 1u);
    const std::vector<LayoutField>& fields = layout.collections[0][0].fields;
    ASSERT_EQ(fields.size(), 2u);
    EXPECT_EQ(fields[0].usagePage, 0x20);
    EXPECT_EQ(fields[0].usages[0].first, 0x00200544u);
    EXPECT_EQ(fields[1].usagePage, 0xFFFF);
    EXPECT_EQ(fields[1].usages[0].first, 0xFFFF0002u);
    EXPECT_TRUE(layout.warnings.empty());
}

// The JSON keys every collection keeps, and report fields that never overlap.
void JsonKeepsItsRules(const std::string& out)
{
    const nlohmann::json json = nlohmann::json::parse(out);
    for (const auto& collection : json.at("collections")) {
        for (const char* key : {"index", "caps", "linkCollectionNodes", "valueCaps", "buttonCaps", "reports"})
            EXPECT_TRUE(collection.contains(key)) << key;
        for (const auto& report : collection.at("reports")) {
            const std::string type = report.at("type");
            EXPECT_TRUE(type == "input" || type == "output" || type == "feature");
            std::uint64_t end = 8;
            for (const auto& field : report.at("fields")) {
                EXPECT_GE(field.at("bitOffset").get<std::uint64_t>(), end);
                end = field.at("bitOffset").get<std::uint64_t>() +
                      field.at("bitSize").get<std::uint64_t>() * field.at("reportCount").get<std::uint64_t>();
                EXPECT_TRUE(field.at("constant").is_boolean());
                EXPECT_TRUE(field.at("usagePage").is_number());
                EXPECT_TRUE(field.at("usages").is_array());
            }
            EXPECT_LE((end + 7) / 8, report.at("byteLength").get<std::uint64_t>());
        }
    }
}

bool StartsWith(const std::string& text, const char* prefix) { return text.rfind(prefix, 0) == 0; }

// Every output on every real descriptor, byte for byte against its golden
// (scripts/update-inspect-goldens.sh rewrites them; read the diff), and the
// rules each output keeps whatever a golden says: readable text lines, the
// JSON keys and non-overlapping fields, no warning but a non-Application
// top-level collection.
TEST(Inspect, EveryOutputOfTheRealDescriptorsMatchesItsGoldenAndKeepsItsRules)
{
    const std::filesystem::path goldens = std::filesystem::path(INSPECT_GOLDEN_DIR);
    std::size_t jsonChecked = 0;
    for (const std::string& path : DataFiles()) {
        SCOPED_TRACE(path);
        const std::string name = std::filesystem::path(path).stem().string();
        const struct {
            const char* option;
            const char* extension;
        } outputs[] = {{nullptr, ".txt"}, {"--items", ".items"}, {"--json", ".json"}};
        for (const auto& output : outputs) {
            SCOPED_TRACE(output.extension);
            std::vector<std::string> args;
            if (output.option != nullptr) args.push_back(output.option);
            args.push_back(path);
            std::string out, err;
            ASSERT_EQ(Inspect(args, out, err), 0) << err;
            std::istringstream errLines(err);
            for (std::string line; std::getline(errLines, line);)
                EXPECT_NE(line.find("not an Application collection"), std::string::npos) << line;

            const auto golden = goldens / (name + output.extension);
            if (std::string(output.extension) == ".json") {
                JsonKeepsItsRules(out);
                if (!std::filesystem::exists(golden)) continue;
                ++jsonChecked;
            }
            ASSERT_TRUE(std::filesystem::exists(golden)) << golden << ": run scripts/update-inspect-goldens.sh";
            EXPECT_EQ(out, ReadText(golden)) << golden;
            if (output.option != nullptr) continue;
            std::istringstream lines(out);
            for (std::string line; std::getline(lines, line);) {
                EXPECT_LE(line.size(), 100u) << line;
                if (StartsWith(line, "Collection ")) continue;  // its header quotes the numbers
                EXPECT_EQ(line.find("0x20:0x"), std::string::npos) << line;
                EXPECT_EQ(line.find("exp 1"), std::string::npos) << line;
            }
            if (out.find("input 0, output 0, feature 0") == std::string::npos) {  // hutrr39-col1 has no fields
                EXPECT_NE(out.find("byte.bit"), std::string::npos);
            }
        }
    }
    EXPECT_GE(jsonChecked, 4u);
}

}  // namespace
}  // namespace hidsensor
