#include "tools/hidsensor/item_values.h"

#include <cstdio>

namespace hidsensor {

int UnitExponent(std::uint32_t code)
{
    const int nibble = static_cast<int>(code & 0x0F);
    return nibble >= 8 ? nibble - 16 : nibble;
}

std::string UnitName(std::uint32_t unit)
{
    if (unit == 0) return {};
    char hex[16];
    std::snprintf(hex, sizeof hex, "0x%X", static_cast<unsigned>(unit));
    const unsigned system = unit & 0x0F;
    if (system == 0 || system > 4 || (unit >> 28) != 0) return hex;
    // Base units of nibbles 1..6 (length, mass, time, temperature, current,
    // luminous intensity) per system: SI linear, SI rotation, English linear,
    // English rotation.
    static constexpr const char* kBase[4][6] = {
        {"cm", "g", "s", "K", "A", "cd"},
        {"rad", "g", "s", "K", "A", "cd"},
        {"in", "slug", "s", "F", "A", "cd"},
        {"deg", "slug", "s", "F", "A", "cd"},
    };
    std::string numerator;
    std::string denominator;
    for (unsigned nibble = 1; nibble <= 6; ++nibble) {
        int power = static_cast<int>((unit >> (4 * nibble)) & 0x0F);
        if (power == 0) continue;
        if (power >= 8) power -= 16;
        std::string& side = power > 0 ? numerator : denominator;
        if (!side.empty()) side += "*";
        side += kBase[system - 1][nibble - 1];
        const int magnitude = power > 0 ? power : -power;
        if (magnitude != 1) side += "^" + std::to_string(magnitude);
    }
    if (numerator.empty() && denominator.empty()) return hex;  // a system and no unit
    if (numerator.empty()) numerator = "1";
    return denominator.empty() ? numerator : numerator + "/" + denominator;
}

std::string MainItemFlags(std::uint32_t bits, bool volatileApplies)
{
    std::string text = (bits & 0x01) ? "Cnst" : "Data";
    text += (bits & 0x02) ? ",Var" : ",Arr";
    text += (bits & 0x04) ? ",Rel" : ",Abs";
    if (bits & 0x08) text += ",Wrap";
    if (bits & 0x10) text += ",NLin";
    if (bits & 0x20) text += ",NPrf";
    if (bits & 0x40) text += ",Null";
    if (volatileApplies && (bits & 0x80)) text += ",Vol";
    if (bits & 0x100) text += ",Buf";
    return text;
}

}  // namespace hidsensor
