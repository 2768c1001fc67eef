#include "host/hidparser/preparsed_reader.h"

namespace host::hid {

NTSTATUS PreparsedView::Open(PHIDP_PREPARSED_DATA data)
{
    if (data == nullptr) return HIDP_STATUS_INVALID_PREPARSED_DATA;
    bytes_ = reinterpret_cast<const std::uint8_t*>(data);
    std::memcpy(&header_, bytes_, sizeof header_);
    std::uint64_t word0;
    std::memcpy(&word0, bytes_, sizeof word0);
    if (word0 != preparsed::kHeaderWord0) return HIDP_STATUS_INVALID_PREPARSED_DATA;
    preparsed::HeaderCheck stored;
    std::memcpy(&stored, bytes_ + preparsed::kHeaderCheckOffset, sizeof stored);
    if (!(stored == preparsed::CheckHeader(bytes_))) return HIDP_STATUS_INVALID_PREPARSED_DATA;
    // Also the hot words' own check, so that a blob these calls accept is one
    // the value calls accept too.
    if (header_.hotCheck != preparsed::HotCheckOf(bytes_)) return HIDP_STATUS_INVALID_PREPARSED_DATA;
    for (const std::uint8_t bits : header_.hashBits)
        if (bits > preparsed::kMaxHashBits) return HIDP_STATUS_INVALID_PREPARSED_DATA;
    layout_ = preparsed::ComputeLayout(header_);
    if (layout_.totalSize != header_.totalSize) return HIDP_STATUS_INVALID_PREPARSED_DATA;
    // A blob whose tail was cut off or zeroed fails here on every call.
    std::uint64_t trailer;
    std::memcpy(&trailer, bytes_ + layout_.trailer, sizeof trailer);
    if (trailer != (preparsed::kTrailer ^ std::uint64_t{header_.totalSize})) return HIDP_STATUS_INVALID_PREPARSED_DATA;
    return HIDP_STATUS_SUCCESS;
}

NTSTATUS PreparsedView::VerifyBody() const
{
    const std::uint64_t checksum =
        preparsed::BodyChecksum(bytes_ + preparsed::kBodyOffset, header_.totalSize - preparsed::kBodyOffset);
    return checksum == header_.bodyChecksum ? HIDP_STATUS_SUCCESS : HIDP_STATUS_INVALID_PREPARSED_DATA;
}

void PreparsedView::CopyValueCaps(std::size_t type, HIDP_VALUE_CAPS* out, std::size_t count) const
{
    if (count != 0) std::memcpy(out, bytes_ + layout_.valueCaps[type], count * sizeof(HIDP_VALUE_CAPS));
}

void PreparsedView::CopyButtonCaps(std::size_t type, HIDP_BUTTON_CAPS* out, std::size_t count) const
{
    if (count != 0) std::memcpy(out, bytes_ + layout_.buttonCaps[type], count * sizeof(HIDP_BUTTON_CAPS));
}

void PreparsedView::CopyNodes(HIDP_LINK_COLLECTION_NODE* out, std::size_t count) const
{
    if (count != 0) std::memcpy(out, bytes_ + layout_.nodes, count * sizeof(HIDP_LINK_COLLECTION_NODE));
}

}  // namespace host::hid
