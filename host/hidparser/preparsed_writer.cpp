#include "host/hidparser/preparsed_writer.h"

#include <cstring>
#include <utility>
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

// Chains the single-usage value fields that share a (page, usage, report ID)
// in descriptor order and enters the first of each chain in an
// open-addressing table.
std::vector<std::uint32_t> BuildValueLookup(std::vector<FieldRecord>& fields, std::uint8_t hashBits)
{
    const std::size_t slots = std::size_t{1} << hashBits;
    const std::size_t mask = slots - 1;
    std::vector<std::uint16_t> heads(slots, preparsed::kNoRecord);
    std::vector<std::uint16_t> chainTail(fields.size(), preparsed::kNoRecord);  // by chain head
    for (std::size_t i = 0; i < fields.size(); ++i) {
        if (!IsSingleUsage(fields[i])) continue;
        const std::uint64_t key = KeyOf(fields[i]);
        std::size_t slot = preparsed::HashSlot(key, hashBits);
        while (heads[slot] != preparsed::kNoRecord && KeyOf(fields[heads[slot]]) != key) slot = (slot + 1) & mask;
        const auto index = static_cast<std::uint16_t>(i);
        if (heads[slot] == preparsed::kNoRecord) {
            heads[slot] = index;
            chainTail[i] = index;
        } else {
            const std::uint16_t head = heads[slot];
            fields[chainTail[head]].nextSameKey = index;
            chainTail[head] = index;
        }
    }
    std::vector<std::uint32_t> table(slots);
    for (std::size_t slot = 0; slot < slots; ++slot) table[slot] = preparsed::EncodeSlot(heads[slot], slot);
    return table;
}

std::vector<FieldRecord> Checked(std::vector<FieldRecord> fields)
{
    for (FieldRecord& field : fields) field.check = preparsed::RecordCheck(field);
    return fields;
}

template <typename T> void Put(PreparsedBlob& blob, std::size_t offset, const T* data, std::size_t count)
{
    if (count != 0) std::memcpy(blob.data() + offset, data, count * sizeof(T));
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

    std::vector<FieldRecord> valueFields[preparsed::kReportTypeCount];
    std::vector<std::uint32_t> lookups[preparsed::kReportTypeCount];
    for (std::size_t t = 0; t < preparsed::kReportTypeCount; ++t) {
        const ReportTypeModel& report = model.reports[t];
        preparsed::ReportTypeHeader& out = header.reports[t];
        out.reportByteLength = report.reportByteLength;
        out.buttonCapCount = static_cast<std::uint16_t>(report.buttonCaps.size());
        out.valueCapCount = static_cast<std::uint16_t>(report.valueCaps.size());
        out.dataIndexCount = static_cast<std::uint16_t>(report.dataIndexCount);

        valueFields[t] = report.valueFields;
        std::size_t singles = 0;
        for (const FieldRecord& field : valueFields[t])
            if (IsSingleUsage(field)) ++singles;
        out.hashBits = HashBitsFor(singles);
        lookups[t] = BuildValueLookup(valueFields[t], out.hashBits);
        valueFields[t] = Checked(std::move(valueFields[t]));
    }

    preparsed::Layout layout{};
    preparsed::ComputeLayout(header, layout);  // hash bits stay far below the limit
    header.totalSize = static_cast<std::uint32_t>(layout.totalSize);

    PreparsedBlob blob(layout.totalSize, 0);
    for (std::size_t t = 0; t < preparsed::kReportTypeCount; ++t) {
        const ReportTypeModel& report = model.reports[t];
        Put(blob, layout.valueFields[t], valueFields[t].data(), valueFields[t].size());
        Put(blob, layout.valueHash[t], lookups[t].data(), lookups[t].size());
        const std::vector<FieldRecord> buttonFields = Checked(report.buttonFields);
        Put(blob, layout.buttonFields[t], buttonFields.data(), buttonFields.size());
        Put(blob, layout.valueCaps[t], report.valueCaps.data(), report.valueCaps.size());
        Put(blob, layout.buttonCaps[t], report.buttonCaps.data(), report.buttonCaps.size());
    }
    Put(blob, layout.nodes, model.nodes.data(), model.nodes.size());
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
