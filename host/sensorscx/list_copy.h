// An owned, self-contained copy of a SENSOR_COLLECTION_LIST: one buffer in the
// marshalled layout (list_marshal.h), every string, CLSID and blob inside it.
// It outlives the list it was copied from and is what samples, enumeration
// lists and client results are made of.
#pragma once

#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/sensorscx.h"

namespace host::sensorscx {

// What was wrong with a list found in a caller's buffer.
struct CallerListDefects {
    std::optional<std::string> count;  // Count needs more than the buffer holds
    std::vector<std::string> content;  // one line per entry whose data is not inside the buffer
};

class CollectionListCopy {
public:
    // An empty list (Count 0).
    CollectionListCopy();
    CollectionListCopy(const CollectionListCopy& other);
    CollectionListCopy& operator=(const CollectionListCopy& other);
    CollectionListCopy(CollectionListCopy&& other) noexcept;
    CollectionListCopy& operator=(CollectionListCopy&& other) noexcept;
    ~CollectionListCopy();

    // Deep copy of `count` entries whose pointers the caller vouches for (the
    // driver's own lists). Throws std::bad_alloc.
    static CollectionListCopy FromEntries(const SENSOR_VALUE_PAIR* entries, ULONG count);
    // Deep copy of the first Count entries; the caller has checked that they fit.
    static CollectionListCopy FromList(const SENSOR_COLLECTION_LIST& list)
    {
        return FromEntries(list.List, list.Count);
    }

    // Copy of a list a callee filled in a caller's buffer of `bufferBytes`
    // bytes, trusting nothing: only entries inside the buffer are taken, and a
    // pointer whose data is not wholly inside the buffer (or a string without
    // its terminator there) is taken as null. Each such defect is described in
    // `defects` when given. Throws std::bad_alloc.
    static CollectionListCopy FromCallerBuffer(const void* buffer, std::size_t bufferBytes,
                                               CallerListDefects* defects);

    const SENSOR_COLLECTION_LIST& List() const { return *reinterpret_cast<const SENSOR_COLLECTION_LIST*>(storage_.get()); }
    ULONG Count() const { return List().Count; }
    const SENSOR_VALUE_PAIR& operator[](ULONG index) const { return List().List[index]; }
    const SENSOR_VALUE_PAIR* begin() const { return List().List; }
    const SENSOR_VALUE_PAIR* end() const { return List().List + Count(); }
    // Bytes of the marshalled buffer; also its AllocatedSizeInBytes.
    ULONG SizeInBytes() const { return size_; }

    // The entry with this key, or null.
    const PROPVARIANT* Find(const PROPERTYKEY& key) const;

private:
    struct Unallocated {};
    explicit CollectionListCopy(Unallocated) noexcept {}
    void Allocate(ULONG bytes);

    std::unique_ptr<std::byte[]> storage_;
    ULONG size_ = 0;
};

}  // namespace host::sensorscx
