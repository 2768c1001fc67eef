#include "host/framework/memory.h"

#include <cstring>

#include "host/common/fault_injection.h"
#include "host/framework/handle_check.h"
#include "host/framework/runtime.h"

namespace host::framework {

MemoryObject::MemoryObject(SIZE_T size, ULONG poolTag)
    : Object(kKind), owned_(new std::byte[size]), buffer_(owned_.get()), size_(size), poolTag_(poolTag)
{
    std::memset(buffer_, static_cast<int>(kFillPattern), size);
}

MemoryObject::MemoryObject(void* buffer, SIZE_T size) : Object(kKind), buffer_(buffer), size_(size) {}

}  // namespace host::framework

using namespace host::framework;

extern "C" NTSTATUS WdfMemoryCreate(PWDF_OBJECT_ATTRIBUTES Attributes, POOL_TYPE /*PoolType*/, ULONG PoolTag,
                                    SIZE_T BufferSize, WDFMEMORY* Memory, void** Buffer)
{
    if (Buffer != nullptr)
        *Buffer = nullptr;
    if (Memory == nullptr)
        return STATUS_INVALID_PARAMETER;
    *Memory = nullptr;
    if (BufferSize == 0)
        return STATUS_INVALID_PARAMETER;
    NTSTATUS status = STATUS_SUCCESS;
    host::DriverCall driverCall(host::FaultPoint::FrameworkMemory);
    if (driverCall.Fails(&status))
        return status;
    MemoryObject* memory = nullptr;
    status = Object::Create(Runtime::Get().Driver(), Attributes, &memory, BufferSize, PoolTag);
    if (!NT_SUCCESS(status))
        return status;
    *Memory = static_cast<WDFMEMORY>(memory->Handle());
    if (Buffer != nullptr)
        *Buffer = memory->Buffer();
    return STATUS_SUCCESS;
}

extern "C" NTSTATUS WdfMemoryCreatePreallocated(PWDF_OBJECT_ATTRIBUTES Attributes, void* Buffer,
                                                SIZE_T BufferSize, WDFMEMORY* Memory)
{
    if (Memory == nullptr)
        return STATUS_INVALID_PARAMETER;
    *Memory = nullptr;
    if (Buffer == nullptr || BufferSize == 0)
        return STATUS_INVALID_PARAMETER;
    NTSTATUS status = STATUS_SUCCESS;
    host::DriverCall driverCall(host::FaultPoint::FrameworkMemory);
    if (driverCall.Fails(&status))
        return status;
    MemoryObject* memory = nullptr;
    status = Object::Create(Runtime::Get().Driver(), Attributes, &memory, Buffer, BufferSize);
    if (!NT_SUCCESS(status))
        return status;
    *Memory = static_cast<WDFMEMORY>(memory->Handle());
    return STATUS_SUCCESS;
}

extern "C" void* WdfMemoryGetBuffer(WDFMEMORY Memory, SIZE_T* BufferSize)
{
    if (BufferSize != nullptr)
        *BufferSize = 0;
    MemoryObject* memory = Resolve<MemoryObject>(Memory, "WdfMemoryGetBuffer");
    if (memory == nullptr)
        return nullptr;
    if (BufferSize != nullptr)
        *BufferSize = memory->Size();
    return memory->Buffer();
}
