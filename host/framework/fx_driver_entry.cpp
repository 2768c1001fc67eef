// The module entry stub (library fxstub), linked into the driver module: the
// host calls FxDriverEntryUm, which hands over to the driver's DriverEntry.
// Nothing is bound here; the host's framework is linked in directly.
#include "platform/wdf.h"

extern "C" NTSTATUS FxDriverEntryUm(void* /*LoaderInterface*/, void* /*Context*/, PDRIVER_OBJECT DriverObject,
                                    PUNICODE_STRING RegistryPath)
{
    return DriverEntry(DriverObject, RegistryPath);
}
