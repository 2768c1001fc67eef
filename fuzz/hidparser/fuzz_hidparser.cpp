// Input: a 2-byte little-endian descriptor length L, L descriptor bytes, then
// bytes that fill the reports (the corpus files follow this layout). Every
// collection the parser accepts goes through every HidP_* call, then through
// the hot calls and a copying call once more with one blob byte changed.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "host/hidparser/report_descriptor_parser.h"
#include "platform/hidpi.h"

namespace {

constexpr std::size_t kMaxCapsPerType = 64;  // keeps one run fast

class ReportBytes {
public:
    explicit ReportBytes(std::span<const std::uint8_t> bytes) : bytes_(bytes) {}

    void Fill(std::vector<CHAR>& report, std::uint8_t reportId)
    {
        for (std::size_t i = 0; i < report.size(); ++i) report[i] = static_cast<CHAR>(Next());
        if (!report.empty()) report[0] = static_cast<CHAR>(reportId);
    }
    std::uint8_t Next()
    {
        if (bytes_.empty()) return static_cast<std::uint8_t>(counter_++ * 37);
        return bytes_[position_++ % bytes_.size()];
    }

private:
    std::span<const std::uint8_t> bytes_;
    std::size_t position_ = 0;
    std::size_t counter_ = 0;
};

USHORT ReportLength(const HIDP_CAPS& caps, HIDP_REPORT_TYPE type)
{
    return type == HidP_Input    ? caps.InputReportByteLength
           : type == HidP_Output ? caps.OutputReportByteLength
                                 : caps.FeatureReportByteLength;
}

void ExerciseValues(PHIDP_PREPARSED_DATA pp, HIDP_REPORT_TYPE type, const std::vector<HIDP_VALUE_CAPS>& caps,
                    std::vector<CHAR>& report, ReportBytes& source)
{
    const auto length = static_cast<ULONG>(report.size());
    std::vector<CHAR> array(4096 + 8);
    for (const HIDP_VALUE_CAPS& cap : caps) {
        source.Fill(report, cap.ReportID);
        const USAGE usage = cap.IsRange ? cap.Range.UsageMax : cap.NotRange.Usage;
        const USHORT link = source.Next() % 2 ? cap.LinkCollection : HIDP_LINK_COLLECTION_UNSPECIFIED;
        ULONG value = 0;
        HidP_GetUsageValue(type, cap.UsagePage, link, usage, &value, pp, report.data(), length);
        HidP_SetUsageValue(type, cap.UsagePage, link, usage, value ^ source.Next(), pp, report.data(), length);
        const auto arrayLength = static_cast<USHORT>(source.Next() * 17 % array.size());
        HidP_GetUsageValueArray(type, cap.UsagePage, link, usage, array.data(), arrayLength, pp, report.data(), length);
        HidP_SetUsageValueArray(type, cap.UsagePage, link, usage, array.data(), arrayLength, pp, report.data(), length);
        report[0] = 0;  // Set picks the report ID itself
        HidP_SetUsageValue(type, cap.UsagePage, link, usage, value, pp, report.data(), length);
    }
}

void ExerciseButtons(PHIDP_PREPARSED_DATA pp, HIDP_REPORT_TYPE type, const std::vector<HIDP_BUTTON_CAPS>& caps,
                     std::vector<CHAR>& report, ReportBytes& source)
{
    const auto length = static_cast<ULONG>(report.size());
    for (const HIDP_BUTTON_CAPS& cap : caps) {
        source.Fill(report, cap.ReportID);
        USAGE usages[8] = {};
        ULONG count = source.Next() % 9;
        HidP_GetUsages(type, cap.UsagePage, cap.LinkCollection, usages, &count, pp, report.data(), length);
        for (USAGE& usage : usages) {
            const USAGE low = cap.IsRange ? cap.Range.UsageMin : cap.NotRange.Usage;
            usage = static_cast<USAGE>(low + source.Next() % 4);
        }
        count = 1 + source.Next() % 8;
        HidP_UnsetUsages(type, cap.UsagePage, cap.LinkCollection, usages, &count, pp, report.data(), length);
        count = 1 + source.Next() % 8;
        HidP_SetUsages(type, cap.UsagePage, HIDP_LINK_COLLECTION_UNSPECIFIED, usages, &count, pp, report.data(),
                       length);
    }
}

// The capabilities of a good blob, which drive the calls on it and on a
// damaged copy of it.
struct Capabilities {
    HIDP_CAPS caps{};
    std::vector<HIDP_VALUE_CAPS> values[3];
    std::vector<HIDP_BUTTON_CAPS> buttons[3];
};

// The copying calls; false when the blob is refused.
bool ReadCapabilities(PHIDP_PREPARSED_DATA pp, Capabilities& out)
{
    if (HidP_GetCaps(pp, &out.caps) != HIDP_STATUS_SUCCESS) return false;
    std::vector<HIDP_LINK_COLLECTION_NODE> nodes(out.caps.NumberLinkCollectionNodes);
    ULONG nodeCount = static_cast<ULONG>(nodes.size());
    HidP_GetLinkCollectionNodes(nodes.data(), &nodeCount, pp);
    for (HIDP_REPORT_TYPE type : {HidP_Input, HidP_Output, HidP_Feature}) {
        auto& values = out.values[type];
        values.resize(kMaxCapsPerType);
        USHORT valueCount = kMaxCapsPerType;
        HidP_GetValueCaps(type, values.data(), &valueCount, pp);
        values.resize(std::min<std::size_t>(valueCount, kMaxCapsPerType));
        auto& buttons = out.buttons[type];
        buttons.resize(kMaxCapsPerType);
        USHORT buttonCount = kMaxCapsPerType;
        HidP_GetButtonCaps(type, buttons.data(), &buttonCount, pp);
        buttons.resize(std::min<std::size_t>(buttonCount, kMaxCapsPerType));
    }
    return true;
}

void CallEverything(PHIDP_PREPARSED_DATA pp, const Capabilities& capabilities, ReportBytes& source)
{
    for (HIDP_REPORT_TYPE type : {HidP_Input, HidP_Output, HidP_Feature}) {
        std::vector<CHAR> report(std::max<std::size_t>(ReportLength(capabilities.caps, type), 1));
        ExerciseValues(pp, type, capabilities.values[type], report, source);
        ExerciseButtons(pp, type, capabilities.buttons[type], report, source);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size < 2) return 0;
    const std::size_t declared = data[0] | (std::size_t{data[1]} << 8);
    const std::span<const std::uint8_t> rest(data + 2, size - 2);
    const std::size_t descriptorSize = std::min(declared, rest.size());
    ReportBytes source(rest.subspan(descriptorSize));

    std::vector<host::hid::PreparsedBlob> blobs;
    host::hid::ParseError error;
    if (!host::hid::ParseReportDescriptor(rest.first(descriptorSize), blobs, error)) return 0;

    for (host::hid::PreparsedBlob& blob : blobs) {
        auto* pp = reinterpret_cast<PHIDP_PREPARSED_DATA>(blob.data());
        Capabilities capabilities;
        if (!ReadCapabilities(pp, capabilities)) __builtin_trap();  // a fresh blob is always valid
        CallEverything(pp, capabilities, source);

        host::hid::PreparsedBlob damaged = blob;
        const std::size_t at = (std::size_t{source.Next()} << 8 | source.Next()) % damaged.size();
        damaged[at] = static_cast<std::uint8_t>(damaged[at] ^ (source.Next() | 1));
        auto* damagedPp = reinterpret_cast<PHIDP_PREPARSED_DATA>(damaged.data());
        Capabilities ignored;
        if (ReadCapabilities(damagedPp, ignored)) __builtin_trap();  // every changed byte is caught
        CallEverything(damagedPp, capabilities, source);
    }
    return 0;
}
