// Answers to the collection IOCTLs that depend only on fixed device data:
// collection information, the preparsed data and the strings. Each checks the
// caller's buffer first and never writes past outputLength.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "host/common/hid_collection_endpoint.h"
#include "host/hidsim/hid_device_config.h"

namespace host::hidsim {

using IoctlResult = HidCollectionEndpoint::IoctlResult;

// STATUS_INVALID_PARAMETER for a null buffer with a non-zero length,
// STATUS_BUFFER_TOO_SMALL when fewer than `needed` bytes, else STATUS_SUCCESS.
NTSTATUS CheckBuffer(const BYTE* buffer, ULONG length, ULONG needed);

// 12 bytes of HID_COLLECTION_INFORMATION.
IoctlResult WriteCollectionInformation(const CollectionInformation& information, ULONG descriptorSize, BYTE* output,
                                       ULONG outputLength);

// The whole blob; a shorter buffer gets STATUS_BUFFER_TOO_SMALL and nothing.
IoctlResult WritePreparsedData(std::span<const std::uint8_t> preparsed, BYTE* output, ULONG outputLength);

// As many UTF-16 characters as fit, then a terminator when there is room;
// information counts the bytes written. An absent string gives
// STATUS_INVALID_PARAMETER; a buffer below one character STATUS_BUFFER_TOO_SMALL.
IoctlResult WriteDeviceString(const std::optional<std::u16string>& text, BYTE* output, ULONG outputLength);

}  // namespace host::hidsim
