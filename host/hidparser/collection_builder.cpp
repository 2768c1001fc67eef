#include "host/hidparser/collection_builder.h"

#include <algorithm>
#include <string>

namespace host::hid {

namespace {

constexpr std::uint16_t kMainVariable = 0x0002;
constexpr std::uint16_t kMainRelative = 0x0004;
constexpr std::uint16_t kMainNullState = 0x0040;

const char* ReportTypeName(std::size_t type)
{
    static constexpr const char* kNames[] = {"Input", "Output", "Feature"};
    return kNames[type];
}

bool Fail(ParseError& error, std::size_t offset, std::string reason)
{
    error.offset = offset;
    error.reason = std::move(reason);
    return false;
}

std::uint32_t UsageSpan(const ResolvedUsage& usage)
{
    return std::uint32_t{usage.last} - usage.first + 1;
}

// A new zeroed element; the first one makes room for a typical sensor's worth.
template <typename T>
T& Append(std::pmr::vector<T>& list)
{
    if (list.empty()) list.reserve(16);
    return list.emplace_back();
}

// The string or designator entry for the k-th capability of a main item: like
// usages, the last entry serves every capability after it.
const LocalIndex* IndexFor(std::span<const LocalIndex> list, std::size_t k)
{
    if (list.empty()) return nullptr;
    return &list[std::min(k, list.size() - 1)];
}

// One past the last alias of the usage at `first`: the usages of one control.
std::size_t ControlEnd(std::span<const ResolvedUsage> usages, std::size_t first)
{
    std::size_t end = first + 1;
    while (end < usages.size() && usages[end].isAlias) ++end;
    return end;
}

// The last usage that is not an alias: it takes the remaining elements.
std::size_t LastPrimary(std::span<const ResolvedUsage> usages)
{
    std::size_t last = 0;
    for (std::size_t i = 0; i < usages.size(); ++i)
        if (!usages[i].isAlias) last = i;
    return last;
}

}  // namespace

// One capability to add: which usage entry, and where its elements sit.
struct CollectionBuilder::CapSource {
    std::size_t usageIndex = 0;
    std::uint32_t bitOffset = 0;
    std::uint32_t reportCount = 0;
    std::uint16_t arrayIndexBase = 0;
    bool isButton = false;
    bool isArray = false;
};

CollectionBuilder::CollectionBuilder(std::pmr::memory_resource* memory) : memory_(memory), collections_(memory)
{
    collections_.reserve(4);
}

bool CollectionBuilder::OpenCollection(std::uint8_t type, std::uint16_t usagePage, std::uint16_t usage,
                                       std::size_t offset, ParseError& error)
{
    if (depth_ == limits::kMaxCollectionDepth)
        return Fail(error, offset, "collections nested deeper than " + std::to_string(limits::kMaxCollectionDepth));
    if (nodeCount_ == limits::kMaxLinkCollectionNodes)
        return Fail(error, offset, "more than " + std::to_string(limits::kMaxLinkCollectionNodes) + " collections");

    if (depth_ == 0) {
        CollectionModel& model = collections_.emplace_back(memory_);
        model.usage = usage;
        model.usagePage = usagePage;
        model.nodes.reserve(16);
    }
    CollectionModel& model = collections_.back();
    const auto index = static_cast<std::uint16_t>(model.nodes.size());

    HIDP_LINK_COLLECTION_NODE node{};
    node.LinkUsage = usage;
    node.LinkUsagePage = usagePage;
    node.CollectionType = type;
    if (depth_ > 0) {
        // The platform's convention: FirstChild names the child added last and
        // NextSibling walks back to the earlier ones; 0 ends the chain.
        HIDP_LINK_COLLECTION_NODE& parent = model.nodes[openNodes_[depth_ - 1]];
        node.Parent = openNodes_[depth_ - 1];
        node.NextSibling = parent.FirstChild;
        parent.FirstChild = index;
        ++parent.NumberOfChildren;
    }
    model.nodes.push_back(node);
    openNodes_[depth_++] = index;
    ++nodeCount_;
    return true;
}

bool CollectionBuilder::CloseCollection(std::size_t offset, ParseError& error)
{
    if (depth_ == 0) return Fail(error, offset, "End Collection without Collection");
    --depth_;
    return true;
}

bool CollectionBuilder::AddField(const MainField& field, std::size_t offset, ParseError& error)
{
    if (field.reportCount == 0) return true;  // declares no data

    // Both factors are below kMaxReportBits, so the product fits easily.
    const std::uint64_t bits = std::uint64_t{field.bitSize} * field.reportCount;
    std::uint32_t& placed = reportBits_[field.reportType][field.reportId];
    if (!reportsSeen_[field.reportType].Contains(field.reportId)) {
        reportsSeen_[field.reportType].Insert(field.reportId);
        placed = 0;
    }
    if (placed + bits > limits::kMaxReportBits) {
        const std::uint64_t bytes = 1 + (placed + bits + 7) / 8;
        return Fail(error, offset,
                    std::string(ReportTypeName(field.reportType)) + " report " + std::to_string(field.reportId) +
                        " would be " + std::to_string(bytes) + " bytes long, above " +
                        std::to_string(limits::kMaxReportBytes));
    }
    const std::uint32_t fieldBitOffset = 8 + placed;  // byte 0 is the report ID
    placed += static_cast<std::uint32_t>(bits);
    collections_.back().reports[field.reportType].reportIds.Insert(field.reportId);

    // A field of any width is a capability (sensor hubs declare 48 to 192-bit
    // values); the HidP_ calls say how they read one wider than a ULONG.
    if (field.usages.empty()) return true;  // padding

    const bool isArray = (field.flags & kMainVariable) == 0;
    return isArray ? AddArrayCaps(field, fieldBitOffset, offset, error)
                   : AddVariableCaps(field, fieldBitOffset, offset, error);
}

bool CollectionBuilder::AddVariableCaps(const MainField& field, std::uint32_t fieldBitOffset, std::size_t offset,
                                        ParseError& error)
{
    // A 1-bit field with logical range 0..1 is a set of buttons; every other
    // variable field is a value.
    const bool isButton = field.bitSize == 1 && field.logicalMin == 0 && field.logicalMax == 1;
    // Usages take one element each, in order (a range one per usage); the last
    // usage takes all remaining elements. Usages beyond the count get none.
    // Aliases sit on the elements of the usage they follow.
    const std::size_t last = LastPrimary(field.usages);
    std::uint32_t remaining = field.reportCount;
    std::uint32_t element = 0;
    for (std::size_t i = 0; i < field.usages.size() && remaining > 0;) {
        const std::uint32_t count = i == last ? remaining : std::min(UsageSpan(field.usages[i]), remaining);
        const std::size_t end = ControlEnd(field.usages, i);
        for (std::size_t u = i; u < end; ++u) {
            CapSource source;
            source.usageIndex = u;
            source.bitOffset = fieldBitOffset + element * field.bitSize;
            source.reportCount = count;
            source.isButton = isButton;
            if (!AddCap(field, source, offset, error)) return false;
        }
        element += count;
        remaining -= count;
        i = end;
    }
    return true;
}

bool CollectionBuilder::AddArrayCaps(const MainField& field, std::uint32_t fieldBitOffset, std::size_t offset,
                                     ParseError& error)
{
    // Every slot of an array holds an index into the item's usages, counted
    // from Logical Minimum. One button capability per usage entry, all on the
    // same slots; aliases share the index of the usage they follow.
    std::uint32_t indexBase = 0;
    for (std::size_t i = 0; i < field.usages.size();) {
        const std::size_t end = ControlEnd(field.usages, i);
        for (std::size_t u = i; u < end; ++u) {
            CapSource source;
            source.usageIndex = u;
            source.bitOffset = fieldBitOffset;
            source.reportCount = field.reportCount;
            source.arrayIndexBase = static_cast<std::uint16_t>(indexBase);
            source.isButton = true;
            source.isArray = true;
            if (!AddCap(field, source, offset, error)) return false;
        }
        indexBase += UsageSpan(field.usages[i]);
        i = end;
    }
    return true;
}

bool CollectionBuilder::AddCap(const MainField& field, const CapSource& source, std::size_t offset, ParseError& error)
{
    if (capabilityCount_ == limits::kMaxCapabilities)
        return Fail(error, offset,
                    "too many usages: more than " + std::to_string(limits::kMaxCapabilities) + " capabilities");

    CollectionModel& model = collections_.back();
    ReportTypeModel& report = model.reports[field.reportType];
    const ResolvedUsage& usage = field.usages[source.usageIndex];
    // One data index per usage the field can report: every usage of an array;
    // for variable fields only those that got an element.
    // An alias names the control of the usage before it: it shares its
    // data indices.
    std::uint32_t dataIndices = 1;
    if (usage.isRange) dataIndices = source.isArray ? UsageSpan(usage) : std::min(UsageSpan(usage), source.reportCount);
    if (usage.isAlias) {
        dataIndices = std::min(dataIndices, lastDataIndices_);
    } else {
        if (report.dataIndexCount + dataIndices > limits::kMaxDataIndices)
            return Fail(error, offset,
                        "too many usages: " + std::string(ReportTypeName(field.reportType)) +
                            " reports need more than " + std::to_string(limits::kMaxDataIndices) + " data indices");
        lastDataIndex_ = static_cast<std::uint16_t>(report.dataIndexCount);
        lastDataIndices_ = dataIndices;
        report.dataIndexCount += dataIndices;
    }
    const std::uint16_t dataIndex = lastDataIndex_;

    const std::uint16_t linkCollection = openNodes_[depth_ - 1];
    const HIDP_LINK_COLLECTION_NODE& node = model.nodes[linkCollection];
    const LocalIndex* string = IndexFor(field.strings, source.usageIndex);
    const LocalIndex* designator = IndexFor(field.designators, source.usageIndex);

    // Range and NotRange share their storage: slot by slot, the minimum of a
    // range is where the single value goes, and the maximum is reserved (0).
    HIDP_RANGE range{};
    range.UsageMin = usage.first;
    range.UsageMax = usage.isRange ? usage.last : 0;
    range.StringMin = string ? string->first : 0;
    range.StringMax = string && string->isRange ? string->last : 0;
    range.DesignatorMin = designator ? designator->first : 0;
    range.DesignatorMax = designator && designator->isRange ? designator->last : 0;
    range.DataIndexMin = dataIndex;
    range.DataIndexMax = usage.isRange ? static_cast<std::uint16_t>(dataIndex + dataIndices - 1) : 0;

    preparsed::FieldRecord record{};
    record.usagePage = usage.page;
    record.usageMin = usage.first;
    record.usageMax = usage.last;
    record.linkCollection = linkCollection;
    record.bitOffset = source.bitOffset;
    record.reportCount = static_cast<std::uint16_t>(source.reportCount);
    record.bitSize = static_cast<std::uint16_t>(field.bitSize);
    record.reportId = field.reportId;
    record.flags = source.isArray ? preparsed::kFieldArray : 0;
    record.logicalMin = field.logicalMin;
    record.logicalMax = field.logicalMax;
    record.arrayIndexBase = source.arrayIndexBase;

    // The head both capability structures share, field for field.
    const auto fillShared = [&](auto& cap) {
        cap.UsagePage = usage.page;
        cap.ReportID = field.reportId;
        cap.IsAlias = usage.isAlias;
        cap.BitField = field.flags;
        cap.LinkCollection = linkCollection;
        cap.LinkUsage = node.LinkUsage;
        cap.LinkUsagePage = node.LinkUsagePage;
        cap.IsRange = usage.isRange;
        cap.IsStringRange = string && string->isRange;
        cap.IsDesignatorRange = designator && designator->isRange;
        cap.IsAbsolute = (field.flags & kMainRelative) == 0;
    };
    if (source.isButton) {
        HIDP_BUTTON_CAPS& cap = Append(report.buttonCaps);
        fillShared(cap);
        cap.ReportCount = static_cast<USHORT>(source.reportCount);
        cap.Range = range;
        Append(report.buttonFields) = record;
    } else {
        HIDP_VALUE_CAPS& cap = Append(report.valueCaps);
        fillShared(cap);
        cap.HasNull = (field.flags & kMainNullState) != 0;
        cap.BitSize = static_cast<USHORT>(field.bitSize);
        cap.ReportCount = static_cast<USHORT>(source.reportCount);
        cap.UnitsExp = field.unitExponentCode;
        cap.Units = field.unit;
        cap.LogicalMin = field.logicalMin;
        cap.LogicalMax = field.logicalMax;
        cap.PhysicalMin = field.physicalMin;
        cap.PhysicalMax = field.physicalMax;
        cap.Range = range;
        Append(report.valueFields) = record;
    }
    ++capabilityCount_;
    return true;
}

void CollectionBuilder::FinishReportLengths()
{
    for (CollectionModel& model : collections_) {
        for (std::size_t type = 0; type < preparsed::kReportTypeCount; ++type) {
            ReportTypeModel& report = model.reports[type];
            std::uint32_t longest = 0;
            // A collection without report IDs still has byte 0 for ID 0.
            report.reportIds.ForEach(
                [&](std::uint8_t id) { longest = std::max(longest, 1 + (reportBits_[type][id] + 7) / 8); });
            report.reportByteLength = static_cast<std::uint16_t>(longest);
        }
    }
}

}  // namespace host::hid
