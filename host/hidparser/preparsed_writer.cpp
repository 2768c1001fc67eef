#include "host/hidparser/preparsed_writer.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <span>
#include <vector>

namespace host::hid {

namespace {

using preparsed::FieldRecord;
using preparsed::ValueSlot;

bool IsSingleUsage(const FieldRecord& field)
{
    return field.usageMin == field.usageMax;
}

std::uint64_t KeyOf(const FieldRecord& field)
{
    return preparsed::LookupKey(field.usagePage, field.usageMin, field.reportId);
}

// Keys of the single-usage fields wider than 32 bits, sorted.
std::vector<std::uint64_t> WideKeys(std::span<const FieldRecord> fields)
{
    std::vector<std::uint64_t> keys;
    for (const FieldRecord& field : fields)
        if (IsSingleUsage(field) && field.bitSize > 32) keys.push_back(KeyOf(field));
    std::sort(keys.begin(), keys.end());
    return keys;
}

// Whether the lookup answers for this field: a single usage of at most 32
// bits whose key no wider field shares (the scan answers those, in
// descriptor order).
bool InLookup(const FieldRecord& field, std::span<const std::uint64_t> wideKeys)
{
    if (!IsSingleUsage(field) || field.bitSize > 32) return false;
    return wideKeys.empty() || !std::binary_search(wideKeys.begin(), wideKeys.end(), KeyOf(field));
}

std::uint8_t HashBitsFor(std::size_t keys)
{
    // At least twice as many slots as keys keeps probe runs short and leaves
    // an empty slot to end every search.
    std::uint8_t bits = 0;
    while ((std::size_t{1} << bits) < 2 * keys) ++bits;
    return bits;
}

ValueSlot LoadSlot(const std::uint8_t* table, std::size_t slot)
{
    ValueSlot s;
    std::memcpy(&s, table + slot * sizeof s, sizeof s);
    return s;
}

// Writes the single-usage value fields into the zeroed lookup by linear
// probing, in descriptor order, so that a search meets fields of the same key
// in that order; then gives every slot, empty or not, its check.
void WriteValueLookup(std::span<const FieldRecord> fields, std::span<const std::uint64_t> wideKeys,
                      std::uint8_t hashBits, std::uint8_t* table)
{
    const std::size_t slots = std::size_t{1} << hashBits;
    const std::size_t mask = slots - 1;
    for (const FieldRecord& field : fields) {
        if (!InLookup(field, wideKeys)) continue;
        const std::uint64_t key = KeyOf(field);
        std::size_t slot = preparsed::HashSlot(key, hashBits);
        while (LoadSlot(table, slot).BitSize() != 0) slot = (slot + 1) & mask;
        ValueSlot s;
        s.w0 = key | (std::uint64_t{field.bitSize} << 40) | (std::uint64_t{field.linkCollection} << 48);
        s.w1 = field.bitOffset | (std::uint64_t{field.reportCount} << 32);
        std::memcpy(table + slot * sizeof s, &s, sizeof s);
    }
    for (std::size_t slot = 0; slot < slots; ++slot) {
        ValueSlot s = LoadSlot(table, slot);
        s.w1 |= std::uint64_t{preparsed::SlotCheck(s.w0, s.w1, slot)} << 48;
        std::memcpy(table + slot * sizeof s, &s, sizeof s);
    }
}

// Writes records with their checks.
void PutRecords(std::uint8_t* out, std::span<const FieldRecord> fields)
{
    for (std::size_t i = 0; i < fields.size(); ++i) {
        FieldRecord field = fields[i];
        field.check = preparsed::RecordCheck(field);
        std::memcpy(out + i * sizeof field, &field, sizeof field);
    }
}

template <typename T> void Put(PreparsedBlob& blob, std::size_t offset, std::span<const T> items)
{
    if (!items.empty()) std::memcpy(blob.data() + offset, items.data(), items.size() * sizeof(T));
}

}  // namespace

PreparsedBlob WritePreparsedBlob(const CollectionModel& model)
{
    preparsed::Header header{};
    header.magic = preparsed::kMagic;
    header.version = preparsed::kVersion;
    header.headerSize = static_cast<std::uint16_t>(preparsed::kBodyOffset);
    header.usage = model.usage;
    header.usagePage = model.usagePage;
    header.nodeCount = static_cast<std::uint16_t>(model.nodes.size());
    std::array<std::vector<std::uint64_t>, preparsed::kReportTypeCount> wideKeys;
    for (std::size_t t = 0; t < preparsed::kReportTypeCount; ++t) {
        const ReportTypeModel& report = model.reports[t];
        header.reportByteLength[t] = report.reportByteLength;
        header.buttonCapCount[t] = static_cast<std::uint16_t>(report.buttonCaps.size());
        header.valueCapCount[t] = static_cast<std::uint16_t>(report.valueCaps.size());
        header.dataIndexCount[t] = static_cast<std::uint16_t>(report.dataIndexCount);
        wideKeys[t] = WideKeys(report.valueFields);
        std::size_t singles = 0;
        for (const FieldRecord& field : report.valueFields)
            if (InLookup(field, wideKeys[t])) ++singles;
        header.hashBits[t] = HashBitsFor(singles);  // capability limits keep it below kMaxHashBits
    }

    const preparsed::Layout layout = preparsed::ComputeLayout(header);
    header.totalSize = static_cast<std::uint32_t>(layout.totalSize);

    PreparsedBlob blob(layout.totalSize, 0);
    for (std::size_t t = 0; t < preparsed::kReportTypeCount; ++t) {
        const ReportTypeModel& report = model.reports[t];
        WriteValueLookup(report.valueFields, wideKeys[t], header.hashBits[t], blob.data() + layout.valueLookup[t]);
        PutRecords(blob.data() + layout.valueFields[t], report.valueFields);
        PutRecords(blob.data() + layout.buttonFields[t], report.buttonFields);
        Put<HIDP_VALUE_CAPS>(blob, layout.valueCaps[t], report.valueCaps);
        Put<HIDP_BUTTON_CAPS>(blob, layout.buttonCaps[t], report.buttonCaps);
    }
    Put<HIDP_LINK_COLLECTION_NODE>(blob, layout.nodes, model.nodes);
    const std::uint64_t trailer = preparsed::kTrailer ^ layout.totalSize;
    std::memcpy(blob.data() + layout.trailer, &trailer, sizeof trailer);

    header.bodyChecksum =
        preparsed::BodyChecksum(blob.data() + preparsed::kBodyOffset, blob.size() - preparsed::kBodyOffset);
    std::memcpy(blob.data(), &header, sizeof header);
    header.hotCheck = preparsed::HotCheckOf(blob.data());
    std::memcpy(blob.data(), &header, sizeof header);
    const preparsed::HeaderCheck headerCheck = preparsed::CheckHeader(blob.data());
    std::memcpy(blob.data() + preparsed::kHeaderCheckOffset, &headerCheck, sizeof headerCheck);
    return blob;
}

}  // namespace host::hid
