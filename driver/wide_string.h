// Bounded UTF-16 strings. Every string of the driver lives in a fixed buffer;
// these helpers never write past the capacity they are given, truncate what
// does not fit and always leave the buffer terminated (capacity 0 excepted).
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>

#include "platform/basetypes.h"

// Sizes of the driver's string buffers, in characters, terminator included.
inline constexpr std::size_t kSensorStringChars = 252;
inline constexpr std::size_t kDeviceStringChars = 260;

// Characters before the terminator, looking at no more than `maxChars`.
// A null string has length 0.
std::size_t WideLength(PCWSTR text, std::size_t maxChars) noexcept;

// Copies `source` (null: empty) into `target`.
void WideCopy(WCHAR* target, std::size_t capacity, PCWSTR source) noexcept;

// Appends `source` (null: nothing) to the terminated string in `target`.
void WideAppend(WCHAR* target, std::size_t capacity, PCWSTR source) noexcept;

// Whole-string, case-sensitive comparison; null equals only null.
bool WideEquals(PCWSTR left, PCWSTR right) noexcept;

// One argument of WideFormat: a number or a UTF-16 string.
class WideFormatArg {
public:
    WideFormatArg(int value) noexcept : kind_(Kind::Signed), signed_(value) {}
    WideFormatArg(long value) noexcept : kind_(Kind::Signed), signed_(value) {}
    WideFormatArg(long long value) noexcept : kind_(Kind::Signed), signed_(value) {}
    WideFormatArg(unsigned value) noexcept : kind_(Kind::Unsigned), unsigned_(value) {}
    WideFormatArg(unsigned long value) noexcept : kind_(Kind::Unsigned), unsigned_(value) {}
    WideFormatArg(unsigned long long value) noexcept : kind_(Kind::Unsigned), unsigned_(value) {}
    WideFormatArg(unsigned short value) noexcept : kind_(Kind::Unsigned), unsigned_(value) {}
    WideFormatArg(unsigned char value) noexcept : kind_(Kind::Unsigned), unsigned_(value) {}
    WideFormatArg(PCWSTR text) noexcept : kind_(Kind::String), text_(text) {}

    bool IsString() const noexcept { return kind_ == Kind::String; }
    PCWSTR Text() const noexcept { return kind_ == Kind::String ? text_ : nullptr; }
    // The number as a signed value (%i) and as its two's complement bits (%u, %X).
    std::int64_t AsSigned() const noexcept;
    std::uint64_t AsUnsigned() const noexcept;

private:
    enum class Kind { Signed, Unsigned, String };
    Kind kind_;
    union {
        std::int64_t signed_;
        std::uint64_t unsigned_;
        PCWSTR text_;
    };
};

// printf-like formatting into `target`. Directives: %s (string), %i and %d
// (signed decimal), %u (unsigned decimal), %X and %x (hexadecimal), each with
// an optional '0' flag and width, and %%. A directive without an argument or
// with one of the other type writes nothing; unknown directives are copied.
void WideFormat(WCHAR* target, std::size_t capacity, PCWSTR format,
                std::initializer_list<WideFormatArg> args) noexcept;

// Array forms: the capacity is the array's.
template <std::size_t N>
void WideCopy(WCHAR (&target)[N], PCWSTR source) noexcept
{
    WideCopy(target, N, source);
}
template <std::size_t N>
void WideAppend(WCHAR (&target)[N], PCWSTR source) noexcept
{
    WideAppend(target, N, source);
}
template <std::size_t N>
void WideFormat(WCHAR (&target)[N], PCWSTR format, std::initializer_list<WideFormatArg> args) noexcept
{
    WideFormat(target, N, format, args);
}
