// WdfDriverCreate.
#include "host/framework/driver.h"

#include "host/common/fault_injection.h"
#include "host/framework/runtime.h"
#include "host/framework/violations.h"

extern "C" NTSTATUS WdfDriverCreate(PDRIVER_OBJECT DriverObject, PCUNICODE_STRING /*RegistryPath*/,
                                    PWDF_OBJECT_ATTRIBUTES DriverAttributes, PWDF_DRIVER_CONFIG DriverConfig,
                                    WDFDRIVER* Driver)
{
    using namespace host::framework;
    if (Driver != nullptr)
        *Driver = nullptr;
    if (DriverObject == nullptr || DriverConfig == nullptr)
        return STATUS_INVALID_PARAMETER;
    if (DriverConfig->Size != sizeof(WDF_DRIVER_CONFIG))
        return STATUS_INFO_LENGTH_MISMATCH;
    if (DriverObject->wdfDriver != nullptr) {
        ReportViolation("WdfDriverCreate: called twice for one driver");
        return STATUS_INVALID_DEVICE_STATE;
    }
    NTSTATUS status = STATUS_SUCCESS;
    host::DriverCall driverCall(host::FaultPoint::DriverCreate);
    if (driverCall.Fails(&status))
        return status;
    host::framework::DriverObject* driver = nullptr;
    status = Object::Create(nullptr, DriverAttributes, &driver, *DriverConfig);
    if (!NT_SUCCESS(status))
        return status;
    DriverObject->wdfDriver = driver;
    Runtime::Get().SetDriver(driver);
    if (Driver != nullptr)
        *Driver = driver->DriverHandle();
    return STATUS_SUCCESS;
}
