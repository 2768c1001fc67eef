// The lists a sensor publishes: framework memory parented to the SENSOROBJECT,
// allocated once and overwritten in place, and the size-query pattern every
// list callback answers with.
#pragma once

#include "platform/sensorscx.h"

// The header both list formats open with: AllocatedSizeInBytes and Count.
inline constexpr ULONG kListHeaderBytes = 8;

// A zeroed SENSOR_COLLECTION_LIST of `count` entries (8 + 48 count bytes) with
// AllocatedSizeInBytes and Count set, its memory parented to `sensor`.
NTSTATUS CreateCollectionList(SENSOROBJECT sensor, ULONG count, PSENSOR_COLLECTION_LIST* list) noexcept;
// A zeroed SENSOR_PROPERTY_LIST of `count` keys (8 + 20 count bytes), likewise.
NTSTATUS CreatePropertyList(SENSOROBJECT sensor, ULONG count, PSENSOR_PROPERTY_LIST* list) noexcept;

// Sets entry `index` to `key` and the value made by an InitPropVariantFrom*
// call. A value that cannot be made (no task memory) leaves the entry VT_EMPTY
// under its key: the list keeps its shape and the failure is traced.
void SetEntry(PSENSOR_COLLECTION_LIST list, ULONG index, const PROPERTYKEY& key, PCWSTR text) noexcept;
void SetEntry(PSENSOR_COLLECTION_LIST list, ULONG index, const PROPERTYKEY& key, const GUID& clsid) noexcept;
void SetEntryFloat(PSENSOR_COLLECTION_LIST list, ULONG index, const PROPERTYKEY& key, float value) noexcept;

// `value` cleared and typed `vt`, to be filled in; `entry` keyed `key` with
// such a value. Inline, as the scalar setters below: samples and history
// records are built with them.
inline PROPVARIANT& TypedValue(PROPVARIANT& value, VARTYPE vt) noexcept
{
    value = PROPVARIANT{};
    value.vt = vt;
    return value;
}
inline PROPVARIANT& TypedEntry(SENSOR_VALUE_PAIR& entry, const PROPERTYKEY& key, VARTYPE vt) noexcept
{
    entry.Key = key;
    return TypedValue(entry.Value, vt);
}
inline void SetEntryUInt16(PSENSOR_COLLECTION_LIST list, ULONG index, const PROPERTYKEY& key, USHORT value) noexcept
{
    TypedEntry(list->List[index], key, VT_UI2).uiVal = value;
}
inline void SetEntryUInt32(PSENSOR_COLLECTION_LIST list, ULONG index, const PROPERTYKEY& key, ULONG value) noexcept
{
    TypedEntry(list->List[index], key, VT_UI4).ulVal = value;
}
inline void SetEntryInt64(PSENSOR_COLLECTION_LIST list, ULONG index, const PROPERTYKEY& key,
                          LONGLONG value) noexcept
{
    TypedEntry(list->List[index], key, VT_I8).hVal = value;
}
// VT_BOOL holding `value` as it is (VARIANT_TRUE is 0xFFFF).
inline void SetEntryBool(PSENSOR_COLLECTION_LIST list, ULONG index, const PROPERTYKEY& key,
                         VARIANT_BOOL value) noexcept
{
    TypedEntry(list->List[index], key, VT_BOOL).boolVal = value;
}

// Frees what the values of the first Count entries own (strings, CLSIDs).
void ReleaseListValues(PSENSOR_COLLECTION_LIST list) noexcept;

// The size-query pattern. `size` absent: STATUS_INVALID_PARAMETER. `target`
// absent: the size the source needs. A target whose AllocatedSizeInBytes is
// smaller: STATUS_INSUFFICIENT_RESOURCES and size 0. Otherwise the copy's
// status, with the needed size on success and 0 on failure.
NTSTATUS AnswerCollectionList(const SENSOR_COLLECTION_LIST* source, PSENSOR_COLLECTION_LIST target,
                              ULONG* size) noexcept;
NTSTATUS AnswerPropertyList(const SENSOR_PROPERTY_LIST* source, PSENSOR_PROPERTY_LIST target,
                            ULONG* size) noexcept;
