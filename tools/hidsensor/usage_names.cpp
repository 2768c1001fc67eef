#include "tools/hidsensor/usage_names.h"

#include <algorithm>
#include <cstdio>
#include <iterator>

#include "tools/hidsensor/usage_tables.h"

namespace hidsensor {
namespace {

constexpr USAGE kKeyboardPage = 0x07;
constexpr USAGE kButtonPage = 0x09;
constexpr USAGE kSensorPage = 0x20;

const char* Find(std::span<const UsageEntry> table, USAGE usage)
{
    const auto it = std::lower_bound(table.begin(), table.end(), usage,
                                     [](const UsageEntry& entry, USAGE value) { return entry.usage < value; });
    return it != table.end() && it->usage == usage ? it->name : nullptr;
}

std::string Hex(unsigned value, int digits)
{
    char text[16];
    std::snprintf(text, sizeof text, "0x%0*X", digits, value);
    return text;
}

std::string KeyboardPatternName(USAGE usage)
{
    if (usage >= 0x04 && usage <= 0x1D)
        return std::string("Keyboard ") + static_cast<char>('a' + (usage - 0x04));
    if (usage >= 0x1E && usage <= 0x27)
        return std::string("Keyboard ") + static_cast<char>(usage == 0x27 ? '0' : '1' + (usage - 0x1E));
    if (usage >= 0x3A && usage <= 0x45) return "Keyboard F" + std::to_string(usage - 0x3A + 1);
    if (usage >= 0x68 && usage <= 0x73) return "Keyboard F" + std::to_string(usage - 0x68 + 13);
    return {};
}

std::string SensorBaseName(USAGE base)
{
    // Custom Value 1..28 follow Custom Value.
    if (base >= 0x0544 && base <= 0x055F) return "Custom Value " + std::to_string(base - 0x0543);
    const char* name = Find(UsageTable(kSensorPage), base);
    return name != nullptr ? name : "";
}

// The sensor modifiers of the upper nibble, as they read after a data field.
const char* ModifierName(unsigned modifier)
{
    static constexpr const char* kNames[] = {
        nullptr, "Change Sensitivity Absolute", "Maximum", "Minimum", "Accuracy", "Resolution",
        "Threshold High", "Threshold Low", "Calibration Offset", "Calibration Multiplier", "Report Interval",
        "Frequency Max", "Period Max", "Change Sensitivity Range Percent", "Change Sensitivity Relative Percent"};
    return modifier < std::size(kNames) ? kNames[modifier] : nullptr;
}

std::string SensorUsageName(USAGE usage)
{
    const unsigned modifier = usage >> 12;
    const USAGE base = usage & 0x0FFF;
    if (modifier == 0xF) return "Vendor-defined " + Hex(usage, 4);
    if (modifier == 0) return SensorBaseName(usage);
    if (base == 0) {
        const char* name = Find(UsageTable(kSensorPage), usage);
        return name != nullptr ? name : "";
    }
    const std::string baseName = SensorBaseName(base);
    return (baseName.empty() ? Hex(base, 4) : baseName) + " [" + ModifierName(modifier) + "]";
}

}  // namespace

std::string UsagePageName(USAGE page)
{
    if (page >= 0xFF00) return "Vendor-defined " + Hex(page, 4);
    const char* name = Find(UsagePageTable(), page);
    return name != nullptr ? name : "";
}

std::string UsageName(USAGE page, USAGE usage)
{
    if (page >= 0xFF00) return "Vendor-defined " + Hex(usage, 4);
    switch (page) {
    case kSensorPage: return SensorUsageName(usage);
    case kButtonPage: return usage == 0 ? "No Button Pressed" : "Button " + std::to_string(usage);
    case kKeyboardPage: {
        std::string name = KeyboardPatternName(usage);
        if (!name.empty()) return name;
        break;
    }
    default: break;
    }
    const char* name = Find(UsageTable(page), usage);
    return name != nullptr ? name : "";
}

std::string UsageLabel(USAGE page, USAGE usage)
{
    const std::string name = UsageName(page, usage);
    return name.empty() ? Hex(page, 2) + ":" + Hex(usage, 4) : name;
}

const char* CollectionTypeName(unsigned type)
{
    static constexpr const char* names[] = {"Physical", "Application", "Logical", "Report",
                                            "Named Array", "Usage Switch", "Usage Modifier"};
    return type < std::size(names) ? names[type] : (type >= 0x80 ? "Vendor-defined" : "Reserved");
}

}  // namespace hidsensor
