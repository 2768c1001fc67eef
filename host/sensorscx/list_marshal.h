// The marshalled form of a SENSOR_COLLECTION_LIST, shared by the utility
// library, the class extension's sample copies and the client's checks.
//
// Layout: the 8-byte header, Count entries of 48 bytes, then the payload the
// entries point to, in three runs: first every CLSID (16 bytes each), then every
// LPWSTR (its UTF-16 units and terminator), then every BLOB's bytes; each run in
// entry order. The entries end on an 8-byte boundary, so CLSIDs land 4-aligned
// and strings 2-aligned without padding, and the size is exactly
// 8 + 48 Count + the payload bytes. Pointers in the entries are re-pointed into
// the payload; null pointers stay null and take no payload.
#pragma once

#include <cstdint>
#include <string_view>

#include "platform/sensorscx.h"

namespace host::sensorscx::marshal {

inline constexpr std::uint64_t kHeaderBytes = offsetof(SENSOR_COLLECTION_LIST, List);
inline constexpr std::uint64_t kEntryBytes = sizeof(SENSOR_VALUE_PAIR);
inline constexpr std::uint64_t kKeyBytes = sizeof(PROPERTYKEY);

constexpr std::uint64_t EntriesBytes(std::uint64_t count) { return kHeaderBytes + kEntryBytes * count; }
constexpr std::uint64_t KeysBytes(std::uint64_t count) { return kHeaderBytes + kKeyBytes * count; }

// Bytes of the payload one value points to (0 for scalars and null pointers).
std::uint64_t PayloadBytes(const PROPVARIANT& value);

// Marshalled size of these entries; 64-bit so that callers decide how to clamp.
std::uint64_t MarshalledSize(const SENSOR_VALUE_PAIR* entries, ULONG count);

// Writes Count, the entries and their payload into `out`, which holds at least
// MarshalledSize(entries, count) bytes and does not overlap the entries or what
// they point to. AllocatedSizeInBytes is left as it is.
void MarshalInto(SENSOR_COLLECTION_LIST* out, const SENSOR_VALUE_PAIR* entries, ULONG count);

// True when the list is there and Count entries fit in AllocatedSizeInBytes;
// reports nothing, for paths that build a report's text only on failure.
inline bool CollectionFits(const SENSOR_COLLECTION_LIST* list)
{
    return list != nullptr && EntriesBytes(list->Count) <= list->AllocatedSizeInBytes;
}

// True when Count entries fit in AllocatedSizeInBytes; otherwise reports a
// ListCountExceedsSize violation naming `who` and gives false. A null list
// gives false and a NullArgument violation.
bool CheckCollectionFits(const SENSOR_COLLECTION_LIST* list, std::string_view who);
bool CheckPropertiesFit(const SENSOR_PROPERTY_LIST* list, std::string_view who);

}  // namespace host::sensorscx::marshal
