#include "host/hidparser/preparsed_reader.h"

namespace host::hid {

namespace {

// Open has checked that the sections add up; the copying calls need the
// offsets of the capability and node sections too.
preparsed::Layout LayoutOf(const preparsed::Header& header)
{
    preparsed::Layout layout{};
    preparsed::ComputeLayout(header, layout);
    return layout;
}

}  // namespace

NTSTATUS PreparsedView::VerifyBody() const
{
    const std::uint64_t checksum =
        preparsed::BodyChecksum(bytes_ + preparsed::kBodyOffset, header_.totalSize - preparsed::kBodyOffset);
    return checksum == header_.bodyChecksum ? HIDP_STATUS_SUCCESS : HIDP_STATUS_INVALID_PREPARSED_DATA;
}

void PreparsedView::CopyValueCaps(std::size_t type, HIDP_VALUE_CAPS* out, std::size_t count) const
{
    if (count != 0) std::memcpy(out, bytes_ + LayoutOf(header_).valueCaps[type], count * sizeof(HIDP_VALUE_CAPS));
}

void PreparsedView::CopyButtonCaps(std::size_t type, HIDP_BUTTON_CAPS* out, std::size_t count) const
{
    if (count != 0) std::memcpy(out, bytes_ + LayoutOf(header_).buttonCaps[type], count * sizeof(HIDP_BUTTON_CAPS));
}

void PreparsedView::CopyNodes(HIDP_LINK_COLLECTION_NODE* out, std::size_t count) const
{
    if (count != 0) std::memcpy(out, bytes_ + LayoutOf(header_).nodes, count * sizeof(HIDP_LINK_COLLECTION_NODE));
}

}  // namespace host::hid
