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

    // Decodes the item at the current position and advances past it.
    Result Next(Item& item, ParseError& error);

    std::size_t Position() const { return position_; }

private:
    std::span<const std::uint8_t> bytes_;
    std::size_t position_ = 0;
};

}  // namespace host::hid
