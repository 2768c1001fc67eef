// Reads items one at a time: dispatches on the item type through a table
// (main, global, local, reserved), keeps the item state and feeds the
// collection builder. End-of-input invariants are checked once, in Finish.
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
