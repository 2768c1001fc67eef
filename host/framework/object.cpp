#include "host/framework/object.h"
#include "host/common/fault_injection.h"

#include <algorithm>
#include <cstring>
#include <iterator>
#include <mutex>
#include <unordered_set>

#include "host/common/resource_ledger.h"

namespace host::framework {
namespace {

// One lock for the shape of the whole object tree, the contexts and the table
// of live objects. Callbacks never run under it.
std::mutex& TreeLock()
{
    static std::mutex lock;
    return lock;
}

struct LiveTable {
    std::unordered_set<const Object*> objects;
    std::array<std::int64_t, static_cast<unsigned>(ObjectKind::Count)> counts{};
};

LiveTable& Live()
{
    static LiveTable table;
    return table;
}

ResourceKind LedgerKind(ObjectKind kind)
{
    return kind == ObjectKind::Memory ? ResourceKind::FrameworkMemory : ResourceKind::FrameworkObject;
}

bool SameType(PCWDF_OBJECT_CONTEXT_TYPE_INFO a, PCWDF_OBJECT_CONTEXT_TYPE_INFO b)
{
    if (a == b)
        return true;
    const auto unique = [](PCWDF_OBJECT_CONTEXT_TYPE_INFO t) { return t->UniqueType ? t->UniqueType : t; };
    return unique(a) == unique(b);
}

}  // namespace

const char* ObjectKindName(ObjectKind kind)
{
    static constexpr const char* names[] = {
        "Driver", "Device", "Memory", "IoTarget", "Request", "WaitLock", "Timer", "RegistryKey", "Sensor",
    };
    static_assert(std::size(names) == static_cast<unsigned>(ObjectKind::Count));
    const auto index = static_cast<unsigned>(kind);
    return index < std::size(names) ? names[index] : "?";
}

Object::Object(ObjectKind kind) : kind_(kind)
{
    ResourceLedger::Instance().Acquire(LedgerKind(kind));
}

Object::~Object()
{
    if (registered_) {
        std::lock_guard lock(TreeLock());
        Live().objects.erase(this);
        --Live().counts[static_cast<unsigned>(kind_)];
    }
    ResourceLedger::Instance().Release(LedgerKind(kind_));
}

Object* Object::FromHandle(const void* handle)
{
    if (handle == nullptr)
        return nullptr;
    std::lock_guard lock(TreeLock());
    auto& objects = Live().objects;
    auto it = objects.find(static_cast<const Object*>(handle));
    return it == objects.end() ? nullptr : const_cast<Object*>(*it);
}

std::array<std::int64_t, static_cast<unsigned>(ObjectKind::Count)> Object::LiveCounts()
{
    std::lock_guard lock(TreeLock());
    return Live().counts;
}

Object* Object::Parent() const
{
    std::lock_guard lock(TreeLock());
    return parent_;
}

NTSTATUS Object::Attach(Object* parent, const WDF_OBJECT_ATTRIBUTES* attributes)
{
    std::lock_guard lock(TreeLock());
    if (parent != nullptr && (Live().objects.count(parent) == 0 || parent->BeingDeleted()))
        return STATUS_INVALID_PARAMETER;
    try {
        if (attributes != nullptr && attributes->ContextTypeInfo != nullptr) {
            void* context = nullptr;
            const NTSTATUS status = AddContextLocked(attributes, &context);
            if (!NT_SUCCESS(status))
                return status;
        } else if (attributes != nullptr && (attributes->EvtCleanupCallback || attributes->EvtDestroyCallback)) {
            contexts_.push_back({nullptr, nullptr, attributes->EvtCleanupCallback, attributes->EvtDestroyCallback});
        }
        Live().objects.insert(this);
        registered_ = true;
        ++Live().counts[static_cast<unsigned>(kind_)];
        if (parent != nullptr) {
            parent->children_.push_back(this);
            parent_ = parent;
        }
    } catch (const std::bad_alloc&) {
        return STATUS_INSUFFICIENT_RESOURCES;
    }
    return STATUS_SUCCESS;
}

NTSTATUS Object::AddContext(const WDF_OBJECT_ATTRIBUTES* attributes, void** context)
{
    std::lock_guard lock(TreeLock());
    if (BeingDeleted()) {
        *context = nullptr;
        return STATUS_INVALID_DEVICE_STATE;
    }
    return AddContextLocked(attributes, context);
}

NTSTATUS Object::AddContextLocked(const WDF_OBJECT_ATTRIBUTES* attributes, void** context)
{
    *context = nullptr;
    PCWDF_OBJECT_CONTEXT_TYPE_INFO type = attributes->ContextTypeInfo;
    if (type == nullptr)
        return STATUS_INVALID_PARAMETER;
    if (void* existing = ContextLocked(type)) {
        *context = existing;
        return STATUS_OBJECT_NAME_EXISTS;
    }
    const SIZE_T size = std::max(attributes->ContextSizeOverride, type->ContextSize);
    try {
        std::unique_ptr<std::byte[]> storage(new std::byte[size == 0 ? 1 : size]());
        void* block = storage.get();
        contexts_.push_back({type, std::move(storage), attributes->EvtCleanupCallback,
                             attributes->EvtDestroyCallback});
        *context = block;
    } catch (const std::bad_alloc&) {
        return STATUS_INSUFFICIENT_RESOURCES;
    }
    return STATUS_SUCCESS;
}

void* Object::Context(PCWDF_OBJECT_CONTEXT_TYPE_INFO type) const
{
    std::lock_guard lock(TreeLock());
    return ContextLocked(type);
}

void* Object::ContextLocked(PCWDF_OBJECT_CONTEXT_TYPE_INFO type) const
{
    if (type == nullptr)
        return nullptr;
    for (const ContextBlock& block : contexts_) {
        if (block.type != nullptr && SameType(block.type, type))
            return block.storage.get();
    }
    return nullptr;
}

Object* Object::Ancestor(ObjectKind kind)
{
    std::lock_guard lock(TreeLock());
    for (Object* object = this; object != nullptr; object = object->parent_) {
        if (object->kind_ == kind)
            return object;
    }
    return nullptr;
}

void Object::DetachFromParent()
{
    if (parent_ == nullptr)
        return;
    auto& siblings = parent_->children_;
    siblings.erase(std::remove(siblings.begin(), siblings.end(), this), siblings.end());
    parent_ = nullptr;
}

void Object::Delete(Object* object)
{
    if (object == nullptr || object->deleting_.exchange(true, std::memory_order_acq_rel))
        return;
    object->OnDeleting();
    // Children go first, newest first; each takes its own subtree with it. A
    // child deleted meanwhile by another path has already left the list.
    for (;;) {
        Object* child = nullptr;
        {
            std::lock_guard lock(TreeLock());
            if (object->children_.empty())
                break;
            child = object->children_.back();
            if (child->BeingDeleted()) {
                // Its own deletion is under way elsewhere; it detaches itself at the end.
                child->parent_ = nullptr;
                object->children_.pop_back();
                continue;
            }
        }
        Delete(child);
    }
    // The contexts are not touched by anyone else once the object is being deleted.
    for (const ContextBlock& block : object->contexts_) {
        if (block.cleanup != nullptr) {
            DriverCodeScope driverCode;
            block.cleanup(object->Handle());
        }
    }
    for (const ContextBlock& block : object->contexts_) {
        if (block.destroy != nullptr) {
            DriverCodeScope driverCode;
            block.destroy(object->Handle());
        }
    }
    {
        std::lock_guard lock(TreeLock());
        object->DetachFromParent();
    }
    delete object;
}

}  // namespace host::framework
