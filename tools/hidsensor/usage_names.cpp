#include "tools/hidsensor/usage_names.h"

#include <cstdio>
#include <iterator>

namespace hidsensor {
namespace {

constexpr USAGE kSensorPage = 0x20;

struct Named {
    USAGE usage;
    const char* name;
};

constexpr Named kSensorUsages[] = {
    {0x0001, "Sensor"},
    {0x0073, "Motion: Accelerometer 3D"},
    {0x0076, "Motion: Gyrometer 3D"},
    {0x0083, "Orientation: Compass 3D"},
    {0x0086, "Orientation: Inclinometer 3D"},
    {0x008A, "Orientation: Device Orientation"},
    {0x0041, "Light: Ambient Light"},
    {0x0011, "Biometric: Human Presence"},
    {0x00E1, "Other: Custom"},
    {0x0201, "Sensor State"},
    {0x0202, "Sensor Event"},
    {0x0301, "Friendly Name"},
    {0x0302, "Persistent Unique ID"},
    {0x0303, "Sensor Status"},
    {0x0304, "Minimum Report Interval"},
    {0x0305, "Sensor Manufacturer"},
    {0x0306, "Sensor Model"},
    {0x0307, "Sensor Serial Number"},
    {0x0308, "Sensor Description"},
    {0x0309, "Sensor Connection Type"},
    {0x030A, "Sensor Device Path"},
    {0x030E, "Report Interval"},
    {0x030F, "Change Sensitivity Absolute"},
    {0x0316, "Reporting State"},
    {0x0319, "Power State"},
    {0x031B, "Report Latency"},
    {0x0541, "Custom Usage"},
    {0x0542, "Custom Boolean Array"},
    {0x0543, "Custom Value"},
};

const char* ModifierName(unsigned modifier)
{
    switch (modifier) {
    case 0x1: return "change sensitivity absolute";
    case 0x2: return "maximum";
    case 0x3: return "minimum";
    case 0x4: return "accuracy";
    case 0x5: return "resolution";
    case 0x6: return "threshold high";
    case 0x7: return "threshold low";
    case 0x8: return "calibration offset";
    case 0x9: return "calibration multiplier";
    case 0xA: return "report interval";
    case 0xB: return "frequency max";
    case 0xC: return "period max";
    case 0xD: return "change sensitivity range percent";
    case 0xE: return "change sensitivity relative percent";
    default: return nullptr;
    }
}

std::string BaseSensorUsageName(USAGE base)
{
    if (base >= 0x0544 && base <= 0x055F)
        return "Custom Value " + std::to_string(base - 0x0543);
    if (base >= 0x0800 && base <= 0x08FF) {
        char text[32];
        std::snprintf(text, sizeof text, "Selector 0x%03X", base);
        return text;
    }
    for (const Named& named : kSensorUsages) {
        if (named.usage == base)
            return named.name;
    }
    return {};
}

}  // namespace

std::string UsagePageName(USAGE page)
{
    switch (page) {
    case 0x01: return "Generic Desktop";
    case 0x07: return "Keyboard";
    case 0x08: return "LED";
    case 0x09: return "Button";
    case 0x0C: return "Consumer";
    case 0x20: return "Sensors";
    default: return page >= 0xFF00 ? "Vendor" : "";
    }
}

std::string UsageName(USAGE page, USAGE usage)
{
    if (page != kSensorPage)
        return {};
    if (usage >= 0xF000)
        return "Vendor";
    const std::string base = BaseSensorUsageName(usage & 0x0FFF);
    const char* modifier = ModifierName(usage >> 12);
    if (base.empty() || (usage >> 12) == 0 || modifier == nullptr)
        return (usage >> 12) == 0 ? base : std::string{};
    return base + " [" + modifier + "]";
}

const char* CollectionTypeName(unsigned type)
{
    static constexpr const char* names[] = {"Physical", "Application", "Logical", "Report",
                                            "Named Array", "Usage Switch", "Usage Modifier"};
    return type < std::size(names) ? names[type] : (type >= 0x80 ? "Vendor" : "Reserved");
}

}  // namespace hidsensor
