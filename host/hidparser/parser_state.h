// The parser's item state tables, following the HID document's own sections:
// global items (with the Push/Pop stack) and local items (cleared after every
// main item). Each value is checked where it enters; the apply functions
// return false with the item's offset and the reason.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory_resource>
#include <vector>

#include "host/hidparser/item_tokenizer.h"
#include "host/hidparser/parse_limits.h"

namespace host::hid {

// A logical or physical extent as the item stated it; its sign is decided at
// the main item, once both extents of the pair are known.
struct ExtentItem {
    std::uint32_t data = 0;
    std::uint8_t size = 0;

    std::int64_t SignExtended() const;
    std::int64_t ZeroExtended() const { return data; }
};

struct GlobalState {
    std::uint16_t usagePage = 0;
    ExtentItem logicalMinimum, logicalMaximum, physicalMinimum, physicalMaximum;
    std::uint8_t unitExponentCode = 0;  // platform 4-bit code
    std::uint32_t unit = 0;
    std::uint32_t reportSize = 0;
    std::uint32_t reportCount = 0;
    bool reportSizeDeclared = false;  // mandatory before a main item: no silent default
    bool reportCountDeclared = false;
    std::uint8_t reportId = 0;  // 0: none declared
};

struct GlobalContext {
    GlobalState current;
    std::array<GlobalState, limits::kMaxPushDepth> saved{};
    std::size_t pushDepth = 0;
    bool reportIdsUsed = false;            // a Report ID item appeared
    bool mainItemWithoutReportId = false;  // a field was placed while no Report ID was set
};

bool ApplyGlobalItem(GlobalContext& globals, const Item& item, ParseError& error);

// One Usage, or one Usage Minimum/Maximum pair.
struct LocalUsage {
    std::uint16_t page = 0;  // valid when pageGiven
    std::uint16_t first = 0;
    std::uint16_t last = 0;
    bool pageGiven = false;  // 4-byte usage: the page came with it
    bool isRange = false;
    bool isAlias = false;  // a later usage of a delimiter set: another name for the entry before it
};

// One String/Designator Index, or one Minimum/Maximum pair.
struct LocalIndex {
    std::uint16_t first = 0;
    std::uint16_t last = 0;
    bool isRange = false;
};

// A Minimum item waiting for its Maximum (or the other way round).
struct PendingBound {
    bool haveMinimum = false;
    bool haveMaximum = false;
    std::uint32_t minimum = 0;
    std::uint32_t maximum = 0;
    std::uint8_t minimumSize = 0;
    std::uint8_t maximumSize = 0;
};

struct LocalState {
    std::pmr::vector<LocalUsage> usages;
    std::pmr::vector<LocalIndex> strings;
    std::pmr::vector<LocalIndex> designators;
    PendingBound usageBound, stringBound, designatorBound;
    bool delimiterOpen = false;
    bool delimiterUsageTaken = false;  // the open set has its first usage

    explicit LocalState(std::pmr::memory_resource* memory);
    void Clear();
    // Error text when a Minimum/Maximum pair or a delimiter set is incomplete.
    const char* Incomplete() const;
};

bool ApplyLocalItem(LocalState& locals, const Item& item, ParseError& error);

}  // namespace host::hid
