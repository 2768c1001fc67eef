// Framework memory objects: a buffer the framework owns (WdfMemoryCreate) or
// one the driver owns and only lends (WdfMemoryCreatePreallocated).
//
// An owned buffer is not zeroed, as on the platform; it is filled with 0xCD so
// that a driver reading before writing sees a fixed, recognisable pattern.
#pragma once

#include <cstddef>
#include <memory>

#include "host/framework/object.h"

namespace host::framework {

class MemoryObject final : public Object {
public:
    static constexpr ObjectKind kKind = ObjectKind::Memory;
    static constexpr std::byte kFillPattern{0xCD};

    // Owned buffer of `size` bytes (throws std::bad_alloc).
    MemoryObject(SIZE_T size, ULONG poolTag);
    // Borrowed buffer.
    MemoryObject(void* buffer, SIZE_T size);

    void* Buffer() const { return buffer_; }
    SIZE_T Size() const { return size_; }
    ULONG PoolTag() const { return poolTag_; }
    bool OwnsBuffer() const { return owned_ != nullptr; }

private:
    std::unique_ptr<std::byte[]> owned_;
    void* buffer_;
    SIZE_T size_;
    ULONG poolTag_ = 0;
};

}  // namespace host::framework
