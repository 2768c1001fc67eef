// Bit fields in a report buffer, HID order: bit 0 is the least significant bit
// of byte 0, and a field's bits run upwards through the following bytes.
// Callers guarantee bitOffset + bitSize <= length * 8 and 1 <= bitSize <= 32;
// wider fields go through CopyBits in pieces.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

namespace host::hid {

static_assert(std::endian::native == std::endian::little, "report bit access assumes a little-endian host");

inline std::uint32_t FieldMask(unsigned bitSize)
{
    return bitSize >= 32 ? 0xFFFFFFFFu : (1u << bitSize) - 1u;
}

// The bytes [first, first + count) as a little-endian number; count <= 8.
inline std::uint64_t LoadTail(const std::uint8_t* bytes, std::size_t count)
{
    std::uint64_t window = 0;
    for (std::size_t i = 0; i < count; ++i) window |= std::uint64_t{bytes[i]} << (8 * i);
    return window;
}

inline std::uint32_t ExtractBits(const std::uint8_t* report, std::size_t length, std::uint32_t bitOffset,
                                 unsigned bitSize)
{
    const std::size_t first = bitOffset >> 3;
    const unsigned shift = bitOffset & 7;
    std::uint64_t window;
    // Up to 5 bytes hold the field; one 8-byte load where the report allows it.
    if (first + 8 <= length)
        std::memcpy(&window, report + first, 8);
    else
        window = LoadTail(report + first, (shift + bitSize + 7) / 8);
    return static_cast<std::uint32_t>(window >> shift) & FieldMask(bitSize);
}

inline void InsertBits(std::uint8_t* report, std::size_t length, std::uint32_t bitOffset, unsigned bitSize,
                       std::uint32_t value)
{
    const std::size_t first = bitOffset >> 3;
    const unsigned shift = bitOffset & 7;
    const std::uint64_t mask = std::uint64_t{FieldMask(bitSize)} << shift;
    const std::uint64_t bits = (std::uint64_t{value} << shift) & mask;
    if (first + 8 <= length) {
        std::uint64_t window;
        std::memcpy(&window, report + first, 8);
        window = (window & ~mask) | bits;
        std::memcpy(report + first, &window, 8);
        return;
    }
    const std::size_t touched = (shift + bitSize + 7) / 8;  // at most 5
    const std::uint64_t window = (LoadTail(report + first, touched) & ~mask) | bits;
    for (std::size_t i = 0; i < touched; ++i) report[first + i] = static_cast<std::uint8_t>(window >> (8 * i));
}

// Copies `bitCount` bits from bit `from` of `source` to bit `to` of
// `target`, in pieces of at most 32 bits; the target's other bits are kept.
// Callers guarantee both runs lie inside their buffers.
inline void CopyBits(const std::uint8_t* source, std::size_t sourceLength, std::uint32_t from, std::uint8_t* target,
                     std::size_t targetLength, std::uint32_t to, std::uint32_t bitCount)
{
    while (bitCount > 0) {
        const unsigned piece = bitCount < 32 ? static_cast<unsigned>(bitCount) : 32u;
        InsertBits(target, targetLength, to, piece, ExtractBits(source, sourceLength, from, piece));
        from += piece;
        to += piece;
        bitCount -= piece;
    }
}

// The raw value as the field's logical range reads it: sign-extended when the
// range reaches below zero.
inline std::int64_t LogicalValue(std::uint32_t raw, unsigned bitSize, std::int32_t logicalMin)
{
    if (logicalMin >= 0) return raw;
    if (bitSize >= 32) return static_cast<std::int32_t>(raw);
    const std::uint32_t sign = 1u << (bitSize - 1);
    return static_cast<std::int64_t>(raw ^ sign) - static_cast<std::int64_t>(sign);
}

}  // namespace host::hid
