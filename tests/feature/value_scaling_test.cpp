// Value scaling: exact results for the documented cases and a read/write round trip.
#include <gtest/gtest.h>

#include <bit>
#include <cfloat>
#include <cmath>
#include <cstdint>
#include <vector>

#include "feature/value_scaling.h"

namespace {

TEST(DecodeUnitExponent, MapsTheHidNibble)
{
    const struct {
        LONG code, exponent;
    } cases[] = {{0, 0},  {1, 1},   {7, 7},   {8, -8},   {9, -7},  {12, -4}, {13, -3},
                 {14, -2}, {15, -1}, {16, 0}, {255, 0}, {-3, -3}, {-100, -100}};
    for (const auto& c : cases) {
        LONG exponent = c.code;
        DecodeUnitExponent(exponent);
        EXPECT_EQ(exponent, c.exponent) << "code " << c.code;
    }
}

TEST(SignExtendLogical, EightSixteenAndThirtyTwoBitRules)
{
    const struct {
        LONG logicalMin;
        ULONG bitSize, raw;
        LONG expected;
    } cases[] = {
        {-128, 8, 0xFB, -5},
        {-32768, 16, 0xFFFE, -2},
        {1, 8, 200, -56},                // a positive minimum counts as signed
        {0, 8, 200, 200},                // LogicalMin 0: unsigned
        {0, 32, 0xFFFFFFFF, -1},         // ... returned unchanged, as bits
        {-1, 12, 0x0FFF, 4095},          // 12 bits take the 16-bit rule: never negative
        {-1, 24, 0x00FFFF, -1},          // 24 bits lose bit 15's weight only
        {-1, 24, 0x018000, 0x018000 - 0x10000},
        {-1, 32, 0x80000000, INT32_MIN},
        {-1, 16, 0x7FFF, 32767},
        {-1, 8, 0x7F, 127},
    };
    for (const auto& c : cases)
        EXPECT_EQ(SignExtendLogical(c.logicalMin, c.bitSize, c.raw), c.expected)
            << c.logicalMin << " " << c.bitSize << " " << c.raw;
}

TEST(ScaleToFloat, FactorIsRoundedToSinglePrecision)
{
    // 10^-2 as a float, widened: 0.009999999776482582.
    EXPECT_EQ(ScaleToFloat(0, 1234, 1234, -2), 1234 * static_cast<double>(0.01f));
    EXPECT_EQ(ScaleToFloat(0, 1234, 1234, -2), 12.339999724179506);
    EXPECT_EQ(static_cast<float>(ScaleToFloat(0, 1234, 1234, -2)), 12.34f);
    EXPECT_EQ(ScaleToFloat(0, 0xFFFFFFFF, -1, 0), 4294967295.0);
    EXPECT_EQ(ScaleToFloat(-128, 0xFB, -5, 0), -5.0);
    EXPECT_EQ(ScaleToFloat(-128, 0xFB, -5, 1), -50.0);
    EXPECT_EQ(ScaleToFloat(5, 3, 3, 0), 3.0);  // signed value is used when LogicalMin != 0
}

// The factor the scaling is defined by, computed the long way.
double ReferenceScale(LONG logicalMin, ULONG raw, LONG signedValue, LONG exponent)
{
    const double factor = static_cast<float>(std::pow(10.0, exponent));
    return (logicalMin == 0 ? static_cast<double>(raw) : static_cast<double>(signedValue)) * factor;
}

TEST(ScaleToFloat, SameBitsAsRoundingPowForEveryExponent)
{
    std::vector<LONG> exponents;
    for (LONG code = -40; code <= 300; ++code) {  // every unit-exponent code, decoded, and beyond
        LONG exponent = code;
        DecodeUnitExponent(exponent);
        exponents.push_back(exponent);
        exponents.push_back(code);
    }
    for (const LONG extreme : {INT32_MIN, INT32_MIN + 1, INT32_MAX - 8, INT32_MAX, -309, 309})
        exponents.push_back(extreme);
    const struct {
        LONG logicalMin;
        ULONG raw;
        LONG signedValue;
    } values[] = {{0, 0, 0},          {0, 1, 1},       {0, 1234, 1234}, {0, 0xFFFFFFFF, -1},
                  {-128, 0xCE, -50},  {-1, 0x7FFF, 0x7FFF}, {1, 0x80000000u, INT32_MIN}, {0, 0x00FFFFFF, 0x00FFFFFF}};
    for (const LONG exponent : exponents) {
        for (const auto& v : values) {
            const double expected = ReferenceScale(v.logicalMin, v.raw, v.signedValue, exponent);
            const double actual = ScaleToFloat(v.logicalMin, v.raw, v.signedValue, exponent);
            ASSERT_EQ(std::bit_cast<std::uint64_t>(actual), std::bit_cast<std::uint64_t>(expected))
                << "exponent " << exponent << ", raw " << v.raw;
        }
    }
}

TEST(ScaleToInteger, TruncatedFactorAndWrap)
{
    EXPECT_EQ(ScaleToInteger(0, 5, 5, 3), 5000u);
    EXPECT_EQ(ScaleToInteger(0, 5, 5, -3), 0u);
    EXPECT_EQ(ScaleToInteger(0, 96, 96, 0), 96u);
    EXPECT_EQ(ScaleToInteger(-1, 0xFFFF, -1, 0), 0xFFFFFFFFu);
    EXPECT_EQ(ScaleToInteger(0, 0x80000000u, 0, 1), 0u);           // 32-bit wrap
    EXPECT_EQ(ScaleToInteger(0, 3, 3, 7), 30000000u);
    EXPECT_EQ(ScaleToInteger(0, 1, 1, 10), static_cast<ULONG>(10000000000ULL & 0xFFFFFFFF));
    EXPECT_EQ(ScaleToInteger(0, 1, 1, 400), 0u);                   // factor out of range: 0
}

TEST(ToLogicalValue, NearestHalvesUpAndWidthEncoding)
{
    const struct {
        double value;
        LONG exponent;
        ULONG bitSize, expected;
    } cases[] = {
        {2.5, 0, 8, 3},
        {-2.5, 0, 8, 254},
        {-5, 0, 8, 251},
        {0, 0, 8, 256},      // stored as 0
        {0, 0, 16, 65536},   // stored as 0
        {0, 0, 32, 0},
        {12.34, -2, 16, 1234},
        {-1, 0, 16, 65535},
        {-1, 0, 12, 65535},  // every width but 8 and 32 takes the 16-bit rule
        {-1, 0, 32, 4294967295u},
        {0.5, -2, 16, 50},
        {100, 0, 32, 100},
        {1500, 3, 16, 2},    // 1.5 rounds up
        {static_cast<float>(12.34), -2, 16, 1234},
    };
    for (const auto& c : cases)
        EXPECT_EQ(ToLogicalValue(c.value, c.exponent, c.bitSize), c.expected)
            << c.value << " e" << c.exponent << " " << c.bitSize << " bits";
}

TEST(ToLogicalValue, OutOfRangeIsDefined)
{
    // Beyond 32 bits the truncation gives the integer-indefinite value.
    EXPECT_EQ(ToLogicalValue(1e12, 0, 32), 0x80000000u);
    EXPECT_EQ(ToLogicalValue(FLT_MAX, -7, 32), 0x80000000u);
}

TEST(ResolveFieldBound, OnlyAFlagOfExactlyOneCounts)
{
    EXPECT_EQ(ResolveFieldBound(9.0f, 0, 1.0f, 2, 2.0f, 1, 3.0f), 3.0f);
    EXPECT_EQ(ResolveFieldBound(9.0f, 1, 1.0f, 1, 2.0f, 1, 3.0f), 1.0f);
    EXPECT_EQ(ResolveFieldBound(9.0f, 0, 1.0f, 1, 2.0f, 1, 3.0f), 2.0f);
    EXPECT_EQ(ResolveFieldBound(9.0f, 0, 1.0f, 0, 2.0f, 0, 3.0f), 9.0f);
}

// Every value of an 8- or 16-bit field, read and written back under the same
// exponent and width, gives the logical value that was read.
TEST(ValueScalingRoundTrip, EveryEightAndSixteenBitValue)
{
    for (ULONG bitSize : {8u, 16u}) {
        const ULONG count = 1u << bitSize;
        const ULONG mask = count - 1;
        for (LONG logicalMin : {0, -static_cast<LONG>(count / 2)}) {
            for (LONG code = 0; code <= 15; ++code) {
                LONG exponent = code;
                DecodeUnitExponent(exponent);
                for (ULONG raw = 0; raw < count; ++raw) {
                    const LONG signedValue = SignExtendLogical(logicalMin, bitSize, raw);
                    const float stored = static_cast<float>(ScaleToFloat(logicalMin, raw, signedValue, exponent));
                    const ULONG written = ToLogicalValue(stored, exponent, bitSize) & mask;
                    ASSERT_EQ(written, raw) << bitSize << " bits, min " << logicalMin << ", code " << code;
                }
            }
        }
    }
}

}  // namespace
