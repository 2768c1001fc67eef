#include "host/hidparser/report_descriptor_parser.h"

#include <array>
#include <cstddef>
#include <new>

#include "host/hidparser/descriptor_parser.h"
#include "host/hidparser/item_tokenizer.h"
#include "host/hidparser/parse_arena.h"
#include "host/hidparser/preparsed_writer.h"

namespace host::hid {

bool ParseReportDescriptor(std::span<const std::uint8_t> descriptor, std::vector<PreparsedBlob>& collections,
                           ParseError& error)
{
    collections.clear();
    error = {};
    try {
        // Most descriptors' parser state fits in this buffer; see ParseArena.
        std::array<std::byte, 12 * 1024> buffer;
        ParseArena arena(buffer);
        DescriptorParser parser(descriptor.size(), &arena);
        ItemTokenizer tokenizer(descriptor);
        Item item;
        for (;;) {
            const ItemTokenizer::Result result = tokenizer.Next(item, error);
            if (result == ItemTokenizer::Result::End) break;
            if (result == ItemTokenizer::Result::Error) return false;
            if (!parser.Feed(item, error)) return false;
        }
        if (!parser.Finish(error)) return false;

        const std::pmr::vector<CollectionModel>& models = parser.Collections();
        collections.reserve(models.size());
        for (const CollectionModel& model : models) collections.push_back(WritePreparsedBlob(model));
        return true;
    } catch (const std::bad_alloc&) {
        collections.clear();
        error = {descriptor.size(), "out of memory"};
        return false;
    }
}

std::string FormatParseError(const ParseError& error)
{
    return "offset " + std::to_string(error.offset) + ": " + error.reason;
}

}  // namespace host::hid
