// Framework objects and memory: parent/child deletion with callbacks,
// contexts, ownership of buffers and the handling of bad handles.
#include <string>
#include <vector>

#include "host/common/resource_ledger.h"
#include "host/framework/device.h"
#include "host/framework/memory.h"
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
WDFOBJECT siblingToDelete = nullptr;

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
    static NTSTATUS AllocateOther(WDFOBJECT object, size_t sizeOverride = 0, void** context = nullptr)
    {
        WDF_OBJECT_ATTRIBUTES attributes = Attributes(nullptr, WDF_GET_CONTEXT_TYPE_INFO(Other));
        attributes.ContextSizeOverride = sizeOverride;
        void* unused = nullptr;
        return WdfObjectAllocateContext(object, &attributes, context != nullptr ? context : &unused);
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

TEST_F(ObjectTest, DeletionsFromInsideCleanupCallbacksAreSafe)
{
    // A cleanup callback that deletes a sibling and then its own object again.
    WDFMEMORY root = Tagged(Device(), 1);
    siblingToDelete = Tagged(root, 2);
    WDF_OBJECT_ATTRIBUTES attributes = Attributes(root);
    attributes.EvtCleanupCallback = [](WDFOBJECT object) {
        WdfObjectDelete(siblingToDelete);
        WdfObjectDelete(object);
    };
    WDFMEMORY deleter = nullptr;
    ASSERT_EQ(WdfMemoryCreate(&attributes, PagedPool, 0, 8, &deleter, nullptr), STATUS_SUCCESS);
    WdfObjectDelete(root);
    EXPECT_EQ(events, Deleted({2, 1}));
}

TEST_F(ObjectTest, ContextsAreFoundByTypeOrUniqueTypeZeroedAndAllocatedOnce)
{
    WDFMEMORY memory = Tagged(Device(), 7);
    EXPECT_EQ(GetOther(memory), nullptr);
    void* context = nullptr;
    ASSERT_EQ(AllocateOther(memory, 4096, &context), STATUS_SUCCESS);
    EXPECT_EQ(context, GetOther(memory));
    EXPECT_EQ(static_cast<unsigned char*>(context)[4095], 0) << "the whole size override, zeroed";
    EXPECT_EQ(GetTag(memory)->id, 7);

    WDF_OBJECT_ATTRIBUTES again = Attributes(nullptr, WDF_GET_CONTEXT_TYPE_INFO(Tag));
    EXPECT_EQ(WdfObjectAllocateContext(memory, &again, &context), STATUS_OBJECT_NAME_EXISTS);
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

TEST_F(ObjectTest, DeadWrongTypeAndNullHandlesAreReportedNotFollowed)
{
    WDFMEMORY memory = Tagged(Device(), 1);
    WdfObjectDelete(memory);
    WdfObjectDelete(memory);  // already gone
    EXPECT_EQ(WdfObjectGetTypedContextWorker(memory, WDF_GET_CONTEXT_TYPE_INFO(Tag)), nullptr);
    EXPECT_FALSE(WdfTimerStart(reinterpret_cast<WDFTIMER>(Device()), -1));
    EXPECT_EQ(WdfRequestGetStatus(nullptr), STATUS_INVALID_HANDLE);
    int local = 0;
    EXPECT_EQ(WdfMemoryGetBuffer(reinterpret_cast<WDFMEMORY>(&local), nullptr), nullptr);
    ExpectViolations({"WdfObjectDelete: dead or foreign handle",
                      "WdfTimerStart: handle of a Device where a Timer is expected", "WdfRequestGetStatus: null handle"},
                     5);
    // The device and the driver belong to the framework.
    WdfObjectDelete(Device());
    WdfObjectDelete(Driver());
    EXPECT_EQ(host::framework::DeviceEndpoint(Device()), &endpoint_);
    ExpectViolations({}, 2);
}

}  // namespace
}  // namespace host::framework::testing
