// Conversions between a HID field's logical value and the platform's values.
// Every read of a field and every write of one goes through these, always in
// the same order, so input reports, feature reports and write-backs agree:
//
//   read:  raw = HidP_GetUsageValue(...);
//          exponent = caps.UnitsExp; DecodeUnitExponent(exponent);
//          signedValue = SignExtendLogical(caps.LogicalMin, caps.BitSize, raw);
//          ScaleToFloat(caps.LogicalMin, raw, signedValue, exponent)   (or ScaleToInteger)
//   write: exponent = caps.UnitsExp; DecodeUnitExponent(exponent);
//          HidP_SetUsageValue(..., ToLogicalValue(value, exponent, caps.BitSize), ...)
//
// The functions are pure, never fail and are bit-exact on purpose: a field
// counts as signed when its LogicalMin is not zero (a positive minimum too),
// and only 8- and 32-bit fields have rules of their own; every other width is
// treated as 16 bits wide, so a 12-bit field is never negative. Devices and
// the platform depend on these exact results.
#pragma once

#include <cmath>
#include <iterator>

#include "platform/basetypes.h"

class HidSensor;

// The three read helpers below run for every value of every input report, so
// they are inline: a call would cost about as much as their work.

// HID unit-exponent nibble to a power of ten: 0..7 stay, 8..15 become -8..-1,
// codes above 15 become 0, negative inputs stay as they are.
inline void DecodeUnitExponent(LONG& exponent) noexcept
{
    if (exponent < 0 || exponent <= 7)
        return;
    exponent = exponent <= 15 ? exponent - 16 : 0;
}

// The raw field bits as a signed value: unchanged when logicalMin is 0; for 8
// bits bit 7 is the sign, for 32 bits bit 31, for every other width bit 15.
inline LONG SignExtendLogical(LONG logicalMin, ULONG bitSize, ULONG raw) noexcept
{
    if (logicalMin == 0)
        return static_cast<LONG>(raw);
    if (bitSize == 8)
        return static_cast<LONG>((raw & 0x80u) != 0 ? raw - 0x100u : raw);
    if (bitSize == 32)
        return static_cast<LONG>(raw);
    return static_cast<LONG>((raw & 0x8000u) != 0 ? raw - 0x10000u : raw);
}

// (raw if logicalMin is 0, else signedValue) x 10^exponent, where the power is
// rounded to single precision first. Callers round the result to float when
// they store it.
inline double ScaleToFloat(LONG logicalMin, ULONG raw, LONG signedValue, LONG exponent) noexcept
{
    // Every decoded exponent lies in -8..7, so the single-precision powers are
    // a table: the same bits as rounding pow(10.0, exponent) to float (the
    // tests compare all of them), without a pow per value of every report.
    static constexpr float kPowersOfTen[] = {1e-8f, 1e-7f, 1e-6f, 1e-5f, 1e-4f, 1e-3f, 1e-2f, 1e-1f,
                                             1e0f,  1e1f,  1e2f,  1e3f,  1e4f,  1e5f,  1e6f,  1e7f};
    constexpr LONG kLowestTabled = -8;
    const ULONG slot = static_cast<ULONG>(exponent) - static_cast<ULONG>(kLowestTabled);  // wraps: no overflow
    const double factor = slot < std::size(kPowersOfTen) ? kPowersOfTen[slot]
                                                         : static_cast<float>(std::pow(10.0, exponent));
    const double base = logicalMin == 0 ? static_cast<double>(raw) : static_cast<double>(signedValue);
    return base * factor;
}

// (raw if logicalMin is 0, else signedValue) x trunc(10^exponent), in 32-bit
// arithmetic that wraps; a negative exponent gives 0. Used for milliseconds.
ULONG ScaleToInteger(LONG logicalMin, ULONG raw, LONG signedValue, LONG exponent) noexcept;

// The logical value to write for `value`: value x 10^-exponent rounded to the
// nearest integer, halves up (2.5 -> 3, -2.5 -> -2). A value that is not
// positive gets 256 (8 bits) or 65536 (every width but 32) added, so the low
// bitSize bits hold its two's complement; zero gives 256 or 65536 itself,
// whose low bits are 0.
ULONG ToLogicalValue(double value, LONG exponent, ULONG bitSize) noexcept;

// The first value whose flag is exactly 1, else the default.
float ResolveFieldBound(float defaultValue, ULONG present1, float value1, ULONG present2,
                        float value2, ULONG present3, float value3) noexcept;

// Traces a failed HidP_ call: its status class, the report type (0 input,
// 1 output, 2 feature) and the usage page or link collection being read, with
// the sensor's name. Diagnostics only.
void TraceHidStatus(const HidSensor* sensor, NTSTATUS status, ULONG reportType,
                    ULONG usagePageOrLinkCollection) noexcept;
