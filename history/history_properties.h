// The history properties the activity and pedometer sensors publish.
#pragma once

#include "platform/sensorscx.h"

struct HidCollectionRecord;
class SensorHistory;

// The history-size property: 0 without history, else the bytes of a
// retrieval list holding maxEntries records of minRetrievalSize each.
ULONG HistorySizeInBytes(const HidCollectionRecord& record, const SensorHistory& history) noexcept;

// Three sensor property entries from `first` on: history size, history
// interval and the size of a one-record list.
inline constexpr ULONG kHistoryPropertyEntries = 3;
void SetHistoryPropertyEntries(PSENSOR_COLLECTION_LIST properties, ULONG first, const HidCollectionRecord& record,
                               const SensorHistory& history) noexcept;
