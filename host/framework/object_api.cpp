// The object functions of the framework: contexts and deletion.
#include "host/common/fault_injection.h"
#include "host/framework/handle_check.h"
#include "host/framework/object.h"
#include "host/framework/violations.h"

using namespace host::framework;

extern "C" void* WdfObjectGetTypedContextWorker(WDFOBJECT Handle, PCWDF_OBJECT_CONTEXT_TYPE_INFO TypeInfo)
{
    Object* object = ResolveAny(Handle, "WdfObjectGetTypedContextWorker");
    if (object == nullptr || TypeInfo == nullptr)
        return nullptr;
    return object->Context(TypeInfo);
}

extern "C" NTSTATUS WdfObjectAllocateContext(WDFOBJECT Handle, PWDF_OBJECT_ATTRIBUTES ContextAttributes,
                                             void** Context)
{
    if (Context != nullptr)
        *Context = nullptr;
    Object* object = ResolveAny(Handle, "WdfObjectAllocateContext");
    if (object == nullptr)
        return STATUS_INVALID_HANDLE;
    if (ContextAttributes == nullptr || ContextAttributes->ContextTypeInfo == nullptr)
        return STATUS_INVALID_PARAMETER;
    if (ContextAttributes->Size != sizeof(WDF_OBJECT_ATTRIBUTES))
        return STATUS_INFO_LENGTH_MISMATCH;
    NTSTATUS status = STATUS_SUCCESS;
    host::DriverCall driverCall(host::FaultPoint::ObjectContext);
    if (driverCall.Fails(&status))
        return status;
    void* context = nullptr;
    status = object->AddContext(ContextAttributes, &context);
    if (Context != nullptr)
        *Context = context;
    return status;
}

extern "C" void WdfObjectDelete(WDFOBJECT Object)
{
    host::framework::Object* object = ResolveAny(Object, "WdfObjectDelete");
    if (object == nullptr)
        return;
    if (object->Kind() == ObjectKind::Driver || object->Kind() == ObjectKind::Device) {
        ReportViolation(std::string("WdfObjectDelete: a ") + ObjectKindName(object->Kind()) +
                        " belongs to the framework; ignored");
        return;
    }
    host::framework::Object::Delete(object);
}
