// The framework object model: every WDF handle is an Object with a parent, its
// children, typed contexts and cleanup/destroy callbacks. Deleting an object
// deletes its children first, newest first, as the framework does.
//
// Handles are the Object pointers themselves. A table of live objects lets every
// entry point tell a live handle from a dead or foreign one without touching
// the memory behind it, so a driver bug becomes a reported violation instead of
// a use-after-free. A freed address reused by a new object is not detected.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <new>
#include <string>
#include <vector>

#include "platform/wdf.h"

namespace host::framework {

enum class ObjectKind : unsigned {
    Driver,
    Device,
    Memory,
    IoTarget,
    Request,
    WaitLock,
    Timer,
    RegistryKey,
    Sensor,  // SENSOROBJECT of the sensor class extension
    Count
};

const char* ObjectKindName(ObjectKind kind);

class Object {
public:
    Object(const Object&) = delete;
    Object& operator=(const Object&) = delete;

    // The live object behind a handle of any WDF type, or null for a null, dead
    // or foreign handle.
    static Object* FromHandle(const void* handle);

    // Creates a T (derived from Object) parented to attributes->ParentObject or,
    // when that is absent, to `defaultParent` (which may be null: a root), with
    // the context the attributes describe. STATUS_INSUFFICIENT_RESOURCES when
    // memory runs out; STATUS_INVALID_PARAMETER for a dead parent or one being
    // deleted; STATUS_INFO_LENGTH_MISMATCH for attributes of the wrong Size.
    template <class T, class... Args>
    static NTSTATUS Create(Object* defaultParent, const WDF_OBJECT_ATTRIBUTES* attributes, T** out,
                           Args&&... args)
    {
        *out = nullptr;
        Object* parent = defaultParent;
        if (attributes != nullptr) {
            if (attributes->Size != sizeof(WDF_OBJECT_ATTRIBUTES))
                return STATUS_INFO_LENGTH_MISMATCH;
            if (attributes->ParentObject != nullptr) {
                parent = FromHandle(attributes->ParentObject);
                if (parent == nullptr)
                    return STATUS_INVALID_PARAMETER;
            }
        }
        T* object = nullptr;
        try {
            object = new T(std::forward<Args>(args)...);
        } catch (const std::bad_alloc&) {
            return STATUS_INSUFFICIENT_RESOURCES;
        }
        const NTSTATUS status = object->Attach(parent, attributes);
        if (!NT_SUCCESS(status)) {
            delete static_cast<Object*>(object);
            return status;
        }
        *out = object;
        return STATUS_SUCCESS;
    }

    // Deletes the object and everything parented to it. A second deletion of an
    // object already being deleted does nothing.
    static void Delete(Object* object);

    // Live objects of each kind, for leak reports.
    static std::array<std::int64_t, static_cast<unsigned>(ObjectKind::Count)> LiveCounts();

    ObjectKind Kind() const { return kind_; }
    Object* Parent() const;
    WDFOBJECT Handle() { return this; }
    bool BeingDeleted() const { return deleting_.load(std::memory_order_acquire); }

    // Adds the context of attributes->ContextTypeInfo (zeroed, ContextSizeOverride
    // honoured) and its callbacks. STATUS_OBJECT_NAME_EXISTS, with the existing
    // context in *context, when that type is already there.
    NTSTATUS AddContext(const WDF_OBJECT_ATTRIBUTES* attributes, void** context);
    // The context registered under `type` (or a type whose UniqueType is it), or null.
    void* Context(PCWDF_OBJECT_CONTEXT_TYPE_INFO type) const;
    // The object of the given kind nearest up the parent chain, this one included.
    Object* Ancestor(ObjectKind kind);

protected:
    explicit Object(ObjectKind kind);
    virtual ~Object();

    // Kind-specific teardown, run before the children are deleted (e.g. a timer
    // stops and waits for its callback, a target waits for its requests).
    virtual void OnDeleting() {}

private:
    struct ContextBlock {
        PCWDF_OBJECT_CONTEXT_TYPE_INFO type;
        std::unique_ptr<std::byte[]> storage;
        PFN_WDF_OBJECT_CONTEXT_CLEANUP cleanup;
        PFN_WDF_OBJECT_CONTEXT_DESTROY destroy;
    };

    NTSTATUS Attach(Object* parent, const WDF_OBJECT_ATTRIBUTES* attributes);
    NTSTATUS AddContextLocked(const WDF_OBJECT_ATTRIBUTES* attributes, void** context);
    void* ContextLocked(PCWDF_OBJECT_CONTEXT_TYPE_INFO type) const;
    void DetachFromParent();

    const ObjectKind kind_;
    std::atomic<bool> deleting_{false};
    bool registered_ = false;
    Object* parent_ = nullptr;                   // guarded by the tree lock
    std::vector<Object*> children_;              // creation order; guarded by the tree lock
    std::vector<ContextBlock> contexts_;         // guarded by the tree lock
};

}  // namespace host::framework
