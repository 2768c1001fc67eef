#include "host/hidparser/preparsed_layout.h"

#include <bit>
#include <cstring>

namespace host::hid::preparsed {

namespace {

std::uint64_t Step(std::uint64_t lane, const std::uint8_t* at)
{
    constexpr std::uint64_t kPrime = 0x100000001B3ULL;
    std::uint64_t word;
    std::memcpy(&word, at, sizeof word);
    lane = (lane ^ word) * kPrime;
    return lane ^ (lane >> 32);
}

}  // namespace

std::uint64_t BodyChecksum(const std::uint8_t* data, std::size_t size)
{
    // Four lanes over interleaved words, so the multiplies overlap. Each step
    // is invertible for a given word, so a changed word always changes its
    // lane, and lanes are combined so that any one changed lane shows.
    std::uint64_t a = 0xCBF29CE484222325ULL;
    std::uint64_t b = 0x84222325CBF29CE4ULL;
    std::uint64_t c = 0x9E3779B97F4A7C15ULL;
    std::uint64_t d = 0xC2B2AE3D27D4EB4FULL;
    std::size_t i = 0;
    for (; i + 32 <= size; i += 32) {
        a = Step(a, data + i);
        b = Step(b, data + i + 8);
        c = Step(c, data + i + 16);
        d = Step(d, data + i + 24);
    }
    std::uint64_t hash = a ^ std::rotl(b, 16) ^ std::rotl(c, 32) ^ std::rotl(d, 48);
    for (; i < size; ++i) hash = (hash ^ data[i]) * 0x100000001B3ULL;
    return hash ^ (size * 0x9E3779B97F4A7C15ULL);
}

}  // namespace host::hid::preparsed
