// SensorsUtilsV2: marshalled sizes, copies of collection and property lists,
// and InitPropVariantFromFloat. The marshalled layout is list_marshal.h's.
//
// A too-small target gives STATUS_INSUFFICIENT_RESOURCES, the status the
// driver's size queries pass back for a caller's list that is too small, so a
// copy failure and the driver's own size check read the same to a client.
// A source whose Count does not fit its own AllocatedSizeInBytes is refused
// (STATUS_INVALID_PARAMETER, or size 0 from the size functions) and reported
// as a violation: reading it would run past the driver's buffer.
#include <algorithm>
#include <cstring>
#include <functional>
#include <limits>

#include "host/sensorscx/list_marshal.h"
#include "platform/sensorsutils.h"

namespace {

namespace marshal = host::sensorscx::marshal;

ULONG Clamp(std::uint64_t size)
{
    return static_cast<ULONG>(std::min<std::uint64_t>(size, std::numeric_limits<ULONG>::max()));
}

bool Overlap(const void* a, std::size_t aBytes, const void* b, std::size_t bBytes)
{
    const auto* a0 = static_cast<const std::byte*>(a);
    const auto* b0 = static_cast<const std::byte*>(b);
    return std::less<>()(a0, b0 + bBytes) && std::less<>()(b0, a0 + aBytes);
}

}  // namespace

extern "C" ULONG CollectionsListGetMarshalledSize(const SENSOR_COLLECTION_LIST* Collection)
{
    if (Collection == nullptr || !marshal::CheckCollectionFits(Collection, "CollectionsListGetMarshalledSize"))
        return 0;
    return Clamp(marshal::MarshalledSize(Collection->List, Collection->Count));
}

// Needs no AllocatedSizeInBytes: the driver applies it to history buffers whose
// allocated size is the class extension's business and may be left unset.
extern "C" ULONG CollectionsListGetMarshalledSizeWithoutSerialization(const SENSOR_COLLECTION_LIST* Collection)
{
    if (Collection == nullptr)
        return 0;
    return Clamp(marshal::EntriesBytes(Collection->Count));
}

extern "C" NTSTATUS CollectionsListCopyAndMarshall(PSENSOR_COLLECTION_LIST Target,
                                                   const SENSOR_COLLECTION_LIST* Source)
{
    if (Target == nullptr || Source == nullptr)
        return STATUS_INVALID_PARAMETER;
    if (!marshal::CheckCollectionFits(Source, "CollectionsListCopyAndMarshall source"))
        return STATUS_INVALID_PARAMETER;
    const std::uint64_t needed = marshal::MarshalledSize(Source->List, Source->Count);
    if (Target->AllocatedSizeInBytes < needed)
        return STATUS_INSUFFICIENT_RESOURCES;
    if (Overlap(Target, Target->AllocatedSizeInBytes, Source, Source->AllocatedSizeInBytes))
        return STATUS_INVALID_PARAMETER;
    marshal::MarshalInto(Target, Source->List, Source->Count);
    return STATUS_SUCCESS;
}

extern "C" NTSTATUS PropertiesListCopy(PSENSOR_PROPERTY_LIST Target, const SENSOR_PROPERTY_LIST* Source)
{
    if (Target == nullptr || Source == nullptr)
        return STATUS_INVALID_PARAMETER;
    if (!marshal::CheckPropertiesFit(Source, "PropertiesListCopy source"))
        return STATUS_INVALID_PARAMETER;
    if (Target->AllocatedSizeInBytes < marshal::KeysBytes(Source->Count))
        return STATUS_INSUFFICIENT_RESOURCES;
    const ULONG count = Source->Count;
    std::memmove(Target->List, Source->List, static_cast<std::size_t>(marshal::kKeyBytes) * count);
    Target->Count = count;
    return STATUS_SUCCESS;
}

extern "C" NTSTATUS InitPropVariantFromFloat(float fltVal, PROPVARIANT* ppropvar)
{
    if (ppropvar == nullptr)
        return STATUS_INVALID_PARAMETER;
    PropVariantInit(ppropvar);
    ppropvar->vt = VT_R4;
    ppropvar->fltVal = fltVal;
    return STATUS_SUCCESS;
}
