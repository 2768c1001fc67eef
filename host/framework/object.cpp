#include "host/framework/object.h"

#include <algorithm>
#include <cstring>
#include <mutex>

#include "host/common/resource_ledger.h"

namespace host::framework {
namespace {

// One lock for the shape of the whole object tree. Callbacks never run under it.
std::mutex& TreeLock()
{
    static std::mutex lock;
    return lock;
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

Object::Object(ObjectKind kind) : kind_(kind)
{
    ResourceLedger::Instance().Acquire(LedgerKind(kind));
}

Object::~Object()
{
    magic_.store(0, std::memory_order_relaxed);
    ResourceLedger::Instance().Release(LedgerKind(kind_));
}

Object* Object::FromHandle(const void* handle)
{
    if (handle == nullptr)
        return nullptr;
    auto* object = static_cast<Object*>(const_cast<void*>(handle));
    return object->magic_.load(std::memory_order_relaxed) == kLiveMagic ? object : nullptr;
}

NTSTATUS Object::Attach(Object* parent, const WDF_OBJECT_ATTRIBUTES* attributes)
{
    if (attributes != nullptr && attributes->ContextTypeInfo != nullptr) {
        void* context = nullptr;
        const NTSTATUS status = AddContext(attributes, &context);
        if (!NT_SUCCESS(status))
            return status;
    } else if (attributes != nullptr && (attributes->EvtCleanupCallback || attributes->EvtDestroyCallback)) {
        contexts_.push_back({nullptr, nullptr, attributes->EvtCleanupCallback, attributes->EvtDestroyCallback});
    }
    if (parent != nullptr) {
        std::lock_guard lock(TreeLock());
        try {
            parent->children_.push_back(this);
        } catch (const std::bad_alloc&) {
            return STATUS_INSUFFICIENT_RESOURCES;
        }
        parent_ = parent;
    }
    return STATUS_SUCCESS;
}

NTSTATUS Object::AddContext(const WDF_OBJECT_ATTRIBUTES* attributes, void** context)
{
    *context = nullptr;
    PCWDF_OBJECT_CONTEXT_TYPE_INFO type = attributes->ContextTypeInfo;
    if (type == nullptr)
        return STATUS_INVALID_PARAMETER;
    if (Context(type) != nullptr)
        return STATUS_OBJECT_NAME_EXISTS;
    const SIZE_T size = std::max(attributes->ContextSizeOverride, type->ContextSize);
    try {
        std::unique_ptr<std::byte[]> storage(new std::byte[size == 0 ? 1 : size]());
        *context = storage.get();
        contexts_.push_back({type, std::move(storage), attributes->EvtCleanupCallback,
                             attributes->EvtDestroyCallback});
    } catch (const std::bad_alloc&) {
        *context = nullptr;
        return STATUS_INSUFFICIENT_RESOURCES;
    }
    return STATUS_SUCCESS;
}

void* Object::Context(PCWDF_OBJECT_CONTEXT_TYPE_INFO type) const
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
    if (object == nullptr)
        return;
    {
        std::lock_guard lock(TreeLock());
        object->DetachFromParent();
    }
    object->OnDeleting();
    // Children go first, newest first; each takes its own subtree with it.
    for (;;) {
        Object* child = nullptr;
        {
            std::lock_guard lock(TreeLock());
            if (object->children_.empty())
                break;
            child = object->children_.back();
        }
        Delete(child);
    }
    for (const ContextBlock& block : object->contexts_) {
        if (block.cleanup != nullptr)
            block.cleanup(object->Handle());
    }
    for (const ContextBlock& block : object->contexts_) {
        if (block.destroy != nullptr)
            block.destroy(object->Handle());
    }
    delete object;
}

}  // namespace host::framework
