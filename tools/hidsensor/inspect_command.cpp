#include "tools/hidsensor/inspect_command.h"

#include "host/hidparser/report_descriptor_parser.h"
#include "tools/hidsensor/caps_printer.h"
#include "tools/hidsensor/descriptor_input.h"

namespace hidsensor {

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
    std::vector<std::uint8_t> descriptor;
    if (!ReadDescriptorInput(path, options.binary, descriptor, err))
        return 2;
    return InspectDescriptor(descriptor, options, PrintablePath(path), out, err);
}

}  // namespace hidsensor
