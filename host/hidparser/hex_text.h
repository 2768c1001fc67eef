// Small formatting helper for error messages.
#pragma once

#include <cstdint>
#include <string>

namespace host::hid {

// "0x0A", "0x0305": upper-case hexadecimal with at least `digits` digits.
inline std::string Hex(std::uint32_t value, int digits = 2)
{
    static constexpr char kDigits[] = "0123456789ABCDEF";
    std::string text;
    do {
        text.insert(text.begin(), kDigits[value & 0xF]);
        value >>= 4;
        --digits;
    } while (value != 0 || digits > 0);
    return "0x" + text;
}

}  // namespace host::hid
