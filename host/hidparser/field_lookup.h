// Finds the field a HidP_* call addresses: values through the blob's lookup
// table by (usage page, usage, report ID in byte 0 of the caller's report),
// then by link collection; buttons by a scan of the type's button fields.
#pragma once

#include <cstdint>

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
    std::uint8_t bitSize;
    std::uint8_t reportId;
};

// The slow path: every value field of the type, for usage ranges, for a Set
// on a report whose byte 0 is still 0, and to tell "not found" from "in
// another report".
NTSTATUS ScanValues(const PreparsedView& view, std::size_t type, USAGE usagePage, USHORT linkCollection, USAGE usage,
                    std::uint8_t reportId, ReportIdRule rule, ValueLocation& location);

// HIDP_STATUS_SUCCESS, HIDP_STATUS_USAGE_NOT_FOUND, HIDP_STATUS_INCOMPATIBLE_REPORT_ID or
// HIDP_STATUS_INVALID_PREPARSED_DATA. The lookup slot of (page, usage, report
// ID) leads to the chain of fields with that key, in descriptor order; the
// first one in the link collection asked for is the answer. This is the hot
// path of every value call: records stay in registers as FieldWords, and the
// function is forced inline because a call costs a fifth of a hot call.
[[gnu::always_inline]] inline NTSTATUS FindValue(const PreparsedView& view, std::size_t type, USAGE usagePage,
                                                 USHORT linkCollection, USAGE usage, std::uint8_t reportId,
                                                 ReportIdRule rule, ValueLocation& location)
{
    const preparsed::ReportTypeHeader& report = view.Report(type);
    const PreparsedView::ValueSections values = view.Values(type);
    const std::uint64_t key = preparsed::LookupKey(usagePage, usage, reportId);
    const std::size_t mask = (std::size_t{1} << report.hashBits) - 1;
    std::size_t slot = preparsed::HashSlot(key, report.hashBits);
    preparsed::FieldWords field{};
    bool found = false;
    for (std::size_t probes = 0; probes <= mask; ++probes) {
        std::uint16_t index;
        if (!preparsed::DecodeSlot(PreparsedView::LookupSlot(values, slot), slot, index))
            return HIDP_STATUS_INVALID_PREPARSED_DATA;
        if (index == preparsed::kNoRecord) break;
        if (index >= report.valueCapCount) return HIDP_STATUS_INVALID_PREPARSED_DATA;
        field = PreparsedView::ValueWords(values, index);
        if (!field.Valid()) return HIDP_STATUS_INVALID_PREPARSED_DATA;
        if (field.Key() == key && field.UsageMin() == field.UsageMax()) {
            found = true;
            break;
        }
        slot = (slot + 1) & mask;
    }
    // A chain never repeats a record; the bound stops a damaged one.
    for (std::size_t steps = 0; found && steps < report.valueCapCount; ++steps) {
        if (LinkCollectionMatches(field.LinkCollection(), linkCollection)) {
            if (!field.FitsReport(report.reportByteLength)) return HIDP_STATUS_INVALID_PREPARSED_DATA;
            location.bitOffset = field.BitOffset();
            location.elementCount = field.ReportCount();
            location.bitSize = field.BitSize();
            location.reportId = field.ReportId();
            return HIDP_STATUS_SUCCESS;
        }
        const std::uint16_t next = field.NextSameKey();
        if (next == preparsed::kNoRecord) break;
        if (next >= report.valueCapCount) return HIDP_STATUS_INVALID_PREPARSED_DATA;
        field = PreparsedView::ValueWords(values, next);
        if (!field.Valid()) return HIDP_STATUS_INVALID_PREPARSED_DATA;
    }
    return ScanValues(view, type, usagePage, linkCollection, usage, reportId, rule, location);
}

}  // namespace host::hid
