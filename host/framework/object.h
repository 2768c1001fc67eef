// The framework object model: every WDF handle is an Object with a parent, its
// children, typed contexts and cleanup/destroy callbacks. Deleting an object
// deletes its children first, newest first, as the framework does.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <new>
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
};

class Object {
public:
    Object(const Object&) = delete;
    Object& operator=(const Object&) = delete;

    // The live object behind a handle of any WDF type, or null for a null or
    // foreign handle.
    static Object* FromHandle(const void* handle);

    // Creates a T (derived from Object) parented to attributes->ParentObject or,
    // when that is absent, to `defaultParent`, with the context the attributes
    // describe. STATUS_INSUFFICIENT_RESOURCES when memory runs out.
    template <class T, class... Args>
    static NTSTATUS Create(Object* defaultParent, const WDF_OBJECT_ATTRIBUTES* attributes, T** out,
                           Args&&... args)
    {
        *out = nullptr;
        Object* parent = defaultParent;
        if (attributes != nullptr && attributes->ParentObject != nullptr) {
            parent = FromHandle(attributes->ParentObject);
            if (parent == nullptr)
                return STATUS_INVALID_PARAMETER;
        }
        T* object = new (std::nothrow) T(std::forward<Args>(args)...);
        if (object == nullptr)
            return STATUS_INSUFFICIENT_RESOURCES;
        const NTSTATUS status = object->Attach(parent, attributes);
        if (!NT_SUCCESS(status)) {
            delete static_cast<Object*>(object);
            return status;
        }
        *out = object;
        return STATUS_SUCCESS;
    }

    // Deletes the object and everything parented to it.
    static void Delete(Object* object);

    ObjectKind Kind() const { return kind_; }
    Object* Parent() const { return parent_; }
    WDFOBJECT Handle() { return this; }

    // Adds the context of attributes->ContextTypeInfo (zeroed, ContextSizeOverride
    // honoured) and its callbacks. STATUS_OBJECT_NAME_EXISTS when that type is
    // already there.
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
    void DetachFromParent();

    static constexpr std::uint64_t kLiveMagic = 0x4f424a5746444c56ull;  // "VLDFWJBO"
    std::atomic<std::uint64_t> magic_{kLiveMagic};
    const ObjectKind kind_;
    Object* parent_ = nullptr;
    std::vector<Object*> children_;  // creation order; guarded by the tree lock
    std::vector<ContextBlock> contexts_;
};

}  // namespace host::framework
