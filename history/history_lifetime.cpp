#include "history/history_lifetime.h"

#include "sensors/hid_sensor.h"

SensorHistory* CreateSensorHistory(const HidSensor& sensor, HistoryKind kind) noexcept
{
    const HidCollectionRecord& record = *sensor.Record();
    auto* history = new (std::nothrow) SensorHistory(record.Device, kind);
    if (history != nullptr)
        history->requestedInterval.store(record.CurrentReportInterval.load(std::memory_order_relaxed),
                                         std::memory_order_relaxed);
    return history;
}

void DestroySensorHistory(HidSensor& sensor, SensorHistory*& history) noexcept
{
    if (history == nullptr)
        return;
    history->Shutdown();
    sensor.Record()->History = nullptr;
    delete history;
    history = nullptr;
}
