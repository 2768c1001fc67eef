#include "host/hidsim/ioctl_answers.h"

#include <algorithm>
#include <cstring>

#include "platform/hidclass.h"

namespace host::hidsim {

NTSTATUS CheckBuffer(const BYTE* buffer, ULONG length, ULONG needed)
{
    if (buffer == nullptr && length != 0)
        return STATUS_INVALID_PARAMETER;
    if (length < needed)
        return STATUS_BUFFER_TOO_SMALL;
    return STATUS_SUCCESS;
}

IoctlResult WriteCollectionInformation(const CollectionInformation& information, ULONG descriptorSize, BYTE* output,
                                       ULONG outputLength)
{
    const NTSTATUS status = CheckBuffer(output, outputLength, sizeof(HID_COLLECTION_INFORMATION));
    if (!NT_SUCCESS(status))
        return {status, 0};
    HID_COLLECTION_INFORMATION answer{};
    answer.DescriptorSize = descriptorSize;
    answer.Polled = information.polled ? TRUE : FALSE;
    answer.VendorID = information.vendorId;
    answer.ProductID = information.productId;
    answer.VersionNumber = information.versionNumber;
    std::memcpy(output, &answer, sizeof(answer));
    return {STATUS_SUCCESS, sizeof(answer)};
}

IoctlResult WritePreparsedData(std::span<const std::uint8_t> preparsed, BYTE* output, ULONG outputLength)
{
    const auto size = static_cast<ULONG>(preparsed.size());
    const NTSTATUS status = CheckBuffer(output, outputLength, size);
    if (!NT_SUCCESS(status))
        return {status, 0};
    if (size != 0)
        std::memcpy(output, preparsed.data(), size);
    return {STATUS_SUCCESS, size};
}

IoctlResult WriteDeviceString(const std::optional<std::u16string>& text, BYTE* output, ULONG outputLength)
{
    if (!text)
        return {STATUS_INVALID_PARAMETER, 0};
    const NTSTATUS status = CheckBuffer(output, outputLength, sizeof(char16_t));
    if (!NT_SUCCESS(status))
        return {status, 0};
    const std::size_t room = outputLength / sizeof(char16_t);
    const std::size_t copied = std::min(text->size(), room);
    std::memcpy(output, text->data(), copied * sizeof(char16_t));
    std::size_t written = copied;
    if (copied < room) {
        const char16_t terminator = 0;
        std::memcpy(output + copied * sizeof(char16_t), &terminator, sizeof(terminator));
        ++written;
    }
    return {STATUS_SUCCESS, static_cast<ULONG>(written * sizeof(char16_t))};
}

}  // namespace host::hidsim
