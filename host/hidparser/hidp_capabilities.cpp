// HidP_GetCaps, HidP_GetLinkCollectionNodes, HidP_GetValueCaps and
// HidP_GetButtonCaps: copies out of the preparsed data. These calls run once
// per collection, so they also check the body checksum.
//
// - Capabilities come in descriptor order, per report type.
// - A list shorter than the number of entries is filled as far as it goes;
//   the call then answers HIDP_STATUS_BUFFER_TOO_SMALL with the length set to
//   the number of entries. On success the length is set to the number copied.
// - Null pointers other than the preparsed data give STATUS_INVALID_PARAMETER
//   (a null list with length 0 is a size query).
#include <algorithm>

#include "host/hidparser/preparsed_reader.h"
#include "platform/hidpi.h"
#include "platform/ntstatus.h"

namespace host::hid {
namespace {

NTSTATUS OpenVerified(PHIDP_PREPARSED_DATA preparsedData, PreparsedView& view)
{
    const NTSTATUS status = view.Open(preparsedData);
    return NT_SUCCESS(status) ? view.VerifyBody() : status;
}

template <typename Caps, typename Copy>
NTSTATUS CopyCaps(HIDP_REPORT_TYPE reportType, Caps* caps, USHORT* length, PHIDP_PREPARSED_DATA preparsedData,
                  std::uint16_t PreparsedView::ReportInfo::*count, Copy copy)
{
    PreparsedView view;
    NTSTATUS status = view.Open(preparsedData);
    if (!NT_SUCCESS(status)) return status;
    if (reportType < HidP_Input || reportType > HidP_Feature) return HIDP_STATUS_INVALID_REPORT_TYPE;
    if (length == nullptr || (caps == nullptr && *length != 0)) return STATUS_INVALID_PARAMETER;
    status = view.VerifyBody();
    if (!NT_SUCCESS(status)) return status;

    const auto type = static_cast<std::size_t>(reportType);
    const std::uint16_t available = view.Report(type).*count;
    const std::uint16_t copied = std::min(*length, available);
    (view.*copy)(type, caps, copied);
    *length = available;
    return copied < available ? HIDP_STATUS_BUFFER_TOO_SMALL : HIDP_STATUS_SUCCESS;
}

}  // namespace
}  // namespace host::hid

using host::hid::PreparsedView;

extern "C" NTSTATUS HidP_GetCaps(PHIDP_PREPARSED_DATA PreparsedData, PHIDP_CAPS Capabilities)
{
    PreparsedView view;
    const NTSTATUS status = host::hid::OpenVerified(PreparsedData, view);
    if (!NT_SUCCESS(status)) return status;
    if (Capabilities == nullptr) return STATUS_INVALID_PARAMETER;

    const auto& header = view.Header();
    const PreparsedView::ReportInfo input = view.Report(HidP_Input);
    const PreparsedView::ReportInfo output = view.Report(HidP_Output);
    const PreparsedView::ReportInfo feature = view.Report(HidP_Feature);
    *Capabilities = HIDP_CAPS{};
    Capabilities->Usage = header.usage;
    Capabilities->UsagePage = header.usagePage;
    Capabilities->InputReportByteLength = input.reportByteLength;
    Capabilities->OutputReportByteLength = output.reportByteLength;
    Capabilities->FeatureReportByteLength = feature.reportByteLength;
    Capabilities->NumberLinkCollectionNodes = header.nodeCount;
    Capabilities->NumberInputButtonCaps = input.buttonCapCount;
    Capabilities->NumberInputValueCaps = input.valueCapCount;
    Capabilities->NumberInputDataIndices = input.dataIndexCount;
    Capabilities->NumberOutputButtonCaps = output.buttonCapCount;
    Capabilities->NumberOutputValueCaps = output.valueCapCount;
    Capabilities->NumberOutputDataIndices = output.dataIndexCount;
    Capabilities->NumberFeatureButtonCaps = feature.buttonCapCount;
    Capabilities->NumberFeatureValueCaps = feature.valueCapCount;
    Capabilities->NumberFeatureDataIndices = feature.dataIndexCount;
    return HIDP_STATUS_SUCCESS;
}

extern "C" NTSTATUS HidP_GetLinkCollectionNodes(PHIDP_LINK_COLLECTION_NODE LinkCollectionNodes,
                                                ULONG* LinkCollectionNodesLength, PHIDP_PREPARSED_DATA PreparsedData)
{
    PreparsedView view;
    const NTSTATUS status = host::hid::OpenVerified(PreparsedData, view);
    if (!NT_SUCCESS(status)) return status;
    if (LinkCollectionNodesLength == nullptr) return STATUS_INVALID_PARAMETER;
    if (LinkCollectionNodes == nullptr && *LinkCollectionNodesLength != 0) return STATUS_INVALID_PARAMETER;

    const ULONG available = view.Header().nodeCount;
    const ULONG copied = std::min(*LinkCollectionNodesLength, available);
    view.CopyNodes(LinkCollectionNodes, copied);
    *LinkCollectionNodesLength = available;
    return copied < available ? HIDP_STATUS_BUFFER_TOO_SMALL : HIDP_STATUS_SUCCESS;
}

extern "C" NTSTATUS HidP_GetValueCaps(HIDP_REPORT_TYPE ReportType, PHIDP_VALUE_CAPS ValueCaps, USHORT* ValueCapsLength,
                                      PHIDP_PREPARSED_DATA PreparsedData)
{
    return host::hid::CopyCaps(ReportType, ValueCaps, ValueCapsLength, PreparsedData,
                               &PreparsedView::ReportInfo::valueCapCount, &PreparsedView::CopyValueCaps);
}

extern "C" NTSTATUS HidP_GetButtonCaps(HIDP_REPORT_TYPE ReportType, PHIDP_BUTTON_CAPS ButtonCaps,
                                       USHORT* ButtonCapsLength, PHIDP_PREPARSED_DATA PreparsedData)
{
    return host::hid::CopyCaps(ReportType, ButtonCaps, ButtonCapsLength, PreparsedData,
                               &PreparsedView::ReportInfo::buttonCapCount, &PreparsedView::CopyButtonCaps);
}
