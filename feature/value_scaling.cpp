#include "feature/value_scaling.h"

#include <cmath>
#include <cstdint>

#include "platform/hidpi.h"
#include "sensors/hid_sensor.h"
#include "tracing/trace.h"

namespace {
constexpr GUID kTraceMessageGuid = {
    0x3B1F6A52, 0x8C04, 0x4E7D, {0x9A, 0x61, 0x25, 0xD0, 0x7E, 0x4B, 0x13, 0xC8}};

// Double to integer as the x86 truncating conversion does it: toward zero, and
// the "integer indefinite" value (only the sign bit set) for NaN and anything
// out of range, instead of undefined behaviour.
std::int64_t TruncateToInt64(double value) noexcept
{
    if (!(value > -9223372036854775808.0 && value < 9223372036854775808.0))
        return INT64_MIN;
    return static_cast<std::int64_t>(value);
}

std::int32_t TruncateToInt32(double value) noexcept
{
    if (!(value > -2147483649.0 && value < 2147483648.0))
        return INT32_MIN;
    return static_cast<std::int32_t>(value);
}

ULONG Base(LONG logicalMin, ULONG raw, LONG signedValue) noexcept
{
    return logicalMin == 0 ? raw : static_cast<ULONG>(signedValue);
}
}  // namespace

ULONG ScaleToInteger(LONG logicalMin, ULONG raw, LONG signedValue, LONG exponent) noexcept
{
    const auto factor = static_cast<ULONG>(
        static_cast<std::uint64_t>(TruncateToInt64(std::pow(10.0, exponent))) & 0xFFFFFFFFu);
    return factor * Base(logicalMin, raw, signedValue);
}

ULONG ToLogicalValue(double value, LONG exponent, ULONG bitSize) noexcept
{
    const double x = value * std::pow(10.0, -static_cast<double>(exponent));
    const std::int32_t lo = TruncateToInt32(std::floor(x));
    const std::int32_t hi = TruncateToInt32(std::ceil(x));
    const std::int32_t nearest = (static_cast<double>(hi) - x) > (x - static_cast<double>(lo)) ? lo : hi;
    const auto r = static_cast<ULONG>(nearest);
    if (bitSize == 32 || x > 0)
        return r;
    return bitSize == 8 ? r + 0x100u : r + 0x10000u;
}

float ResolveFieldBound(float defaultValue, ULONG present1, float value1, ULONG present2,
                        float value2, ULONG present3, float value3) noexcept
{
    if (present1 == 1)
        return value1;
    if (present2 == 1)
        return value2;
    if (present3 == 1)
        return value3;
    return defaultValue;
}

void TraceHidStatus(const HidSensor* sensor, NTSTATUS status, ULONG reportType,
                    ULONG usagePageOrLinkCollection) noexcept
{
    PCWSTR name = sensor != nullptr ? sensor->GetFriendlyName() : nullptr;
    PCWSTR statusClass = u"other status";
    switch (status) {
    case HIDP_STATUS_INVALID_PREPARSED_DATA: statusClass = u"HIDP_STATUS_INVALID_PREPARSED_DATA"; break;
    case HIDP_STATUS_INVALID_REPORT_TYPE: statusClass = u"HIDP_STATUS_INVALID_REPORT_TYPE"; break;
    case HIDP_STATUS_INVALID_REPORT_LENGTH: statusClass = u"HIDP_STATUS_INVALID_REPORT_LENGTH"; break;
    case HIDP_STATUS_USAGE_NOT_FOUND: statusClass = u"HIDP_STATUS_USAGE_NOT_FOUND"; break;
    case HIDP_STATUS_BUFFER_TOO_SMALL: statusClass = u"HIDP_STATUS_BUFFER_TOO_SMALL"; break;
    case HIDP_STATUS_INCOMPATIBLE_REPORT_ID: statusClass = u"HIDP_STATUS_INCOMPATIBLE_REPORT_ID"; break;
    case HIDP_STATUS_REPORT_DOES_NOT_EXIST: statusClass = u"HIDP_STATUS_REPORT_DOES_NOT_EXIST"; break;
    default: break;
    }
    // One message per report type, so a reader can filter input failures
    // (every report) from feature ones (client calls).
    switch (reportType) {
    case HidP_Input:
        TRACE_ERROR(status, name, u"input report", statusClass, usagePageOrLinkCollection);
        break;
    case HidP_Output:
        TRACE_ERROR(status, name, u"output report", statusClass, usagePageOrLinkCollection);
        break;
    default:
        TRACE_ERROR(status, name, u"feature report", statusClass, usagePageOrLinkCollection);
        break;
    }
}
