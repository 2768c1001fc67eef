#include "tools/hidsensor/inspect_command.h"

#include "host/hidparser/item_tokenizer.h"
#include "host/hidparser/report_descriptor_parser.h"
#include "tools/hidsensor/caps_printer.h"
#include "tools/hidsensor/descriptor_input.h"
#include "tools/hidsensor/item_listing.h"
#include "tools/hidsensor/json_writer.h"
#include "tools/hidsensor/report_layout.h"

namespace hidsensor {
namespace {

// Zero bytes after the last End Collection (firmware that sends a fixed-size
// buffer) are dropped with a warning, as the Linux HID core accepts them.
std::size_t TrailingZeroStart(const std::vector<std::uint8_t>& descriptor)
{
    host::hid::ItemTokenizer tokenizer(descriptor);
    host::hid::ParseError error;
    host::hid::Item item;
    std::size_t afterLastEnd = 0;
    while (tokenizer.Next(item, error) == host::hid::ItemTokenizer::Result::Item) {
        if (item.type == host::hid::ItemType::Main && item.tag == 12) afterLastEnd = tokenizer.Position();
    }
    if (afterLastEnd == 0) return descriptor.size();
    for (std::size_t i = afterLastEnd; i < descriptor.size(); ++i) {
        if (descriptor[i] != 0) return descriptor.size();
    }
    return afterLastEnd;
}

// The "collections" array of one device's document, as its own JSON text.
std::string CollectionsOfJson(const std::string& document)
{
    const std::size_t begin = document.find('[');
    const std::size_t end = document.rfind(']');
    return begin == std::string::npos || end == std::string::npos ? "[]" : document.substr(begin, end - begin + 1);
}

}  // namespace

int InspectDescriptor(const std::vector<std::uint8_t>& descriptor, const InspectOptions& options,
                      const std::string& sourceName, std::string& out, std::string& err)
{
    if (options.items) {
        std::string error;
        if (!ListItems(descriptor, out, error)) {
            err += sourceName + ": " + error + "\n";
            return 2;
        }
    }

    std::vector<std::uint8_t> trimmed = descriptor;
    std::string warnings;
    const std::size_t zeros = TrailingZeroStart(trimmed);
    if (zeros < trimmed.size()) {
        warnings += sourceName + ": byte offset " + std::to_string(zeros) + ": warning: " +
                    std::to_string(trimmed.size() - zeros) + " zero bytes after the last End Collection, ignored\n";
        trimmed.resize(zeros);
    }

    std::vector<host::hid::PreparsedBlob> blobs;
    host::hid::ParseError parseError;
    if (!host::hid::ParseReportDescriptor(trimmed, blobs, parseError)) {
        err += sourceName + ": byte offset " + std::to_string(parseError.offset) + ": " + parseError.reason + "\n";
        return 2;
    }
    if (options.collection >= 0 && static_cast<std::size_t>(options.collection) >= blobs.size()) {
        err += sourceName + ": no top-level collection " + std::to_string(options.collection) +
               " (the descriptor has " + std::to_string(blobs.size()) + ")\n";
        return 2;
    }

    DescriptorLayout layout = ReadDescriptorLayout(trimmed);
    for (const LayoutWarning& warning : layout.warnings)
        warnings += sourceName + ": byte offset " + std::to_string(warning.offset) + ": warning: " + warning.text + "\n";
    err += warnings;
    if (options.items) return 0;

    std::vector<NumberedCollection> collections;
    for (std::size_t i = 0; i < blobs.size(); ++i) {
        if (options.collection >= 0 && static_cast<std::size_t>(options.collection) != i)
            continue;
        NumberedCollection numbered{i, {}, {}};
        std::string capsError;
        if (!ReadCollectionCaps(blobs[i], numbered.caps, capsError)) {
            err += sourceName + ": collection " + std::to_string(i) + ": " + capsError + "\n";
            return 2;
        }
        if (i < layout.collections.size()) numbered.reports = std::move(layout.collections[i]);
        collections.push_back(std::move(numbered));
    }
    out += options.json ? CapsToJson(collections, true) : CapsToTree(collections);
    return 0;
}

int InspectFile(const std::string& path, const InspectOptions& options, std::string& out, std::string& err)
{
    std::vector<InputDescriptor> descriptors;
    if (!ReadDescriptorInputs(path, options.binary, descriptors, err))
        return 2;
    const std::string shownPath = PrintablePath(path);
    if (options.device >= 0 && static_cast<std::size_t>(options.device) >= descriptors.size()) {
        err = shownPath + ": no device " + std::to_string(options.device) + " (the input has " +
              std::to_string(descriptors.size()) + ")\n";
        return 2;
    }
    if (descriptors.size() == 1) return InspectDescriptor(descriptors[0].bytes, options, shownPath, out, err);

    if (options.device >= 0) {
        const auto picked = static_cast<std::size_t>(options.device);
        return InspectDescriptor(descriptors[picked].bytes, options, shownPath + " device " + std::to_string(picked),
                                 out, err);
    }

    // Every device in turn: in text under a header naming it; in JSON one
    // document {"devices": [{"device", "name", "ids", "collections"}, ...]}
    // ("collections" null for a device whose descriptor does not parse).
    int status = 0;
    JsonWriter json(true);
    json.BeginObject().Key("devices").BeginArray();
    for (std::size_t i = 0; i < descriptors.size(); ++i) {
        const InputDescriptor& device = descriptors[i];
        std::string text;
        const int result =
            InspectDescriptor(device.bytes, options, shownPath + " device " + std::to_string(i), text, err);
        if (result != 0) status = result;
        if (options.json) {
            json.BeginObject().Field("device", i).Key("name").String(device.name).Key("ids").String(device.ids);
            json.Key("collections");
            if (result == 0 && !options.items) {
                json.Raw(CollectionsOfJson(text));
            } else {
                json.Raw("null");
            }
            json.EndObject();
            continue;
        }
        if (!out.empty()) out += "\n";
        out += "Device " + std::to_string(i) + ":";
        if (!device.name.empty()) out += " N: " + PrintablePath(device.name);
        if (!device.ids.empty()) out += "  I: " + PrintablePath(device.ids);
        out += "\n" + text;
    }
    json.EndArray().EndObject();
    if (options.json) out += json.Text() + "\n";
    return status;
}

}  // namespace hidsensor
