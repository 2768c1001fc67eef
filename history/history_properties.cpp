#include "history/history_properties.h"

#include "history/history_keys.h"
#include "history/sensor_history.h"
#include "sensors/hid_collection_record.h"
#include "sensors/sensor_lists.h"

ULONG HistorySizeInBytes(const HidCollectionRecord& record, const SensorHistory& history) noexcept
{
    if (record.historySupported == 0)
        return 0;
    return (record.minRetrievalSize - kListHeaderBytes) * history.MaxEntries() + kListHeaderBytes;
}

void SetHistoryPropertyEntries(PSENSOR_COLLECTION_LIST properties, ULONG first, const HidCollectionRecord& record,
                               const SensorHistory& history) noexcept
{
    SetEntryUInt32(properties, first, kHistorySizeKey, HistorySizeInBytes(record, history));
    SetEntryUInt32(properties, first + 1, kHistoryIntervalKey, history.SampleReportInterval());
    SetEntryUInt32(properties, first + 2, kHistoryRecordSizeKey, record.minRetrievalSize);
}
