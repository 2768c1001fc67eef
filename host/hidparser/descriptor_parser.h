// Reads items one at a time: dispatches on the item type through a table
// (main, global, local, reserved), keeps the item state and feeds the
// collection builder. End-of-input invariants are checked once, in Finish.
//
// What is refused: only what would cost unbounded memory or time (the limits
// of parse_limits.h, truncated items) or leave the reports unreadable (a
// field of no declared size, report ID 0 or above 255, reports with and
// without IDs mixed, fields outside a collection, unbalanced collections,
// Pop without Push, usage ranges that name no usage, broken delimiter sets).
// Everything else a shipped device may carry is taken: reserved items are
// skipped, odd unit exponents keep their low nibble, a Push never popped is
// forgotten, and value fields may be of any width.
#pragma once

#include <cstddef>
#include <span>
#include <vector>

#include "host/hidparser/collection_builder.h"
#include "host/hidparser/item_tokenizer.h"
#include "host/hidparser/parser_state.h"

namespace host::hid {

class DescriptorParser {
public:
    // All parser state and the collection models live in `memory`.
    DescriptorParser(std::size_t descriptorSize, std::pmr::memory_resource* memory);

    bool Feed(const Item& item, ParseError& error);
    bool Finish(ParseError& error);

    std::pmr::vector<CollectionModel>& Collections() { return builder_.Collections(); }

private:
    using Handler = bool (DescriptorParser::*)(const Item&, ParseError&);
    static const Handler kHandlers[4];

    bool OnMain(const Item& item, ParseError& error);
    bool OnGlobal(const Item& item, ParseError& error);
    bool OnLocal(const Item& item, ParseError& error);
    bool OnReserved(const Item& item, ParseError& error);

    bool OnField(const Item& item, std::size_t reportType, ParseError& error);
    bool OnCollection(const Item& item, ParseError& error);
    bool OnEndCollection(const Item& item, ParseError& error);
    bool CheckLocalsComplete(const Item& item, ParseError& error) const;
    // Settles the usage page of every usage in place; the local state is
    // cleared after the main item anyway.
    std::span<const ResolvedUsage> ResolveUsages();

    std::size_t descriptorSize_;
    GlobalContext globals_;
    LocalState locals_;
    CollectionBuilder builder_;
};

}  // namespace host::hid
