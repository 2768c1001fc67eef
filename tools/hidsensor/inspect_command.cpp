#include "tools/hidsensor/inspect_command.h"

#include <fstream>
#include <iostream>
#include <iterator>
#include <sstream>

#include "host/hidparser/descriptor_text.h"
#include "host/hidparser/report_descriptor_parser.h"
#include "tools/hidsensor/caps_printer.h"

namespace hidsensor {
namespace {

constexpr std::size_t kMaxDescriptorFileBytes = 1 << 20;

bool ReadFile(const std::string& path, std::string& contents, std::string& err)
{
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        err = path + ": cannot open file\n";
        return false;
    }
    contents.assign(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
    if (file.bad()) {
        err = path + ": read error\n";
        return false;
    }
    if (contents.size() > kMaxDescriptorFileBytes) {
        err = path + ": file larger than 1 MiB; not a report descriptor\n";
        return false;
    }
    return true;
}

}  // namespace

int InspectDescriptor(const std::vector<std::uint8_t>& descriptor, const InspectOptions& options,
                      const std::string& sourceName, std::string& out, std::string& err)
{
    std::vector<host::hid::PreparsedBlob> blobs;
    host::hid::ParseError parseError;
    if (!host::hid::ParseReportDescriptor(descriptor, blobs, parseError)) {
        err = sourceName + ": byte offset " + std::to_string(parseError.offset) + ": " + parseError.reason + "\n";
        return 2;
    }
    if (options.collection >= 0 && static_cast<std::size_t>(options.collection) >= blobs.size()) {
        err = sourceName + ": no top-level collection " + std::to_string(options.collection) + " (the descriptor has " +
              std::to_string(blobs.size()) + ")\n";
        return 2;
    }

    std::vector<NumberedCollection> collections;
    for (std::size_t i = 0; i < blobs.size(); ++i) {
        if (options.collection >= 0 && static_cast<std::size_t>(options.collection) != i)
            continue;
        NumberedCollection numbered{i, {}};
        std::string capsError;
        if (!ReadCollectionCaps(blobs[i], numbered.caps, capsError)) {
            err = sourceName + ": collection " + std::to_string(i) + ": " + capsError + "\n";
            return 2;
        }
        collections.push_back(std::move(numbered));
    }
    out = options.json ? CapsToJson(collections, true) : CapsToTree(collections);
    return 0;
}

int InspectFile(const std::string& path, const InspectOptions& options, std::string& out, std::string& err)
{
    std::string contents;
    if (path == "-") {
        std::ostringstream buffer;
        buffer << std::cin.rdbuf();
        contents = buffer.str();
    } else if (!ReadFile(path, contents, err)) {
        return 2;
    }

    std::vector<std::uint8_t> descriptor;
    if (options.binary) {
        descriptor.assign(contents.begin(), contents.end());
    } else {
        std::string textError;
        if (!host::hid::ParseHexDescriptor(contents, descriptor, textError)) {
            err = path + ": " + textError + "\n";
            return 2;
        }
    }
    return InspectDescriptor(descriptor, options, path, out, err);
}

}  // namespace hidsensor
