#include "tools/hidsensor/item_listing.h"

#include <cstdio>
#include <algorithm>
#include <vector>

#include "host/hidparser/item_tokenizer.h"
#include "tools/hidsensor/item_values.h"
#include "tools/hidsensor/usage_names.h"

namespace hidsensor {
namespace {

using host::hid::Item;
using host::hid::ItemType;

constexpr std::size_t kShownBytes = 5;  // a 4-byte item and its prefix
constexpr std::size_t kBytesColumn = 3 * kShownBytes + 3;

std::string Hex(unsigned value, int digits)
{
    char text[16];
    std::snprintf(text, sizeof text, "0x%0*X", digits, value);
    return text;
}

std::string UsageText(const Item& item, std::uint16_t page)
{
    // A 4-byte usage names its own page.
    const auto usagePage = item.size == 4 ? static_cast<USAGE>(item.data >> 16) : page;
    return UsageLabel(usagePage, static_cast<USAGE>(item.data & 0xFFFF));
}

std::string Describe(const Item& item, std::uint16_t page)
{
    const std::string number = std::to_string(item.data);
    const std::string value = std::to_string(item.Signed());
    switch (item.type) {
    case ItemType::Main:
        switch (item.tag) {
        case 8: return "Input (" + MainItemFlags(item.data, false) + ")";
        case 9: return "Output (" + MainItemFlags(item.data, true) + ")";
        case 11: return "Feature (" + MainItemFlags(item.data, true) + ")";
        case 10: return std::string("Collection (") + CollectionTypeName(item.data) + ")";
        case 12: return "End Collection";
        default: break;
        }
        break;
    case ItemType::Global:
        switch (item.tag) {
        case 0: {
            const std::string name = UsagePageName(static_cast<USAGE>(item.data));
            return "Usage Page (" + (name.empty() ? Hex(item.data, 2) : name) + ")";
        }
        case 1: return "Logical Minimum (" + value + ")";
        case 2: return "Logical Maximum (" + value + ")";
        case 3: return "Physical Minimum (" + value + ")";
        case 4: return "Physical Maximum (" + value + ")";
        case 5: return "Unit Exponent (" + std::to_string(UnitExponent(item.data)) + ")";
        case 6: return "Unit (" + (item.data == 0 ? std::string("None") : UnitName(item.data)) + ")";
        case 7: return "Report Size (" + number + ")";
        case 8: return "Report ID (" + number + ")";
        case 9: return "Report Count (" + number + ")";
        case 10: return "Push";
        case 11: return "Pop";
        default: break;
        }
        break;
    case ItemType::Local:
        switch (item.tag) {
        case 0: return "Usage (" + UsageText(item, page) + ")";
        case 1: return "Usage Minimum (" + UsageText(item, page) + ")";
        case 2: return "Usage Maximum (" + UsageText(item, page) + ")";
        case 3: return "Designator Index (" + number + ")";
        case 4: return "Designator Minimum (" + number + ")";
        case 5: return "Designator Maximum (" + number + ")";
        case 7: return "String Index (" + number + ")";
        case 8: return "String Minimum (" + number + ")";
        case 9: return "String Maximum (" + number + ")";
        case 10: return item.data == 1 ? "Delimiter (Open)" : "Delimiter (Close)";
        default: break;
        }
        break;
    default:
        if (item.isLong) return "Long Item (tag " + std::to_string(item.tag) + ", " + std::to_string(item.size) + " bytes)";
        break;
    }
    return "Reserved item (tag " + std::to_string(item.tag) + ")";
}

}  // namespace

bool ListItems(std::span<const std::uint8_t> descriptor, std::string& out, std::string& error)
{
    host::hid::ItemTokenizer tokenizer(descriptor);
    host::hid::ParseError parseError;
    Item item;
    std::uint16_t page = 0;
    std::vector<std::uint16_t> pushedPages;
    std::size_t depth = 0;
    out += "offset  bytes" + std::string(kBytesColumn - 5, ' ') + "item\n";
    for (;;) {
        const auto result = tokenizer.Next(item, parseError);
        if (result == host::hid::ItemTokenizer::Result::End) return true;
        if (result == host::hid::ItemTokenizer::Result::Error) {
            error = "byte offset " + std::to_string(parseError.offset) + ": " + parseError.reason;
            return false;
        }
        const bool endCollection = item.type == ItemType::Main && item.tag == 12;
        if (endCollection && depth > 0) --depth;

        char head[16];
        std::snprintf(head, sizeof head, "%6zu  ", item.offset);
        std::string bytes;
        const std::size_t length = tokenizer.Position() - item.offset;
        for (std::size_t i = 0; i < length && i < kShownBytes; ++i) {
            char hex[4];
            std::snprintf(hex, sizeof hex, "%02x ", descriptor[item.offset + i]);
            bytes += hex;
        }
        if (length > kShownBytes) bytes += "...";
        bytes.resize(kBytesColumn, ' ');
        out += head + bytes + std::string(2 * std::min<std::size_t>(depth, 32), ' ') + Describe(item, page) + "\n";

        if (item.type == ItemType::Main && item.tag == 10) ++depth;
        if (item.type == ItemType::Global) {
            if (item.tag == 0) page = static_cast<std::uint16_t>(item.data);
            if (item.tag == 10 && pushedPages.size() < 64) pushedPages.push_back(page);
            if (item.tag == 11 && !pushedPages.empty()) {
                page = pushedPages.back();
                pushedPages.pop_back();
            }
        }
    }
}

}  // namespace hidsensor
