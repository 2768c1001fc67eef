#include "sensors/sensor_lists.h"

#include <cstring>

#include "platform/sensorsutils.h"
#include "tracing/trace.h"

namespace {
constexpr GUID kTraceMessageGuid = {
    0x3C0B8F51, 0x6A2E, 0x4D7B, {0x9E, 0x41, 0x5F, 0x0A, 0xC3, 0x28, 0x77, 0x1D}};

constexpr POOL_TYPE kListPoolType = PagedPool;
// "Tkvl", written as the multi-character constant a pool tag is.
constexpr ULONG kListPoolTag = (ULONG{'T'} << 24) | (ULONG{'k'} << 16) | (ULONG{'v'} << 8) | ULONG{'l'};

NTSTATUS CreateListMemory(SENSOROBJECT sensor, ULONG bytes, void** buffer) noexcept
{
    WDF_OBJECT_ATTRIBUTES attributes;
    WDF_OBJECT_ATTRIBUTES_INIT(&attributes);
    attributes.ParentObject = sensor;
    WDFMEMORY memory = nullptr;
    *buffer = nullptr;
    const NTSTATUS status = WdfMemoryCreate(&attributes, kListPoolType, kListPoolTag, bytes, &memory, buffer);
    if (!NT_SUCCESS(status)) {
        TRACE_ERROR(status, bytes);
        *buffer = nullptr;
        return status;
    }
    std::memset(*buffer, 0, bytes);
    return STATUS_SUCCESS;
}

// Either list format: zeroed framework memory with its header filled in.
template <class List>
NTSTATUS CreateList(SENSOROBJECT sensor, ULONG count, ULONG bytes, List** list) noexcept
{
    void* buffer = nullptr;
    const NTSTATUS status = CreateListMemory(sensor, bytes, &buffer);
    *list = static_cast<List*>(buffer);
    if (NT_SUCCESS(status)) {
        (*list)->AllocatedSizeInBytes = bytes;
        (*list)->Count = count;
    }
    return status;
}

void TraceValueFailure(HRESULT result, const PROPERTYKEY& key) noexcept
{
    if (FAILED(result))
        TRACE_ERROR(result, key.pid);
}
}  // namespace

NTSTATUS CreateCollectionList(SENSOROBJECT sensor, ULONG count, PSENSOR_COLLECTION_LIST* list) noexcept
{
    return CreateList(sensor, count, SENSOR_COLLECTION_LIST_SIZE(count), list);
}

NTSTATUS CreatePropertyList(SENSOROBJECT sensor, ULONG count, PSENSOR_PROPERTY_LIST* list) noexcept
{
    return CreateList(sensor, count, SENSOR_PROPERTY_LIST_SIZE(count), list);
}

void SetEntry(PSENSOR_COLLECTION_LIST list, ULONG index, const PROPERTYKEY& key, PCWSTR text) noexcept
{
    SENSOR_VALUE_PAIR& entry = list->List[index];
    entry.Key = key;
    TraceValueFailure(InitPropVariantFromString(text, &entry.Value), key);
}

void SetEntry(PSENSOR_COLLECTION_LIST list, ULONG index, const PROPERTYKEY& key, const GUID& clsid) noexcept
{
    SENSOR_VALUE_PAIR& entry = list->List[index];
    entry.Key = key;
    TraceValueFailure(InitPropVariantFromCLSID(clsid, &entry.Value), key);
}

void SetEntryFloat(PSENSOR_COLLECTION_LIST list, ULONG index, const PROPERTYKEY& key, float value) noexcept
{
    SENSOR_VALUE_PAIR& entry = list->List[index];
    entry.Key = key;
    InitPropVariantFromFloat(value, &entry.Value);
}

void ReleaseListValues(PSENSOR_COLLECTION_LIST list) noexcept
{
    if (list == nullptr)
        return;
    for (ULONG i = 0; i < list->Count; ++i)
        PropVariantClear(&list->List[i].Value);
}

NTSTATUS AnswerCollectionList(const SENSOR_COLLECTION_LIST* source, PSENSOR_COLLECTION_LIST target,
                              ULONG* size) noexcept
{
    if (size == nullptr)
        return STATUS_INVALID_PARAMETER;
    *size = 0;
    if (source == nullptr)
        return STATUS_UNSUCCESSFUL;
    const ULONG needed = CollectionsListGetMarshalledSize(source);
    if (target == nullptr) {
        *size = needed;
        return STATUS_SUCCESS;
    }
    if (target->AllocatedSizeInBytes < needed)
        return STATUS_INSUFFICIENT_RESOURCES;
    const NTSTATUS status = CollectionsListCopyAndMarshall(target, source);
    if (NT_SUCCESS(status))
        *size = needed;
    return status;
}

NTSTATUS AnswerPropertyList(const SENSOR_PROPERTY_LIST* source, PSENSOR_PROPERTY_LIST target,
                            ULONG* size) noexcept
{
    if (size == nullptr)
        return STATUS_INVALID_PARAMETER;
    *size = 0;
    if (source == nullptr)
        return STATUS_UNSUCCESSFUL;
    const ULONG needed = source->AllocatedSizeInBytes;
    if (target == nullptr) {
        *size = needed;
        return STATUS_SUCCESS;
    }
    if (target->AllocatedSizeInBytes < needed)
        return STATUS_INSUFFICIENT_RESOURCES;
    const NTSTATUS status = PropertiesListCopy(target, source);
    if (NT_SUCCESS(status))
        *size = needed;
    return status;
}
