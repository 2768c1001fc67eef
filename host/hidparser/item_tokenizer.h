// Splits a report descriptor into items. Bounds first, then decode: an item's
// size is known from its prefix and checked against the end of the descriptor
// before a data byte is read. No allocation.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "host/hidparser/report_descriptor_parser.h"

namespace host::hid {

enum class ItemType : std::uint8_t { Main = 0, Global = 1, Local = 2, Reserved = 3 };

struct Item {
    std::size_t offset = 0;  // of the prefix byte
    ItemType type = ItemType::Main;
    std::uint8_t tag = 0;    // short items: 0..15; long items: the bLongItemTag
    std::uint8_t size = 0;   // data bytes: 0, 1, 2 or 4 (long items: 0..255)
    bool isLong = false;     // prefix 0xFE
    std::uint32_t data = 0;  // short items: data zero-extended; long items: 0

    // The data sign-extended from its size (0 for size 0).
    std::int32_t Signed() const;
};

class ItemTokenizer {
public:
    explicit ItemTokenizer(std::span<const std::uint8_t> descriptor) : bytes_(descriptor) {}

    enum class Result { Item, End, Error };

    // Decodes the item at the current position and advances past it. Inline:
    // it runs once per item, and the call cost as much as the decoding.
    Result Next(Item& item, ParseError& error)
    {
        const std::size_t offset = position_;
        if (offset == bytes_.size()) return Result::End;
        const std::uint8_t* at = bytes_.data() + offset;
        const std::uint8_t prefix = at[0];
        if (prefix == kLongItemPrefix) return NextLong(item, error);

        constexpr std::uint8_t kSizeBytes[4] = {0, 1, 2, 4};
        const std::uint8_t size = kSizeBytes[prefix & 0x03];
        if (bytes_.size() - offset - 1 < size) return Truncated(offset, prefix, size, error);
        std::uint32_t data = 0;
        switch (size) {
        case 4:
            data = at[1] | (std::uint32_t{at[2]} << 8) | (std::uint32_t{at[3]} << 16) | (std::uint32_t{at[4]} << 24);
            break;
        case 2: data = at[1] | (std::uint32_t{at[2]} << 8); break;
        case 1: data = at[1]; break;
        default: break;
        }
        item.offset = offset;
        item.type = static_cast<ItemType>((prefix >> 2) & 0x03);
        item.tag = static_cast<std::uint8_t>(prefix >> 4);
        item.size = size;
        item.isLong = false;
        item.data = data;
        position_ = offset + 1 + size;
        return Result::Item;
    }

    std::size_t Position() const { return position_; }

private:
    static constexpr std::uint8_t kLongItemPrefix = 0xFE;

    // Out of line: rare, and the error paths build strings.
    Result NextLong(Item& item, ParseError& error);
    Result Truncated(std::size_t offset, std::uint8_t prefix, std::size_t size, ParseError& error) const;

    std::span<const std::uint8_t> bytes_;
    std::size_t position_ = 0;
};

}  // namespace host::hid
