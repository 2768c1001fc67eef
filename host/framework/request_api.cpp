// The request functions of the framework.
#include "host/common/fault_injection.h"
#include "host/framework/handle_check.h"
#include "host/framework/io_target.h"
#include "host/framework/request.h"
#include "host/framework/runtime.h"

using namespace host::framework;

// Parent: attributes->ParentObject, else the target, else (a request created by
// the class extension for a client, without target) the driver.
extern "C" NTSTATUS WdfRequestCreate(PWDF_OBJECT_ATTRIBUTES RequestAttributes, WDFIOTARGET IoTarget,
                                     WDFREQUEST* Request)
{
    if (Request == nullptr)
        return STATUS_INVALID_PARAMETER;
    *Request = nullptr;
    Object* parent = Runtime::Get().Driver();
    if (IoTarget != nullptr) {
        IoTargetObject* target = Resolve<IoTargetObject>(IoTarget, "WdfRequestCreate");
        if (target == nullptr)
            return STATUS_INVALID_HANDLE;
        parent = target;
    }
    NTSTATUS status = STATUS_SUCCESS;
    host::DriverCall driverCall(host::FaultPoint::RequestCreate);
    if (driverCall.Fails(&status))
        return status;
    RequestObject* request = nullptr;
    status = Object::Create(parent, RequestAttributes, &request, IoTarget == nullptr);
    if (!NT_SUCCESS(status))
        return status;
    *Request = static_cast<WDFREQUEST>(request->Handle());
    return STATUS_SUCCESS;
}

extern "C" void WdfRequestSetCompletionRoutine(WDFREQUEST Request, PFN_WDF_REQUEST_COMPLETION_ROUTINE CompletionRoutine,
                                               WDFCONTEXT CompletionContext)
{
    if (RequestObject* request = Resolve<RequestObject>(Request, "WdfRequestSetCompletionRoutine"))
        request->SetCompletionRoutine(CompletionRoutine, CompletionContext);
}

extern "C" BOOLEAN WdfRequestSend(WDFREQUEST Request, WDFIOTARGET Target, PWDF_REQUEST_SEND_OPTIONS Options)
{
    RequestObject* request = Resolve<RequestObject>(Request, "WdfRequestSend");
    if (request == nullptr)
        return FALSE;
    IoTargetObject* target = Resolve<IoTargetObject>(Target, "WdfRequestSend");
    if (target == nullptr)
        return request->FailSend(STATUS_INVALID_HANDLE);
    return request->Send(*target, Options);
}

extern "C" NTSTATUS WdfRequestGetStatus(WDFREQUEST Request)
{
    RequestObject* request = Resolve<RequestObject>(Request, "WdfRequestGetStatus");
    return request != nullptr ? request->Status() : STATUS_INVALID_HANDLE;
}

extern "C" BOOLEAN WdfRequestCancelSentRequest(WDFREQUEST Request)
{
    RequestObject* request = Resolve<RequestObject>(Request, "WdfRequestCancelSentRequest");
    return request != nullptr ? request->CancelSent() : FALSE;
}

extern "C" void WdfRequestComplete(WDFREQUEST Request, NTSTATUS Status)
{
    if (RequestObject* request = Resolve<RequestObject>(Request, "WdfRequestComplete"))
        request->CompleteByDriver(Status);
}

extern "C" ULONG_PTR WdfRequestGetInformation(WDFREQUEST Request)
{
    RequestObject* request = Resolve<RequestObject>(Request, "WdfRequestGetInformation");
    return request != nullptr ? request->Information() : 0;
}
