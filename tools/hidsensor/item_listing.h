// `inspect --items`: the descriptor item by item with its byte offset, raw
// bytes and decoded meaning, indented by collection, so that an error's
// "byte offset N" can be followed to its item.
#pragma once

#include <cstdint>
#include <span>
#include <string>

namespace hidsensor {

// Lists every item up to the end or the first one that cannot be split off;
// false then, with the tokenizer's message ("byte offset N: reason") in `error`.
bool ListItems(std::span<const std::uint8_t> descriptor, std::string& out, std::string& error);

}  // namespace hidsensor
