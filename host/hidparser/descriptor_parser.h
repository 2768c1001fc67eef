// Reads items one at a time: dispatches on the item type through a table
// (main, global, local, reserved), keeps the item state and feeds the
// collection builder. End-of-input invariants are checked once, in Finish.
#pragma once

#include <cstddef>
#include <vector>

#include "host/hidparser/collection_builder.h"
#include "host/hidparser/item_tokenizer.h"
#include "host/hidparser/parser_state.h"

namespace host::hid {

class DescriptorParser {
public:
    explicit DescriptorParser(std::size_t descriptorSize);

    bool Feed(const Item& item, ParseError& error);
    bool Finish(ParseError& error);

    std::vector<CollectionModel>& Collections() { return builder_.Collections(); }

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
    void ResolveUsages();

    std::size_t descriptorSize_;
    GlobalContext globals_;
    LocalState locals_;
    std::vector<ResolvedUsage> resolved_;
    CollectionBuilder builder_;
};

}  // namespace host::hid
