#include "tools/hidsensor/collection_caps.h"

#include <cstdio>

namespace hidsensor {
namespace {

std::string Failure(const char* call, NTSTATUS status)
{
    char text[64];
    std::snprintf(text, sizeof text, "%s failed with 0x%08X", call, static_cast<unsigned>(status));
    return text;
}

USHORT ValueCapCount(const HIDP_CAPS& caps, HIDP_REPORT_TYPE type)
{
    switch (type) {
    case HidP_Input: return caps.NumberInputValueCaps;
    case HidP_Output: return caps.NumberOutputValueCaps;
    default: return caps.NumberFeatureValueCaps;
    }
}

USHORT ButtonCapCount(const HIDP_CAPS& caps, HIDP_REPORT_TYPE type)
{
    switch (type) {
    case HidP_Input: return caps.NumberInputButtonCaps;
    case HidP_Output: return caps.NumberOutputButtonCaps;
    default: return caps.NumberFeatureButtonCaps;
    }
}

}  // namespace

bool ReadCollectionCaps(const std::vector<std::uint8_t>& preparsed, CollectionCaps& out, std::string& error)
{
    // The parser takes a mutable pointer but does not write through it.
    auto* data = reinterpret_cast<PHIDP_PREPARSED_DATA>(const_cast<std::uint8_t*>(preparsed.data()));
    NTSTATUS status = HidP_GetCaps(data, &out.caps);
    if (status != HIDP_STATUS_SUCCESS) {
        error = Failure("HidP_GetCaps", status);
        return false;
    }

    ULONG nodeCount = out.caps.NumberLinkCollectionNodes;
    out.nodes.resize(nodeCount);
    status = HidP_GetLinkCollectionNodes(out.nodes.data(), &nodeCount, data);
    if (status != HIDP_STATUS_SUCCESS) {
        error = Failure("HidP_GetLinkCollectionNodes", status);
        return false;
    }
    out.nodes.resize(nodeCount);

    for (std::size_t i = 0; i < kReportTypes.size(); ++i) {
        const HIDP_REPORT_TYPE type = kReportTypes[i];
        USHORT count = ValueCapCount(out.caps, type);
        out.valueCaps[i].resize(count);
        if (count > 0) {
            status = HidP_GetValueCaps(type, out.valueCaps[i].data(), &count, data);
            if (status != HIDP_STATUS_SUCCESS) {
                error = Failure("HidP_GetValueCaps", status);
                return false;
            }
            out.valueCaps[i].resize(count);
        }
        count = ButtonCapCount(out.caps, type);
        out.buttonCaps[i].resize(count);
        if (count > 0) {
            status = HidP_GetButtonCaps(type, out.buttonCaps[i].data(), &count, data);
            if (status != HIDP_STATUS_SUCCESS) {
                error = Failure("HidP_GetButtonCaps", status);
                return false;
            }
            out.buttonCaps[i].resize(count);
        }
    }
    return true;
}

}  // namespace hidsensor
