#include "host/hidparser/descriptor_parser.h"

#include <string>

#include "host/hidparser/hex_text.h"

namespace host::hid {

namespace {

enum MainTag : std::uint8_t {
    kInput = 8,
    kOutput = 9,
    kCollection = 10,
    kFeature = 11,
    kEndCollection = 12,
};

const char* FieldItemName(std::size_t reportType)
{
    static constexpr const char* kNames[] = {"Input", "Output", "Feature"};
    return kNames[reportType];
}

bool Fail(ParseError& error, const Item& item, std::string reason)
{
    error.offset = item.offset;
    error.reason = std::move(reason);
    return false;
}

// Extents are sign-extended from their item size. A maximum that then comes
// out negative while the minimum is not is a device writing an unsigned range
// (0..65535 as `15 00 26 FF FF`): read it unsigned.
std::pair<std::int32_t, std::int32_t> ResolveExtents(const ExtentItem& minimum, const ExtentItem& maximum)
{
    const std::int64_t low = minimum.SignExtended();
    std::int64_t high = maximum.SignExtended();
    if (low >= 0 && high < 0) high = maximum.ZeroExtended();
    // LONG holds the capability; an unsigned 32-bit maximum wraps as on the platform.
    return {static_cast<std::int32_t>(low), static_cast<std::int32_t>(static_cast<std::uint32_t>(high))};
}

}  // namespace

const DescriptorParser::Handler DescriptorParser::kHandlers[4] = {
    &DescriptorParser::OnMain,
    &DescriptorParser::OnGlobal,
    &DescriptorParser::OnLocal,
    &DescriptorParser::OnReserved,
};

DescriptorParser::DescriptorParser(std::size_t descriptorSize, std::pmr::memory_resource* memory)
    : descriptorSize_(descriptorSize), locals_(memory), builder_(memory)
{
}

bool DescriptorParser::Feed(const Item& item, ParseError& error)
{
    return (this->*kHandlers[static_cast<std::size_t>(item.type)])(item, error);
}

bool DescriptorParser::OnGlobal(const Item& item, ParseError& error)
{
    return ApplyGlobalItem(globals_, item, error);
}

bool DescriptorParser::OnLocal(const Item& item, ParseError& error)
{
    return ApplyLocalItem(locals_, item, error);
}

bool DescriptorParser::OnReserved(const Item&, ParseError&)
{
    // No long item tag is defined and the reserved type has no meaning yet,
    // so neither can change the reports: skip them, as shipped devices
    // expect of a tolerant parser.
    return true;
}

bool DescriptorParser::OnMain(const Item& item, ParseError& error)
{
    bool ok = false;
    switch (item.tag) {
    case kInput: ok = OnField(item, HidP_Input, error); break;
    case kOutput: ok = OnField(item, HidP_Output, error); break;
    case kFeature: ok = OnField(item, HidP_Feature, error); break;
    case kCollection: ok = OnCollection(item, error); break;
    case kEndCollection: ok = OnEndCollection(item, error); break;
    default: ok = true; break;  // reserved tag: no data to place, skipped
    }
    locals_.Clear();  // every main item ends the local state
    return ok;
}

bool DescriptorParser::CheckLocalsComplete(const Item& item, ParseError& error) const
{
    if (const char* reason = locals_.Incomplete()) return Fail(error, item, reason);
    return true;
}

std::span<const ResolvedUsage> DescriptorParser::ResolveUsages()
{
    // A usage of 1 or 2 bytes takes the Usage Page in force at its main item.
    for (LocalUsage& usage : locals_.usages) {
        if (!usage.pageGiven) usage.page = globals_.current.usagePage;
        usage.pageGiven = true;
    }
    return locals_.usages;
}

bool DescriptorParser::OnField(const Item& item, std::size_t reportType, ParseError& error)
{
    const char* name = FieldItemName(reportType);
    const GlobalState& state = globals_.current;
    if (builder_.Depth() == 0) return Fail(error, item, std::string(name) + " item outside any collection");
    if (!CheckLocalsComplete(item, error)) return false;
    if (!state.reportSizeDeclared) return Fail(error, item, std::string(name) + " item before any Report Size");
    if (!state.reportCountDeclared) return Fail(error, item, std::string(name) + " item before any Report Count");
    if (state.reportId == 0) {
        if (globals_.reportIdsUsed)
            return Fail(error, item,
                        std::string(name) + " item without Report ID in a descriptor that uses report IDs");
        globals_.mainItemWithoutReportId = true;
    }

    const std::span<const ResolvedUsage> usages = ResolveUsages();
    const auto [logicalMin, logicalMax] = ResolveExtents(state.logicalMinimum, state.logicalMaximum);
    const auto [physicalMin, physicalMax] = ResolveExtents(state.physicalMinimum, state.physicalMaximum);

    MainField field;
    field.reportType = reportType;
    field.flags = static_cast<std::uint16_t>(item.data);
    field.reportId = state.reportId;
    field.bitSize = state.reportSize;
    field.reportCount = state.reportCount;
    field.logicalMin = logicalMin;
    field.logicalMax = logicalMax;
    field.physicalMin = physicalMin;
    field.physicalMax = physicalMax;
    field.unit = state.unit;
    field.unitExponentCode = state.unitExponentCode;
    field.usages = usages;
    field.strings = locals_.strings;
    field.designators = locals_.designators;
    return builder_.AddField(field, item.offset, error);
}

bool DescriptorParser::OnCollection(const Item& item, ParseError& error)
{
    if (item.data > 0xFF) return Fail(error, item, "Collection type " + Hex(item.data) + " above 0xFF");
    if (!CheckLocalsComplete(item, error)) return false;
    const std::span<const ResolvedUsage> usages = ResolveUsages();
    // The collection is named by its first usage; it may have none.
    const std::uint16_t page = usages.empty() ? globals_.current.usagePage : usages.front().page;
    const std::uint16_t usage = usages.empty() ? 0 : usages.front().first;
    return builder_.OpenCollection(static_cast<std::uint8_t>(item.data), page, usage, item.offset, error);
}

bool DescriptorParser::OnEndCollection(const Item& item, ParseError& error)
{
    // End Collection has no data, but devices ship it with a data byte
    // (`C1 00`); the byte changes nothing, so it is accepted.
    return builder_.CloseCollection(item.offset, error);
}

bool DescriptorParser::Finish(ParseError& error)
{
    error.offset = descriptorSize_;
    if (builder_.Depth() != 0) {
        error.reason = std::to_string(builder_.Depth()) + " collection(s) without End Collection at end of descriptor";
        return false;
    }
    // A Push left without its Pop changes no field that was placed: accepted.
    if (locals_.delimiterOpen) {
        error.reason = "Delimiter set not closed at end of descriptor";
        return false;
    }
    if (builder_.Collections().empty()) {
        error.reason = "no collection in descriptor";
        return false;
    }
    error = {};
    builder_.FinishReportLengths();
    return true;
}

}  // namespace host::hid
