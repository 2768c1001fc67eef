// Report descriptors written as text: hex bytes separated by white space
// and/or commas, each with an optional 0x/0X prefix ("05 20, 0x09 0xE1" or
// "052009E1"), or a hid-recorder capture whose `R:` line gives the byte count
// followed by the bytes ("R: 25 05 01 09 02 ..."); the other lines of a
// capture are ignored.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace host::hid {

// Returns false with a message naming the line, column and token when the text
// holds anything else: a bad token, an odd number of hex digits, an R: line
// whose byte count does not match, or more than one R: line.
bool ParseHexDescriptor(std::string_view text, std::vector<std::uint8_t>& bytes, std::string& error);

}  // namespace host::hid
