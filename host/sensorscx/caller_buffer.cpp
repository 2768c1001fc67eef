#include "host/sensorscx/caller_buffer.h"

#include <algorithm>
#include <cstring>
#include <string>

#include "host/sensorscx/list_marshal.h"
#include "host/sensorscx/violations.h"

namespace host::sensorscx {

CallerBuffer::CallerBuffer(ULONG bytes) : bytes_(bytes)
{
    storage_.reset(new std::byte[GuardOffset() + kGuardBytes]());
    std::memset(storage_.get() + GuardOffset(), static_cast<int>(kGuard), kGuardBytes);
    const ULONG header[2] = {bytes, 0};
    std::memcpy(storage_.get(), header, sizeof(header));
}

std::size_t CallerBuffer::GuardOffset() const
{
    return std::max<std::size_t>(bytes_, static_cast<std::size_t>(marshal::kHeaderBytes));
}

ULONG CallerBuffer::HeaderCount() const
{
    ULONG header[2];
    std::memcpy(header, storage_.get(), sizeof(header));
    return header[1];
}

bool CallerBuffer::CheckIntact(std::string_view who) const
{
    bool intact = true;
    ULONG allocated = 0;
    std::memcpy(&allocated, storage_.get(), sizeof(allocated));
    if (allocated != bytes_) {
        ReportViolation(ViolationKind::AllocatedSizeChanged,
                        std::string(who) + ": AllocatedSizeInBytes of the caller's list changed from " +
                            std::to_string(bytes_) + " to " + std::to_string(allocated));
        intact = false;
    }
    const std::byte* guard = storage_.get() + GuardOffset();
    if (std::any_of(guard, guard + kGuardBytes, [](std::byte b) { return b != kGuard; })) {
        ReportViolation(ViolationKind::BufferOverrun,
                        std::string(who) + ": wrote past the end of the caller's " + std::to_string(bytes_) +
                            "-byte buffer");
        intact = false;
    }
    return intact;
}

CollectionListCopy CallerBuffer::TakeCollection(std::string_view who, bool* countFits) const
{
    CallerListDefects defects;
    CollectionListCopy list = CollectionListCopy::FromCallerBuffer(storage_.get(), bytes_, &defects);
    if (countFits != nullptr)
        *countFits = !defects.count.has_value();
    if (defects.count)
        ReportViolation(ViolationKind::ListCountExceedsSize, std::string(who) + ": " + *defects.count);
    for (const std::string& line : defects.content)
        ReportViolation(ViolationKind::ListContentOutsideBuffer, std::string(who) + ": " + line);
    return list;
}

}  // namespace host::sensorscx
