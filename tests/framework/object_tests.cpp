// Framework objects and memory: parent/child deletion with callbacks,
// contexts, ownership of buffers, wait locks and the leak report.
#include <string>
#include <vector>

#include "host/common/resource_ledger.h"
#include "host/framework/memory.h"
#include "platform/system.h"
#include "tests/framework/test_support.h"

namespace host::framework::testing {
namespace {

struct Tag {
    int id;
};
struct Other {
    int value;
};
WDF_DECLARE_CONTEXT_TYPE_WITH_NAME(Tag, GetTag)
WDF_DECLARE_CONTEXT_TYPE_WITH_NAME(Other, GetOther)

std::vector<std::string> events;

class ObjectTest : public DeviceTest {
protected:
    void SetUp() override
    {
        DeviceTest::SetUp();
        events.clear();
    }

    // Memory with a Tag context carrying `id` whose callbacks record into `events`.
    WDFMEMORY Tagged(WDFOBJECT parent, int id)
    {
        WDF_OBJECT_ATTRIBUTES attributes = Attributes(parent, WDF_GET_CONTEXT_TYPE_INFO(Tag));
        attributes.EvtCleanupCallback = [](WDFOBJECT o) { events.push_back("cleanup " + std::to_string(GetTag(o)->id)); };
        attributes.EvtDestroyCallback = [](WDFOBJECT o) { events.push_back("destroy " + std::to_string(GetTag(o)->id)); };
        WDFMEMORY memory = nullptr;
        EXPECT_EQ(WdfMemoryCreate(&attributes, PagedPool, 0, 16, &memory, nullptr), STATUS_SUCCESS);
        GetTag(memory)->id = id;
        return memory;
    }
    static std::vector<std::string> Deleted(std::initializer_list<int> ids)
    {
        std::vector<std::string> expected;
        for (int id : ids) {
            expected.push_back("cleanup " + std::to_string(id));
            expected.push_back("destroy " + std::to_string(id));
        }
        return expected;
    }
};

TEST_F(ObjectTest, DeletingAParentDeletesItsChildrenNewestFirstThenItself)
{
    WDFMEMORY root = Tagged(Device(), 1);
    WDFMEMORY first = Tagged(root, 2);
    WDFMEMORY second = Tagged(root, 3);
    Tagged(first, 4);
    WDFMEMORY third = Tagged(root, 5);

    WdfObjectDelete(third);  // a child alone leaves its parent and siblings
    EXPECT_EQ(events, Deleted({5}));
    EXPECT_NE(WdfMemoryGetBuffer(second, nullptr), nullptr);
    events.clear();
    WdfObjectDelete(root);
    // Child 3 (newest) goes first; child 2 takes its own child 4 with it first.
    EXPECT_EQ(events, Deleted({3, 4, 2, 1}));
    EXPECT_EQ(WdfMemoryGetBuffer(first, nullptr), nullptr);
    ExpectViolations({"dead or foreign handle"});
}

TEST_F(ObjectTest, EverythingParentedToTheDeviceGoesAtUnloadWithCallbacks)
{
    Tagged(Tagged(Device(), 1), 2);
    host_->Unload();
    EXPECT_EQ(events, Deleted({2, 1}));
}

TEST_F(ObjectTest, ContextsAreFoundByTypeOrUniqueTypeZeroedAndAllocatedOnce)
{
    WDFMEMORY memory = Tagged(Device(), 7);
    EXPECT_EQ(GetOther(memory), nullptr);
    WDF_OBJECT_ATTRIBUTES attributes = Attributes(nullptr, WDF_GET_CONTEXT_TYPE_INFO(Other));
    attributes.ContextSizeOverride = 4096;
    void* context = nullptr;
    ASSERT_EQ(WdfObjectAllocateContext(memory, &attributes, &context), STATUS_SUCCESS);
    EXPECT_EQ(context, GetOther(memory));
    EXPECT_EQ(static_cast<unsigned char*>(context)[4095], 0) << "the whole size override, zeroed";
    EXPECT_EQ(GetTag(memory)->id, 7);

    attributes.ContextTypeInfo = WDF_GET_CONTEXT_TYPE_INFO(Tag);
    EXPECT_EQ(WdfObjectAllocateContext(memory, &attributes, &context), STATUS_OBJECT_NAME_EXISTS);
    EXPECT_EQ(context, GetTag(memory));
    EXPECT_EQ(GetTag(memory)->id, 7);

    // A second registration record naming Tag's as its unique type finds the
    // same context, as records from two modules do.
    static const WDF_OBJECT_CONTEXT_TYPE_INFO alias = {sizeof(WDF_OBJECT_CONTEXT_TYPE_INFO), "Tag", sizeof(Tag),
                                                       WDF_GET_CONTEXT_TYPE_INFO(Tag), nullptr};
    EXPECT_EQ(WdfObjectGetTypedContextWorker(memory, &alias), GetTag(memory));
}

TEST_F(ObjectTest, MemoryIsOwnedByItsParentAndLentMemoryIsNot)
{
    WDFMEMORY memory = nullptr;
    void* buffer = nullptr;
    ASSERT_EQ(WdfMemoryCreate(nullptr, NonPagedPool, 0x6C766B54, 24, &memory, &buffer), STATUS_SUCCESS);
    EXPECT_EQ(Object::FromHandle(memory)->Parent(), Object::FromHandle(Driver())) << "the driver by default";
    SIZE_T size = 0;
    EXPECT_EQ(WdfMemoryGetBuffer(memory, &size), buffer);
    EXPECT_EQ(size, 24u);
    // Not zeroed, but a fixed pattern the driver can never mistake for data it wrote.
    EXPECT_EQ(static_cast<unsigned char*>(buffer)[23], 0xCD);

    WDF_OBJECT_ATTRIBUTES attributes = Attributes(memory);
    WDFMEMORY child = nullptr;
    unsigned char bytes[8] = {1, 2, 3, 4, 5, 6, 7, 8};
    ASSERT_EQ(WdfMemoryCreatePreallocated(&attributes, bytes, sizeof(bytes), &child), STATUS_SUCCESS);
    EXPECT_EQ(WdfMemoryGetBuffer(child, &size), bytes);
    const auto before = host::ResourceLedger::Instance().Live(host::ResourceKind::FrameworkMemory);
    WdfObjectDelete(memory);
    EXPECT_EQ(host::ResourceLedger::Instance().Live(host::ResourceKind::FrameworkMemory), before - 2);
    EXPECT_EQ(Object::FromHandle(child), nullptr);
    EXPECT_EQ(bytes[7], 8) << "a lent buffer stays the lender's, untouched";
}

TEST_F(ObjectTest, WaitLockTimesOutWhenHeldAndRefusesARecursiveAcquire)
{
    WDFWAITLOCK lock = nullptr;
    ASSERT_EQ(WdfWaitLockCreate(nullptr, &lock), STATUS_SUCCESS);
    EXPECT_EQ(WdfWaitLockAcquire(lock, nullptr), STATUS_SUCCESS);
    LONGLONG poll = 0;
    EXPECT_EQ(WdfWaitLockAcquire(lock, &poll), STATUS_TIMEOUT);
    EXPECT_EQ(WdfWaitLockAcquire(lock, nullptr), STATUS_INVALID_DEVICE_STATE);  // would deadlock
    WdfWaitLockRelease(lock);
    EXPECT_EQ(WdfWaitLockAcquire(lock, &poll), STATUS_SUCCESS);
    WdfWaitLockRelease(lock);
    ExpectViolations({}, 1);
}

TEST_F(ObjectTest, LeakReportNamesWhatIsLeftByKind)
{
    HANDLE event = CreateEventW(nullptr, FALSE, FALSE, nullptr);
    void* block = HeapAlloc(GetProcessHeap(), 0, 8);
    host_->Unload();
    EXPECT_EQ(host_->Leaks(), "driver heap blocks: 1, handles: 1");
    CloseHandle(event);
    HeapFree(GetProcessHeap(), 0, block);
    // Created after unload, with no driver to parent it: a root nobody deletes.
    WDFMEMORY orphan = nullptr;
    ASSERT_EQ(WdfMemoryCreate(nullptr, PagedPool, 0, 8, &orphan, nullptr), STATUS_SUCCESS);
    EXPECT_EQ(host_->Leaks(), "framework memory: 1 (live objects: Memory 1)");
    WdfObjectDelete(orphan);
    EXPECT_EQ(host_->Leaks(), "");
}

}  // namespace
}  // namespace host::framework::testing
