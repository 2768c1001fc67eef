// HidP_GetUsages, HidP_SetUsages and HidP_UnsetUsages: buttons and selectors.
//
// - Variable buttons: bit i of the field is usage UsageMin + i (the last usage
//   also names any further bits).
// - Array fields: each slot holds an index counted from Logical Minimum into
//   the main item's usages; a value outside Logical Minimum..Maximum is an
//   empty slot. Usage 0 is never reported. A slot holding 0, the usual empty
//   value, also counts as free for SetUsages, and UnsetUsages writes 0: a
//   selector whose first usage has index 0 (Logical Minimum 0, as sensors
//   declare them) reads back as that usage, and the next SetUsages replaces it.
// - Byte 0 of the report picks the report, as for values (field_lookup.h).
//   GetUsages and UnsetUsages need a field of that report ID; SetUsages on
//   byte 0 == 0 writes the ID of the field it uses.
// - *UsageLength: capacity in, usages returned out. GetUsages with too small
//   a list fills it, sets *UsageLength to the number needed and answers
//   HIDP_STATUS_BUFFER_TOO_SMALL. Set/Unset stop at the first usage that fails
//   and set *UsageLength to its position.
#include <algorithm>

#include "host/hidparser/field_lookup.h"
#include "host/hidparser/preparsed_reader.h"
#include "host/hidparser/report_bits.h"
#include "platform/hidpi.h"
#include "platform/ntstatus.h"

namespace host::hid {
namespace {

using preparsed::FieldRecord;

bool IsArray(const FieldRecord& field)
{
    return (field.flags & preparsed::kFieldArray) != 0;
}

std::uint32_t UsageCount(const FieldRecord& field)
{
    return std::uint32_t{field.usageMax} - field.usageMin + 1;
}

// The usage a slot value names, or 0 for an empty slot or another cap's usage.
USAGE ArrayUsage(const FieldRecord& field, std::uint32_t raw)
{
    const std::int64_t value = LogicalValue(raw, field.bitSize, field.logicalMin);
    if (value < field.logicalMin || value > field.logicalMax) return 0;
    const std::int64_t index = value - field.logicalMin - field.arrayIndexBase;
    if (index < 0 || index >= UsageCount(field)) return 0;
    return static_cast<USAGE>(field.usageMin + index);
}

// The slot value that names `usage` (which lies in the field's range).
std::uint32_t ArrayValue(const FieldRecord& field, USAGE usage)
{
    const std::int64_t value = std::int64_t{field.logicalMin} + field.arrayIndexBase + (usage - field.usageMin);
    return static_cast<std::uint32_t>(value) & FieldMask(field.bitSize);
}

// Element `element` of a button field. An array slot wider than 32 bits
// holds its index in its low 32 bits (Logical Minimum and Maximum are 32-bit
// numbers): the bits above are ignored when read and written as 0.
std::uint32_t ReadElement(const std::uint8_t* report, ULONG length, const FieldRecord& field, std::uint32_t element)
{
    const unsigned bits = std::min<unsigned>(field.bitSize, 32);
    return ExtractBits(report, length, field.bitOffset + element * field.bitSize, bits);
}

void WriteElement(std::uint8_t* report, ULONG length, const FieldRecord& field, std::uint32_t element,
                  std::uint32_t value)
{
    const std::uint32_t at = field.bitOffset + element * field.bitSize;
    const unsigned bits = std::min<unsigned>(field.bitSize, 32);
    InsertBits(report, length, at, bits, value);
    for (std::uint32_t high = bits; high < field.bitSize; high += 32)
        InsertBits(report, length, at + high, std::min<unsigned>(field.bitSize - high, 32), 0);
}

bool SlotIsFree(const FieldRecord& field, std::uint32_t raw)
{
    if (raw == 0) return true;
    const std::int64_t value = LogicalValue(raw, field.bitSize, field.logicalMin);
    return value < field.logicalMin || value > field.logicalMax;
}

NTSTATUS OpenUsageCall(HIDP_REPORT_TYPE reportType, PHIDP_PREPARSED_DATA preparsedData, const ULONG* usageLength,
                       const CHAR* report, ULONG reportLength, HotIndex& index)
{
    // An out-of-range type opens as type 0 so that a damaged blob still
    // answers HIDP_STATUS_INVALID_PREPARSED_DATA first.
    const bool typeValid = reportType >= HidP_Input && reportType <= HidP_Feature;
    NTSTATUS status = index.Open(preparsedData, typeValid ? static_cast<std::size_t>(reportType) : 0);
    if (!NT_SUCCESS(status)) return status;
    if (!typeValid) return HIDP_STATUS_INVALID_REPORT_TYPE;
    if (usageLength == nullptr || report == nullptr) return STATUS_INVALID_PARAMETER;
    if (reportLength != index.ReportByteLength()) return HIDP_STATUS_INVALID_REPORT_LENGTH;
    if (reportLength == 0) return HIDP_STATUS_USAGE_NOT_FOUND;
    return HIDP_STATUS_SUCCESS;
}

// The button field holding `usage` for a Set or Unset.
NTSTATUS FindButton(const HotIndex& index, USAGE usagePage, USHORT linkCollection, USAGE usage, std::uint8_t reportId,
                    ReportIdRule rule, FieldRecord& found)
{
    const PreparsedView::Records records = index.ButtonRecords();
    bool sawUsage = false;
    for (std::size_t i = 0; i < records.count; ++i) {
        FieldRecord field;
        if (!records.Get(i, field)) return HIDP_STATUS_INVALID_PREPARSED_DATA;
        if (field.usagePage != usagePage || usage < field.usageMin || usage > field.usageMax) continue;
        if (!IsArray(field) && usage - field.usageMin >= field.reportCount) continue;  // no bit left for it
        if (!LinkCollectionMatches(field.linkCollection, linkCollection)) continue;
        sawUsage = true;
        if (!ReportIdAccepted(field.reportId, reportId, rule)) continue;
        if (!FieldFitsReport(field, index.ReportByteLength())) return HIDP_STATUS_INVALID_PREPARSED_DATA;
        found = field;
        return HIDP_STATUS_SUCCESS;
    }
    return sawUsage ? HIDP_STATUS_INCOMPATIBLE_REPORT_ID : HIDP_STATUS_USAGE_NOT_FOUND;
}

NTSTATUS SetOne(std::uint8_t* report, ULONG length, const FieldRecord& field, USAGE usage)
{
    if (!IsArray(field)) {
        WriteElement(report, length, field, usage - field.usageMin, 1);
        return HIDP_STATUS_SUCCESS;
    }
    const std::uint32_t wanted = ArrayValue(field, usage);
    std::uint32_t freeSlot = field.reportCount;
    for (std::uint32_t slot = 0; slot < field.reportCount; ++slot) {
        const std::uint32_t raw = ReadElement(report, length, field, slot);
        if (raw == wanted) return HIDP_STATUS_SUCCESS;  // already set
        if (freeSlot == field.reportCount && SlotIsFree(field, raw)) freeSlot = slot;
    }
    if (freeSlot == field.reportCount) return HIDP_STATUS_BUFFER_TOO_SMALL;  // every slot is taken
    WriteElement(report, length, field, freeSlot, wanted);
    return HIDP_STATUS_SUCCESS;
}

NTSTATUS UnsetOne(std::uint8_t* report, ULONG length, const FieldRecord& field, USAGE usage)
{
    if (!IsArray(field)) {
        const std::uint32_t element = usage - field.usageMin;
        if (ReadElement(report, length, field, element) == 0) return HIDP_STATUS_BUTTON_NOT_PRESSED;
        WriteElement(report, length, field, element, 0);
        return HIDP_STATUS_SUCCESS;
    }
    const std::uint32_t wanted = ArrayValue(field, usage);
    for (std::uint32_t slot = 0; slot < field.reportCount; ++slot) {
        if (ReadElement(report, length, field, slot) == wanted) {
            WriteElement(report, length, field, slot, 0);
            return HIDP_STATUS_SUCCESS;
        }
    }
    return HIDP_STATUS_BUTTON_NOT_PRESSED;
}

// Set or Unset: one usage after the other, stopping at the first that fails.
NTSTATUS ChangeUsages(HIDP_REPORT_TYPE reportType, USAGE usagePage, USHORT linkCollection, const USAGE* usageList,
                      ULONG* usageLength, PHIDP_PREPARSED_DATA preparsedData, CHAR* reportChars, ULONG reportLength,
                      bool set)
{
    HotIndex index;
    NTSTATUS status = OpenUsageCall(reportType, preparsedData, usageLength, reportChars, reportLength, index);
    if (status != HIDP_STATUS_SUCCESS) return status;
    if (usageList == nullptr && *usageLength != 0) return STATUS_INVALID_PARAMETER;

    auto* report = reinterpret_cast<std::uint8_t*>(reportChars);
    const ReportIdRule rule = set ? ReportIdRule::AdoptIfZero : ReportIdRule::Match;
    for (ULONG i = 0; i < *usageLength; ++i) {
        FieldRecord field{};
        status = FindButton(index, usagePage, linkCollection, usageList[i], report[0], rule, field);
        if (status == HIDP_STATUS_SUCCESS)
            status = set ? SetOne(report, reportLength, field, usageList[i])
                         : UnsetOne(report, reportLength, field, usageList[i]);
        if (status != HIDP_STATUS_SUCCESS) {
            *usageLength = i;
            return status;
        }
        if (report[0] == 0) report[0] = field.reportId;
    }
    return HIDP_STATUS_SUCCESS;
}

}  // namespace
}  // namespace host::hid

using host::hid::preparsed::FieldRecord;

extern "C" NTSTATUS HidP_GetUsages(HIDP_REPORT_TYPE ReportType, USAGE UsagePage, USHORT LinkCollection,
                                   USAGE* UsageList, ULONG* UsageLength, PHIDP_PREPARSED_DATA PreparsedData,
                                   CHAR* Report, ULONG ReportLength)
{
    host::hid::HotIndex index;
    NTSTATUS status = host::hid::OpenUsageCall(ReportType, PreparsedData, UsageLength, Report, ReportLength, index);
    if (status != HIDP_STATUS_SUCCESS) return status;
    const ULONG capacity = *UsageLength;
    if (UsageList == nullptr && capacity != 0) return STATUS_INVALID_PARAMETER;

    const auto* report = reinterpret_cast<const std::uint8_t*>(Report);
    const auto reportId = report[0];
    bool sawPage = false;
    bool sawReport = false;
    ULONG found = 0;
    auto emit = [&](USAGE usage) {
        if (usage == 0) return;
        if (found < capacity) UsageList[found] = usage;
        ++found;
    };
    const host::hid::PreparsedView::Records records = index.ButtonRecords();
    for (std::size_t i = 0; i < records.count; ++i) {
        FieldRecord field;
        if (!records.Get(i, field)) return HIDP_STATUS_INVALID_PREPARSED_DATA;
        if (field.usagePage != UsagePage || !host::hid::LinkCollectionMatches(field.linkCollection, LinkCollection))
            continue;
        sawPage = true;
        if (field.reportId != reportId) continue;
        sawReport = true;
        if (!host::hid::FieldFitsReport(field, index.ReportByteLength())) return HIDP_STATUS_INVALID_PREPARSED_DATA;
        for (std::uint32_t element = 0; element < field.reportCount; ++element) {
            const std::uint32_t raw = host::hid::ReadElement(report, ReportLength, field, element);
            if (host::hid::IsArray(field)) {
                emit(host::hid::ArrayUsage(field, raw));
            } else if (raw != 0) {
                const std::uint32_t usage = std::min<std::uint32_t>(field.usageMin + element, field.usageMax);
                emit(static_cast<USAGE>(usage));
            }
        }
    }
    if (!sawPage) return HIDP_STATUS_USAGE_NOT_FOUND;
    if (!sawReport) return HIDP_STATUS_INCOMPATIBLE_REPORT_ID;
    *UsageLength = found;
    return found > capacity ? HIDP_STATUS_BUFFER_TOO_SMALL : HIDP_STATUS_SUCCESS;
}

extern "C" NTSTATUS HidP_SetUsages(HIDP_REPORT_TYPE ReportType, USAGE UsagePage, USHORT LinkCollection,
                                   USAGE* UsageList, ULONG* UsageLength, PHIDP_PREPARSED_DATA PreparsedData,
                                   CHAR* Report, ULONG ReportLength)
{
    return host::hid::ChangeUsages(ReportType, UsagePage, LinkCollection, UsageList, UsageLength, PreparsedData,
                                   Report, ReportLength, true);
}

extern "C" NTSTATUS HidP_UnsetUsages(HIDP_REPORT_TYPE ReportType, USAGE UsagePage, USHORT LinkCollection,
                                     USAGE* UsageList, ULONG* UsageLength, PHIDP_PREPARSED_DATA PreparsedData,
                                     CHAR* Report, ULONG ReportLength)
{
    return host::hid::ChangeUsages(ReportType, UsagePage, LinkCollection, UsageList, UsageLength, PreparsedData,
                                   Report, ReportLength, false);
}
