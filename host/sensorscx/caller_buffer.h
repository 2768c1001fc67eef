// A buffer a client hands to a driver callback: exactly `bytes` bytes for the
// driver, the list header initialised (AllocatedSizeInBytes = bytes, Count 0),
// followed by a guard pattern. After the call the client checks that the
// driver left AllocatedSizeInBytes alone and wrote nothing past the end.
// Buffers shorter than a list header still get a readable header.
#pragma once

#include <cstddef>
#include <memory>
#include <string_view>

#include "host/sensorscx/list_copy.h"
#include "platform/sensorscx.h"

namespace host::sensorscx {

class CallerBuffer {
public:
    // Throws std::bad_alloc.
    explicit CallerBuffer(ULONG bytes);

    ULONG Bytes() const { return bytes_; }
    void* Data() { return storage_.get(); }
    const void* Data() const { return storage_.get(); }
    PSENSOR_COLLECTION_LIST AsCollection() { return reinterpret_cast<PSENSOR_COLLECTION_LIST>(storage_.get()); }
    PSENSOR_PROPERTY_LIST AsProperties() { return reinterpret_cast<PSENSOR_PROPERTY_LIST>(storage_.get()); }
    ULONG HeaderCount() const;

    // Reports AllocatedSizeChanged and BufferOverrun violations, naming `who`;
    // true when neither happened.
    bool CheckIntact(std::string_view who) const;

    // The collection list the callee left here, every defect reported as a
    // violation naming `who`. *countFits (when given) tells whether Count was
    // within the buffer, i.e. whether the entries taken are the callee's data.
    // Throws std::bad_alloc.
    CollectionListCopy TakeCollection(std::string_view who, bool* countFits = nullptr) const;

private:
    static constexpr std::size_t kGuardBytes = 32;
    static constexpr std::byte kGuard{0xA5};

    std::size_t GuardOffset() const;

    std::unique_ptr<std::byte[]> storage_;
    ULONG bytes_;
};

}  // namespace host::sensorscx
