#include "host/hidparser/preparsed_layout.h"

#include <cstring>

namespace host::hid::preparsed {

std::uint64_t BodyChecksum(const std::uint8_t* data, std::size_t size)
{
    constexpr std::uint64_t kPrime = 0x100000001B3ULL;
    std::uint64_t hash = 0xCBF29CE484222325ULL;
    std::size_t i = 0;
    for (; i + 8 <= size; i += 8) {
        std::uint64_t word;
        std::memcpy(&word, data + i, sizeof word);
        hash = (hash ^ word) * kPrime;
        hash ^= hash >> 32;
    }
    for (; i < size; ++i) hash = (hash ^ data[i]) * kPrime;
    return hash ^ (size * 0x9E3779B97F4A7C15ULL);
}

}  // namespace host::hid::preparsed
