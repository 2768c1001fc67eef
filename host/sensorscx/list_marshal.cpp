#include "host/sensorscx/list_marshal.h"

#include <algorithm>
#include <cstring>
#include <string>

#include "host/sensorscx/violations.h"

namespace host::sensorscx::marshal {
namespace {

enum class Run { Clsid, String, Blob };

bool InRun(const PROPVARIANT& value, Run run)
{
    switch (run) {
    case Run::Clsid: return value.vt == VT_CLSID && value.puuid != nullptr;
    case Run::String: return value.vt == VT_LPWSTR && value.pwszVal != nullptr;
    case Run::Blob: return value.vt == VT_BLOB && value.blob.pBlobData != nullptr && value.blob.cbSize != 0;
    }
    return false;
}

}  // namespace

// One switch on the type: every sample's copy asks this of each entry.
std::uint64_t PayloadBytes(const PROPVARIANT& value)
{
    switch (value.vt) {
    case VT_CLSID: return InRun(value, Run::Clsid) ? sizeof(CLSID) : 0;
    case VT_LPWSTR:
        return InRun(value, Run::String) ? (std::char_traits<char16_t>::length(value.pwszVal) + 1) * sizeof(WCHAR) : 0;
    case VT_BLOB: return InRun(value, Run::Blob) ? value.blob.cbSize : 0;
    default: return 0;
    }
}

std::uint64_t MarshalledSize(const SENSOR_VALUE_PAIR* entries, ULONG count)
{
    std::uint64_t size = EntriesBytes(count);
    for (ULONG i = 0; i < count; ++i)
        size += PayloadBytes(entries[i].Value);
    return size;
}

void MarshalInto(SENSOR_COLLECTION_LIST* out, const SENSOR_VALUE_PAIR* entries, ULONG count)
{
    out->Count = count;
    if (count == 0)
        return;
    std::memcpy(out->List, entries, static_cast<std::size_t>(kEntryBytes) * count);
    // A list of scalars (every sample of numbers) has no payload to place.
    const auto pointsOut = [](const SENSOR_VALUE_PAIR& entry) {
        const PROPVARIANT& value = entry.Value;
        return InRun(value, Run::Clsid) || InRun(value, Run::String) || InRun(value, Run::Blob);
    };
    if (std::none_of(entries, entries + count, pointsOut))
        return;
    auto* payload = reinterpret_cast<std::byte*>(out) + EntriesBytes(count);
    for (Run run : {Run::Clsid, Run::String, Run::Blob}) {
        for (ULONG i = 0; i < count; ++i) {
            PROPVARIANT& value = out->List[i].Value;
            if (!InRun(value, run))
                continue;
            const auto bytes = static_cast<std::size_t>(PayloadBytes(value));
            switch (run) {
            case Run::Clsid:
                std::memcpy(payload, value.puuid, bytes);
                value.puuid = reinterpret_cast<CLSID*>(payload);
                break;
            case Run::String:
                std::memcpy(payload, value.pwszVal, bytes);
                value.pwszVal = reinterpret_cast<LPWSTR>(payload);
                break;
            case Run::Blob:
                std::memcpy(payload, value.blob.pBlobData, bytes);
                value.blob.pBlobData = reinterpret_cast<BYTE*>(payload);
                break;
            }
            payload += bytes;
        }
    }
}

bool CheckCollectionFits(const SENSOR_COLLECTION_LIST* list, std::string_view who)
{
    if (list == nullptr) {
        ReportViolation(ViolationKind::NullArgument, std::string(who) + ": null list");
        return false;
    }
    if (EntriesBytes(list->Count) <= list->AllocatedSizeInBytes)
        return true;
    ReportViolation(ViolationKind::ListCountExceedsSize,
                    std::string(who) + ": Count " + std::to_string(list->Count) + " needs " +
                        std::to_string(EntriesBytes(list->Count)) + " bytes, AllocatedSizeInBytes is " +
                        std::to_string(list->AllocatedSizeInBytes));
    return false;
}

bool CheckPropertiesFit(const SENSOR_PROPERTY_LIST* list, std::string_view who)
{
    if (list == nullptr) {
        ReportViolation(ViolationKind::NullArgument, std::string(who) + ": null list");
        return false;
    }
    if (KeysBytes(list->Count) <= list->AllocatedSizeInBytes)
        return true;
    ReportViolation(ViolationKind::ListCountExceedsSize,
                    std::string(who) + ": Count " + std::to_string(list->Count) + " needs " +
                        std::to_string(KeysBytes(list->Count)) + " bytes, AllocatedSizeInBytes is " +
                        std::to_string(list->AllocatedSizeInBytes));
    return false;
}

}  // namespace host::sensorscx::marshal
