// `hidsensor inspect`: parse a report descriptor and print what the HID parser
// makes of each top-level collection.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace hidsensor {

struct InspectOptions {
    bool json = false;
    bool binary = false;           // the file holds raw bytes, not hex text
    long collection = -1;          // -1: every top-level collection
    bool items = false;            // list the items instead of the collections
    long device = -1;              // of a capture of several devices; -1: all
};

// Exit status: 0 printed, 2 unusable input (one line on `err` naming the byte
// offset and the reason for a descriptor that does not parse). Warnings
// (constructs that parse but are almost certainly mistakes) go to `err`, one
// line each with their byte offset, and leave the status 0.
int InspectDescriptor(const std::vector<std::uint8_t>& descriptor, const InspectOptions& options,
                      const std::string& sourceName, std::string& out, std::string& err);

// Reads a descriptor file (any input descriptor_input.h takes; "-" is standard
// input) and inspects each of its descriptors, or the one options.device picks.
int InspectFile(const std::string& path, const InspectOptions& options, std::string& out, std::string& err);

// `hidsensor inspect ARGS`, through the tool's command line.
int RunInspect(const std::vector<std::string>& args, std::string& out, std::string& err);

}  // namespace hidsensor
