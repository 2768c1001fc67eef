#include "host/hidparser/field_lookup.h"

namespace host::hid {

using preparsed::FieldRecord;

NTSTATUS ScanValues(PHIDP_PREPARSED_DATA data, std::size_t type, USAGE usagePage, USHORT linkCollection, USAGE usage,
                    std::uint8_t reportId, ReportIdRule rule, ValueLocation& location)
{
    PreparsedView view;
    const NTSTATUS status = view.Open(data);
    if (!NT_SUCCESS(status)) return status;
    const PreparsedView::ReportInfo report = view.Report(type);
    const PreparsedView::Records records = view.ValueRecords(type);
    bool sawUsage = false;  // in the link collection, but in another report
    for (std::size_t index = 0; index < records.count; ++index) {
        FieldRecord field;
        if (!records.Get(index, field)) return HIDP_STATUS_INVALID_PREPARSED_DATA;
        if (field.usagePage != usagePage || usage < field.usageMin || usage > field.usageMax) continue;
        const std::uint32_t element = usage - field.usageMin;
        const bool isRange = field.usageMin != field.usageMax;
        if (isRange && element >= field.reportCount) continue;  // more usages than elements
        if (!LinkCollectionMatches(field.linkCollection, linkCollection)) continue;
        if (!ReportIdAccepted(field.reportId, reportId, rule)) {
            sawUsage = true;
            continue;
        }
        if (!FieldFitsReport(field, report.reportByteLength)) return HIDP_STATUS_INVALID_PREPARSED_DATA;
        // A usage inside a range is one element; a single usage owns them all.
        location.bitOffset = field.bitOffset + element * field.bitSize;
        location.elementCount = isRange ? 1 : field.reportCount;
        location.bitSize = field.bitSize;
        location.reportId = field.reportId;
        return HIDP_STATUS_SUCCESS;
    }
    return sawUsage ? HIDP_STATUS_INCOMPATIBLE_REPORT_ID : HIDP_STATUS_USAGE_NOT_FOUND;
}

}  // namespace host::hid
