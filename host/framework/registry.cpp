// Registry keys of a device: its driver key and subkeys of it, backed by the
// device's RegistryStore.
//
// Only the driver key can be opened (key type PLUGPLAY_REGKEY_DRIVER, with or
// without WDF_REGKEY_DRIVER_SUBKEY); other key types give
// STATUS_INVALID_PARAMETER. Access masks are recorded, not enforced. Keys are
// parented to the device unless the attributes say otherwise.
#include <new>
#include <string>

#include "host/common/fault_injection.h"
#include "host/framework/device.h"
#include "host/framework/handle_check.h"

namespace host::framework {
namespace {

class KeyObject final : public Object {
public:
    static constexpr ObjectKind kKind = ObjectKind::RegistryKey;

    KeyObject(WDFDEVICE device, std::u16string path) : Object(kKind), device_(device), path_(std::move(path)) {}

    WDFDEVICE Device() const { return device_; }
    const std::u16string& Path() const { return path_; }
    // The store, or null once the device is gone.
    RegistryStore* Store() const { return DeviceRegistry(device_); }

private:
    WDFDEVICE device_;
    std::u16string path_;
};

// A UNICODE_STRING as a string; false for a malformed one.
bool ReadName(PCUNICODE_STRING name, std::u16string* out)
{
    if (name == nullptr || name->Length % 2 != 0 || name->Length > name->MaximumLength ||
        (name->Length > 0 && name->Buffer == nullptr))
        return false;
    out->assign(name->Buffer, name->Length / 2);
    return true;
}

NTSTATUS CreateKeyObject(WDFDEVICE device, PWDF_OBJECT_ATTRIBUTES attributes, std::u16string path, WDFKEY* key)
{
    Object* deviceObject = Object::FromHandle(device);
    KeyObject* object = nullptr;
    const NTSTATUS status = Object::Create(deviceObject, attributes, &object, device, std::move(path));
    if (NT_SUCCESS(status))
        *key = static_cast<WDFKEY>(object->Handle());
    return status;
}

}  // namespace
}  // namespace host::framework

using namespace host::framework;

extern "C" NTSTATUS WdfDeviceOpenRegistryKey(WDFDEVICE Device, ULONG DeviceInstanceKeyType,
                                             ACCESS_MASK /*DesiredAccess*/, PWDF_OBJECT_ATTRIBUTES KeyAttributes,
                                             WDFKEY* Key)
{
    if (Key == nullptr)
        return STATUS_INVALID_PARAMETER;
    *Key = nullptr;
    DeviceObject* device = Resolve<DeviceObject>(Device, "WdfDeviceOpenRegistryKey");
    if (device == nullptr)
        return STATUS_INVALID_HANDLE;
    if ((DeviceInstanceKeyType & ~WDF_REGKEY_DRIVER_SUBKEY) != PLUGPLAY_REGKEY_DRIVER)
        return STATUS_INVALID_PARAMETER;
    NTSTATUS status = STATUS_SUCCESS;
    host::DriverCall driverCall(host::FaultPoint::RegistryOpenKey);
    if (driverCall.Fails(&status))
        return status;
    if (device->Registry() == nullptr)
        return STATUS_OBJECT_NAME_NOT_FOUND;
    try {
        return CreateKeyObject(Device, KeyAttributes, std::u16string(), Key);
    } catch (const std::bad_alloc&) {
        return STATUS_INSUFFICIENT_RESOURCES;
    }
}

extern "C" NTSTATUS WdfRegistryCreateKey(WDFKEY ParentKey, PCUNICODE_STRING KeyName, ACCESS_MASK /*DesiredAccess*/,
                                         ULONG /*CreateOptions*/, ULONG* CreateDisposition,
                                         PWDF_OBJECT_ATTRIBUTES KeyAttributes, WDFKEY* Key)
{
    if (Key == nullptr)
        return STATUS_INVALID_PARAMETER;
    *Key = nullptr;
    KeyObject* parent = Resolve<KeyObject>(ParentKey, "WdfRegistryCreateKey");
    if (parent == nullptr)
        return STATUS_INVALID_HANDLE;
    try {
        std::u16string name;
        if (!ReadName(KeyName, &name) || name.empty())
            return STATUS_INVALID_PARAMETER;
        NTSTATUS status = STATUS_SUCCESS;
        host::DriverCall driverCall(host::FaultPoint::RegistryCreateKey);
        if (driverCall.Fails(&status))
            return status;
        RegistryStore* store = parent->Store();
        if (store == nullptr)
            return STATUS_INVALID_DEVICE_STATE;
        std::u16string path = parent->Path().empty() ? name : parent->Path() + u"\\" + name;
        const bool created = store->CreateKey(path);
        status = CreateKeyObject(parent->Device(), KeyAttributes, std::move(path), Key);
        if (NT_SUCCESS(status) && CreateDisposition != nullptr)
            *CreateDisposition = created ? REG_CREATED_NEW_KEY : REG_OPENED_EXISTING_KEY;
        return status;
    } catch (const std::bad_alloc&) {
        return STATUS_INSUFFICIENT_RESOURCES;
    }
}

extern "C" NTSTATUS WdfRegistryQueryULong(WDFKEY Key, PCUNICODE_STRING ValueName, ULONG* Value)
{
    KeyObject* key = Resolve<KeyObject>(Key, "WdfRegistryQueryULong");
    if (key == nullptr)
        return STATUS_INVALID_HANDLE;
    if (Value == nullptr)
        return STATUS_INVALID_PARAMETER;
    try {
        std::u16string name;
        if (!ReadName(ValueName, &name))
            return STATUS_INVALID_PARAMETER;
        NTSTATUS status = STATUS_SUCCESS;
        host::DriverCall driverCall(host::FaultPoint::RegistryQueryValue);
        if (driverCall.Fails(&status))
            return status;
        RegistryStore* store = key->Store();
        if (store == nullptr)
            return STATUS_INVALID_DEVICE_STATE;
        const std::optional<ULONG> data = store->Query(key->Path(), name);
        if (!data)
            return STATUS_OBJECT_NAME_NOT_FOUND;
        *Value = *data;
        return STATUS_SUCCESS;
    } catch (const std::bad_alloc&) {
        return STATUS_INSUFFICIENT_RESOURCES;
    }
}

extern "C" NTSTATUS WdfRegistryAssignULong(WDFKEY Key, PCUNICODE_STRING ValueName, ULONG Value)
{
    KeyObject* key = Resolve<KeyObject>(Key, "WdfRegistryAssignULong");
    if (key == nullptr)
        return STATUS_INVALID_HANDLE;
    try {
        std::u16string name;
        if (!ReadName(ValueName, &name))
            return STATUS_INVALID_PARAMETER;
        NTSTATUS status = STATUS_SUCCESS;
        host::DriverCall driverCall(host::FaultPoint::RegistryAssignValue);
        if (driverCall.Fails(&status))
            return status;
        RegistryStore* store = key->Store();
        if (store == nullptr)
            return STATUS_INVALID_DEVICE_STATE;
        return store->Assign(key->Path(), name, Value) ? STATUS_SUCCESS : STATUS_OBJECT_NAME_NOT_FOUND;
    } catch (const std::bad_alloc&) {
        return STATUS_INSUFFICIENT_RESOURCES;
    }
}

extern "C" void WdfRegistryClose(WDFKEY Key)
{
    if (KeyObject* key = Resolve<KeyObject>(Key, "WdfRegistryClose"))
        Object::Delete(key);
}
