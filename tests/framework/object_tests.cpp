// Framework objects: parent/child deletion, contexts, callbacks and the
// handling of bad handles.
#include <string>
#include <vector>

#include "host/framework/device.h"
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

std::vector<std::string>& Events()
{
    static std::vector<std::string> events;
    return events;
}

void RecordCleanup(WDFOBJECT object)
{
    Events().push_back("cleanup " + std::to_string(GetTag(object)->id));
}

void RecordDestroy(WDFOBJECT object)
{
    Events().push_back("destroy " + std::to_string(GetTag(object)->id));
}

class ObjectTest : public DeviceTest {
protected:
    void SetUp() override
    {
        DeviceTest::SetUp();
        Events().clear();
    }

    // Memory with a Tag context carrying `id`, parented to `parent`.
    WDFMEMORY Tagged(WDFOBJECT parent, int id)
    {
        WDF_OBJECT_ATTRIBUTES attributes;
        WDF_OBJECT_ATTRIBUTES_INIT(&attributes);
        attributes.ParentObject = parent;
        attributes.ContextTypeInfo = WDF_GET_CONTEXT_TYPE_INFO(Tag);
        attributes.EvtCleanupCallback = RecordCleanup;
        attributes.EvtDestroyCallback = RecordDestroy;
        WDFMEMORY memory = nullptr;
        EXPECT_EQ(WdfMemoryCreate(&attributes, PagedPool, 0, 16, &memory, nullptr), STATUS_SUCCESS);
        GetTag(memory)->id = id;
        return memory;
    }
};

TEST_F(ObjectTest, DeletingAParentDeletesItsChildrenNewestFirstThenItself)
{
    WDFMEMORY root = Tagged(Device(), 1);
    WDFMEMORY first = Tagged(root, 2);
    Tagged(root, 3);
    Tagged(first, 4);

    WdfObjectDelete(root);

    // Child 3 (newest) goes first; child 2 takes its own child 4 with it first.
    const std::vector<std::string> expected = {"cleanup 3", "destroy 3", "cleanup 4", "destroy 4",
                                               "cleanup 2", "destroy 2", "cleanup 1", "destroy 1"};
    EXPECT_EQ(Events(), expected);
    EXPECT_EQ(WdfMemoryGetBuffer(first, nullptr), nullptr);
    EXPECT_TRUE(HasViolation(*host_, "dead or foreign handle"));
    ClearViolations();
}

TEST_F(ObjectTest, DeletingAChildLeavesTheParentAndItsOtherChildren)
{
    WDFMEMORY root = Tagged(Device(), 1);
    WDFMEMORY a = Tagged(root, 2);
    WDFMEMORY b = Tagged(root, 3);

    WdfObjectDelete(a);
    EXPECT_EQ(Events(), (std::vector<std::string>{"cleanup 2", "destroy 2"}));
    EXPECT_NE(WdfMemoryGetBuffer(b, nullptr), nullptr);

    WdfObjectDelete(root);
    EXPECT_EQ(Events().size(), 6u);
}

TEST_F(ObjectTest, EverythingParentedToTheDeviceGoesAtUnloadWithCallbacks)
{
    Tagged(Tagged(Device(), 1), 2);
    host_->Unload();
    EXPECT_EQ(Events(), (std::vector<std::string>{"cleanup 2", "destroy 2", "cleanup 1", "destroy 1"}));
}

TEST_F(ObjectTest, TypedContextIsFoundByItsTypeOnlyAndZeroed)
{
    WDFMEMORY memory = Tagged(Device(), 7);
    EXPECT_EQ(GetTag(memory)->id, 7);
    EXPECT_EQ(GetOther(memory), nullptr);

    WDF_OBJECT_ATTRIBUTES attributes;
    WDF_OBJECT_ATTRIBUTES_INIT(&attributes);
    attributes.ContextTypeInfo = WDF_GET_CONTEXT_TYPE_INFO(Other);
    void* context = nullptr;
    ASSERT_EQ(WdfObjectAllocateContext(memory, &attributes, &context), STATUS_SUCCESS);
    EXPECT_EQ(context, GetOther(memory));
    EXPECT_EQ(GetOther(memory)->value, 0);
    EXPECT_EQ(GetTag(memory)->id, 7);
}

TEST_F(ObjectTest, AllocatingTheSameContextTwiceReturnsTheExistingOne)
{
    WDFMEMORY memory = Tagged(Device(), 9);
    WDF_OBJECT_ATTRIBUTES attributes;
    WDF_OBJECT_ATTRIBUTES_INIT(&attributes);
    attributes.ContextTypeInfo = WDF_GET_CONTEXT_TYPE_INFO(Tag);
    void* context = nullptr;
    EXPECT_EQ(WdfObjectAllocateContext(memory, &attributes, &context), STATUS_OBJECT_NAME_EXISTS);
    EXPECT_EQ(context, GetTag(memory));
    EXPECT_EQ(GetTag(memory)->id, 9);
}

TEST_F(ObjectTest, ContextLookupGoesThroughUniqueTypeAndHonoursSizeOverride)
{
    // A second registration record that names Tag's record as its unique type
    // finds the same context, as records from two modules do.
    static const WDF_OBJECT_CONTEXT_TYPE_INFO alias = {sizeof(WDF_OBJECT_CONTEXT_TYPE_INFO), "Tag", sizeof(Tag),
                                                       WDF_GET_CONTEXT_TYPE_INFO(Tag), nullptr};
    WDFMEMORY memory = Tagged(Device(), 5);
    EXPECT_EQ(WdfObjectGetTypedContextWorker(memory, &alias), GetTag(memory));

    WDF_OBJECT_ATTRIBUTES attributes;
    WDF_OBJECT_ATTRIBUTES_INIT(&attributes);
    attributes.ContextTypeInfo = WDF_GET_CONTEXT_TYPE_INFO(Other);
    attributes.ContextSizeOverride = 4096;
    void* context = nullptr;
    ASSERT_EQ(WdfObjectAllocateContext(memory, &attributes, &context), STATUS_SUCCESS);
    auto* bytes = static_cast<unsigned char*>(context);
    EXPECT_EQ(bytes[4095], 0);  // the whole override is there (and zeroed)
}

TEST_F(ObjectTest, AllocateContextRefusesMissingTypeWrongSizeAndInjectedFailure)
{
    WDFMEMORY memory = Tagged(Device(), 1);
    WDF_OBJECT_ATTRIBUTES attributes;
    WDF_OBJECT_ATTRIBUTES_INIT(&attributes);
    void* context = nullptr;
    EXPECT_EQ(WdfObjectAllocateContext(memory, &attributes, &context), STATUS_INVALID_PARAMETER);
    attributes.ContextTypeInfo = WDF_GET_CONTEXT_TYPE_INFO(Other);
    attributes.Size = 8;
    EXPECT_EQ(WdfObjectAllocateContext(memory, &attributes, &context), STATUS_INFO_LENGTH_MISMATCH);
    attributes.Size = sizeof(attributes);
    host::FaultInjector::Instance().FailNth(host::FaultPoint::FrameworkMemory, 1, STATUS_INSUFFICIENT_RESOURCES);
    EXPECT_EQ(WdfObjectAllocateContext(memory, &attributes, &context), STATUS_INSUFFICIENT_RESOURCES);
    EXPECT_EQ(context, nullptr);
    EXPECT_EQ(GetOther(memory), nullptr);
}

TEST_F(ObjectTest, DeletingTheDeviceOrDriverIsRefusedAsAViolation)
{
    WdfObjectDelete(Device());
    WdfObjectDelete(Driver());
    EXPECT_EQ(host::framework::DeviceEndpoint(Device()), &endpoint_);
    EXPECT_EQ(host_->Violations().size(), 2u);
    ClearViolations();
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

    EXPECT_TRUE(HasViolation(*host_, "WdfObjectDelete: dead or foreign handle"));
    EXPECT_TRUE(HasViolation(*host_, "WdfTimerStart: handle of a Device where a Timer is expected"));
    EXPECT_TRUE(HasViolation(*host_, "WdfRequestGetStatus: null handle"));
    EXPECT_EQ(host_->Violations().size(), 5u);
    ClearViolations();
}

TEST_F(ObjectTest, AttributesWithAWrongSizeOrADeadParentAreRefused)
{
    WDF_OBJECT_ATTRIBUTES attributes;
    WDF_OBJECT_ATTRIBUTES_INIT(&attributes);
    attributes.Size = 0;
    WDFMEMORY memory = nullptr;
    EXPECT_EQ(WdfMemoryCreate(&attributes, PagedPool, 0, 8, &memory, nullptr), STATUS_INFO_LENGTH_MISMATCH);

    WDFMEMORY parent = Tagged(Device(), 1);
    WdfObjectDelete(parent);
    WDF_OBJECT_ATTRIBUTES_INIT(&attributes);
    attributes.ParentObject = parent;
    EXPECT_EQ(WdfMemoryCreate(&attributes, PagedPool, 0, 8, &memory, nullptr), STATUS_INVALID_PARAMETER);
    EXPECT_EQ(memory, nullptr);
}

// A cleanup callback that deletes a sibling, and one that deletes its own
// object again, must not corrupt the deletion in progress.
WDFOBJECT siblingToDelete = nullptr;
void DeleteSiblingAndSelf(WDFOBJECT object)
{
    WdfObjectDelete(siblingToDelete);
    WdfObjectDelete(object);
}

TEST_F(ObjectTest, DeletionsFromInsideCleanupCallbacksAreSafe)
{
    WDFMEMORY root = Tagged(Device(), 1);
    siblingToDelete = Tagged(root, 2);
    WDF_OBJECT_ATTRIBUTES attributes;
    WDF_OBJECT_ATTRIBUTES_INIT(&attributes);
    attributes.ParentObject = root;
    attributes.EvtCleanupCallback = DeleteSiblingAndSelf;
    WDFMEMORY deleter = nullptr;
    ASSERT_EQ(WdfMemoryCreate(&attributes, PagedPool, 0, 8, &deleter, nullptr), STATUS_SUCCESS);

    WdfObjectDelete(root);
    EXPECT_EQ(Events(), (std::vector<std::string>{"cleanup 2", "destroy 2", "cleanup 1", "destroy 1"}));
}

}  // namespace
}  // namespace host::framework::testing
