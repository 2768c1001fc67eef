// Framework memory: ownership, parents and failure injection.
#include <cstring>

#include "host/common/resource_ledger.h"
#include "host/framework/memory.h"
#include "tests/framework/test_support.h"

namespace host::framework::testing {
namespace {

using MemoryTest = DeviceTest;

TEST_F(MemoryTest, CreatedMemoryIsParentedToTheDriverByDefaultAndDiesAtUnload)
{
    WDFMEMORY memory = nullptr;
    void* buffer = nullptr;
    ASSERT_EQ(WdfMemoryCreate(nullptr, NonPagedPool, 0x6C766B54, 24, &memory, &buffer), STATUS_SUCCESS);
    auto* object = static_cast<MemoryObject*>(Object::FromHandle(memory));
    ASSERT_NE(object, nullptr);
    EXPECT_EQ(object->Parent(), Object::FromHandle(Driver()));
    EXPECT_EQ(object->PoolTag(), 0x6C766B54u);
    SIZE_T size = 0;
    EXPECT_EQ(WdfMemoryGetBuffer(memory, &size), buffer);
    EXPECT_EQ(size, 24u);
    // Not zeroed, but a fixed pattern the driver can never mistake for data it wrote.
    EXPECT_EQ(static_cast<unsigned char*>(buffer)[23], 0xCD);

    host_->Unload();
    EXPECT_EQ(host_->Leaks(), "");
}

TEST_F(MemoryTest, PreallocatedMemoryLendsTheBufferWithoutOwningIt)
{
    unsigned char bytes[8] = {1, 2, 3, 4, 5, 6, 7, 8};
    WDF_OBJECT_ATTRIBUTES attributes;
    WDF_OBJECT_ATTRIBUTES_INIT(&attributes);
    attributes.ParentObject = Device();
    WDFMEMORY memory = nullptr;
    ASSERT_EQ(WdfMemoryCreatePreallocated(&attributes, bytes, sizeof(bytes), &memory), STATUS_SUCCESS);
    SIZE_T size = 0;
    EXPECT_EQ(WdfMemoryGetBuffer(memory, &size), bytes);
    EXPECT_EQ(size, sizeof(bytes));
    WdfObjectDelete(memory);
    EXPECT_EQ(bytes[7], 8);  // still ours, untouched
}

TEST_F(MemoryTest, MemoryParentedToAnObjectDiesWithIt)
{
    WDFMEMORY parent = nullptr;
    ASSERT_EQ(WdfMemoryCreate(nullptr, PagedPool, 0, 8, &parent, nullptr), STATUS_SUCCESS);
    WDF_OBJECT_ATTRIBUTES attributes;
    WDF_OBJECT_ATTRIBUTES_INIT(&attributes);
    attributes.ParentObject = parent;
    WDFMEMORY child = nullptr;
    ASSERT_EQ(WdfMemoryCreate(&attributes, PagedPool, 0, 8, &child, nullptr), STATUS_SUCCESS);
    const auto before = host::ResourceLedger::Instance().Live(host::ResourceKind::FrameworkMemory);
    WdfObjectDelete(parent);
    EXPECT_EQ(host::ResourceLedger::Instance().Live(host::ResourceKind::FrameworkMemory), before - 2);
    EXPECT_EQ(Object::FromHandle(child), nullptr);
}

TEST_F(MemoryTest, BadArgumentsAreRefused)
{
    WDFMEMORY memory = reinterpret_cast<WDFMEMORY>(1);
    EXPECT_EQ(WdfMemoryCreate(nullptr, PagedPool, 0, 0, &memory, nullptr), STATUS_INVALID_PARAMETER);
    EXPECT_EQ(memory, nullptr);
    EXPECT_EQ(WdfMemoryCreate(nullptr, PagedPool, 0, 8, nullptr, nullptr), STATUS_INVALID_PARAMETER);
    EXPECT_EQ(WdfMemoryCreatePreallocated(nullptr, nullptr, 8, &memory), STATUS_INVALID_PARAMETER);
    char byte = 0;
    EXPECT_EQ(WdfMemoryCreatePreallocated(nullptr, &byte, 0, &memory), STATUS_INVALID_PARAMETER);
}

TEST_F(MemoryTest, FrameworkMemoryFaultFailsTheNthCreationOfEitherKind)
{
    auto& faults = host::FaultInjector::Instance();
    faults.FailNth(host::FaultPoint::FrameworkMemory, 2, STATUS_INSUFFICIENT_RESOURCES);
    WDFMEMORY first = nullptr;
    WDFMEMORY second = nullptr;
    void* buffer = reinterpret_cast<void*>(1);
    char bytes[4];
    EXPECT_EQ(WdfMemoryCreate(nullptr, PagedPool, 0, 8, &first, nullptr), STATUS_SUCCESS);
    EXPECT_EQ(WdfMemoryCreate(nullptr, PagedPool, 0, 8, &second, &buffer), STATUS_INSUFFICIENT_RESOURCES);
    EXPECT_EQ(second, nullptr);
    EXPECT_EQ(buffer, nullptr);
    faults.FailNth(host::FaultPoint::FrameworkMemory, 1, STATUS_NO_MEMORY);
    EXPECT_EQ(WdfMemoryCreatePreallocated(nullptr, bytes, sizeof(bytes), &second), STATUS_NO_MEMORY);
    EXPECT_EQ(faults.Calls(host::FaultPoint::FrameworkMemory), 1u);
}

}  // namespace
}  // namespace host::framework::testing
