#include "sensors/custom_sensor.h"

#include "feature/feature_report.h"
#include "tracing/trace.h"

namespace {
constexpr GUID kTraceMessageGuid = {
    0x65A02E6C, 0xF9CE, 0x4114, {0xAC, 0x99, 0x2B, 0xD3, 0x5B, 0x48, 0xDD, 0xFB}};
}  // namespace

CustomSensor::CustomSensor(WDFDEVICE device, HidDevice* owner, ULONG sensorObjectKind, ULONG usage,
                           USHORT linkCollection, ULONG sensorIndex, PCWSTR manufacturer,
                           PCWSTR product, PCWSTR serialNumber, PCWSTR instanceName) noexcept
    : HidSensor(device, owner, sensorObjectKind, usage, linkCollection, sensorIndex, manufacturer,
                product, serialNumber, instanceName)
{
    if (!IsValid())
        return;
    cache_ = new (std::nothrow) SensorPropertyCache;
    if (cache_ == nullptr) {
        TRACE_ERROR(STATUS_NO_MEMORY, sensorIndex);
        MarkConstructionFailed();
        return;
    }
    HidCollectionRecord& record = *Record();
    // Classified again, for the name only: reads the feature report once more.
    const CustomSensorKind kind =
        ClassifyCustomCollection(owner, static_cast<UCHAR>(sensorIndex), linkCollection);
    WideFormat(record.FriendlyName, u"%s-%i", {CustomSensorKindFriendlyText(kind), sensorIndex});
    record.CurrentReportInterval.store(kDefaultReportIntervalMs, std::memory_order_relaxed);
    record.FallbackReportInterval.store(kDefaultReportIntervalMs, std::memory_order_relaxed);
    record.MinimumReportInterval.store(kMinimumReportIntervalMs, std::memory_order_relaxed);
}

CustomSensor::~CustomSensor()
{
    delete cache_;
    cache_ = nullptr;
}

NTSTATUS CustomSensor::Initialize()
{
    TRACE_ENTRY();
    cache_->ClearFeatureValues();
    HidCollectionRecord& record = *Record();
    record.DefaultMaximum = FLT_MAX;
    record.DefaultMinimum = -FLT_MAX;
    record.FurtherBounds[0] = FLT_MAX;
    record.FurtherBounds[1] = FLT_MAX;

    NTSTATUS status = HidSensor::Initialize();
    if (NT_SUCCESS(status))
        status = RegisterSensor();
    if (!NT_SUCCESS(status))
        TRACE_ERROR(status, GetFriendlyName());
    TRACE_EXIT(status);
    return status;
}

NTSTATUS CustomSensor::Uninitialize()
{
    TRACE_ENTRY();
    TRACE_EXIT(STATUS_SUCCESS);
    return STATUS_SUCCESS;
}

NTSTATUS CustomSensor::ReadFeatureReport(ULONG writeSettings)
{
    return ReadSensorFeatureReport(*this, *cache_, writeSettings);
}

NTSTATUS CustomSensor::RegisterSensor()
{
    TRACE_ENTRY();
    TRACE_ERROR(STATUS_NOT_IMPLEMENTED, GetFriendlyName());
    TRACE_EXIT(STATUS_NOT_IMPLEMENTED);
    return STATUS_NOT_IMPLEMENTED;
}
