// The values of descriptor items as a HID engineer reads them: unit codes as
// unit names, exponent codes as powers of ten, main-item bits as words.
#pragma once

#include <cstdint>
#include <string>

namespace hidsensor {

// The signed power of ten of a Unit Exponent item's 4-bit code (0xE: -2).
int UnitExponent(std::uint32_t code);
// "cm/s^2" for 0xE011, "s" for 0x1001; the code in hex ("0x00F0E123") when a
// nibble names no unit (reserved system, vendor nibble). "" for 0.
std::string UnitName(std::uint32_t unit);
// "Data,Var,Abs" plus every bit that differs from the default (Wrap, NLin,
// NPrf, Null, Vol, Buf); `volatileApplies` is false for Input items.
std::string MainItemFlags(std::uint32_t bits, bool volatileApplies);

}  // namespace hidsensor
