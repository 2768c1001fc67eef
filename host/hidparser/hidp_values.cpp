// HidP_GetUsageValue, HidP_SetUsageValue and their array forms.
//
// Contract beyond the platform's documentation:
// - A null pointer argument other than the preparsed data gives
//   STATUS_INVALID_PARAMETER; null preparsed data gives
//   HIDP_STATUS_INVALID_PREPARSED_DATA.
// - Values are raw: GetUsageValue zero-extends the field's bits (callers
//   sign-extend by LogicalMin), SetUsageValue writes the low BitSize bits.
// - A usage whose field has ReportCount > 1 is a value array: the single-value
//   calls answer HIDP_STATUS_IS_VALUE_ARRAY rather than silently handling one
//   element of it, and the array calls answer HIDP_STATUS_NOT_VALUE_ARRAY for
//   a single value. A usage inside a usage range is one element.
// - Byte 0 of the report picks the report: Get requires a field of that
//   report ID. Set accepts byte 0 == 0 as "not chosen yet" and then writes the
//   report ID of the first matching field (descriptor order) into byte 0.
// - The array buffer holds the elements packed as in the report: element i at
//   bits i*BitSize.. of the buffer, ceil(BitSize*ReportCount/8) bytes.
// - A value wider than 32 bits (sensor hubs declare 48, 64 and 192-bit
//   fields) does not fit the ULONG of the single-value calls. GetUsageValue
//   answers its low 32 bits and SetUsageValue writes the ULONG zero-extended
//   over the whole field, so a driver reading it as a number sees what a
//   32-bit field of the same value would give. Its full bytes go through the
//   array calls, which treat such a field as an array even with ReportCount 1.
#include <algorithm>
#include <cstring>

#include "host/hidparser/field_lookup.h"
#include "host/hidparser/report_bits.h"
#include "platform/hidpi.h"
#include "platform/ntstatus.h"

namespace host::hid {
namespace {

struct ValueCall {
    HotIndex index;
    ValueLocation location;
};

// Common checks and the lookup of every value call, in the order the caller
// can act on: blob, report type, arguments, length, usage. Forced inline like
// FindValue: it is most of a hot call.
[[gnu::always_inline]] inline NTSTATUS LocateValue(HIDP_REPORT_TYPE reportType, USAGE usagePage, USHORT linkCollection,
                                                   USAGE usage, PHIDP_PREPARSED_DATA preparsedData, const void* value,
                                                   const CHAR* report, ULONG reportLength, ReportIdRule rule,
                                                   ValueCall& call)
{
    // An out-of-range type opens as type 0 so that a damaged blob still
    // answers HIDP_STATUS_INVALID_PREPARSED_DATA first.
    const bool typeValid = reportType >= HidP_Input && reportType <= HidP_Feature;
    const std::size_t type = typeValid ? static_cast<std::size_t>(reportType) : 0;
    NTSTATUS status = call.index.Open(preparsedData, type);
    if (!NT_SUCCESS(status)) return status;
    if (!typeValid) return HIDP_STATUS_INVALID_REPORT_TYPE;
    if (value == nullptr || report == nullptr) return STATUS_INVALID_PARAMETER;
    if (reportLength != call.index.ReportByteLength()) return HIDP_STATUS_INVALID_REPORT_LENGTH;
    if (reportLength == 0) return HIDP_STATUS_USAGE_NOT_FOUND;  // no report of this type
    const auto reportId = static_cast<std::uint8_t>(report[0]);
    return FindValue(call.index, type, usagePage, linkCollection, usage, reportId, rule, call.location);
}

void AdoptReportId(CHAR* report, const ValueLocation& location)
{
    if (report[0] == 0) report[0] = static_cast<CHAR>(location.reportId);
}

std::size_t ArrayByteLength(const ValueLocation& location)
{
    return (std::size_t{location.bitSize} * location.elementCount + 7) / 8;
}

bool IsArray(const ValueLocation& location)
{
    return location.elementCount > 1 || location.bitSize > 32;
}

constexpr unsigned kUlongBits = 32;

}  // namespace
}  // namespace host::hid

using host::hid::ReportIdRule;
using host::hid::ValueCall;

extern "C" NTSTATUS HidP_GetUsageValue(HIDP_REPORT_TYPE ReportType, USAGE UsagePage, USHORT LinkCollection, USAGE Usage,
                                       ULONG* UsageValue, PHIDP_PREPARSED_DATA PreparsedData, CHAR* Report,
                                       ULONG ReportLength)
{
    ValueCall call;
    const NTSTATUS status = host::hid::LocateValue(ReportType, UsagePage, LinkCollection, Usage, PreparsedData,
                                                   UsageValue, Report, ReportLength, ReportIdRule::Match, call);
    if (status != HIDP_STATUS_SUCCESS) return status;
    if (call.location.elementCount != 1) return HIDP_STATUS_IS_VALUE_ARRAY;
    const unsigned bits = std::min<unsigned>(call.location.bitSize, host::hid::kUlongBits);
    *UsageValue =
        host::hid::ExtractBits(reinterpret_cast<const std::uint8_t*>(Report), ReportLength, call.location.bitOffset, bits);
    return HIDP_STATUS_SUCCESS;
}

extern "C" NTSTATUS HidP_SetUsageValue(HIDP_REPORT_TYPE ReportType, USAGE UsagePage, USHORT LinkCollection, USAGE Usage,
                                       ULONG UsageValue, PHIDP_PREPARSED_DATA PreparsedData, CHAR* Report,
                                       ULONG ReportLength)
{
    ValueCall call;
    const NTSTATUS status = host::hid::LocateValue(ReportType, UsagePage, LinkCollection, Usage, PreparsedData, Report,
                                                   Report, ReportLength, ReportIdRule::AdoptIfZero, call);
    if (status != HIDP_STATUS_SUCCESS) return status;
    if (call.location.elementCount != 1) return HIDP_STATUS_IS_VALUE_ARRAY;
    auto* report = reinterpret_cast<std::uint8_t*>(Report);
    const host::hid::ValueLocation& at = call.location;
    const unsigned bits = std::min<unsigned>(at.bitSize, host::hid::kUlongBits);
    host::hid::InsertBits(report, ReportLength, at.bitOffset, bits, UsageValue);
    for (std::uint32_t high = bits; high < at.bitSize; high += host::hid::kUlongBits)
        host::hid::InsertBits(report, ReportLength, at.bitOffset + high,
                              std::min<unsigned>(at.bitSize - high, host::hid::kUlongBits), 0);
    host::hid::AdoptReportId(Report, at);
    return HIDP_STATUS_SUCCESS;
}

extern "C" NTSTATUS HidP_GetUsageValueArray(HIDP_REPORT_TYPE ReportType, USAGE UsagePage, USHORT LinkCollection,
                                            USAGE Usage, CHAR* UsageValue, USHORT UsageValueByteLength,
                                            PHIDP_PREPARSED_DATA PreparsedData, CHAR* Report, ULONG ReportLength)
{
    ValueCall call;
    const NTSTATUS status = host::hid::LocateValue(ReportType, UsagePage, LinkCollection, Usage, PreparsedData,
                                                   UsageValue, Report, ReportLength, ReportIdRule::Match, call);
    if (status != HIDP_STATUS_SUCCESS) return status;
    const host::hid::ValueLocation& at = call.location;
    if (!host::hid::IsArray(at)) return HIDP_STATUS_NOT_VALUE_ARRAY;
    const std::size_t bytes = host::hid::ArrayByteLength(at);
    if (UsageValueByteLength < bytes) return HIDP_STATUS_BUFFER_TOO_SMALL;

    const auto* source = reinterpret_cast<const std::uint8_t*>(Report);
    auto* target = reinterpret_cast<std::uint8_t*>(UsageValue);
    if (at.bitOffset % 8 == 0 && at.bitSize % 8 == 0) {
        std::memcpy(target, source + at.bitOffset / 8, bytes);
        return HIDP_STATUS_SUCCESS;
    }
    std::memset(target, 0, bytes);
    host::hid::CopyBits(source, ReportLength, at.bitOffset, target, bytes, 0,
                        std::uint32_t{at.bitSize} * at.elementCount);
    return HIDP_STATUS_SUCCESS;
}

extern "C" NTSTATUS HidP_SetUsageValueArray(HIDP_REPORT_TYPE ReportType, USAGE UsagePage, USHORT LinkCollection,
                                            USAGE Usage, CHAR* UsageValue, USHORT UsageValueByteLength,
                                            PHIDP_PREPARSED_DATA PreparsedData, CHAR* Report, ULONG ReportLength)
{
    ValueCall call;
    const NTSTATUS status = host::hid::LocateValue(ReportType, UsagePage, LinkCollection, Usage, PreparsedData,
                                                   UsageValue, Report, ReportLength, ReportIdRule::AdoptIfZero, call);
    if (status != HIDP_STATUS_SUCCESS) return status;
    const host::hid::ValueLocation& at = call.location;
    if (!host::hid::IsArray(at)) return HIDP_STATUS_NOT_VALUE_ARRAY;
    const std::size_t bytes = host::hid::ArrayByteLength(at);
    if (UsageValueByteLength < bytes) return HIDP_STATUS_BUFFER_TOO_SMALL;

    const auto* source = reinterpret_cast<const std::uint8_t*>(UsageValue);
    auto* target = reinterpret_cast<std::uint8_t*>(Report);
    if (at.bitOffset % 8 == 0 && at.bitSize % 8 == 0)
        std::memcpy(target + at.bitOffset / 8, source, bytes);
    else
        host::hid::CopyBits(source, bytes, 0, target, ReportLength, at.bitOffset,
                            std::uint32_t{at.bitSize} * at.elementCount);
    host::hid::AdoptReportId(Report, at);
    return HIDP_STATUS_SUCCESS;
}
