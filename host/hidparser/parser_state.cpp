#include "host/hidparser/parser_state.h"

#include <string>

#include "host/hidparser/hex_text.h"

namespace host::hid {

namespace {

enum GlobalTag : std::uint8_t {
    kUsagePage = 0,
    kLogicalMinimum = 1,
    kLogicalMaximum = 2,
    kPhysicalMinimum = 3,
    kPhysicalMaximum = 4,
    kUnitExponent = 5,
    kUnit = 6,
    kReportSize = 7,
    kReportId = 8,
    kReportCount = 9,
    kPush = 10,
    kPop = 11,
};

enum LocalTag : std::uint8_t {
    kUsage = 0,
    kUsageMinimum = 1,
    kUsageMaximum = 2,
    kDesignatorIndex = 3,
    kDesignatorMinimum = 4,
    kDesignatorMaximum = 5,
    kStringIndex = 7,
    kStringMinimum = 8,
    kStringMaximum = 9,
    kDelimiter = 10,
};

bool Fail(ParseError& error, const Item& item, std::string reason)
{
    error.offset = item.offset;
    error.reason = std::move(reason);
    return false;
}

ExtentItem ExtentOf(const Item& item)
{
    return {item.data, item.size};
}

void ApplyUnitExponent(GlobalState& state, const Item& item)
{
    // The HID document gives the exponent as a 4-bit two's complement nibble
    // (0x0E = -2); some devices write a signed byte instead (0xFE = -2). Both
    // map to the same 4-bit code, which is what the capability carries. Any
    // other value keeps its low nibble as well: the exponent only describes
    // the data, so a wrong one is no reason to refuse the device.
    state.unitExponentCode = static_cast<std::uint8_t>(item.data & 0x0F);
}

}  // namespace

std::int64_t ExtentItem::SignExtended() const
{
    switch (size) {
    case 1: return static_cast<std::int8_t>(data);
    case 2: return static_cast<std::int16_t>(data);
    case 4: return static_cast<std::int32_t>(data);
    default: return 0;
    }
}

bool ApplyGlobalItem(GlobalContext& globals, const Item& item, ParseError& error)
{
    GlobalState& state = globals.current;
    switch (item.tag) {
    case kUsagePage:
        // Which 16 bits would be the page is anyone's guess: refused.
        if (item.data > 0xFFFF) return Fail(error, item, "Usage Page " + Hex(item.data) + " above 0xFFFF");
        state.usagePage = static_cast<std::uint16_t>(item.data);
        return true;
    case kLogicalMinimum: state.logicalMinimum = ExtentOf(item); return true;
    case kLogicalMaximum: state.logicalMaximum = ExtentOf(item); return true;
    case kPhysicalMinimum: state.physicalMinimum = ExtentOf(item); return true;
    case kPhysicalMaximum: state.physicalMaximum = ExtentOf(item); return true;
    case kUnitExponent: ApplyUnitExponent(state, item); return true;
    case kUnit: state.unit = item.data; return true;
    case kReportSize:
        // A field of no bits holds no data, and 0 would divide positions.
        if (item.data == 0) return Fail(error, item, "Report Size 0");
        if (item.data > limits::kMaxReportSize)
            return Fail(error, item, "Report Size " + std::to_string(item.data) + " longer than a whole report");
        state.reportSize = item.data;
        state.reportSizeDeclared = true;
        return true;
    case kReportId:
        // ID 0 is reserved: byte 0 could no longer tell reports apart, nor
        // can an ID above one byte.
        if (item.data == 0) return Fail(error, item, "Report ID 0");
        if (item.data > 0xFF) return Fail(error, item, "Report ID " + std::to_string(item.data) + " above 255");
        // Fields already placed in a report without ID byte would move.
        if (globals.mainItemWithoutReportId) return Fail(error, item, "Report ID after main items that had none");
        state.reportId = static_cast<std::uint8_t>(item.data);
        globals.reportIdsUsed = true;
        return true;
    case kReportCount:
        if (item.data > limits::kMaxReportCount)
            return Fail(error, item, "Report Count " + std::to_string(item.data) + " longer than a whole report");
        state.reportCount = item.data;
        state.reportCountDeclared = true;
        return true;
    case kPush:
        if (globals.pushDepth == limits::kMaxPushDepth)
            return Fail(error, item, "Push nested deeper than " + std::to_string(limits::kMaxPushDepth));
        globals.saved[globals.pushDepth++] = state;
        return true;
    case kPop:
        // No saved state to restore: every later field would be guesswork.
        if (globals.pushDepth == 0) return Fail(error, item, "Pop without Push");
        state = globals.saved[--globals.pushDepth];
        return true;
    default: return true;  // reserved tag: describes nothing we place, skipped
    }
}

LocalState::LocalState(std::pmr::memory_resource* memory) : usages(memory), strings(memory), designators(memory)
{
    // String and designator indices are rare: they allocate when first used.
    usages.reserve(64);
}

void LocalState::Clear()
{
    usages.clear();
    strings.clear();
    designators.clear();
    usageBound = {};
    stringBound = {};
    designatorBound = {};
    delimiterOpen = false;
    delimiterUsageTaken = false;
}

const char* LocalState::Incomplete() const
{
    if (usageBound.haveMinimum) return "Usage Minimum without Usage Maximum";
    if (usageBound.haveMaximum) return "Usage Maximum without Usage Minimum";
    if (stringBound.haveMinimum) return "String Minimum without String Maximum";
    if (stringBound.haveMaximum) return "String Maximum without String Minimum";
    if (designatorBound.haveMinimum) return "Designator Minimum without Designator Maximum";
    if (designatorBound.haveMaximum) return "Designator Maximum without Designator Minimum";
    if (delimiterOpen) return "Delimiter set not closed";
    return nullptr;
}

namespace {

// Records one half of a Minimum/Maximum pair; returns true in `complete` once
// both halves are there (and resets the pair for the next one).
bool AddBound(PendingBound& bound, bool isMinimum, const Item& item, const char* name, bool& complete,
              ParseError& error)
{
    complete = false;
    if (isMinimum) {
        if (bound.haveMinimum)
            return Fail(error, item, std::string(name) + " Minimum twice without " + name + " Maximum");
        bound.haveMinimum = true;
        bound.minimum = item.data;
        bound.minimumSize = item.size;
    } else {
        if (bound.haveMaximum)
            return Fail(error, item, std::string(name) + " Maximum twice without " + name + " Minimum");
        bound.haveMaximum = true;
        bound.maximum = item.data;
        bound.maximumSize = item.size;
    }
    complete = bound.haveMinimum && bound.haveMaximum;
    return true;
}

bool AddUsage(LocalState& locals, LocalUsage usage, const Item& item, ParseError& error)
{
    // The usages of a delimiter set are names of one control: the first
    // takes the control's place, the others are its aliases.
    if (locals.delimiterOpen) {
        usage.isAlias = locals.delimiterUsageTaken;
        locals.delimiterUsageTaken = true;
    }
    if (locals.usages.size() == limits::kMaxUsagesPerMainItem)
        return Fail(error, item,
                    "more than " + std::to_string(limits::kMaxUsagesPerMainItem) + " usages before one main item");
    locals.usages.push_back(usage);
    return true;
}

bool ApplyUsageBound(LocalState& locals, const Item& item, bool isMinimum, ParseError& error)
{
    bool complete = false;
    if (!AddBound(locals.usageBound, isMinimum, item, "Usage", complete, error)) return false;
    if (!complete) return true;

    const PendingBound bound = locals.usageBound;
    locals.usageBound = {};
    LocalUsage usage;
    usage.isRange = true;
    usage.first = static_cast<std::uint16_t>(bound.minimum);
    usage.last = static_cast<std::uint16_t>(bound.maximum);
    const bool minimumPaged = bound.minimumSize == 4;
    const bool maximumPaged = bound.maximumSize == 4;
    if (minimumPaged && maximumPaged && (bound.minimum >> 16) != (bound.maximum >> 16))
        return Fail(error, item, "Usage Minimum and Usage Maximum on different usage pages");
    if (minimumPaged || maximumPaged) {
        usage.pageGiven = true;
        usage.page = static_cast<std::uint16_t>((minimumPaged ? bound.minimum : bound.maximum) >> 16);
    }
    if (usage.first > usage.last)
        return Fail(error, item, "Usage Minimum " + Hex(usage.first) + " above Usage Maximum " + Hex(usage.last));
    return AddUsage(locals, usage, item, error);
}

bool AddIndex(std::pmr::vector<LocalIndex>& list, const LocalIndex& index, const Item& item, const char* name,
              ParseError& error)
{
    if (list.size() == limits::kMaxStringsPerMainItem)
        return Fail(error, item,
                    "more than " + std::to_string(limits::kMaxStringsPerMainItem) + " " + name +
                        " indices before one main item");
    list.push_back(index);
    return true;
}

bool ApplyIndex(std::pmr::vector<LocalIndex>& list, const Item& item, const char* name, ParseError& error)
{
    if (item.data > 0xFFFF)
        return Fail(error, item, std::string(name) + " Index " + std::to_string(item.data) + " above 65535");
    const auto value = static_cast<std::uint16_t>(item.data);
    return AddIndex(list, {value, value, false}, item, name, error);
}

bool ApplyIndexBound(std::pmr::vector<LocalIndex>& list, PendingBound& bound, const Item& item, bool isMinimum,
                     const char* name, ParseError& error)
{
    if (item.data > 0xFFFF)
        return Fail(error, item,
                    std::string(name) + (isMinimum ? " Minimum " : " Maximum ") + std::to_string(item.data) +
                        " above 65535");
    bool complete = false;
    if (!AddBound(bound, isMinimum, item, name, complete, error)) return false;
    if (!complete) return true;
    const LocalIndex index{static_cast<std::uint16_t>(bound.minimum), static_cast<std::uint16_t>(bound.maximum), true};
    bound = {};
    if (index.first > index.last)
        return Fail(error, item,
                    std::string(name) + " Minimum " + std::to_string(index.first) + " above " + name + " Maximum " +
                        std::to_string(index.last));
    return AddIndex(list, index, item, name, error);
}

}  // namespace

bool ApplyLocalItem(LocalState& locals, const Item& item, ParseError& error)
{
    switch (item.tag) {
    case kUsage: {
        LocalUsage usage;
        usage.first = usage.last = static_cast<std::uint16_t>(item.data);
        if (item.size == 4) {
            usage.pageGiven = true;
            usage.page = static_cast<std::uint16_t>(item.data >> 16);
        }
        return AddUsage(locals, usage, item, error);
    }
    case kUsageMinimum: return ApplyUsageBound(locals, item, true, error);
    case kUsageMaximum: return ApplyUsageBound(locals, item, false, error);
    case kDesignatorIndex: return ApplyIndex(locals.designators, item, "Designator", error);
    case kDesignatorMinimum:
        return ApplyIndexBound(locals.designators, locals.designatorBound, item, true, "Designator", error);
    case kDesignatorMaximum:
        return ApplyIndexBound(locals.designators, locals.designatorBound, item, false, "Designator", error);
    case kStringIndex: return ApplyIndex(locals.strings, item, "String", error);
    case kStringMinimum: return ApplyIndexBound(locals.strings, locals.stringBound, item, true, "String", error);
    case kStringMaximum: return ApplyIndexBound(locals.strings, locals.stringBound, item, false, "String", error);
    case kDelimiter:
        if (item.data == 1) {
            if (locals.delimiterOpen) return Fail(error, item, "nested Delimiter set");
            locals.delimiterOpen = true;
            locals.delimiterUsageTaken = false;
            return true;
        }
        if (item.data == 0) {
            if (!locals.delimiterOpen) return Fail(error, item, "Delimiter close without open");
            locals.delimiterOpen = false;
            return true;
        }
        return Fail(error, item, "Delimiter " + std::to_string(item.data) + " is neither open (1) nor close (0)");
    default: return true;  // reserved tag: describes nothing we place, skipped
    }
}

}  // namespace host::hid
