// Report descriptors written as text: hex bytes separated by white space
// and/or commas, each with an optional 0x/0X prefix ("05 20, 0x09 0xE1" or
// "052009E1"), or a hid-recorder capture whose `R:` line gives the byte count
// followed by the bytes ("R: 25 05 01 09 02 ..."); the other lines of a
// capture are ignored.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace host::hid {

// Returns false with a message naming the line, column and token when the text
// holds anything else: a bad token, an odd number of hex digits, an R: line
// whose byte count does not match, or more than one R: line. Tokens are shown
// cut short, with anything unprintable escaped.
bool ParseHexDescriptor(std::string_view text, std::vector<std::uint8_t>& bytes, std::string& error);

// The same, one line at a time: a capture of any length costs no more memory
// than the descriptor it holds. Descriptors longer than `maxBytes` are refused.
class HexDescriptorReader {
public:
    explicit HexDescriptorReader(std::size_t maxBytes);

    // One line, without its '\n'. False once the text cannot give a
    // descriptor whatever follows (Finish then says why); the caller may stop.
    bool AddLine(std::string_view line);
    // The descriptor, or false with the first error.
    bool Finish(std::vector<std::uint8_t>& bytes, std::string& error);

private:
    std::size_t maxBytes_;
    std::size_t lineNumber_ = 0;
    bool recorder_ = false;  // an R: line was seen: only it counts
    std::vector<std::uint8_t> plainBytes_;
    std::string plainError_;  // first error of the plain reading, reported unless an R: line comes
    bool plainTooLong_ = false;
    std::vector<std::uint8_t> recorderBytes_;
    std::string recorderError_;
};

}  // namespace host::hid
