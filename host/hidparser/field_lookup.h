// Finds the field a value call addresses: through the blob's value lookup by
// (usage page, usage, report ID in byte 0 of the caller's report), then by
// link collection; a scan of the type's value fields for everything else.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>

#include "host/hidparser/preparsed_reader.h"

namespace host::hid {

// Which fields a call may use, given byte 0 of the report buffer.
enum class ReportIdRule {
    Match,        // the field's report ID must equal byte 0
    AdoptIfZero,  // as Match; byte 0 == 0 also accepts the first field, whose ID the caller then writes
};

inline bool LinkCollectionMatches(std::uint16_t fieldLink, USHORT requested)
{
    if (requested == HIDP_LINK_COLLECTION_UNSPECIFIED) return true;
    if (requested == HIDP_LINK_COLLECTION_ROOT) return fieldLink == 0;
    return fieldLink == requested;
}

inline bool ReportIdAccepted(std::uint8_t fieldId, std::uint8_t reportId, ReportIdRule rule)
{
    return fieldId == reportId || (rule == ReportIdRule::AdoptIfZero && reportId == 0);
}

// A record read from a possibly damaged body is used only if it lies inside
// the report it claims; reportByteLength comes from the checked header.
inline bool FieldFitsReport(const preparsed::FieldRecord& field, std::uint16_t reportByteLength)
{
    return preparsed::FitsReport(field.bitOffset, field.bitSize, field.reportCount, reportByteLength);
}

// Where the addressed elements sit; small, so that handing it back is cheap.
struct ValueLocation {
    std::uint32_t bitOffset;     // of the first element addressed
    std::uint16_t elementCount;  // elements of the usage (1 for a usage inside a range)
    std::uint16_t bitSize;       // may be above 32 (hidp_values.cpp)
    std::uint8_t reportId;
};

// The slow path: opens the whole blob and scans every value field of the
// type, for usage ranges, for a Set on a report whose byte 0 is still 0, and
// to tell "not found" from "in another report".
NTSTATUS ScanValues(PHIDP_PREPARSED_DATA data, std::size_t type, USAGE usagePage, USHORT linkCollection, USAGE usage,
                    std::uint8_t reportId, ReportIdRule rule, ValueLocation& location);

// What the per-report calls (value Get/Set, GetUsages) need of a blob for one
// report type: its value lookup, its button records and its report length,
// taken from the hot words only. Open checks, in a handful of well-predicted
// branches: word 0 (magic, version, header size) as one constant, the hot
// words against hotCheck, the hash sizes, that the counts add up to
// totalSize, and the trailer there. Forced inline: a call would cost a fifth
// of a hot call.
class HotIndex {
public:
    [[gnu::always_inline]] NTSTATUS Open(PHIDP_PREPARSED_DATA data, std::size_t type)
    {
        if (data == nullptr) return HIDP_STATUS_INVALID_PREPARSED_DATA;
        const auto* bytes = reinterpret_cast<const std::uint8_t*>(data);
        // Word by word into registers: a copy of all six makes compilers
        // bounce them through the stack.
        const std::uint64_t w[] = {Word(bytes, 0), Word(bytes, 1), Word(bytes, 2),
                                   Word(bytes, 3), Word(bytes, 4), Word(bytes, 5)};
        static_assert(std::size(w) == preparsed::kHotWordCount + 1);
        if (w[0] != preparsed::kHeaderWord0 || w[5] != preparsed::HotCheck(w[1], w[2], w[3], w[4]))
            return HIDP_STATUS_INVALID_PREPARSED_DATA;
        // Only a forged hotCheck gets here with a wrong count; each hash size
        // below 32 keeps the shifts and sums below far from overflowing, and
        // the exact total keeps every section inside totalSize.
        const std::uint64_t hashBits = w[4] >> 32;  // bytes 28..30
        if ((hashBits & 0xE0E0E0) != 0) return HIDP_STATUS_INVALID_PREPARSED_DATA;
        const std::uint64_t lookup0 = sizeof(preparsed::ValueSlot) << (hashBits & 0xFF);
        const std::uint64_t lookup1 = sizeof(preparsed::ValueSlot) << ((hashBits >> 8) & 0xFF);
        const std::uint64_t lookup2 = sizeof(preparsed::ValueSlot) << ((hashBits >> 16) & 0xFF);
        // Counts: nodes (word 2, bits 48..63), value caps (word 3, 3 x 16 bits),
        // button caps (word 3 bits 48..63 and word 4 bits 0..31).
        const std::uint64_t values = (w[3] & 0xFFFF) + ((w[3] >> 16) & 0xFFFF) + ((w[3] >> 32) & 0xFFFF);
        const std::uint64_t buttons0 = w[3] >> 48;
        const std::uint64_t buttons1 = w[4] & 0xFFFF;
        const std::uint64_t buttons2 = (w[4] >> 16) & 0xFFFF;
        constexpr std::uint64_t kPerCapability = sizeof(preparsed::FieldRecord) + sizeof(HIDP_VALUE_CAPS);
        static_assert(sizeof(HIDP_VALUE_CAPS) == sizeof(HIDP_BUTTON_CAPS));
        const std::uint64_t lookups = preparsed::kBodyOffset + lookup0 + lookup1 + lookup2;
        const std::uint64_t total = lookups + kPerCapability * (values + buttons0 + buttons1 + buttons2) +
                                    sizeof(HIDP_LINK_COLLECTION_NODE) * (w[2] >> 48) + preparsed::kTrailerSize;
        const std::uint32_t totalSize = static_cast<std::uint32_t>(w[1]);
        if (total != totalSize) return HIDP_STATUS_INVALID_PREPARSED_DATA;
        std::uint64_t trailer;
        std::memcpy(&trailer, bytes + totalSize - preparsed::kTrailerSize, sizeof trailer);
        if (trailer != (preparsed::kTrailer ^ totalSize)) return HIDP_STATUS_INVALID_PREPARSED_DATA;

        // Report lengths: word 1 bits 32..63, word 2 bits 0..15.
        reportByteLength_ = static_cast<std::uint16_t>(type == 2 ? w[2] : w[1] >> (32 + 16 * type));
        hashBits_ = static_cast<std::uint8_t>(hashBits >> (8 * type));
        lookup_ = bytes + preparsed::kBodyOffset + (type > 0 ? lookup0 : 0) + (type > 1 ? lookup1 : 0);
        // Button records follow the value records of all three types.
        buttons_ = bytes + lookups + sizeof(preparsed::FieldRecord) * (values + (type > 0 ? buttons0 : 0) +
                                                                      (type > 1 ? buttons1 : 0));
        buttonCount_ = static_cast<std::uint16_t>(type == 0 ? buttons0 : type == 1 ? buttons1 : buttons2);
        data_ = data;
        return HIDP_STATUS_SUCCESS;
    }

    std::uint16_t ReportByteLength() const { return reportByteLength_; }
    std::uint8_t HashBits() const { return hashBits_; }
    PHIDP_PREPARSED_DATA Data() const { return data_; }

    // Slot `slot` (below 1 << HashBits()), unchecked.
    preparsed::ValueSlot Slot(std::size_t slot) const
    {
        // Word by word: one 16-byte copy makes compilers bounce it through the stack.
        preparsed::ValueSlot s;
        std::memcpy(&s.w0, lookup_ + slot * sizeof s, 8);
        std::memcpy(&s.w1, lookup_ + slot * sizeof s + 8, 8);
        return s;
    }

    PreparsedView::Records ButtonRecords() const { return {buttons_, buttonCount_}; }

private:
    static std::uint64_t Word(const std::uint8_t* bytes, std::size_t index)
    {
        std::uint64_t word;
        std::memcpy(&word, bytes + 8 * index, sizeof word);
        return word;
    }

    // Filled by Open before any other use; left uninitialised on purpose, as
    // zeroing them costs a noticeable part of a hot call.
    const std::uint8_t* lookup_;
    const std::uint8_t* buttons_;
    PHIDP_PREPARSED_DATA data_;
    std::uint16_t reportByteLength_;
    std::uint16_t buttonCount_;
    std::uint8_t hashBits_;
};

// HIDP_STATUS_SUCCESS, HIDP_STATUS_USAGE_NOT_FOUND, HIDP_STATUS_INCOMPATIBLE_REPORT_ID or
// HIDP_STATUS_INVALID_PREPARSED_DATA. Linear probing from the hash slot of
// (page, usage, report ID) meets the fields with that key in descriptor
// order (the writer inserted them in that order); the first one in the link
// collection asked for is the answer. An empty slot ends the search. The
// hot path of every value call, hence forced inline.
[[gnu::always_inline]] inline NTSTATUS FindValue(const HotIndex& index, std::size_t type, USAGE usagePage,
                                                 USHORT linkCollection, USAGE usage, std::uint8_t reportId,
                                                 ReportIdRule rule, ValueLocation& location)
{
    const std::uint64_t key = preparsed::LookupKey(usagePage, usage, reportId);
    const std::size_t mask = (std::size_t{1} << index.HashBits()) - 1;
    std::size_t slot = preparsed::HashSlot(key, index.HashBits());
    // A valid lookup is at most half full; the bound stops a damaged one.
    for (std::size_t probes = 0; probes <= mask; ++probes) {
        const preparsed::ValueSlot s = index.Slot(slot);
        if (!preparsed::SlotValid(s, slot)) return HIDP_STATUS_INVALID_PREPARSED_DATA;
        if (s.BitSize() == 0) break;
        if (s.Key() == key && LinkCollectionMatches(s.LinkCollection(), linkCollection)) {
            if (!preparsed::FitsReport(s.BitOffset(), s.BitSize(), s.ReportCount(), index.ReportByteLength()))
                return HIDP_STATUS_INVALID_PREPARSED_DATA;
            location.bitOffset = s.BitOffset();
            location.elementCount = s.ReportCount();
            location.bitSize = s.BitSize();
            location.reportId = s.ReportId();
            return HIDP_STATUS_SUCCESS;
        }
        slot = (slot + 1) & mask;
    }
    return ScanValues(index.Data(), type, usagePage, linkCollection, usage, reportId, rule, location);
}

}  // namespace host::hid
