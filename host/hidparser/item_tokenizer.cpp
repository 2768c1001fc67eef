#include "host/hidparser/item_tokenizer.h"

#include <string>

#include "host/hidparser/hex_text.h"

namespace host::hid {

std::int32_t Item::Signed() const
{
    switch (size) {
    case 1: return static_cast<std::int8_t>(data);
    case 2: return static_cast<std::int16_t>(data);
    case 4: return static_cast<std::int32_t>(data);
    default: return 0;
    }
}

ItemTokenizer::Result ItemTokenizer::Truncated(std::size_t offset, std::uint8_t prefix, std::size_t size,
                                               ParseError& error) const
{
    const std::size_t left = bytes_.size() - offset - 1;
    error = {offset, "truncated item " + Hex(prefix) + ": needs " + std::to_string(size) + " data bytes, " +
                         std::to_string(left) + " left"};
    return Result::Error;
}

ItemTokenizer::Result ItemTokenizer::NextLong(Item& item, ParseError& error)
{
    // bDataSize and bLongItemTag follow the prefix, then the data.
    const std::size_t remaining = bytes_.size() - position_;
    const std::size_t offset = position_;
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
    item = Item{};
    item.offset = offset;
    item.type = ItemType::Reserved;
    item.tag = bytes_[offset + 2];
    item.size = static_cast<std::uint8_t>(dataSize);
    item.isLong = true;
    position_ = offset + 3 + dataSize;
    return Result::Item;
}

}  // namespace host::hid
