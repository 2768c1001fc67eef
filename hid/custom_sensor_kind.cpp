#include "hid/custom_sensor_kind.h"

#include <cstring>

#include "driver/heap.h"
#include "driver/wide_string.h"
#include "hid/hid_device.h"
#include "tracing/trace.h"

namespace {
constexpr GUID kTraceMessageGuid = {
    0x9BE3F622, 0xD034, 0x4245, {0xBD, 0x6D, 0x61, 0x38, 0x7B, 0x16, 0xE6, 0xDC}};

constexpr USAGE kSensorDescriptionUsage = 0x0308;
constexpr USAGE kVendorUsageMask = 0xF000;
constexpr USAGE kModifierFreeMask = 0x0FFF;
constexpr USHORT kDescriptionBytes = 128;
constexpr std::size_t kDescriptionChars = kDescriptionBytes / sizeof(WCHAR);
constexpr std::size_t kLongestComparedDescription = 62;

struct KindDescription {
    PCWSTR description;
    CustomSensorKind kind;
};

// Compared in this order, whole string and case-sensitive.
constexpr KindDescription kKindDescriptions[] = {
    {u"0x210", CustomSensorKind::GestureTap},
    {u"0x211", CustomSensorKind::GestureLift},
    {u"0x212", CustomSensorKind::ZoomPan},
    {u"0x230", CustomSensorKind::Pedometer},
    {u"0x232", CustomSensorKind::Activity},
    {u"0x200", CustomSensorKind::RelativeOrientation},
    {u"0x205", CustomSensorKind::SimpleDeviceOrientation},
};

constexpr PCWSTR kFriendlyTextByKind[] = {
    u"HID Sensor Collection V2: Activity",
    u"HID Sensor Collection V2: Pedometer",
    u"HID Sensor Collection V2: Gesture Tap",
    u"HID Sensor Collection V2: Gesture Lift",
    u"HID Sensor Collection V2: Zoom&Pan",
    u"HID Sensor Collection V2: Relative Orientation",
    u"HID Sensor Collection V2: Simple Device Orientation",
    u"HID Sensor Collection V2: Other",
};

// All value capabilities of one report type; false on any failure or when the
// collection has none.
bool ReadValueCaps(HidDevice& device, HIDP_REPORT_TYPE type, USHORT count,
                   HeapArray<HIDP_VALUE_CAPS>& caps)
{
    if (count == 0)
        return true;
    if (!caps.AllocateZeroed(count)) {
        TRACE_ERROR(STATUS_NO_MEMORY, static_cast<ULONG>(type));
        return false;
    }
    USHORT length = count;
    const NTSTATUS status = HidP_GetValueCaps(type, caps.Get(), &length, device.PreparsedData());
    if (!NT_SUCCESS(status)) {
        TRACE_ERROR(status, static_cast<ULONG>(type));
        return false;
    }
    return true;
}

CustomSensorKind ClassifyFromFeatureReport(HidDevice* device, UCHAR sensorIndex, USHORT linkCollection)
{
    CustomSensorKind result = CustomSensorKind::Other;
    if (device == nullptr) {
        TRACE_ERROR(STATUS_INVALID_PARAMETER);
        return result;
    }

    const HIDP_CAPS& caps = device->Caps();
    HeapArray<HIDP_VALUE_CAPS> inputCaps;
    HeapArray<HIDP_VALUE_CAPS> featureCaps;
    if (!ReadValueCaps(*device, HidP_Input, caps.NumberInputValueCaps, inputCaps) ||
        !ReadValueCaps(*device, HidP_Feature, caps.NumberFeatureValueCaps, featureCaps))
        return result;
    if (inputCaps.Empty() || featureCaps.Empty()) {
        TRACE_INFO(static_cast<ULONG>(caps.NumberInputValueCaps),
                   static_cast<ULONG>(caps.NumberFeatureValueCaps));
        return result;
    }

    const auto reportId = static_cast<UCHAR>(inputCaps[0].ReportID + sensorIndex);
    HeapArray<BYTE> report;
    if (!report.AllocateZeroed(kMaxFeatureReportBytes)) {
        TRACE_ERROR(STATUS_NO_MEMORY);
        return result;
    }
    const ULONG reportLength = caps.FeatureReportByteLength;
    const NTSTATUS status = device->GetFeatureReport(reportId, report.Get(), reportLength, u"Custom");
    if (!NT_SUCCESS(status)) {
        TRACE_ERROR(status, static_cast<ULONG>(reportId));
        return result;
    }

    auto* reportBytes = reinterpret_cast<CHAR*>(report.Get());
    for (std::size_t i = 0; i < featureCaps.Count(); ++i) {
        const HIDP_VALUE_CAPS& cap = featureCaps[i];
        if (cap.ReportID != reportId)
            continue;
        if (cap.ReportCount == 0)
            break;

        // Filled only by the array read: a single-element description never matches.
        WCHAR description[kDescriptionChars] = {};
        if (cap.ReportCount == 1) {
            ULONG value = 0;
            const NTSTATUS valueStatus =
                HidP_GetUsageValue(HidP_Feature, cap.UsagePage, linkCollection, cap.NotRange.Usage, &value,
                                   device->PreparsedData(), reportBytes, reportLength);
            if (!NT_SUCCESS(valueStatus))
                TRACE_ERROR(valueStatus, static_cast<ULONG>(cap.NotRange.Usage));
        } else {
            HidP_GetUsageValueArray(HidP_Feature, cap.UsagePage, linkCollection, cap.NotRange.Usage,
                                    reinterpret_cast<CHAR*>(description), kDescriptionBytes,
                                    device->PreparsedData(), reportBytes, reportLength);
        }

        USAGE usage = cap.NotRange.Usage;
        if ((usage & kVendorUsageMask) != kVendorUsageMask)
            usage &= kModifierFreeMask;
        if (usage != kSensorDescriptionUsage)
            continue;

        reinterpret_cast<BYTE*>(description)[kDescriptionBytes - 1] = 0;
        // Clearing the last byte leaves the last character's low byte: bound the scan.
        const std::size_t length = WideLength(description, kDescriptionChars);
        TRACE_INFO(static_cast<ULONG>(reportId), static_cast<ULONG>(length));
        if (length > kLongestComparedDescription)
            continue;
        for (const KindDescription& entry : kKindDescriptions) {
            if (WideEquals(description, entry.description)) {
                result = entry.kind;
                break;
            }
        }
    }
    return result;
}

}  // namespace

PCWSTR CustomSensorKindFriendlyText(CustomSensorKind kind) noexcept
{
    const auto index = static_cast<ULONG>(kind);
    if (index >= sizeof(kFriendlyTextByKind) / sizeof(kFriendlyTextByKind[0]))
        return kFriendlyTextByKind[static_cast<ULONG>(CustomSensorKind::Other)];
    return kFriendlyTextByKind[index];
}

CustomSensorKind ClassifyCustomCollection(HidDevice* device, UCHAR sensorIndex,
                                          USHORT linkCollection) noexcept
{
    TRACE_ENTRY();
    const CustomSensorKind kind = ClassifyFromFeatureReport(device, sensorIndex, linkCollection);
    TRACE_INFO(static_cast<ULONG>(sensorIndex), static_cast<ULONG>(linkCollection), static_cast<ULONG>(kind));
    TRACE_EXIT(STATUS_SUCCESS);
    return kind;
}
