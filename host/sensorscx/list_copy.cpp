#include "host/sensorscx/list_copy.h"

#include <cstring>
#include <functional>
#include <string>
#include <limits>
#include <new>
#include <type_traits>

#include "host/sensorscx/list_format.h"
#include "host/sensorscx/list_marshal.h"

namespace host::sensorscx {
namespace {

// Moves every payload pointer of a marshalled buffer from one base to another.
void Rebase(SENSOR_COLLECTION_LIST* list, const std::byte* from, std::byte* to)
{
    const auto move = [&](auto* pointer) {
        using T = std::remove_pointer_t<decltype(pointer)>;
        return pointer == nullptr ? nullptr
                                  : reinterpret_cast<T*>(to + (reinterpret_cast<const std::byte*>(pointer) - from));
    };
    for (ULONG i = 0; i < list->Count; ++i) {
        PROPVARIANT& value = list->List[i].Value;
        if (value.vt == VT_LPWSTR)
            value.pwszVal = move(value.pwszVal);
        else if (value.vt == VT_CLSID)
            value.puuid = move(value.puuid);
        else if (value.vt == VT_BLOB)
            value.blob.pBlobData = move(value.blob.pBlobData);
    }
}

bool Inside(const std::byte* begin, const std::byte* end, const void* p, std::size_t bytes)
{
    const auto* q = static_cast<const std::byte*>(p);
    return !std::less<>()(q, begin) && !std::less<>()(end, q) && static_cast<std::size_t>(end - q) >= bytes;
}

}  // namespace

CollectionListCopy::CollectionListCopy() { Allocate(static_cast<ULONG>(marshal::kHeaderBytes)); }

CollectionListCopy::CollectionListCopy(const CollectionListCopy& other)
{
    Allocate(other.size_);
    std::memcpy(storage_.get(), other.storage_.get(), size_);
    Rebase(reinterpret_cast<SENSOR_COLLECTION_LIST*>(storage_.get()), other.storage_.get(), storage_.get());
}

CollectionListCopy& CollectionListCopy::operator=(const CollectionListCopy& other)
{
    if (this != &other) {
        CollectionListCopy copy(other);
        *this = std::move(copy);
    }
    return *this;
}

// The buffer itself moves, so the pointers inside it stay valid. A moved-from
// copy may only be assigned to or destroyed.
CollectionListCopy::CollectionListCopy(CollectionListCopy&& other) noexcept
    : storage_(std::move(other.storage_)), size_(other.size_)
{
    other.size_ = 0;
}

CollectionListCopy& CollectionListCopy::operator=(CollectionListCopy&& other) noexcept
{
    storage_ = std::move(other.storage_);
    size_ = other.size_;
    other.size_ = 0;
    return *this;
}

CollectionListCopy::~CollectionListCopy() = default;

void CollectionListCopy::Allocate(ULONG bytes)
{
    storage_.reset(new std::byte[bytes]());
    size_ = bytes;
    reinterpret_cast<SENSOR_COLLECTION_LIST*>(storage_.get())->AllocatedSizeInBytes = bytes;
}

CollectionListCopy CollectionListCopy::FromEntries(const SENSOR_VALUE_PAIR* entries, ULONG count)
{
    const std::uint64_t size = marshal::MarshalledSize(entries, count);
    if (size > std::numeric_limits<ULONG>::max())
        throw std::bad_alloc();
    CollectionListCopy copy{Unallocated{}};  // one allocation per copy: every sample makes one
    copy.Allocate(static_cast<ULONG>(size));
    marshal::MarshalInto(reinterpret_cast<SENSOR_COLLECTION_LIST*>(copy.storage_.get()), entries, count);
    return copy;
}

CollectionListCopy CollectionListCopy::FromCallerBuffer(const void* buffer, std::size_t bufferBytes,
                                                        CallerListDefects* defects)
{
    if (buffer == nullptr || bufferBytes < marshal::kHeaderBytes)
        return CollectionListCopy();
    const auto* list = static_cast<const SENSOR_COLLECTION_LIST*>(buffer);
    const auto* begin = static_cast<const std::byte*>(buffer);
    const auto* end = begin + bufferBytes;
    const std::uint64_t fitting = (bufferBytes - marshal::kHeaderBytes) / marshal::kEntryBytes;
    ULONG count = list->Count;
    if (count > fitting) {
        if (defects != nullptr)
            defects->count = "Count " + std::to_string(count) + " needs " +
                             std::to_string(marshal::EntriesBytes(count)) + " bytes, the buffer has " +
                             std::to_string(bufferBytes);
        count = static_cast<ULONG>(fitting);
    }
    std::vector<SENSOR_VALUE_PAIR> entries(list->List, list->List + count);
    for (ULONG i = 0; i < count; ++i) {
        PROPVARIANT& value = entries[i].Value;
        bool inside = true;
        if (value.vt == VT_CLSID && value.puuid != nullptr) {
            inside = Inside(begin, end, value.puuid, sizeof(CLSID));
            if (!inside)
                value.puuid = nullptr;
        } else if (value.vt == VT_BLOB && value.blob.pBlobData != nullptr) {
            inside = Inside(begin, end, value.blob.pBlobData, value.blob.cbSize);
            if (!inside)
                value.blob = BLOB{};
        } else if (value.vt == VT_LPWSTR && value.pwszVal != nullptr) {
            inside = Inside(begin, end, value.pwszVal, sizeof(WCHAR)) &&
                     reinterpret_cast<std::uintptr_t>(value.pwszVal) % alignof(WCHAR) == 0;
            if (inside) {
                // The terminator must be inside the buffer too.
                const auto units = static_cast<std::size_t>(end - reinterpret_cast<const std::byte*>(value.pwszVal)) /
                                   sizeof(WCHAR);
                inside = std::char_traits<char16_t>::find(value.pwszVal, units, u'\0') != nullptr;
            }
            if (!inside)
                value.pwszVal = nullptr;
        }
        if (!inside && defects != nullptr)
            defects->content.push_back("entry " + std::to_string(i) + " (" + VarTypeName(value.vt) +
                                       ") has data outside the caller's buffer");
    }
    return FromEntries(entries.data(), count);
}

const PROPVARIANT* CollectionListCopy::Find(const PROPERTYKEY& key) const
{
    for (const SENSOR_VALUE_PAIR& entry : *this) {
        if (IsEqualPropertyKey(entry.Key, key))
            return &entry.Value;
    }
    return nullptr;
}

}  // namespace host::sensorscx
