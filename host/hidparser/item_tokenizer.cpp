#include "host/hidparser/item_tokenizer.h"

#include <string>

#include "host/hidparser/hex_text.h"

namespace host::hid {

namespace {
constexpr std::uint8_t kLongItemPrefix = 0xFE;
constexpr std::uint8_t kSizeBytes[4] = {0, 1, 2, 4};
}  // namespace

std::int32_t Item::Signed() const
{
    switch (size) {
    case 1: return static_cast<std::int8_t>(data);
    case 2: return static_cast<std::int16_t>(data);
    case 4: return static_cast<std::int32_t>(data);
    default: return 0;
    }
}

ItemTokenizer::Result ItemTokenizer::Next(Item& item, ParseError& error)
{
    const std::size_t remaining = bytes_.size() - position_;
    if (remaining == 0) return Result::End;

    const std::size_t offset = position_;
    const std::uint8_t prefix = bytes_[offset];
    item = Item{};
    item.offset = offset;

    if (prefix == kLongItemPrefix) {
        // bDataSize and bLongItemTag follow the prefix, then the data.
        if (remaining < 3) {
            error = {offset, "truncated long item header"};
            return Result::Error;
        }
        const std::size_t dataSize = bytes_[offset + 1];
        if (remaining - 3 < dataSize) {
            error = {offset, "long item needs " + std::to_string(dataSize) + " data bytes, " +
                                 std::to_string(remaining - 3) + " left"};
            return Result::Error;
        }
        item.type = ItemType::Reserved;
        item.tag = bytes_[offset + 2];
        item.size = static_cast<std::uint8_t>(dataSize);
        item.isLong = true;
        position_ = offset + 3 + dataSize;
        return Result::Item;
    }

    const std::uint8_t size = kSizeBytes[prefix & 0x03];
    if (remaining - 1 < size) {
        error = {offset, "truncated item " + Hex(prefix) + ": needs " + std::to_string(size) + " data bytes, " +
                             std::to_string(remaining - 1) + " left"};
        return Result::Error;
    }
    std::uint32_t data = 0;
    for (std::uint8_t i = 0; i < size; ++i) data |= static_cast<std::uint32_t>(bytes_[offset + 1 + i]) << (8 * i);

    item.type = static_cast<ItemType>((prefix >> 2) & 0x03);
    item.tag = static_cast<std::uint8_t>(prefix >> 4);
    item.size = size;
    item.data = data;
    position_ = offset + 1 + size;
    return Result::Item;
}

}  // namespace host::hid
