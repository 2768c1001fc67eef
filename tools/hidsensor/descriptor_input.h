// Reads the report descriptor `inspect` is given, from a file or standard
// input, with bounded memory whatever the input: raw bytes stop at the
// descriptor limit, text is read line by line (a hid-recorder capture may be
// far longer than its descriptor) with a limit on the line.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace hidsensor {

struct DescriptorInputLimits {
    std::size_t maxDescriptorBytes = std::size_t{1} << 20;
    // An R: line of a 1 MiB descriptor, or hex written "0x05, " per byte.
    std::size_t maxLineBytes = std::size_t{8} << 20;
};

// `path` "-" reads standard input. False with one line in `err` ("PATH:
// reason\n") when the input cannot be read or does not hold a descriptor.
bool ReadDescriptorInput(const std::string& path, bool binary, std::vector<std::uint8_t>& descriptor,
                         std::string& err, const DescriptorInputLimits& limits = {});

// A path as messages show it: control characters escaped (\x1b).
std::string PrintablePath(const std::string& path);

}  // namespace hidsensor
