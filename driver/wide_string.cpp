#include "driver/wide_string.h"

namespace {

// Appends characters one at a time, dropping what does not fit; keeps the
// buffer terminated after every step.
class BoundedWriter {
public:
    BoundedWriter(WCHAR* target, std::size_t capacity, std::size_t start) noexcept
        : target_(target), capacity_(capacity), length_(start)
    {
        if (capacity_ != 0)
            target_[length_] = 0;
    }

    void Put(WCHAR c) noexcept
    {
        if (capacity_ == 0 || length_ + 1 >= capacity_)
            return;
        target_[length_++] = c;
        target_[length_] = 0;
    }

    void PutString(PCWSTR text) noexcept
    {
        if (text == nullptr)
            return;
        for (; *text != 0 && length_ + 1 < capacity_; ++text)
            Put(*text);
    }

    // Digits of `value` in `base`, left-padded with `pad` to `width`.
    void PutNumber(std::uint64_t value, unsigned base, bool upper, bool negative, std::size_t width,
                   WCHAR pad) noexcept
    {
        WCHAR digits[24];
        std::size_t count = 0;
        const char* alphabet = upper ? "0123456789ABCDEF" : "0123456789abcdef";
        do {
            digits[count++] = static_cast<WCHAR>(alphabet[value % base]);
            value /= base;
        } while (value != 0);
        std::size_t used = count + (negative ? 1 : 0);
        if (negative && pad == u'0')
            Put(u'-');
        for (; used < width; ++used)
            Put(pad);
        if (negative && pad != u'0')
            Put(u'-');
        while (count != 0)
            Put(digits[--count]);
    }

private:
    WCHAR* target_;
    std::size_t capacity_;
    std::size_t length_;
};

}  // namespace

std::size_t WideLength(PCWSTR text, std::size_t maxChars) noexcept
{
    if (text == nullptr)
        return 0;
    std::size_t length = 0;
    while (length < maxChars && text[length] != 0)
        ++length;
    return length;
}

void WideCopy(WCHAR* target, std::size_t capacity, PCWSTR source) noexcept
{
    if (target == nullptr || capacity == 0)
        return;
    BoundedWriter writer(target, capacity, 0);
    writer.PutString(source);
}

void WideAppend(WCHAR* target, std::size_t capacity, PCWSTR source) noexcept
{
    if (target == nullptr || capacity == 0)
        return;
    // A buffer that was not terminated is cut at its last character.
    const std::size_t length = WideLength(target, capacity - 1);
    BoundedWriter writer(target, capacity, length);
    writer.PutString(source);
}

bool WideEquals(PCWSTR left, PCWSTR right) noexcept
{
    if (left == nullptr || right == nullptr)
        return left == right;
    for (; *left != 0 && *left == *right; ++left, ++right) {
    }
    return *left == *right;
}

std::int64_t WideFormatArg::AsSigned() const noexcept
{
    switch (kind_) {
    case Kind::Signed:
        return signed_;
    case Kind::Unsigned:
        return static_cast<std::int64_t>(unsigned_);
    case Kind::String:
        break;
    }
    return 0;
}

std::uint64_t WideFormatArg::AsUnsigned() const noexcept
{
    switch (kind_) {
    case Kind::Signed:
        // %X of a negative 32-bit value shows its 32 bits, as the platform does.
        if (signed_ < 0 && signed_ >= INT32_MIN)
            return static_cast<std::uint32_t>(signed_);
        return static_cast<std::uint64_t>(signed_);
    case Kind::Unsigned:
        return unsigned_;
    case Kind::String:
        break;
    }
    return 0;
}

void WideFormat(WCHAR* target, std::size_t capacity, PCWSTR format,
                std::initializer_list<WideFormatArg> args) noexcept
{
    if (target == nullptr || capacity == 0)
        return;
    BoundedWriter writer(target, capacity, 0);
    if (format == nullptr)
        return;

    const WideFormatArg* next = args.begin();
    auto take = [&]() -> const WideFormatArg* { return next != args.end() ? next++ : nullptr; };

    for (PCWSTR p = format; *p != 0; ++p) {
        if (*p != u'%') {
            writer.Put(*p);
            continue;
        }
        PCWSTR directive = p;
        ++p;
        if (*p == u'%') {
            writer.Put(u'%');
            continue;
        }
        WCHAR pad = u' ';
        if (*p == u'0') {
            pad = u'0';
            ++p;
        }
        std::size_t width = 0;
        while (*p >= u'0' && *p <= u'9' && width < 64) {
            width = width * 10 + static_cast<std::size_t>(*p - u'0');
            ++p;
        }
        const WideFormatArg* arg = nullptr;
        switch (*p) {
        case u's':
            arg = take();
            if (arg != nullptr && arg->IsString())
                writer.PutString(arg->Text());
            break;
        case u'i':
        case u'd':
            arg = take();
            if (arg != nullptr && !arg->IsString()) {
                const std::int64_t value = arg->AsSigned();
                const bool negative = value < 0;
                const std::uint64_t magnitude =
                    negative ? 0 - static_cast<std::uint64_t>(value) : static_cast<std::uint64_t>(value);
                writer.PutNumber(magnitude, 10, false, negative, width, pad);
            }
            break;
        case u'u':
            arg = take();
            if (arg != nullptr && !arg->IsString())
                writer.PutNumber(arg->AsUnsigned(), 10, false, false, width, pad);
            break;
        case u'X':
        case u'x':
            arg = take();
            if (arg != nullptr && !arg->IsString())
                writer.PutNumber(arg->AsUnsigned(), 16, *p == u'X', false, width, pad);
            break;
        default:
            // Not a directive we know: copy it as text, up to where we stopped.
            for (PCWSTR q = directive; q != p; ++q)
                writer.Put(*q);
            if (*p == 0)
                return;
            writer.Put(*p);
            break;
        }
    }
}
