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

// One descriptor of the input, with what a capture says of its device.
struct InputDescriptor {
    std::string name;  // hid-recorder's N: line, or usbhid-dump's header; "" otherwise
    std::string ids;   // hid-recorder's I: line (bus vendor product); "" otherwise
    std::vector<std::uint8_t> bytes;
};

// Every descriptor of the input, in order. Besides hex text and hid-recorder
// captures, text may carry a UTF-8 byte-order mark, '#', '//' and '/* */'
// comments, C array syntax (`static const uint8_t d[] = { 0x05, ... };`),
// usbhid-dump output (each DESCRIPTOR block a descriptor) and a capture of
// several devices (each "D: n" line starts one). Without `binary`, an input
// whose first byte is a control character other than white space, or a byte
// above 0x7F other than a byte-order mark, is raw bytes (a copy of sysfs
// `report_descriptor`): text never starts so, descriptors usually do (0x05
// Usage Page). NUL does not count: no descriptor starts with it.
bool ReadDescriptorInputs(const std::string& path, bool binary, std::vector<InputDescriptor>& descriptors,
                          std::string& err, const DescriptorInputLimits& limits = {});

// `path` "-" reads standard input. False with one line in `err` ("PATH:
// reason\n") when the input cannot be read or does not hold a descriptor, or
// holds several.
bool ReadDescriptorInput(const std::string& path, bool binary, std::vector<std::uint8_t>& descriptor,
                         std::string& err, const DescriptorInputLimits& limits = {});

// A path as messages show it: control characters escaped (\x1b).
std::string PrintablePath(const std::string& path);

}  // namespace hidsensor
