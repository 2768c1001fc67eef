#include "host/hidparser/preparsed_writer.h"

#include <cstring>
#include <vector>

namespace host::hid {

namespace {

using preparsed::FieldRecord;

bool IsSingleUsage(const FieldRecord& field)
{
    return field.usageMin == field.usageMax;
}

std::uint64_t KeyOf(const FieldRecord& field)
{
    return preparsed::LookupKey(field.usagePage, field.usageMin, field.reportId);
}

std::uint8_t HashBitsFor(std::size_t keys)
{
    // At least twice as many slots as keys keeps probe chains short.
    std::uint8_t bits = 0;
    while ((std::size_t{1} << bits) < 2 * keys) ++bits;
    return bits;
}

// Scratch space reused for every report type of one blob.
struct LookupScratch {
    std::vector<FieldRecord> fields;
    std::vector<std::uint16_t> heads;      // by slot: first record of a key
    std::vector<std::uint16_t> chainTail;  // by chain head: last record so far
};

// Chains the single-usage value fields that share a (page, usage, report ID)
// in descriptor order (nextSameKey) and writes the open-addressing table that
// leads to the first of each chain.
void BuildValueLookup(std::vector<FieldRecord>& fields, std::uint8_t hashBits, LookupScratch& scratch,
                      std::uint8_t* table)
{
    const std::size_t slots = std::size_t{1} << hashBits;
    const std::size_t mask = slots - 1;
    scratch.heads.assign(slots, preparsed::kNoRecord);
    scratch.chainTail.assign(fields.size(), preparsed::kNoRecord);
    std::vector<std::uint16_t>& heads = scratch.heads;
    for (std::size_t i = 0; i < fields.size(); ++i) {
        if (!IsSingleUsage(fields[i])) continue;
        const std::uint64_t key = KeyOf(fields[i]);
        std::size_t slot = preparsed::HashSlot(key, hashBits);
        while (heads[slot] != preparsed::kNoRecord && KeyOf(fields[heads[slot]]) != key) slot = (slot + 1) & mask;
        const auto index = static_cast<std::uint16_t>(i);
        if (heads[slot] == preparsed::kNoRecord) {
            heads[slot] = index;
            scratch.chainTail[i] = index;
        } else {
            const std::uint16_t head = heads[slot];
            fields[scratch.chainTail[head]].nextSameKey = index;
            scratch.chainTail[head] = index;
        }
    }
    for (std::size_t slot = 0; slot < slots; ++slot) {
        const std::uint32_t entry = preparsed::EncodeSlot(heads[slot], slot);
        std::memcpy(table + slot * sizeof entry, &entry, sizeof entry);
    }
}

// Writes records with their checks.
void PutRecords(std::uint8_t* out, const FieldRecord* fields, std::size_t count)
{
    for (std::size_t i = 0; i < count; ++i) {
        FieldRecord field = fields[i];
        field.check = preparsed::RecordCheck(field);
        std::memcpy(out + i * sizeof field, &field, sizeof field);
    }
}

template <typename T> void Put(PreparsedBlob& blob, std::size_t offset, const std::vector<T>& items)
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
    for (std::size_t t = 0; t < preparsed::kReportTypeCount; ++t) {
        const ReportTypeModel& report = model.reports[t];
        preparsed::ReportTypeHeader& out = header.reports[t];
        out.reportByteLength = report.reportByteLength;
        out.buttonCapCount = static_cast<std::uint16_t>(report.buttonCaps.size());
        out.valueCapCount = static_cast<std::uint16_t>(report.valueCaps.size());
        out.dataIndexCount = static_cast<std::uint16_t>(report.dataIndexCount);
        std::size_t singles = 0;
        for (const FieldRecord& field : report.valueFields)
            if (IsSingleUsage(field)) ++singles;
        out.hashBits = HashBitsFor(singles);
    }

    preparsed::Layout layout{};
    preparsed::ComputeLayout(header, layout);  // hash bits stay far below the limit
    header.totalSize = static_cast<std::uint32_t>(layout.totalSize);

    PreparsedBlob blob(layout.totalSize, 0);
    LookupScratch scratch;
    for (std::size_t t = 0; t < preparsed::kReportTypeCount; ++t) {
        const ReportTypeModel& report = model.reports[t];
        scratch.fields.assign(report.valueFields.begin(), report.valueFields.end());
        BuildValueLookup(scratch.fields, header.reports[t].hashBits, scratch, blob.data() + layout.valueHash[t]);
        PutRecords(blob.data() + layout.valueFields[t], scratch.fields.data(), scratch.fields.size());
        PutRecords(blob.data() + layout.buttonFields[t], report.buttonFields.data(), report.buttonFields.size());
        Put(blob, layout.valueCaps[t], report.valueCaps);
        Put(blob, layout.buttonCaps[t], report.buttonCaps);
    }
    Put(blob, layout.nodes, model.nodes);
    const std::uint64_t trailer = preparsed::kTrailer ^ layout.totalSize;
    std::memcpy(blob.data() + layout.trailer, &trailer, sizeof trailer);

    header.bodyChecksum =
        preparsed::BodyChecksum(blob.data() + preparsed::kBodyOffset, blob.size() - preparsed::kBodyOffset);
    std::memcpy(blob.data(), &header, sizeof header);
    const preparsed::HeaderCheck headerCheck = preparsed::CheckHeader(blob.data());
    std::memcpy(blob.data() + preparsed::kHeaderCheckOffset, &headerCheck, sizeof headerCheck);
    return blob;
}

}  // namespace host::hid
