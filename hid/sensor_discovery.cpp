// Discovery: which sensor collections the HID collection holds, and one sensor
// object for each. The order of the device traffic below is deliberate.
#include <cstring>

#include "hid/custom_sensor_kind.h"
#include "hid/hid_device.h"
#include "hid/hid_io_target.h"
#include "platform/hidclass.h"
#include "sensors/hid_sensor.h"
#include "tracing/trace.h"

namespace {
constexpr GUID kTraceMessageGuid = {
    0xFB1654E0, 0x2980, 0x43D7, {0xBA, 0xC7, 0xD9, 0x47, 0xF9, 0xDD, 0x09, 0x69}};

// String IOCTLs return at most 126 characters into the 252-character scratch.
constexpr ULONG kStringIoctlBytes = 252;
constexpr std::size_t kStringIoctlChars = kStringIoctlBytes / sizeof(WCHAR);

// Preparsed data is a few kilobytes; a device claiming more than this is
// treated like an allocation the heap refuses.
constexpr ULONG kMaxPreparsedDataBytes = 16u << 20;

// The four 252-character strings discovery hands to every sensor constructor.
struct DiscoveryStrings {
    HeapArray<WCHAR> manufacturer;
    HeapArray<WCHAR> product;
    HeapArray<WCHAR> serialNumber;
    HeapArray<WCHAR> instanceName;

    bool Allocate()
    {
        return manufacturer.AllocateZeroed(kSensorStringChars) &&
               product.AllocateZeroed(kSensorStringChars) &&
               serialNumber.AllocateZeroed(kSensorStringChars) &&
               instanceName.AllocateZeroed(kSensorStringChars);
    }
};
}  // namespace

NTSTATUS HidDevice::EnumerateSensors()
{
    TRACE_ENTRY();
    if (!IsOpen()) {
        TRACE_ERROR(STATUS_UNSUCCESSFUL, state_->FriendlyName);
        TRACE_EXIT(STATUS_UNSUCCESSFUL);
        return STATUS_UNSUCCESSFUL;
    }

    DiscoveryStrings strings;
    if (!strings.Allocate()) {
        TRACE_ERROR(STATUS_NO_MEMORY, state_->FriendlyName);
        TRACE_EXIT(STATUS_NO_MEMORY);
        return STATUS_NO_MEMORY;
    }

    NTSTATUS status = DiscoverCollections(strings.manufacturer.Get(), strings.product.Get(),
                                          strings.serialNumber.Get(), strings.instanceName.Get());
    if (!NT_SUCCESS(status)) {
        TRACE_ERROR(status, state_->FriendlyName);
        TRACE_EXIT(status);
        return status;
    }

    state_->SensorCount = static_cast<ULONG>(state_->Sensors.Size());
    TRACE_INFO(state_->SensorCount);

    status = STATUS_SUCCESS;
    for (std::size_t i = 0; i < state_->Sensors.Size(); ++i) {
        HidSensor* sensor = state_->Sensors[i];
        status = sensor->Initialize();
        if (!NT_SUCCESS(status))
            TRACE_ERROR(status, sensor->GetFriendlyName());
    }
    TRACE_EXIT(status);
    return status;
}

NTSTATUS HidDevice::ReadDeviceString(ULONG ioctlCode, WCHAR* scratch, WCHAR* target)
{
    const NTSTATUS status =
        state_->IoctlTarget->SendIoctlSynchronously(scratch, kStringIoctlBytes, ioctlCode, nullptr);
    if (!NT_SUCCESS(status)) {
        // The string stays empty; the sensors fall back to their defaults.
        TRACE_ERROR(status, ioctlCode);
        return status;
    }
    scratch[kStringIoctlChars] = 0;
    WideCopy(target, kSensorStringChars, scratch);
    TRACE_INFO(ioctlCode, static_cast<PCWSTR>(target));
    return status;
}

NTSTATUS HidDevice::DiscoverCollections(WCHAR* manufacturer, WCHAR* product, WCHAR* serialNumber,
                                        WCHAR* instanceName)
{
    TRACE_ENTRY();
    HidIoTarget* ioctl = state_->IoctlTarget;
    if (ioctl == nullptr || manufacturer == nullptr || product == nullptr || serialNumber == nullptr ||
        instanceName == nullptr) {
        TRACE_ERROR(STATUS_INVALID_PARAMETER);
        TRACE_EXIT(STATUS_INVALID_PARAMETER);
        return STATUS_INVALID_PARAMETER;
    }

    HID_COLLECTION_INFORMATION information = {};
    NTSTATUS status = ioctl->SendIoctlSynchronously(&information, sizeof(information),
                                                    IOCTL_HID_GET_COLLECTION_INFORMATION, nullptr);
    if (!NT_SUCCESS(status)) {
        TRACE_ERROR(status, state_->FriendlyName);
        TRACE_EXIT(status);
        return status;
    }
    TRACE_INFO(information.DescriptorSize, static_cast<ULONG>(information.VendorID),
               static_cast<ULONG>(information.ProductID), static_cast<ULONG>(information.VersionNumber));

    // One scratch buffer for the three strings, zeroed once: the device's
    // terminator, or the cut at character 126, ends each string.
    WCHAR scratch[kSensorStringChars] = {};
    ReadDeviceString(IOCTL_HID_GET_SERIALNUMBER_STRING, scratch, serialNumber);

    WCHAR deviceTag[kSensorStringChars];
    WideFormat(deviceTag, u"%04X:", {information.VersionNumber});
    WideAppend(deviceTag, scratch);

    ReadDeviceString(IOCTL_HID_GET_MANUFACTURER_STRING, scratch, manufacturer);
    status = ReadDeviceString(IOCTL_HID_GET_PRODUCT_STRING, scratch, product);

    if (information.DescriptorSize == 0) {
        TRACE_INFO(information.DescriptorSize);
        status = NT_SUCCESS(status) ? STATUS_SUCCESS : status;
        TRACE_EXIT(status);
        return status;
    }

    if (information.DescriptorSize > kMaxPreparsedDataBytes ||
        !state_->PreparsedData.AllocateZeroed(information.DescriptorSize)) {
        TRACE_ERROR(STATUS_NO_MEMORY, information.DescriptorSize);
        TRACE_EXIT(STATUS_NO_MEMORY);
        return STATUS_NO_MEMORY;
    }
    status = ioctl->SendIoctlSynchronously(state_->PreparsedData.Get(), information.DescriptorSize,
                                           IOCTL_HID_GET_COLLECTION_DESCRIPTOR, nullptr);
    if (!NT_SUCCESS(status)) {
        TRACE_ERROR(status, state_->FriendlyName);
        TRACE_EXIT(status);
        return status;
    }

    status = HidP_GetCaps(PreparsedData(), &state_->Caps);
    if (!NT_SUCCESS(status)) {
        TRACE_ERROR(status, state_->FriendlyName);
        TRACE_EXIT(status);
        return status;
    }
    const HIDP_CAPS& caps = state_->Caps;
    TRACE_INFO(static_cast<ULONG>(caps.UsagePage), static_cast<ULONG>(caps.Usage),
               static_cast<ULONG>(caps.NumberLinkCollectionNodes));
    if (caps.UsagePage != kSensorsUsagePage) {
        TRACE_EXIT(STATUS_SUCCESS);
        return STATUS_SUCCESS;
    }

    if (!state_->LinkCollectionNodes.AllocateZeroed(caps.NumberLinkCollectionNodes)) {
        TRACE_ERROR(STATUS_NO_MEMORY, state_->FriendlyName);
        TRACE_EXIT(STATUS_NO_MEMORY);
        return STATUS_NO_MEMORY;
    }
    ULONG nodeCount = caps.NumberLinkCollectionNodes;
    status = HidP_GetLinkCollectionNodes(state_->LinkCollectionNodes.Get(), &nodeCount, PreparsedData());
    if (!NT_SUCCESS(status)) {
        TRACE_ERROR(status, state_->FriendlyName);
        TRACE_EXIT(status);
        return status;
    }

    SensorConstructionArgs args = {state_->Device, this, kOtherSensorObjectKind, caps.Usage, 0, 0,
                                   manufacturer, product, serialNumber, instanceName};
    switch (caps.Usage) {
    case kSensorCollectionUsage:
        status = DiscoverSensorCollectionChildren(deviceTag, manufacturer, product, serialNumber,
                                                  instanceName);
        break;
    case kCustomSensorUsage:
        // A top-level custom sensor is not classified here: it is always a
        // plain CustomSensor (its constructor still classifies it for its name).
        BuildInstanceName(instanceName, deviceTag, 0);
        args.SensorObjectKind = kCustomSensorObjectKind;
        args.Usage = kCustomSensorUsage;
        AddSensor(SensorClass::Custom, args);
        status = STATUS_SUCCESS;
        break;
    default:
        BuildInstanceName(instanceName, deviceTag, 0);
        AddSensor(SensorClass::Placeholder, args);
        status = STATUS_SUCCESS;
        break;
    }
    TRACE_EXIT(status);
    return status;
}

NTSTATUS HidDevice::DiscoverSensorCollectionChildren(const WCHAR* deviceTag, WCHAR* manufacturer,
                                                     WCHAR* product, WCHAR* serialNumber,
                                                     WCHAR* instanceName)
{
    const ULONG nodeCount = state_->Caps.NumberLinkCollectionNodes;
    const HIDP_LINK_COLLECTION_NODE* nodes = state_->LinkCollectionNodes.Get();
    if (nodeCount < 2)
        return STATUS_SUCCESS;

    ULONG children = 0;
    for (ULONG i = 1; i < nodeCount; ++i) {
        if (nodes[i].Parent == 0)
            ++children;
    }
    TRACE_INFO(nodeCount, children);
    if (children == 0)
        return STATUS_SUCCESS;

    // Grandchildren are part of their sensor's collection and take no index.
    ULONG sensorIndex = 0;
    for (ULONG i = 1; i < nodeCount; ++i) {
        const HIDP_LINK_COLLECTION_NODE& node = nodes[i];
        if (node.Parent != 0)
            continue;
        BuildInstanceName(instanceName, deviceTag, sensorIndex);
        SensorConstructionArgs args = {state_->Device, this, kOtherSensorObjectKind, node.LinkUsage,
                                       static_cast<USHORT>(i), sensorIndex, manufacturer, product,
                                       serialNumber, instanceName};
        if (node.LinkUsage == kCustomSensorUsage) {
            const CustomSensorKind kind =
                ClassifyCustomCollection(this, static_cast<UCHAR>(sensorIndex), static_cast<USHORT>(i));
            args.SensorObjectKind = kCustomSensorObjectKind;
            args.Usage = kCustomSensorUsage;
            AddSensor(SensorClassForKind(kind), args);
        } else {
            AddSensor(SensorClass::Placeholder, args);
        }
        // Consumed whether or not an object was created, so that the report
        // IDs of the sensors after it stay aligned.
        ++sensorIndex;
    }
    return STATUS_SUCCESS;
}

void HidDevice::BuildInstanceName(WCHAR* instanceName, const WCHAR* deviceTag, ULONG sensorIndex) const
{
    WCHAR suffix[kSensorStringChars];
    WideFormat(suffix, u"#%s-%i", {deviceTag, sensorIndex});
    WideCopy(instanceName, kSensorStringChars, state_->DevicePath);
    WideAppend(instanceName, kSensorStringChars, suffix);
}

void HidDevice::AddSensor(SensorClass sensorClass, const SensorConstructionArgs& args)
{
    HidSensor* sensor = nullptr;
    const NTSTATUS status = state_->Factory->Create(sensorClass, args, &sensor);
    if (!NT_SUCCESS(status)) {
        TRACE_ERROR(status, args.SensorIndex, static_cast<ULONG>(args.LinkCollection));
        return;
    }
    if (!state_->Sensors.Append(sensor)) {
        TRACE_ERROR(STATUS_NO_MEMORY, sensor->GetFriendlyName());
        delete sensor;
        return;
    }
    TRACE_INFO(sensor->GetFriendlyName(), args.SensorIndex, static_cast<ULONG>(args.LinkCollection));
}
